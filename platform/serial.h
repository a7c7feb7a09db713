// Serial ports.
#pragma once

#include "platform/stream.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform {

// Line settings: the parts of Win32's DCB that the library uses.
//
// Threads:   a value.
// Ownership: a value.
// Errors:    none.
struct Serial_Settings {
    enum Parity : std::uint8_t { no_parity, odd_parity, even_parity, mark_parity, space_parity };
    enum Stop_Bits : std::uint8_t { one_stop_bit, one5_stop_bits, two_stop_bits };
    enum Control : std::uint8_t { disable, enable, handshake, toggle };  // of an output line; on POSIX toggle is enable

    std::uint32_t baud = 0;  // [bit/s]
    std::uint8_t byte_size = 8;
    Parity parity = no_parity;
    Stop_Bits stop_bits = one_stop_bit;
    Control rts = enable, dtr = enable;
    bool cts_flow = false, dsr_flow = false;  // output waits for the line
    bool abort_on_error = false;              // Win32's fAbortOnError; POSIX: always false

    bool operator==(const Serial_Settings &) const = default;
};

// Limits in milliseconds, as Win32's COMMTIMEOUTS: a read of n bytes ends when the line is silent for `read_interval`
// after a byte, or read_multiplier * n + read_constant after its start; 0 is no limit. If read_interval is no_wait and
// both others are 0, a read returns at once with the bytes that are there. Transfers obey the limits on Win32 only.
//
// Threads:   a value.
// Ownership: a value.
// Errors:    none.
struct Serial_Timeouts {
    static constexpr std::uint32_t no_wait = 0xFFFFFFFF;
    std::uint32_t read_interval = 0, read_multiplier = 0, read_constant = 0, write_multiplier = 0, write_constant = 0;
};

// Errors on the line, and the events to wait for, with the numbers of Win32.
constexpr std::uint32_t serial_rx_overflow = 0x1, serial_overrun = 0x2, serial_parity = 0x4, serial_frame = 0x8,
                        serial_break = 0x10;
constexpr std::uint32_t serial_event_received = 0x1, serial_event_error = 0x80;

// An open port. It is exclusive: a second open fails with error_access_denied. The system counts errors on the line,
// and clear_error returns them. When the last reference to a closed port goes, unsent bytes get half a second to be
// sent.
//
// Threads:   as Stream; settings from any thread.
// Ownership: as Stream.
// Errors:    false or null, with last_error() set: error_not_found for a name that is not a port,
//            error_invalid_parameter for settings that the port does not support (it then keeps the old ones),
//            error_invalid_handle when closed or unplugged (for the latter Win32 has other numbers, too).
class Serial_Port : public Stream, public std::enable_shared_from_this<Serial_Port> {
public:
    // `name` is a port ("COM1", "COM10", "ttyUSB0", also "\\.\COM10") or a path. On POSIX COMn is the link COMn in the
    // port folder ($GNSS_KERNEL_COM_DIR, default /etc/gnss-kernel/com), else /dev/ttyS(n-1); other names are files of
    // /dev. The line is made raw: bytes pass unchanged, even if a former user of the port has left flow control by
    // characters.
    static std::shared_ptr<Serial_Port> open(const char *name);
    // Takes over an open port and makes it raw. On Win32 it is a HANDLE; one that is not opened for overlapped
    // transfers works, but blocks its callers. On POSIX it is a descriptor. Returns null if it is not a port; it then
    // stays the caller's.
    static std::shared_ptr<Serial_Port> adopt(void *handle);
    ~Serial_Port() override;

    bool set_queues(std::uint32_t in, std::uint32_t out);  // [bytes]; the system may choose others
    bool get_settings(Serial_Settings &settings) const;
    bool set_settings(const Serial_Settings &settings);
    bool set_timeouts(const Serial_Timeouts &timeouts);
    bool set_event_mask(std::uint32_t events);

    // Reads within the time-outs; close() ends it. `got` may be less than n, even 0, when the result is true.
    bool read(void *buffer, std::size_t n, std::size_t &got);
    // Reads at most n bytes that the driver holds already; never waits, whatever the time-outs are.
    bool read_held(void *buffer, std::size_t n, std::size_t &got);
    // Waits until all is written or the time is over (both true; then put < n). Returns false with
    // error_operation_aborted when `stop` is signalled or the port is closed.
    bool write(const void *buffer, std::size_t n, std::size_t &put, Event &stop);

    // The errors since the last call, as serial_* bits; false when the port is unplugged.
    bool clear_error(std::uint32_t &errors);

    void *native() const;

private:
    explicit Serial_Port(std::intptr_t native);

    void drain() const;  // waits at most half a second for unsent bytes, then drops them
    bool has_unsent() const;
    void drop_unsent() const;

    // Waits for the end of a transfer: at most ms milliseconds (a time-out is not a failure), or until `stop`.
    static bool finish(Transfer &transfer, bool done, unsigned long ms, std::size_t &moved, Event *stop = nullptr);

    struct State;
    const std::unique_ptr<State> state_;
};

}  // namespace platform
