#include "platform/file.h"

#include "platform/error.h"
#include "platform/posix/errno_table.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace {

bool reads(File::Mode mode) { return mode == File::Mode::read || mode == File::Mode::read_shared; }

bool is_file(const struct stat &status)
{
    if (S_ISREG(status.st_mode)) return true;
    set_last_error(S_ISDIR(status.st_mode) ? error_access_denied : error_bad_file_type);
    return false;
}

// O_NONBLOCK: a FIFO that takes the file's place after the look at it does not hold the caller. O_NOCTTY: nor does a
// terminal become the program's own, with its Ctrl-C.
int open_descriptor(const char *name, File::Mode mode)
{
    const int flags = reads(mode) ? O_RDONLY : O_WRONLY | O_CREAT;
    int descriptor = -1;
    do {
        descriptor = ::open(name, flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

// Win32 tells a missing folder from a missing file.
void fail_open(const char *name)
{
    posix::fail();
    if (errno == EWOULDBLOCK) set_last_error(error_sharing_violation);  // a lease: a file server has it in use
    const std::string_view path(name);
    const std::size_t slash = path.rfind('/');
    if (path.empty()) set_last_error(error_path_not_found);
    if (last_error() != error_not_found || slash == std::string_view::npos || slash == 0) return;
    struct stat status {};
    if (stat(std::string(path.substr(0, slash)).c_str(), &status) != 0) set_last_error(error_path_not_found);
}

// A file that grows past the limit of the process is an error to report, not a reason to die. A host that handles the
// signal keeps its way.
void take_size_limit_as_error()
{
    struct sigaction action {};
    if (sigaction(SIGXFSZ, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) std::signal(SIGXFSZ, SIG_IGN);
}

// Win32's sharing among the users of this layer. A file system that knows no locks shares everything.
bool take_share(int descriptor, File::Mode mode)
{
    if (mode == File::Mode::read_shared) return true;
    if (flock(descriptor, (mode == File::Mode::read ? LOCK_SH : LOCK_EX) | LOCK_NB) == 0) return true;
    if (errno != EWOULDBLOCK) return true;
    set_last_error(error_sharing_violation);
    return false;
}

// After opening: what open itself lets pass, and the cut of Mode::create, which must not come before the share.
bool settle(int descriptor, File::Mode mode)
{
    struct stat status {};
    if (fstat(descriptor, &status) != 0) return posix::fail();
    if (!is_file(status)) return false;
    fcntl(descriptor, F_SETFL, 0);  // O_NONBLOCK has served: transfers wait
    if (!reads(mode)) take_size_limit_as_error();
    if (!take_share(descriptor, mode)) return false;
    return mode != File::Mode::create || ftruncate(descriptor, 0) == 0 || posix::fail();
}

int descriptor_of(std::intptr_t native) { return static_cast<int>(native); }

}  // namespace

std::shared_ptr<File> File::open_native(const char *name, Mode mode)
{
    // Looked at before it is opened: opening alone makes some devices act (a tape rewinds, a modem hangs up).
    struct stat status {};
    if (stat(name, &status) == 0 && !is_file(status)) return nullptr;
    const int descriptor = open_descriptor(name, mode);
    if (descriptor < 0) {
        fail_open(name);
        return nullptr;
    }
    if (!settle(descriptor, mode)) {
        ::close(descriptor);
        return nullptr;
    }
    // Whoever reads here replays from front to back: the system may read further ahead.
    if (reads(mode)) posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
    return std::shared_ptr<File>(new File(descriptor));
}

File::~File() { ::close(descriptor_of(native_)); }

// EINTR, here and below: threads are suspended by a signal, and a host may have signals of its own.
bool File::read_once(void *buffer, std::size_t n, std::size_t &got)
{
    ssize_t moved = 0;
    do {
        moved = ::read(descriptor_of(native_), buffer, n);
    } while (moved < 0 && errno == EINTR);
    if (moved < 0) return posix::fail();
    got = static_cast<std::size_t>(moved);
    return true;
}

bool File::write_once(const void *buffer, std::size_t n, std::size_t &put)
{
    ssize_t moved = 0;
    do {
        moved = ::write(descriptor_of(native_), buffer, n);
    } while (moved < 0 && errno == EINTR);
    if (moved < 0) return posix::fail();
    put = static_cast<std::size_t>(moved);
    return true;
}

bool File::seek_end(std::int64_t offset)
{
    return lseek(descriptor_of(native_), offset, SEEK_END) >= 0 || posix::fail();
}

std::int64_t File::position() const { return lseek(descriptor_of(native_), 0, SEEK_CUR); }

}  // namespace platform
