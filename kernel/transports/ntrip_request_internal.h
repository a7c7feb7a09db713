// The texts of NTRIP requests, version 1. Not installed.
#pragma once

#include <string>
#include <string_view>

namespace kernel {

// RFC 4648, with padding.
std::string Base64(std::string_view bytes);

// A request. authorisation: a line of the head, or null for none. via_proxy: the address of the caster is part of it.
std::string Ntrip_Request(std::string_view path, const char *authorisation, std::string_view host, int port,
                          bool via_proxy);

}  // namespace kernel
