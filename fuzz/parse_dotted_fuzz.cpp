// Dotted addresses: the reader accepts what a slow reading by the rules accepts, and reads back what it shows.
#include "fuzz/Require.h"
#include "platform/socket.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr std::uint64_t too_large = std::uint64_t{1} << 40;

// A number in the notation of C: decimal, octal after 0, hexadecimal after 0x. Large ones become too_large.
std::optional<std::uint64_t> Naive_Number(std::string text)
{
    unsigned int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        base = 16;
        text.erase(0, 2);
    } else if (text.starts_with("0")) {
        base = 8;
    }
    if (text.empty()) return {};
    std::uint64_t value = 0;
    const std::string digits = "0123456789abcdef";
    for (const char c : text) {
        const char lower = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
        const std::size_t digit = digits.find(lower);
        if (digit >= base) return {};
        value = std::min<std::uint64_t>(value * base + digit, too_large);
    }
    return value;
}

std::vector<std::string> Split(const std::string &text)
{
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == '.')
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

// Up to three bytes and a last part for the rest; a blank ends the address.
std::optional<std::uint32_t> Naive_Address(const std::string &text)
{
    const auto parts = Split(text.substr(0, text.find(' ')));
    if (parts.size() > 4) return {};
    std::uint64_t host = 0;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const bool is_last = i + 1 == parts.size();
        const std::size_t bytes = is_last ? 4 - i : 1;
        const auto value = Naive_Number(parts[i]);
        if (!value || *value >> (8 * bytes) != 0) return {};
        host = host << (8 * bytes) | *value;
    }
    return static_cast<std::uint32_t>(host);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string whole(reinterpret_cast<const char *>(data), size);
    const std::string text = whole.substr(0, whole.find('\0'));
    const auto exact = std::make_unique<char[]>(text.size() + 1);  // so that a sanitizer sees a read beyond the end
    std::copy(text.begin(), text.end(), exact.get());

    std::uint32_t host = 0;
    const bool read = platform::parse_dotted(exact.get(), host);
    const auto expected = Naive_Address(text);
    Require(read == expected.has_value(), "not what the rules accept");
    if (!read) return 0;
    Require(host == *expected, "another address");
    std::uint32_t again = 0;
    Require(platform::parse_dotted(platform::dotted(host).c_str(), again) && again == host, "not what was shown");
    return 0;
}
