#include "kernel/records/Crc24q.h"

#include <array>

namespace kernel {

namespace {

constexpr std::uint32_t polynomial = 0x1864CFB;
constexpr std::uint32_t carry = 0x1000000;  // the bit above the checksum's 24
constexpr std::uint32_t all_bits = carry - 1;

constexpr std::array<std::uint32_t, 256> Make_Table()
{
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t crc = byte << 16;
        for (int bit = 0; bit < 8; ++bit) {
            crc <<= 1;
            if (crc & carry) crc ^= polynomial;
        }
        table[byte] = crc;
    }
    return table;
}

// The remainder of a byte that stands in the top 8 of the 24 bits. Computed by the compiler.
constexpr std::array<std::uint32_t, 256> table = Make_Table();

}  // namespace

std::uint32_t Crc24q(std::span<const unsigned char> bytes, std::uint32_t crc)
{
    // `crc` has 24 bits, so the index stays within the table.
    for (const unsigned char byte : bytes) crc = ((crc << 8) & all_bits) ^ table[(crc >> 16) ^ byte];
    return crc;
}

}  // namespace kernel
