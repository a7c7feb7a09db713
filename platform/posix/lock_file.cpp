#include "platform/posix/lock_file.h"

#include "platform/posix/runtime_folder.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace platform::posix {

std::uint64_t hash(std::string_view name)
{
    constexpr std::uint64_t offset_basis = 0xcbf29ce484222325u, prime = 0x100000001b3u;
    std::uint64_t value = offset_basis;
    for (const char c : name) value = (value ^ static_cast<unsigned char>(c)) * prime;
    return value;
}

std::string runtime_file(const char *kind, std::string_view name)
{
    const std::string folder = runtime_folder();
    if (folder.empty()) return {};
    char file[64];
    std::snprintf(file, sizeof file, "/%s-%016" PRIx64, kind, hash(name));
    return folder + file;
}

int open_lock_file(const std::string &path)
{
    return open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
}

bool is_current_file(int descriptor, const std::string &path)
{
    struct stat own {
    }, named{};
    return fstat(descriptor, &own) == 0 && stat(path.c_str(), &named) == 0 && own.st_ino == named.st_ino &&
           own.st_dev == named.st_dev;
}

bool take_flock(int descriptor, int how)
{
    while (flock(descriptor, how) != 0)
        if (errno != EINTR) return false;
    return true;
}

}  // namespace platform::posix
