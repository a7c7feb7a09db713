#include "platform/file.h"

#include "platform/error.h"
#include "platform/fault.h"

namespace platform {

std::shared_ptr<File> File::open(const char *name, Mode mode)
{
    fault::wait_while_opens_are_held();
    return open_native(name, mode);
}

bool File::read(void *buffer, std::size_t n, std::size_t &got)
{
    got = 0;
    const std::size_t admitted = fault::admit(fault::Operation::read, n);
    while (got < admitted) {
        if (closed()) {
            set_last_error(error_invalid_handle);
            return false;
        }
        std::size_t moved = 0;
        if (!read_once(static_cast<unsigned char *>(buffer) + got, fault::piece(admitted - got), moved)) return false;
        if (moved == 0) return true;
        got += moved;
    }
    return admitted == n || fault::fail(fault::Operation::read);
}

bool File::write(const void *buffer, std::size_t n, std::size_t &put)
{
    put = 0;
    const std::size_t admitted = fault::admit(fault::Operation::write, n);
    while (put < admitted) {
        if (closed()) {
            set_last_error(error_invalid_handle);
            return false;
        }
        std::size_t moved = 0;
        if (!write_once(static_cast<const unsigned char *>(buffer) + put, fault::piece(admitted - put), moved))
            return false;
        put += moved;
    }
    return admitted == n || fault::fail(fault::Operation::write);
}

}  // namespace platform
