#include "platform/file.h"

#include "platform/error.h"
#include "platform/win32/wide_text.h"

#include <windows.h>

#include <algorithm>

namespace platform {

namespace {

HANDLE handle_of(std::intptr_t native) { return reinterpret_cast<HANDLE>(native); }

constexpr std::size_t most_per_call = 0x40000000;  // [bytes]; a DWORD holds it

DWORD block(std::size_t n) { return static_cast<DWORD>(std::min(n, most_per_call)); }

}  // namespace

std::shared_ptr<File> File::open_native(const char *name, Mode mode)
{
    std::wstring wide_name;
    if (!win32::file_name(name, wide_name)) return nullptr;
    const bool reads = mode == Mode::read || mode == Mode::read_shared;
    const DWORD access = reads ? GENERIC_READ : GENERIC_WRITE;
    const DWORD share = mode == Mode::read_shared ? FILE_SHARE_READ | FILE_SHARE_WRITE : FILE_SHARE_READ;
    const DWORD how = reads ? OPEN_EXISTING : mode == Mode::create ? CREATE_ALWAYS : OPEN_ALWAYS;
    HANDLE handle = CreateFileW(wide_name.c_str(), access, share, nullptr, how, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return nullptr;
    if (GetFileType(handle) != FILE_TYPE_DISK) {
        CloseHandle(handle);
        SetLastError(error_bad_file_type);
        return nullptr;
    }
    return std::shared_ptr<File>(new File(reinterpret_cast<std::intptr_t>(handle)));
}

File::~File() { CloseHandle(handle_of(native_)); }

bool File::read_once(void *buffer, std::size_t n, std::size_t &got)
{
    DWORD moved = 0;
    if (!ReadFile(handle_of(native_), buffer, block(n), &moved, nullptr)) return false;
    got = moved;
    return true;
}

bool File::write_once(const void *buffer, std::size_t n, std::size_t &put)
{
    DWORD moved = 0;
    if (!WriteFile(handle_of(native_), buffer, block(n), &moved, nullptr)) return false;
    if (moved == 0) {  // some systems do not report a full disk as an error
        SetLastError(ERROR_DISK_FULL);
        return false;
    }
    put = moved;
    return true;
}

bool File::seek_end(std::int64_t offset)
{
    LARGE_INTEGER distance;
    distance.QuadPart = offset;
    return SetFilePointerEx(handle_of(native_), distance, nullptr, FILE_END) != 0;
}

std::int64_t File::position() const
{
    LARGE_INTEGER zero{}, position{};
    return SetFilePointerEx(handle_of(native_), zero, &position, FILE_CURRENT) ? position.QuadPart : -1;
}

}  // namespace platform
