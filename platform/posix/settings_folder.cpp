#include "platform/posix/settings_folder.h"

#include "platform/error.h"
#include "platform/posix/errno_table.h"

#include <cerrno>
#include <cstdlib>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform::posix {

namespace {

// "" when it is not set, or no absolute path.
std::string absolute(const char *variable)
{
    const char *const path = std::getenv(variable);
    return path && *path == '/' ? path : "";
}

std::string home()
{
    if (std::string folder = absolute("HOME"); !folder.empty()) return folder;
    char room[16384];
    passwd entry{}, *found = nullptr;
    const bool is_known = getpwuid_r(geteuid(), &entry, room, sizeof room, &found) == 0 && found;
    return is_known && found->pw_dir && *found->pw_dir == '/' ? found->pw_dir : "";
}

}  // namespace

std::string given_settings_folder()
{
    const char *const folder = std::getenv("GNSS_KERNEL_REGISTRY_DIR");
    return folder ? folder : "";
}

std::string user_settings_folder()
{
    if (std::string folder = given_settings_folder(); !folder.empty()) return folder;
    if (const std::string config = absolute("XDG_CONFIG_HOME"); !config.empty()) return config + "/gnss-kernel";
    if (const std::string folder = home(); !folder.empty()) return folder + "/.config/gnss-kernel";
    set_last_error(error_path_not_found);
    return "";
}

bool make_folders(const std::string &folder, mode_t mode)
{
    const auto make = [&] { return mkdir(folder.c_str(), mode) == 0 || errno == EEXIST || fail(); };
    if (make()) return true;
    const std::size_t slash = folder.find_last_of('/');
    if (errno != ENOENT || slash == std::string::npos || slash == 0) return false;
    return make_folders(folder.substr(0, slash), mode) && make();
}

}  // namespace platform::posix
