// An address to and from the system's own structure. For the platform layer only.
#pragma once

#include "platform/socket.h"

#include <cstdint>
#include <cstring>

namespace platform {

// Most significant byte first, as addresses stand in the system's structures; and back.
std::uint16_t network_order(std::uint16_t value);
std::uint32_t network_order(std::uint32_t value);

// System is the system's sockaddr_in. Both systems lay it out alike and give IPv4 the same number; the field within
// sin_addr is a macro on Windows, hence the copies.
template <class System>
System to_system(const Address &address)
{
    constexpr int ipv4 = 2;
    const std::uint32_t host = network_order(address.host);
    System result{};
    static_assert(sizeof result.sin_addr == sizeof host);
    result.sin_family = ipv4;
    result.sin_port = network_order(address.port);
    std::memcpy(&result.sin_addr, &host, sizeof host);
    return result;
}

template <class System>
Address from_system(const System &address)
{
    std::uint32_t host = 0;
    std::memcpy(&host, &address.sin_addr, sizeof host);
    return {network_order(host), network_order(std::uint16_t{address.sin_port})};
}

}  // namespace platform
