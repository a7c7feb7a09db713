#include "kernel/bytes/Keyboard_Server.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/bytes/typed_line_internal.h"

#include <cstdio>
#include <cstring>

namespace kernel {

namespace {

const char unit[] = "kernel/Keyboard_Server";

constexpr std::size_t piece_size = 5027;  // of a line, at a time
constexpr std::size_t text_size = 5051;   // what the printf-style Put serves at a time

// Part of a line, at most piece_size characters.
struct Piece {
    char text[piece_size];
    std::size_t size = 0;
    bool ends_line = true;  // true also when the end of the input ends the line
    bool is_end = false;    // end of the input, with no line before it
};

// Replaces `piece` by the next one. Reads character by character, because a line may contain zero bytes.
void Read(Piece &piece)
{
    const bool is_new_line = piece.ends_line;
    piece.size = 0;
    int c = 0;
    while (piece.size < piece_size && (c = std::getchar()) != '\n' && c != EOF)
        piece.text[piece.size++] = static_cast<char>(c);
    piece.ends_line = c == '\n' || c == EOF;
    piece.is_end = c == EOF && piece.size == 0 && is_new_line;
}

}  // namespace

const char Keyboard_Server::Name[] = "Server for Keyboard Input";

Keyboard_Server::Keyboard_Server(unsigned long size)
    : Object(Name, nullptr), String_Byte_Server(Name, static_cast<long>(size), nullptr)
{
}

Keyboard_Server *Keyboard_Server::Construct(unsigned long size)
{
    return Constructed([&] { return new Keyboard_Server(size); });
}

bool Keyboard_Server::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || String_Byte_Server::IsInheritedFrom(name);
}

bool Keyboard_Server::IsValid() const { return String_Byte_Server::IsValid(); }

bool Keyboard_Server::Work()
{
    Piece piece;
    char text[text_size];
    for (;;) {
        Read(piece);
        if (piece.is_end) return true;
        const std::size_t size = Format_Without_Arguments({piece.text, piece.size}, text, text_size);
        if (Put_Typed({text, size}) && piece.ends_line) Put_Typed("\r\n");
        // Does not return in the middle of a line, because the next call would begin a new one.
        if (!String_Byte_Server::Work() && piece.ends_line) return false;
    }
}

// Puts the whole text as long as the client makes room.
bool Keyboard_Server::Put_Typed(std::string_view text)
{
    for (;;) {
        const long before = MinAvail(0);
        if (PutBin(reinterpret_cast<const unsigned char *>(text.data()), static_cast<unsigned int>(text.size())))
            return true;
        const long full = MinAvail(0);
        text.remove_prefix(static_cast<std::size_t>(full - before));
        String_Byte_Server::Work();
        if (MinAvail(0) < full) continue;
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Warning, 15,
                       "Typed line does not fit into the buffer, %u characters discarded",
                       static_cast<unsigned int>(text.size()));
        return false;
    }
}

}  // namespace kernel
