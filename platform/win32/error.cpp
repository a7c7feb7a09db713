#include "platform/error.h"

#include <windows.h>

namespace platform {

std::uint32_t last_error() { return GetLastError(); }

void set_last_error(std::uint32_t error) { SetLastError(error); }

std::string error_text(std::uint32_t error)
{
    char *text = nullptr;
    const DWORD length = FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error,
        MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<char *>(&text), 0, nullptr);
    std::string result = length > 0 ? std::string(text, length) : unknown_error_text(error);
    LocalFree(text);
    return result;
}

}  // namespace platform
