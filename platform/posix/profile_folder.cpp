#include "platform/profile_folder.h"

#include "platform/error.h"
#include "platform/posix/errno_table.h"

#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>

namespace platform {

namespace {

// An absolute path from the environment, with a folder behind it; "" when the variable has none.
std::string below(const char *variable, const char *folder)
{
    const char *const path = std::getenv(variable);
    return path && *path == '/' ? std::string(path) + folder : "";
}

// Makes the folder and those above it that are missing.
bool make(const std::string &folder)
{
    for (std::size_t slash = folder.find('/', 1);; slash = folder.find('/', slash + 1)) {
        if (mkdir(folder.substr(0, slash).c_str(), 0700) != 0 && errno != EEXIST) return posix::fail();
        if (slash == folder.npos) return true;
    }
}

}  // namespace

std::string profile_folder(If_Missing if_missing)
{
    std::string folder = below("GNSS_KERNEL_REGISTRY_DIR", "");
    if (folder.empty()) folder = below("XDG_CONFIG_HOME", "/gnss-kernel");
    if (folder.empty()) folder = below("HOME", "/.config/gnss-kernel");
    if (folder.empty()) set_last_error(error_path_not_found);
    if (folder.empty() || (if_missing == If_Missing::create && !make(folder))) return "";
    return folder;
}

}  // namespace platform
