#include "platform/replaced_file.h"

#include "platform/error.h"
#include "platform/posix/errno_table.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace {

// The file behind a link; the name itself if there is none yet.
std::string real_name(const char *name)
{
    char *const path = realpath(name, nullptr);
    std::string real = path ? path : name;
    std::free(path);
    return real;
}

// Locked, so that two writers do not mix their texts. The other one may have renamed it meanwhile: it is then no longer
// NAME.new, and the next try makes another.
int open_fresh(const std::string &fresh)
{
    for (;;) {
        const int descriptor = open(fresh.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
        struct stat own {
        }, named{};
        if (descriptor < 0) {
            posix::fail();
            return -1;
        }
        if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
            set_last_error(error_sharing_violation);
            close(descriptor);
            return -1;
        }
        if (fstat(descriptor, &own) == 0 && stat(fresh.c_str(), &named) == 0 && own.st_ino == named.st_ino &&
            own.st_dev == named.st_dev)
            return descriptor;
        close(descriptor);
    }
}

}  // namespace

std::FILE *open_stream(const char *name)
{
    struct stat status {};
    if (stat(name, &status) == 0 && !S_ISREG(status.st_mode)) {
        set_last_error(error_bad_file_type);
        return nullptr;
    }
    std::FILE *const stream = std::fopen(name, "rbe");
    if (!stream) posix::fail();
    return stream;
}

std::unique_ptr<Replaced_File> Replaced_File::open(const char *name, Rights rights)
{
    const std::string real = real_name(name), fresh = real + ".new";
    struct stat status {};
    const bool exists = stat(real.c_str(), &status) == 0, keeps = exists && rights == Rights::as_before;
    if (exists && !S_ISREG(status.st_mode)) {
        set_last_error(error_bad_file_type);
        return nullptr;
    }
    if (keeps && ((status.st_mode & 0222) == 0 || access(real.c_str(), W_OK) != 0)) {  // root may write to any
        set_last_error(error_access_denied);
        return nullptr;
    }
    const int descriptor = open_fresh(fresh);
    if (descriptor < 0) return nullptr;
    // A user who may not give files away keeps the mode: the file was open to this user before.
    if (keeps) static_cast<void>(fchown(descriptor, status.st_uid, status.st_gid) == 0);
    const mode_t mode = keeps ? status.st_mode & 0777 : 0600;
    std::FILE *const stream =
        ftruncate(descriptor, 0) == 0 && fchmod(descriptor, mode) == 0 ? fdopen(descriptor, "wb") : nullptr;
    if (stream) return std::unique_ptr<Replaced_File>(new Replaced_File(real, fresh, stream));
    posix::fail();
    ::close(descriptor);
    return nullptr;
}

bool Replaced_File::force_out() { return (std::fflush(stream_) == 0 && fsync(fileno(stream_)) == 0) || posix::fail(); }

// The folder is forced out as well: it holds the name.
bool Replaced_File::take_place()
{
    if (rename(fresh_.c_str(), name_.c_str()) != 0) return posix::fail();
    const std::size_t slash = name_.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : name_.substr(0, slash + 1);
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return true;
    fsync(descriptor);
    ::close(descriptor);
    return true;
}

void Replaced_File::remove_fresh() { unlink(fresh_.c_str()); }

}  // namespace platform
