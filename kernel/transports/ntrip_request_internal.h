// The texts of NTRIP requests, version 1. Not installed.
#pragma once

#include <string>
#include <string_view>

namespace kernel {

// Returns a request. authorisation: a header line without its line end, or null for none. via_proxy: the request
// contains the address of the caster.
std::string Ntrip_Request(std::string_view path, const char *authorisation, std::string_view host, int port,
                          bool via_proxy);

}  // namespace kernel
