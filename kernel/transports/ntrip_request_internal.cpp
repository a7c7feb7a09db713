#include "kernel/transports/ntrip_request_internal.h"

namespace kernel {

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
