#include "kernel/settings/registry_password_internal.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <random>

namespace kernel {

namespace {

constexpr unsigned base_offset = 0x4D;
constexpr unsigned step = 0x80;
constexpr unsigned char zero_substitute = base_offset + 0x7F;  // what becomes it: 0x7F at even places, 0xFF at odd ones
constexpr unsigned length_offset = 0x35;  // odd, and below 226: the byte with the length is then never 0
constexpr std::size_t shortest_text = 8, longest_filled_text = 15;
constexpr std::size_t longest_with_length = 127;  // the length is read as a byte with sign

char Not_Zero(std::size_t byte)
{
    const auto low = static_cast<unsigned char>(byte);
    return static_cast<char>(low == 0 ? zero_substitute : low);
}

}  // namespace

std::string Scrambled_Password(std::string_view clear)
{
    std::minstd_rand random(static_cast<std::uint32_t>(std::chrono::steady_clock::now().time_since_epoch().count()));
    const std::size_t wanted = shortest_text + random() % (longest_filled_text - shortest_text + 1);
    std::string text;
    for (std::size_t i = clear.size(); i-- > 0;)
        text += Not_Zero(static_cast<unsigned char>(clear[i]) + step * i + base_offset);
    while (text.size() < wanted) text += Not_Zero(random() >> 8);
    text += Not_Zero(clear.size() + text.size() + length_offset);
    return text;
}

std::string Clear_Password(std::string_view scrambled)
{
    if (scrambled.empty()) return {};
    const std::size_t stored = scrambled.size() - 1;
    const auto told = static_cast<signed char>(static_cast<unsigned char>(scrambled.back()) - length_offset - stored);
    std::size_t size = stored;
    if (stored <= longest_with_length) size = std::min(static_cast<std::size_t>(std::max<int>(told, 0)), stored);
    std::string clear;
    for (std::size_t k = 0; k < size; ++k) {
        const auto byte = static_cast<unsigned char>(scrambled[size - 1 - k]);
        clear += static_cast<char>((byte == zero_substitute ? 0u : byte) - base_offset - step * k);
    }
    return clear;
}

}  // namespace kernel
