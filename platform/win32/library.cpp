#include "platform/library.h"

#include "platform/error.h"
#include "platform/win32/wide_text.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <string_view>

namespace platform {

namespace {

HMODULE own_module()
{
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const wchar_t *>(&own_module), &module);
    return module;
}

std::atomic<void (*)()> action_at_unload{nullptr};

// True from ExitProcess on.
bool process_ends()
{
    const auto is_ending = reinterpret_cast<BOOLEAN(WINAPI *)()>(
        reinterpret_cast<void *>(GetProcAddress(GetModuleHandleW(L"ntdll"), "RtlDllShutdownInProgress")));
    return is_ending && is_ending();
}

const struct Unload {
    ~Unload()
    {
        const auto action = action_at_unload.exchange(nullptr);
        if (action && own_module() != GetModuleHandleW(nullptr) && !process_ends()) action();
    }
} unload;

std::string folder_of(const std::string &path) { return path.substr(0, path.rfind('\\') + 1); }

// A broken library would show a message box, which waits for a click.
class No_Message_Box {
public:
    No_Message_Box() { set_ = SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &former_) != 0; }
    ~No_Message_Box()
    {
        if (set_) SetThreadErrorMode(former_, nullptr);
    }
    No_Message_Box(const No_Message_Box &) = delete;
    No_Message_Box &operator=(const No_Message_Box &) = delete;

private:
    DWORD former_ = 0;
    bool set_ = false;
};

std::string with_backslashes(const char *name)
{
    std::string path(name);
    std::replace(path.begin(), path.end(), '/', '\\');
    return path;
}

// What systems answer differently for a file that is there, or is none.
bool may_load(const std::wstring &path)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return true;
    SetLastError(error_access_denied);
    return false;
}

HMODULE module_of(void *library) { return static_cast<HMODULE>(library); }

}  // namespace

std::string own_path()
{
    HMODULE const module = own_module();
    if (!module) return {};
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) return win32::utf8(std::wstring_view(path).substr(0, length));
        path.resize(2 * path.size());
    }
}

std::string own_folder() { return folder_of(own_path()); }

std::string own_folder_behind_links()
{
    std::wstring name;
    if (!win32::file_name(own_path().c_str(), name)) return {};
    HANDLE const file = CreateFileW(name.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return {};
    std::wstring path(MAX_PATH, L'\0');
    DWORD length = 0;
    while ((length = GetFinalPathNameByHandleW(file, path.data(), static_cast<DWORD>(path.size()), 0)) >= path.size())
        path.resize(length);
    CloseHandle(file);
    return folder_of(win32::utf8(std::wstring_view(path).substr(0, length)));
}

void when_unloaded(void (*action)()) { action_at_unload.store(action); }

void *load_library(const char *name)
{
    const std::string path = with_backslashes(name);
    std::wstring wide = win32::wide(path);
    if (path.find('\\') != std::string::npos) {
        if (!win32::file_name(path.c_str(), wide) || !may_load(wide)) return nullptr;
    }
    if (path.empty()) {
        SetLastError(error_module_not_found);
        return nullptr;
    }
    const No_Message_Box quiet;
    void *const library = LoadLibraryW(wide.c_str());
    if (!library && GetLastError() == error_path_not_found) SetLastError(error_module_not_found);
    return library;
}

Function function_of(void *library, const char *name)
{
    const FARPROC found = library ? GetProcAddress(module_of(library), name) : nullptr;
    if (!found) SetLastError(error_procedure_not_found);
    return reinterpret_cast<Function>(reinterpret_cast<void *>(found));
}

bool free_library(void *library)
{
    if (library && FreeLibrary(module_of(library))) return true;
    SetLastError(error_invalid_handle);
    return false;
}

bool names_in_folder(const char *folder, std::vector<std::string> &names)
{
    std::wstring pattern;
    std::string path = with_backslashes(folder);
    if (!path.ends_with('\\')) path += '\\';
    if (!win32::file_name((path + '*').c_str(), pattern)) return false;
    WIN32_FIND_DATAW entry{};
    HANDLE const search = FindFirstFileW(pattern.c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE) return false;
    try {
        do {
            const std::wstring_view name = entry.cFileName;
            if (name != L"." && name != L"..") names.push_back(win32::utf8(name));
        } while (FindNextFileW(search, &entry));
    } catch (...) {
        FindClose(search);
        throw;
    }
    FindClose(search);
    return true;
}

}  // namespace platform
