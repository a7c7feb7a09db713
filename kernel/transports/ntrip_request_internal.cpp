#include "kernel/transports/ntrip_request_internal.h"

#include <cstdint>

namespace kernel {

std::string Base64(std::string_view bytes)
{
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::string_view group = bytes.substr(i, 3);
        std::uint32_t bits = 0;  // 24 bits, the first byte in the highest eight
        for (std::size_t k = 0; k < 3; ++k)
            bits = bits << 8 | (k < group.size() ? static_cast<unsigned char>(group[k]) : 0u);
        for (std::size_t k = 0; k < 4; ++k) text += k <= group.size() ? alphabet[bits >> (18 - 6 * k) & 63u] : '=';
    }
    return text;
}

std::string Ntrip_Request(std::string_view path, const char *authorisation, std::string_view host, int port,
                          bool via_proxy)
{
    std::string text = "GET ";
    if (via_proxy) text.append("http://").append(host).append(":").append(std::to_string(port));
    text.append(path).append(" HTTP/1.0\r\nUser-Agent: NtripClient1.0\r\n");
    if (authorisation) text.append(authorisation).append("\r\n");
    return text.append("\r\n");
}

}  // namespace kernel
