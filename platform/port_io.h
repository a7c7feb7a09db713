// Bytes to hardware I/O ports.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

// What the driver is asked to do. The record leaves the process, little-endian:
//
//   offset  bytes
//        0      4  the command: 30, output
//        4      4  the port's number, 16 bits of it used
//        8      4  the byte
struct Port_Request {
    static constexpr std::uint32_t output = 30;
    static constexpr std::uint32_t control_code =
        0x9C406000;  // device type 0x9C40, function 0x800, buffered, read access

    std::uint32_t command = output;
    std::uint32_t port = 0;
    std::uint32_t value = 0;
};
static_assert(sizeof(Port_Request) == 12 && offsetof(Port_Request, command) == 0 && offsetof(Port_Request, port) == 4 &&
              offsetof(Port_Request, value) == 8);

// The system's device for port output. Win32: \\.\Dev_kpiodrv, whose driver takes Port_Request records. POSIX:
// /dev/port, where a byte is written at the port's number. $GNSS_KERNEL_PORT_DEVICE names another device.
//
// Threads:   one at a time.
// Ownership: the handle; released by close, or at the end of the object.
// Errors:    false, with last_error() set; error 6 or another when closed.
class Port_Device {
public:
    Port_Device() = default;
    ~Port_Device();
    Port_Device(const Port_Device &) = delete;
    Port_Device &operator=(const Port_Device &) = delete;

    bool open();  // of a closed one
    bool is_open() const { return native_ != closed; }
    bool send(const Port_Request &request);
    bool close();  // closed afterwards, whatever the answer

private:
    static constexpr std::intptr_t closed = -1;
    static const char *name(const char *usual);

    std::intptr_t native_ = closed;  // Win32: the HANDLE; POSIX: the descriptor
};

}  // namespace platform
