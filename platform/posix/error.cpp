#include "platform/error.h"

#include "platform/posix/errno_table.h"

#include <cerrno>
#include <cstring>

namespace platform {

namespace {

struct Row {
    int posix;
    std::uint32_t win32;
};

// Where several rows share a number, the first gives the text.
constexpr Row table[] = {
    {ENOENT, error_not_found},
    {ENOTDIR, error_path_not_found},
    {EMFILE, error_too_many_open},
    {ENFILE, error_too_many_open},
    {EACCES, error_access_denied},
    {EPERM, error_access_denied},
    {EISDIR, error_access_denied},
    {EROFS, 19},  // write protected
    {ETXTBSY, error_sharing_violation},
    {EBADF, error_invalid_handle},
    {ENOMEM, error_no_memory},
    {EXDEV, 17},
    {ENODEV, 20},
    {ENXIO, 21},  // not ready
    {EIO, 31},    // a device does not function
    {EEXIST, 183},
    {EINVAL, error_invalid_parameter},
    {EPIPE, 109},
    {ENOSPC, error_disk_full},
    {EDQUOT, 1816},
    {EFBIG, 223},
    {ENAMETOOLONG, error_invalid_name},
    {ELOOP, 1921},
    {ENOTEMPTY, 145},
    {EBUSY, 170},
    {ESPIPE, 132},  // seek on a device
    {EAGAIN, 997},
    {ENOLCK, 1450},  // no system resources
    {EDEADLK, 1131},
    {EINTR, 10004},
    {ECANCELED, error_operation_aborted},
    {EADDRINUSE, 10048},
    {EADDRNOTAVAIL, 10049},
    {ENETDOWN, 10050},
    {ENETUNREACH, 10051},
    {ECONNABORTED, 10053},
    {ECONNRESET, 10054},
    {ENOBUFS, 10055},
    {EISCONN, 10056},
    {ENOTCONN, 10057},
    {ETIMEDOUT, 10060},
    {ECONNREFUSED, 10061},
    {EHOSTUNREACH, 10065},
};

thread_local std::uint32_t last = 0;

}  // namespace

std::uint32_t posix::from_errno(int error)
{
    if (error == 0) return error_none;
    for (const Row &row : table) {
        if (row.posix == error) return row.win32;
    }
    return 31;
}

bool posix::fail()
{
    last = from_errno(errno);
    return false;
}

std::uint32_t last_error() { return last; }

void set_last_error(std::uint32_t error) { last = error; }

std::string error_text(std::uint32_t error)
{
    if (error == error_none) return std::strerror(0);
    if (error == error_path_not_found) return std::strerror(ENOENT);
    if (error == error_sharing_violation) return "File is in use by another program";
    for (const Row &row : table) {
        if (row.win32 == error) return std::strerror(row.posix);
    }
    return "Unknown error " + std::to_string(error);
}

}  // namespace platform
