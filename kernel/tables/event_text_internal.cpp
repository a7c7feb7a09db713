#include "kernel/tables/event_text_internal.h"

#include <charconv>
#include <cstdint>
#include <cstring>

namespace kernel {

namespace {

constexpr std::size_t most_digits = 400;  // the largest double has 309 before the point

bool Is_Letter_Or_Digit(int c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool Is_Digit(int c) { return c >= '0' && c <= '9'; }
bool Is_In_Number(int c) { return Is_Letter_Or_Digit(c) || c == '.' || c == '+' || c == '-'; }
bool Is_Blank(int c) { return c == ' ' || c == '\t'; }
bool Is_Space(int c) { return Is_Blank(c) || (c >= '\n' && c <= '\r'); }  // as isspace in the C locale

// The first character that is not skipped is put back.
void Skip(std::FILE *file, bool (*skipped)(int))
{
    int c = 0;
    do {
        c = std::getc(file);
    } while (skipped(c));
    std::ungetc(c, file);
}

bool Take(std::FILE *file, char wanted)
{
    const int c = std::getc(file);
    if (c == wanted) return true;
    std::ungetc(c, file);
    return false;
}

// The characters that may belong to a number, as a whole.
struct Token {
    char text[most_digits];
    std::size_t size = 0;

    Token(std::FILE *file, bool (*belongs)(int))
    {
        int c = 0;
        while (size < sizeof text && belongs(c = std::getc(file))) text[size++] = static_cast<char>(c);
        if (size < sizeof text) std::ungetc(c, file);
    }
    const char *Begin() const { return size > 0 && text[0] == '+' ? text + 1 : text; }
    const char *End() const { return text + size; }
};

template <class Number, class... Format>
bool Is_Number(const Token &token, Number &number, Format... format)
{
    const auto [end, error] = std::from_chars(token.Begin(), token.End(), number, format...);
    return error == std::errc() && end == token.End() && token.size < sizeof token.text;
}

}  // namespace

bool Write_Text(std::FILE *file, const char *text)
{
    const std::size_t size = std::strlen(text);
    return std::fwrite(text, 1, size, file) == size;
}

bool Write_Time(std::FILE *file, double time)
{
    char text[most_digits];
    const auto size =
        static_cast<std::size_t>(std::to_chars(text, text + sizeof text, time, std::chars_format::fixed, 3).ptr - text);
    return std::fwrite(text, 1, size, file) == size;
}

bool Write_Quoted(std::FILE *file, const char *text)
{
    if (std::putc('"', file) == EOF) return false;
    while (*text) {
        const std::size_t plain = std::strcspn(text, "\n\t\"\\");
        if (std::fwrite(text, 1, plain, file) != plain) return false;
        text += plain;
        if (!*text) break;
        const char c = *text++;
        if (std::putc('\\', file) == EOF || std::putc(c == '\n' ? 'n' : c == '\t' ? 't' : c, file) == EOF) return false;
    }
    return std::putc('"', file) != EOF;
}

bool Read_Time(std::FILE *file, double &time)
{
    Skip(file, Is_Space);
    return Is_Number(Token(file, Is_In_Number), time, std::chars_format::general);
}

bool Read_Hexadecimal_Time(std::FILE *file, double &time)
{
    std::uint32_t seconds = 0;
    Skip(file, Is_Space);
    Token token(file, Is_Letter_Or_Digit);
    if (token.size > 2 && token.text[0] == '0' && (token.text[1] | 0x20) == 'x') token.text[1] = '0';
    if (!Is_Number(token, seconds, 16)) return false;
    time = seconds;
    return true;
}

bool Read_Flag(std::FILE *file, int &flag)
{
    if (!Take(file, ',')) return false;
    flag = std::getc(file);
    return flag != EOF;
}

bool Read_Text_Field(std::FILE *file, char *text, std::size_t most)
{
    for (const char *wanted = ",\""; *wanted; ++wanted) {
        Skip(file, Is_Space);
        if (!Take(file, *wanted)) return false;
    }
    std::size_t size = 0;
    const auto put = [&](int c) {
        if (size < most) text[size++] = static_cast<char>(c);
    };
    for (int c = 0; (c = std::getc(file)) != '"';) {
        if (c == EOF) return false;
        if (c != '\\') {
            put(c);
            continue;
        }
        c = std::getc(file);
        if (c == EOF) return false;
        if (c != '"' && c != '\\' && c != 'n' && c != 't') put('\\');  // no escape: both stay
        put(c == 'n' ? '\n' : c == 't' ? '\t' : c);
    }
    text[size] = '\0';
    return true;
}

bool Read_Name(std::FILE *file, char *name, std::size_t most)
{
    if (!Take(file, '"')) return false;
    std::size_t size = 0;
    int c = 0;
    for (; (c = std::getc(file)) != '"' && c != EOF;)
        if (size < most) name[size++] = static_cast<char>(c);
    name[size] = '\0';
    if (c == EOF && size == 0) return false;
    if (size == 0)
        std::ungetc(c, file);
    else
        Skip(file, Is_Space);
    return size > 0;
}

bool Read_Version(std::FILE *file, int &major, int &minor)
{
    Skip(file, Is_Blank);  // no line end: a line of "#" alone must not hide the one below it
    for (const char *wanted = "Version"; *wanted; ++wanted)
        if (!Take(file, *wanted)) return false;
    Skip(file, Is_Blank);
    if (!Is_Number(Token(file, Is_Digit), major) || !Take(file, '.')) return false;
    return Is_Number(Token(file, Is_Digit), minor);
}

void Skip_Line(std::FILE *file)
{
    for (int c = 0; (c = std::getc(file)) != '\n' && c != EOF;) {
    }
}

}  // namespace kernel
