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

// O_NONBLOCK: if a FIFO replaces the file after the check, opening it does not block. O_NOCTTY: likewise a terminal
// does not become the controlling terminal of the program.
int open_descriptor(const char *name, File::Mode mode)
{
    const int flags = reads(mode) ? O_RDONLY : O_WRONLY | O_CREAT;
    int descriptor = -1;
    do {
        descriptor = ::open(name, flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

// Win32 has different errors for a missing folder and a missing file.
void fail_open(const char *name)
{
    posix::fail();
    if (errno == EWOULDBLOCK) set_last_error(error_sharing_violation);  // a file server holds a lease on the file
    const std::string_view path(name);
    const std::size_t slash = path.rfind('/');
    if (path.empty()) set_last_error(error_path_not_found);
    if (last_error() != error_not_found || slash == std::string_view::npos || slash == 0) return;
    struct stat status {};
    if (stat(std::string(path.substr(0, slash)).c_str(), &status) != 0) set_last_error(error_path_not_found);
}

// Makes a file that exceeds the process's size limit an error; by default SIGXFSZ would end the process. A handler of
// the host is not replaced.
void take_size_limit_as_error()
{
    struct sigaction action {};
    if (sigaction(SIGXFSZ, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) std::signal(SIGXFSZ, SIG_IGN);
}

// Gives the sharing rules of Win32 among the users of this layer. On a file system without locks all files are shared.
bool take_share(int descriptor, File::Mode mode)
{
    if (mode == File::Mode::read_shared) return true;
    if (flock(descriptor, (mode == File::Mode::read ? LOCK_SH : LOCK_EX) | LOCK_NB) == 0) return true;
    if (errno != EWOULDBLOCK) return true;
    set_last_error(error_sharing_violation);
    return false;
}

// After opening: refuses what open itself accepts, takes the share, and then truncates for Mode::create.
bool settle(int descriptor, File::Mode mode)
{
    struct stat status {};
    if (fstat(descriptor, &status) != 0) return posix::fail();
    if (!is_file(status)) return false;
    fcntl(descriptor, F_SETFL, 0);  // clears O_NONBLOCK: transfers wait
    if (!reads(mode)) take_size_limit_as_error();
    if (!take_share(descriptor, mode)) return false;
    return mode != File::Mode::create || ftruncate(descriptor, 0) == 0 || posix::fail();
}

int descriptor_of(std::intptr_t native) { return static_cast<int>(native); }

}  // namespace

std::shared_ptr<File> File::open_native(const char *name, Mode mode)
{
    // Check before opening: opening some devices has effects (a tape rewinds, a modem hangs up).
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
    // Files are replayed from front to back, so the system may read further ahead.
    if (reads(mode)) posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
    return std::shared_ptr<File>(new File(descriptor));
}

File::~File() { ::close(descriptor_of(native_)); }

// EINTR, here and below: threads are suspended by a signal, and a host may use signals, too.
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
