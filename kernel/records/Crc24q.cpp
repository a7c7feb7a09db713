#include "kernel/records/Crc24q.h"

#include <array>

namespace kernel {

namespace {

constexpr std::uint32_t polynomial = 0x1864CFB;

constexpr std::array<std::uint32_t, 256> Make_Table()
{
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t crc = byte << 16;
        for (int bit = 0; bit < 8; ++bit) {
            crc <<= 1;
            if (crc & 0x1000000) crc ^= polynomial;
        }
        table[byte] = crc;
    }
    return table;
}

// What a byte in the top eight of the 24 bits leaves behind. Computed by the compiler.
constexpr std::array<std::uint32_t, 256> table = Make_Table();

}  // namespace

std::uint32_t Crc24q(std::span<const unsigned char> bytes, std::uint32_t crc)
{
    // A result has 24 bits, also one that is handed in to go on with: the index stays within the table.
    for (const unsigned char byte : bytes) crc = ((crc << 8) & 0xFFFFFF) ^ table[(crc >> 16) ^ byte];
    return crc;
}

}  // namespace kernel
