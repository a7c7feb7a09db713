// Addresses of the interface and addresses of the platform. Not installed.
#pragma once

#include "kernel/transports/Socket_Client_Server.h"

#include "platform/socket.h"

#include <cstdint>

namespace kernel {

inline std::uint32_t Host_Of(const sockaddr_in &address)  // host byte order
{
    const auto &b = address.sin_addr;
    return std::uint32_t{b[0]} << 24 | std::uint32_t{b[1]} << 16 | std::uint32_t{b[2]} << 8 | b[3];
}

inline std::uint16_t Port_Of(const sockaddr_in &address)  // host byte order
{
    return static_cast<std::uint16_t>(address.sin_port[0] << 8 | address.sin_port[1]);
}

inline sockaddr_in Sockaddr_Of(std::uint32_t host, std::uint16_t port)
{
    const auto byte = [](std::uint32_t value, int shift) { return static_cast<std::uint8_t>(value >> shift & 0xFF); };
    sockaddr_in address;
    for (int i = 0; i < 4; ++i) address.sin_addr[i] = byte(host, 24 - 8 * i);
    address.sin_port[0] = byte(port, 8);
    address.sin_port[1] = byte(port, 0);
    return address;
}

}  // namespace kernel
