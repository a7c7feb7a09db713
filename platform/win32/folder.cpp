#include "platform/folder.h"

#include "platform/error.h"
#include "platform/win32/wide_text.h"

#include <string>
#include <string_view>
#include <vector>
#include <windows.h>

namespace platform {

namespace {

bool refuse(std::uint32_t error)
{
    set_last_error(error);
    return false;
}

bool is_name_of_one(std::string_view name)
{
    while (name.size() > 1 && (name.back() == '/' || name.back() == '\\')) name.remove_suffix(1);
    const std::string_view last = name.substr(name.find_last_of("/\\:") + 1);
    return !last.empty() && last != "." && last != ".." && !name.starts_with("\\\\?") && !name.starts_with("\\\\.");
}

std::wstring path_of_folder(const std::wstring &name)
{
    std::wstring full = win32::full_path(name);
    while (!full.empty() && full.back() == L'\\') full.pop_back();
    return full;
}

// Is it the root of a volume, the process's own folder, or one above that?
bool is_under_this_process(const std::wstring &full)
{
    std::wstring root(full.size() + 2, L'\0');
    if (!GetVolumePathNameW((full + L'\\').c_str(), root.data(), static_cast<DWORD>(root.size()))) return true;
    root.resize(std::wstring_view(root.c_str()).size());
    if (root.size() >= full.size()) return true;
    std::wstring own(GetCurrentDirectoryW(0, nullptr), L'\0');
    own.resize(GetCurrentDirectoryW(static_cast<DWORD>(own.size()), own.data()));
    own += L'\\';
    const std::wstring folder = full + L'\\';
    return own.size() >= folder.size() &&
           CompareStringOrdinal(own.data(), static_cast<int>(folder.size()), folder.data(),
                                static_cast<int>(folder.size()), TRUE) == CSTR_EQUAL;
}

// For the system's calls of any length.
std::wstring long_form(const std::wstring &full)
{
    return full.starts_with(L"\\\\") ? L"\\\\?\\UNC" + full.substr(1) : L"\\\\?\\" + full;
}

bool remove_entry(const std::wstring &path, DWORD attributes)
{
    if ((attributes & FILE_ATTRIBUTE_READONLY) != 0)
        SetFileAttributesW(path.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? RemoveDirectoryW(path.c_str()) != 0
                                                        : DeleteFileW(path.c_str()) != 0;
}

// Removes what is no folder, and adds the folders to the list.
bool empty_folder(std::size_t i, std::vector<std::wstring> &folders)
{
    WIN32_FIND_DATAW entry;
    const HANDLE search = FindFirstFileW((folders[i] + L"\\*").c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE) return false;
    bool good = true;
    do {
        const std::wstring_view name = entry.cFileName;
        if (name == L"." || name == L"..") continue;
        const std::wstring path = folders[i] + L'\\' + entry.cFileName;
        constexpr DWORD kind = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
        if ((entry.dwFileAttributes & kind) == FILE_ATTRIBUTE_DIRECTORY)
            folders.push_back(path);
        else
            good = remove_entry(path, entry.dwFileAttributes);
    } while (good && FindNextFileW(search, &entry));
    const DWORD error = GetLastError();
    FindClose(search);
    SetLastError(error);
    return good && error == ERROR_NO_MORE_FILES;
}

}  // namespace

bool remove_folder(const char *name)
{
    std::wstring wide;
    if (!is_name_of_one(name)) return refuse(error_invalid_name);
    if (!win32::file_name(name, wide)) return false;
    const std::wstring full = path_of_folder(wide);
    const DWORD attributes = GetFileAttributesW(wide.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return false;
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0 || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        return refuse(error_directory);
    if (is_under_this_process(full)) return refuse(error_sharing_violation);
    std::vector<std::wstring> folders{full.starts_with(L"\\\\?\\") ? full : long_form(full)};
    for (std::size_t i = 0; i < folders.size(); ++i)
        if (!empty_folder(i, folders)) return false;
    for (; !folders.empty(); folders.pop_back())
        if (!remove_entry(folders.back(), GetFileAttributesW(folders.back().c_str()))) return false;
    return true;
}

bool create_new_file(const char *name)
{
    std::wstring wide;
    if (!win32::file_name(name, wide)) return false;
    HANDLE handle = CreateFileW(wide.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    if (handle != INVALID_HANDLE_VALUE) return CloseHandle(handle) != 0;
    const DWORD error = GetLastError();
    if (GetFileAttributesW(wide.c_str()) != INVALID_FILE_ATTRIBUTES) return refuse(error_file_exists);
    return refuse(error);
}

bool free_space(const char *folder, std::uint64_t &bytes)
{
    std::wstring wide;
    ULARGE_INTEGER space{};
    if (!win32::file_name(folder, wide) || !GetDiskFreeSpaceExW(wide.c_str(), &space, nullptr, nullptr)) return false;
    bytes = space.QuadPart;
    return true;
}

}  // namespace platform
