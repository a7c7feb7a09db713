#include "platform/socket_address.h"

#include <bit>

namespace platform {

std::uint16_t network_order(std::uint16_t value)
{
    if constexpr (std::endian::native == std::endian::big) return value;
    return static_cast<std::uint16_t>(value << 8 | value >> 8);
}

std::uint32_t network_order(std::uint32_t value)
{
    if constexpr (std::endian::native == std::endian::big) return value;
    const auto low = network_order(static_cast<std::uint16_t>(value));
    return std::uint32_t{low} << 16 | network_order(static_cast<std::uint16_t>(value >> 16));
}

}  // namespace platform
