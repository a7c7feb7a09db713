// The scanning operations on a ring of bytes, against a slow model: same results, same bytes left. The first byte is
// the size of the ring. Then come commands: a byte for the operation, a byte n, and n % 8 bytes for it.
#include "fuzz/Require.h"
#include "kernel/base/Error_Handler.h"
#include "kernel/bytes/String_Byte_Server.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>

namespace {

using kernel::String_Byte_Server;

constexpr unsigned short none = kernel::No_Byte;

char Upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// Bytes from 0x80 on match no text.
bool Same(unsigned short byte, char wanted) { return byte < 0x80 && static_cast<char>(byte) == wanted; }
bool Same_Upper(unsigned short byte, char wanted)
{
    return byte < 0x80 && Upper(static_cast<char>(byte)) == Upper(wanted);
}

struct Model {
    std::size_t room;  // most bytes at a time
    std::deque<unsigned char> bytes;

    bool Put(const std::string &more)
    {
        for (const char c : more) {
            if (bytes.size() == room) return false;
            bytes.push_back(static_cast<unsigned char>(c));
        }
        return true;
    }
    unsigned short Get()
    {
        if (bytes.empty()) return none;
        const unsigned char byte = bytes.front();
        bytes.pop_front();
        return byte;
    }
    unsigned short Unget(unsigned char byte)
    {
        if (bytes.size() == room) return none;
        bytes.push_front(byte);
        return byte;
    }
    template <class Matches>
    unsigned short Scan(Matches matches)
    {
        for (unsigned short byte = Get();; byte = Get())
            if (byte == none || matches(byte)) return byte;
    }
    bool Text(const std::string &text, bool (*same)(unsigned short, char), bool pushes_back)
    {
        for (std::size_t i = 0; i < text.size(); ++i) {
            const unsigned short byte = Get();
            if (byte == none) return false;
            if (same(byte, text[i])) continue;
            if (pushes_back && i > 0) bytes.push_front(static_cast<unsigned char>(byte));
            return false;
        }
        return true;
    }
};

// One command on both. Returns whether they agree.
bool Agree(String_Byte_Server &ring, Model &model, unsigned char operation, const std::string &bytes)
{
    const std::string text(bytes.c_str());  // up to the first zero byte
    const unsigned char first = bytes.empty() ? 0 : static_cast<unsigned char>(bytes[0]);
    switch (operation % 8) {
    case 0: return ring.GetByte() == model.Get();
    case 1: return ring.UnGetByte(first) == model.Unget(first);
    case 2: return ring.Sync_Byte(first) == (model.Scan([=](unsigned short b) { return b == first; }) != none);
    case 3: {
        const auto matches = [=](unsigned short b) { return b == first && b < 0x80; };
        return ring.Sync_Byte(static_cast<signed char>(first)) == (model.Scan(matches) != none);
    }
    case 4: {
        const auto is_in_set = [&](unsigned short b) {
            return b == 0 || text.find(static_cast<char>(b)) != std::string::npos;
        };
        return ring.Sync_Bytes(text.c_str()) == model.Scan(is_in_set);
    }
    case 5: return ring.Sync_String(text.c_str()) == model.Text(text, Same, true);
    case 6: return ring.Sync_String_Upper(text.c_str()) == model.Text(text, Same_Upper, false);
    default:
        return ring.PutBin(reinterpret_cast<const unsigned char *>(bytes.data()),
                           static_cast<unsigned int>(bytes.size())) == model.Put(bytes);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0) return 0;
    kernel::NULL_Error_Handler silent;
    const std::size_t ring_size = 2 + data[0] % 64;
    const std::unique_ptr<String_Byte_Server> ring(
        String_Byte_Server::Construct(static_cast<long>(ring_size), &silent));
    Model model{ring_size - 1, {}};
    for (std::span<const std::uint8_t> rest(data + 1, size - 1); rest.size() >= 2;) {
        const std::size_t length = std::min<std::size_t>(rest[1] % 8, rest.size() - 2);
        const std::string bytes(rest.begin() + 2, rest.begin() + 2 + static_cast<std::ptrdiff_t>(length));
        Require(Agree(*ring, model, rest[0], bytes), "another result than the model's");
        Require(ring->MinAvail(0) == static_cast<long>(model.bytes.size()), "another number of bytes left");
        rest = rest.subspan(2 + length);
    }
    while (!model.bytes.empty()) Require(ring->GetByte() == model.Get(), "other bytes left");
    return 0;
}
