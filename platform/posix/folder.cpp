#include "platform/folder.h"

#include "platform/error.h"
#include "platform/posix/errno_table.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace platform {

namespace {

using Status = struct stat;

bool refuse(std::uint32_t error)
{
    set_last_error(error);
    return false;
}

bool is_same(const Status &a, const Status &b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

// Is it the process's own folder, or one above it? The root of the file system is always one of these. Yes also when
// that cannot be found out.
bool is_under_this_process(const Status &folder)
{
    Status root{}, at{}, above{};
    if (stat("/", &root) != 0 || is_same(root, folder)) return true;
    int descriptor = open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
    bool is_above = descriptor < 0 || fstat(descriptor, &at) != 0 || is_same(at, folder);
    while (!is_above && !is_same(at, root)) {
        const int next = openat(descriptor, "..", O_PATH | O_DIRECTORY | O_CLOEXEC);
        close(descriptor);
        descriptor = next;
        is_above = next < 0 || fstat(next, &above) != 0 || is_same(above, at) || is_same(above, folder);
        at = above;
    }
    if (descriptor >= 0) close(descriptor);
    return is_above;
}

}  // namespace

bool remove_folder(const char *name)
{
    std::string path(name);
    while (path.size() > 1 && path.back() == '/') path.pop_back();  // a slash behind a link would follow it
    const std::string last = path.substr(path.rfind('/') + 1);
    if (last.empty() || last == "." || last == "..") return refuse(error_invalid_name);
    Status status{};
    if (lstat(path.c_str(), &status) != 0) return posix::fail();
    if (!S_ISDIR(status.st_mode)) return refuse(error_directory);
    if (is_under_this_process(status)) return refuse(error_sharing_violation);
    std::error_code error;
    std::filesystem::remove_all(path, error);
    if (!error) return true;
    errno = error.value();
    return posix::fail();
}

bool create_new_file(const char *name)
{
    const int descriptor = open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor < 0) return errno == EEXIST ? refuse(error_file_exists) : posix::fail();
    close(descriptor);
    return true;
}

bool free_space(const char *folder, std::uint64_t &bytes)
{
    struct statvfs space {};
    if (statvfs(folder, &space) != 0) return posix::fail();
    bytes = std::uint64_t{space.f_bavail} * space.f_frsize;
    return true;
}

}  // namespace platform
