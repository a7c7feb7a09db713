#include "platform/port_io.h"

#include "platform/posix/errno_table.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace platform {

// O_NONBLOCK: a FIFO that stands there by mistake must not hold the caller.
bool Port_Device::open()
{
    int descriptor = -1;
    do {
        descriptor = ::open(name("/dev/port"), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    } while (descriptor < 0 && errno == EINTR);
    native_ = descriptor;
    return is_open() || posix::fail();
}

bool Port_Device::send(const Port_Request &request)
{
    const auto byte = static_cast<unsigned char>(request.value);
    ssize_t put = 0;
    do {
        put = ::pwrite(static_cast<int>(native_), &byte, 1, request.port);
    } while (put < 0 && errno == EINTR);
    if (put == 1) return true;
    if (put == 0) errno = EIO;
    return posix::fail();
}

bool Port_Device::close() { return ::close(static_cast<int>(std::exchange(native_, closed))) == 0 || posix::fail(); }

}  // namespace platform
