// The checksum of RTCM 3 frames.
#pragma once

#include <cstdint>
#include <span>

namespace host {

// CRC-24Q: polynomial 0x1864CFB, start value 0, no reflection, no final change. Over a block and its own checksum,
// most significant byte first, it is 0. To go on with a further block hand in the result so far.
std::uint32_t Crc24q(std::span<const unsigned char> bytes, std::uint32_t crc = 0);

}  // namespace host
