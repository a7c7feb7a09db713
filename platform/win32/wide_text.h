// Conversion of the library's texts, which are UTF-8, to the UTF-16 of Windows.
#pragma once

#include <string>
#include <string_view>

namespace platform::win32 {

// For texts that are shown or compared: bytes that are not UTF-8 become U+FFFD.
std::wstring wide(std::string_view utf8);
// The system's text back; half a surrogate pair becomes U+FFFD.
std::string utf8(std::wstring_view wide);

// Converts a file name of any length for the wide calls. False with error_invalid_name when it is not UTF-8.
bool file_name(const char *utf8, std::wstring &name);

// The system's full name for a name.
std::wstring full_path(const std::wstring &name);

}  // namespace platform::win32
