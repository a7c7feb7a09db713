#include "platform/replaced_file.h"

#include "platform/error.h"
#include "platform/win32/wide_text.h"

#include <cstring>
#include <fcntl.h>
#include <io.h>
#include <vector>
#include <windows.h>

namespace platform {

namespace {

constexpr DWORD longest_wait = 1000, nap = 10;  // [ms] for the readers of a file that is replaced

HANDLE handle_of(std::FILE *stream) { return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream))); }

std::wstring wide_name(const std::string &name)
{
    std::wstring wide;
    win32::file_name(name.c_str(), wide);
    return wide;
}

}  // namespace

std::FILE *open_stream(const char *name)
{
    std::wstring wide;
    if (!win32::file_name(name, wide)) return nullptr;
    HANDLE handle = CreateFileW(wide.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return nullptr;
    if (GetFileType(handle) != FILE_TYPE_DISK) {
        CloseHandle(handle);
        SetLastError(error_bad_file_type);
        return nullptr;
    }
    return _fdopen(_open_osfhandle(reinterpret_cast<std::intptr_t>(handle), _O_RDONLY), "rb");
}

std::unique_ptr<Replaced_File> Replaced_File::open(const char *name, Rights rights)
{
    std::wstring target, wide;
    const std::string fresh = std::string(name) + ".new";
    if (!win32::file_name(name, target) || !win32::file_name(fresh.c_str(), wide)) return nullptr;
    const DWORD attributes = GetFileAttributesW(target.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        SetLastError(error_bad_file_type);
        return nullptr;
    }
    if (rights == Rights::as_before && attributes != INVALID_FILE_ATTRIBUTES &&
        (attributes & FILE_ATTRIBUTE_READONLY) != 0) {
        SetLastError(error_access_denied);
        return nullptr;
    }
    HANDLE handle =
        CreateFileW(wide.c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return nullptr;
    std::FILE *const stream = _fdopen(_open_osfhandle(reinterpret_cast<std::intptr_t>(handle), _O_BINARY), "wb");
    return std::unique_ptr<Replaced_File>(new Replaced_File(name, fresh, stream));
}

bool Replaced_File::force_out() { return std::fflush(stream_) == 0 && FlushFileBuffers(handle_of(stream_)) != 0; }

// Renames while the file is open: until then no other writer can take NAME.new. The old file cannot be replaced while
// somebody reads it, which is soon over.
bool Replaced_File::take_place()
{
    const std::wstring name = win32::full_path(wide_name(name_));
    std::vector<char> memory(sizeof(FILE_RENAME_INFO) + name.size() * sizeof(wchar_t));
    auto *const info = reinterpret_cast<FILE_RENAME_INFO *>(memory.data());  // zeros: no root folder
    info->ReplaceIfExists = TRUE;
    info->FileNameLength = static_cast<DWORD>(name.size() * sizeof(wchar_t));
    std::memcpy(info->FileName, name.data(), info->FileNameLength);
    for (DWORD waited = 0;; waited += nap) {
        if (SetFileInformationByHandle(handle_of(stream_), FileRenameInfo, info, static_cast<DWORD>(memory.size())))
            return true;
        const DWORD error = GetLastError();
        const bool is_held = error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION;
        if (!is_held || waited >= longest_wait) return false;
        Sleep(nap);
    }
}

void Replaced_File::remove_fresh()
{
    FILE_DISPOSITION_INFO goes_when_closed{TRUE};
    SetFileInformationByHandle(handle_of(stream_), FileDispositionInfo, &goes_when_closed, sizeof goes_when_closed);
}

}  // namespace platform
