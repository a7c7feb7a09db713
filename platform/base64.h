// Bytes as text.
#pragma once

#include <string>
#include <string_view>

namespace platform {

// Base64 of RFC 4648, with padding, without line ends.
std::string base64(std::string_view bytes);

}  // namespace platform
