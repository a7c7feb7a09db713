#include "platform/library.h"

#include "platform/error.h"
#include "platform/posix/errno_table.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <dirent.h>
#include <dlfcn.h>
#include <link.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace {

std::atomic<void (*)()> action_at_unload{nullptr};

// exit() destroys statics before it calls the functions below; dlclose does it after them.
const struct Process_End {
    ~Process_End() { action_at_unload.store(nullptr); }
} process_end;

[[gnu::destructor]] void unload()
{
    if (const auto action = action_at_unload.exchange(nullptr)) action();
}

std::string folder_of(const std::string &path) { return path.substr(0, path.rfind('/') + 1); }

std::string program_path()
{
    std::string path(256, '\0');
    for (;;) {
        const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
        if (length < 0) return {};
        if (static_cast<std::size_t>(length) < path.size()) return path.substr(0, static_cast<std::size_t>(length));
        path.resize(2 * path.size());
    }
}

std::string with_slashes(const char *name)
{
    std::string path(name);
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

// dlopen would open a FIFO and wait.
bool may_load(const std::string &path)
{
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        posix::fail();
        if (errno == ENOENT || errno == ENOTDIR) set_last_error(error_module_not_found);
        return false;
    }
    if (S_ISREG(status.st_mode)) return access(path.c_str(), R_OK) == 0 || posix::fail();
    set_last_error(S_ISDIR(status.st_mode) ? error_access_denied : error_bad_file_type);
    return false;
}

// The words of the last dlopen in English, whatever language the host has set.
std::string words_of_loader()
{
    const locale_t english = newlocale(LC_MESSAGES_MASK, "C", locale_t{});
    const locale_t former = english ? uselocale(english) : locale_t{};
    const char *const words = dlerror();
    std::string copy(words ? words : "");
    if (english) {
        uselocale(former);
        freelocale(english);
    }
    return copy;
}

// dlopen gives no number. The words are those of glibc and of musl.
std::uint32_t error_of(std::string_view words)
{
    constexpr struct {
        std::string_view words;
        std::uint32_t error;
    } table[] = {
        {"No such file", error_module_not_found},        {"undefined symbol", error_procedure_not_found},
        {"symbol not found", error_procedure_not_found}, {"Permission denied", error_access_denied},
        {"Cannot allocate memory", error_no_memory},
    };
    for (const auto &row : table) {
        if (words.find(row.words) != std::string_view::npos) return row.error;
    }
    return error_bad_executable;
}

}  // namespace

std::string own_path()
{
    Dl_info info{};
    struct link_map *map = nullptr;
    void *const code = reinterpret_cast<void *>(&own_path);
    if (dladdr1(code, &info, reinterpret_cast<void **>(&map), RTLD_DL_LINKMAP) == 0) return {};
    if (!map || !map->l_name || map->l_name[0] == '\0') return program_path();  // the program itself has no name there
    return map->l_name;
}

std::string own_folder() { return folder_of(own_path()); }

std::string own_folder_behind_links()
{
    const std::unique_ptr<char, void (*)(void *)> path(realpath(own_path().c_str(), nullptr), std::free);
    return path ? folder_of(path.get()) : std::string();
}

void when_unloaded(void (*action)()) { action_at_unload.store(action); }

void *load_library(const char *name)
{
    const std::string path = with_slashes(name);
    if (path.find('/') != std::string::npos && !may_load(path)) return nullptr;
    // RTLD_NOW: a missing function is an error here, not later in the middle of a call.
    void *const library = path.empty() ? nullptr : dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) set_last_error(path.empty() ? error_module_not_found : error_of(words_of_loader()));
    return library;
}

Function function_of(void *library, const char *name)
{
    void *const found = library ? dlsym(library, name) : nullptr;
    if (!found) set_last_error(error_procedure_not_found);
    return reinterpret_cast<Function>(found);
}

bool free_library(void *library)
{
    if (library && dlclose(library) == 0) return true;
    set_last_error(error_invalid_handle);
    return false;
}

bool names_in_folder(const char *folder, std::vector<std::string> &names)
{
    DIR *const open = opendir(with_slashes(folder).c_str());
    if (!open) return posix::fail();
    try {
        while (const dirent *const entry = readdir(open)) {
            const std::string_view name = entry->d_name;
            if (name != "." && name != "..") names.emplace_back(name);
        }
    } catch (...) {
        closedir(open);
        throw;
    }
    closedir(open);
    return true;
}

}  // namespace platform
