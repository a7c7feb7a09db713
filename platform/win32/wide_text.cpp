#include "platform/win32/wide_text.h"

#include "platform/error.h"

#include <windows.h>

namespace platform::win32 {

namespace {

bool convert(std::string_view utf8, DWORD flags, std::wstring &text)
{
    const int size = static_cast<int>(utf8.size());
    text.assign(utf8.size(), L'\0');  // UTF-16 has never more units than UTF-8 has bytes
    const int length = MultiByteToWideChar(CP_UTF8, flags, utf8.data(), size, text.data(), size);
    text.resize(static_cast<std::size_t>(length));
    return length > 0 || utf8.empty();
}

}  // namespace

std::wstring wide(std::string_view utf8)
{
    std::wstring text;
    convert(utf8, 0, text);
    return text;
}

std::string utf8(std::wstring_view wide)
{
    const int size = static_cast<int>(wide.size());
    std::string text(3 * wide.size(), '\0');  // UTF-8 has never more bytes than three for a unit of UTF-16
    const int length = WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, text.data(), static_cast<int>(text.size()),
                                           nullptr, nullptr);
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::wstring full_path(const std::wstring &name)
{
    std::wstring full(GetFullPathNameW(name.c_str(), 0, nullptr, nullptr), L'\0');
    full.resize(GetFullPathNameW(name.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
    return full;
}

bool file_name(const char *utf8, std::wstring &name)
{
    if (!convert(utf8, MB_ERR_INVALID_CHARS, name)) {
        SetLastError(error_invalid_name);
        return false;
    }
    // Short names are not changed: Windows takes the long form literally, so that device names would no longer work.
    const std::wstring full = full_path(name);
    if (full.size() < MAX_PATH || full.starts_with(L"\\\\?\\") || full.starts_with(L"\\\\.\\")) return true;
    name = full.starts_with(L"\\\\") ? L"\\\\?\\UNC" + full.substr(1) : L"\\\\?\\" + full;
    return true;
}

}  // namespace platform::win32
