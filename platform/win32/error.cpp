#include "platform/error.h"

#include <windows.h>

#include <cstdio>

namespace platform {

std::uint32_t last_error() { return GetLastError(); }

void set_last_error(std::uint32_t error) { SetLastError(error); }

void error_text(std::uint32_t error, char (&text)[most_error_text])
{
    char *words = nullptr;
    const DWORD length = FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error,
        MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<char *>(&words), 0, nullptr);
    if (length > 0)
        std::snprintf(text, sizeof text, "%s", words);
    else
        std::snprintf(text, sizeof text, "Unknown error %lu", static_cast<unsigned long>(error));
    LocalFree(words);
}

}  // namespace platform
