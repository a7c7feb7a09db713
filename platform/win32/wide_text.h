// The library's texts are UTF-8; Windows' are UTF-16.
#pragma once

#include <string>
#include <string_view>

namespace platform::win32 {

// For texts that are shown or compared: what is no UTF-8 becomes U+FFFD.
std::wstring wide(std::string_view utf8);

// The name of a file for the wide calls, of any length. False with error_invalid_name when it is no UTF-8.
bool file_name(const char *utf8, std::wstring &name);

}  // namespace platform::win32
