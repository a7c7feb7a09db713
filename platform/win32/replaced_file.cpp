#include "platform/replaced_file.h"

#include "platform/error.h"
#include "platform/win32/wide_text.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace platform {

namespace {

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

std::unique_ptr<Replaced_File> Replaced_File::open(const char *name)
{
    std::wstring target, wide;
    const std::string fresh = std::string(name) + ".new";
    if (!win32::file_name(name, target) || !win32::file_name(fresh.c_str(), wide)) return nullptr;
    const DWORD attributes = GetFileAttributesW(target.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        SetLastError(error_bad_file_type);
        return nullptr;
    }
    HANDLE handle = CreateFileW(wide.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return nullptr;
    std::FILE *const stream = _fdopen(_open_osfhandle(reinterpret_cast<std::intptr_t>(handle), _O_BINARY), "wb");
    return std::unique_ptr<Replaced_File>(new Replaced_File(name, fresh, stream));
}

bool Replaced_File::force_out()
{
    return FlushFileBuffers(reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream_)))) != 0;
}

bool Replaced_File::take_place()
{
    return MoveFileExW(wide_name(fresh_).c_str(), wide_name(name_).c_str(),
                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}

void Replaced_File::remove_fresh() { DeleteFileW(wide_name(fresh_).c_str()); }

Replaced_File::~Replaced_File()
{
    if (!stream_) return;
    std::fclose(stream_);
    remove_fresh();
}

// An open file cannot be renamed here.
bool Replaced_File::commit()
{
    if (!stream_) return false;
    const bool written = std::fflush(stream_) == 0 && std::ferror(stream_) == 0 && force_out();
    std::uint32_t error = last_error();
    std::fclose(stream_);
    stream_ = nullptr;
    if (written && take_place()) return true;
    if (written) error = last_error();
    remove_fresh();
    set_last_error(error);
    return false;
}

}  // namespace platform
