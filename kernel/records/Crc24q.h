// CRC-24Q: the checksum of RTCM 3 frames and the parity of SBAS messages.
#pragma once

#include "kernel/base/kernel_api.h"

#include <cstdint>
#include <span>

namespace kernel {

// RTCM 10403.3, section 4; ICAO Annex 10 volume I, appendix B, 3.5.3.3. Polynomial 0x1864CFB, start value 0, no
// reflection, no final change. The CRC of a block followed by its own checksum, most significant byte first, is 0. To
// continue with a further block, pass the result so far as `crc`.
KERNEL_API std::uint32_t Crc24q(std::span<const unsigned char> bytes, std::uint32_t crc = 0);

}  // namespace kernel
