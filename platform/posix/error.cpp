#include "platform/error.h"

#include "platform/posix/errno_table.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace platform {

namespace {

struct Row {
    int posix;
    std::uint32_t win32;
};

constexpr std::uint32_t no_counterpart = 31;  // a device does not function

// If several rows have the same Win32 number, the first gives the text.
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
    {EIO, no_counterpart},
    {EEXIST, 183},
    {EINVAL, error_invalid_parameter},
    {EPIPE, error_broken_pipe},
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
    {EALREADY, 10037},
    {ENOTSOCK, error_not_socket},
    {EDESTADDRREQ, 10039},
    {EMSGSIZE, 10040},
    {EPROTOTYPE, 10041},
    {ENOPROTOOPT, 10042},
    {EPROTONOSUPPORT, 10043},
    {EOPNOTSUPP, 10045},
    {EPFNOSUPPORT, 10046},
    {EAFNOSUPPORT, 10047},
    {EADDRINUSE, 10048},
    {EADDRNOTAVAIL, 10049},
    {ENETDOWN, 10050},
    {ENETUNREACH, 10051},
    {ENETRESET, 10052},
    {ECONNABORTED, 10053},
    {ECONNRESET, 10054},
    {ENOBUFS, 10055},
    {EISCONN, error_already_connected},
    {ENOTCONN, 10057},
    {ESHUTDOWN, 10058},
    {ETIMEDOUT, 10060},
    {ECONNREFUSED, error_connection_refused},
    {EHOSTDOWN, 10064},
    {EHOSTUNREACH, 10065},
};

// Errors for which Winsock has its own numbers.
constexpr Row socket_table[] = {
    {EACCES, 10013}, {EPERM, 10013},  {EFAULT, 10014}, {EINVAL, 10022},      {EMFILE, 10024},
    {ENFILE, 10024}, {ENOMEM, 10055}, {EPIPE, 10054},  {EINPROGRESS, 10036}, {EBADF, error_not_socket},
};

// Texts for numbers for which errno has no text, or a misleading one.
struct Words {
    std::uint32_t win32;
    const char *text;
};
constexpr Words words[] = {
    {error_path_not_found, "No such file or directory"},
    {error_write_fault, "The data could not be written"},
    {error_sharing_violation, "File is in use by another program"},
    {error_module_not_found, "The library, or one that it needs, was not found"},
    {error_procedure_not_found, "The library, or one that it needs, has no such function"},
    {error_bad_executable, "Not a library of this system"},
    {161, "The path must not begin with a backslash"},
    {error_bad_file_type, "Not a regular file"},
    {error_bad_network_path, "The network path was not found"},
    {error_wait_timeout, "The time for waiting is over"},
    {error_name_too_long, "The name is too long"},
    {error_pipe_busy, "All instances of the pipe are busy"},
    {error_pipe_closing, "The pipe is being closed"},
    {error_pipe_not_connected, "No process is on the other end of the pipe"},
    {error_pipe_listening, "Waiting for a process to open the other end of the pipe"},
    {error_directory, "Not a folder"},
    {234, "More data is available than fits"},
    {259, "There are no more entries"},
    {error_operation_aborted, "The operation was given up"},
    {error_io_incomplete, "The operation has not ended yet"},
    {error_io_pending, "The operation is under way"},
    {1015, "The registry's file is damaged, or is none"},
    {1018, "The registry key has been deleted"},
    {1306, "The registry's file was made by a later version of this library"},
    {error_invalid_window, "There is no such window"},
    {error_not_enough_quota, "The queue is full"},
    {error_host_not_found, "No such host is known"},
    {11002, "The name could not be looked up now; try again"},
    {11003, "The name could not be looked up"},
    {11004, "The name is known, but has no address"},
};

thread_local std::uint32_t last = 0;

}  // namespace

std::uint32_t posix::from_errno(int error)
{
    if (error == 0) return error_none;
    for (const Row &row : table) {
        if (row.posix == error) return row.win32;
    }
    return no_counterpart;
}

std::uint32_t posix::from_socket_errno(int error)
{
    for (const Row &row : socket_table) {
        if (row.posix == error) return row.win32;
    }
    return from_errno(error);
}

bool posix::fail()
{
    last = from_errno(errno);
    return false;
}

bool posix::fail_socket()
{
    last = from_socket_errno(errno);
    return false;
}

std::uint32_t last_error() { return last; }

void set_last_error(std::uint32_t error) { last = error; }

namespace {

const char *words_of(std::uint32_t error)
{
    if (error == error_none) return std::strerror(0);
    for (const Words &row : words) {
        if (row.win32 == error) return row.text;
    }
    for (const Row &row : table) {
        if (row.win32 == error) return std::strerror(row.posix);
    }
    for (const Row &row : socket_table) {
        if (row.win32 == error) return std::strerror(row.posix);
    }
    return nullptr;
}

}  // namespace

void error_text(std::uint32_t error, char (&text)[most_error_text])
{
    const char *const known = words_of(error);
    if (known)
        std::snprintf(text, sizeof text, "%s", known);
    else
        std::snprintf(text, sizeof text, "Unknown error %lu", static_cast<unsigned long>(error));
}

}  // namespace platform
