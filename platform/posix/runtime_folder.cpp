#include "platform/posix/runtime_folder.h"

#include "platform/error.h"
#include "platform/posix/errno_table.h"

#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace platform::posix {

namespace {

// The variable may be inherited from another user, or name a folder of a session that has ended.
bool is_own(const char *folder)
{
    struct stat status {};
    return stat(folder, &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid();
}

std::string wanted_folder()
{
    if (const char *folder = std::getenv("GNSS_KERNEL_RUNTIME_DIR"); folder && *folder) return folder;
    if (const char *folder = std::getenv("XDG_RUNTIME_DIR"); folder && *folder && is_own(folder))
        return std::string(folder) + "/gnss-kernel";
    return "/tmp/gnss-kernel-" + std::to_string(geteuid());
}

}  // namespace

std::string runtime_folder()
{
    const std::string folder = wanted_folder();
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        fail();
        return {};
    }
    struct stat status {};
    if (lstat(folder.c_str(), &status) != 0) {
        fail();
        return {};
    }
    // In a parent folder that others can write, another user may have created a link or a folder of this name.
    if (!S_ISDIR(status.st_mode) || status.st_uid != geteuid() || (status.st_mode & 0077) != 0) {
        set_last_error(error_access_denied);
        return {};
    }
    return folder;
}

}  // namespace platform::posix
