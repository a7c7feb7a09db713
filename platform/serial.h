// Serial ports.
#pragma once

#include "platform/stream.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform {

// Line settings: what Win32's DCB holds, as far as the library uses it.
//
// Threads:   a value.
// Ownership: a value.
// Errors:    none.
struct Serial_Settings {
    enum Parity : std::uint8_t { no_parity, odd_parity, even_parity, mark_parity, space_parity };
    enum Stop_Bits : std::uint8_t { one_stop_bit, one5_stop_bits, two_stop_bits };
    enum Control : std::uint8_t { disable, enable, handshake, toggle };  // of an output line; toggle: POSIX: as enable

    std::uint32_t baud = 0;  // bit/s
    std::uint8_t byte_size = 8;
    Parity parity = no_parity;
    Stop_Bits stop_bits = one_stop_bit;
    Control rts = enable, dtr = enable;
    bool cts_flow = false, dsr_flow = false;  // output waits for the line
    bool abort_on_error = false;              // Win32's fAbortOnError; POSIX: always false

    bool operator==(const Serial_Settings &) const = default;
};

// Limits in milliseconds, as Win32's COMMTIMEOUTS: a read of n bytes ends when the line is silent for `read_interval`
// after a byte, or read_multiplier * n + read_constant after its start; 0 is no limit. read_interval no_wait with both
// others 0: a read returns at once with what is there. Transfers keep to them on Win32 and have no limits on POSIX.
//
// Threads:   a value.
// Ownership: a value.
// Errors:    none.
struct Serial_Timeouts {
    static constexpr std::uint32_t no_wait = 0xFFFFFFFF;
    std::uint32_t read_interval = 0, read_multiplier = 0, read_constant = 0, write_multiplier = 0, write_constant = 0;
};

// What can have gone wrong on the line, and the events to be noted; Win32's numbers.
constexpr std::uint32_t serial_rx_overflow = 0x1, serial_overrun = 0x2, serial_parity = 0x4, serial_frame = 0x8,
                        serial_break = 0x10;
constexpr std::uint32_t serial_event_received = 0x1, serial_event_error = 0x80;

// An open port, nobody else's (a second open fails with error_access_denied). What goes wrong on the line is counted by
// the system and told by clear_error. When the last holder lets go of a closed port, what is still to be sent has half
// a second.
//
// Threads:   as Stream; settings from any thread.
// Ownership: as Stream.
// Errors:    false or null, with last_error() set: error_not_found for a name that is no port, error_invalid_parameter
//            for settings that the port cannot have (it then keeps the old ones), error_invalid_handle when closed, and
//            for a port that has gone (unplugged; Win32 knows other numbers for that, too).
class Serial_Port : public Stream, public std::enable_shared_from_this<Serial_Port> {
public:
    // name: a port's ("COM1", "COM10", "ttyUSB0", also "\\.\COM10"), or a path. POSIX: COMn is the link COMn in the port
    // folder ($GNSS_KERNEL_COM_DIR, default /etc/gnss-kernel/com), else /dev/ttyS(n-1); other names are files of /dev. The
    // line is raw: each byte as it is, also where a former user has left flow control by characters.
    static std::shared_ptr<Serial_Port> open(const char *name);
    // Takes over an open port and makes it raw: Win32: a HANDLE (one that is not opened for overlapped transfers works, but keeps its
    // callers waiting); POSIX: a descriptor. Null when it is none: it stays the caller's.
    static std::shared_ptr<Serial_Port> adopt(void *handle);
    ~Serial_Port() override;

    bool set_queues(std::uint32_t in, std::uint32_t out);  // bytes; a wish
    bool get_settings(Serial_Settings &settings) const;
    bool set_settings(const Serial_Settings &settings);
    bool set_timeouts(const Serial_Timeouts &timeouts);
    bool set_event_mask(std::uint32_t events);

    // By the time-outs set; close() ends it. `got` may be less than n, 0 too, with true.
    bool read(void *buffer, std::size_t n, std::size_t &got);
    // What the driver holds already, at most n bytes; never waits, whatever the time-outs.
    bool read_held(void *buffer, std::size_t n, std::size_t &got);
    // Waits until all is written, or the time is over (true, and put < n), or `stop` is signalled or the port closed
    // (false, error_operation_aborted).
    bool write(const void *buffer, std::size_t n, std::size_t &put, Event &stop);

    // The errors since the last call, serial_* bits; false when the port is gone.
    bool clear_error(std::uint32_t &errors);

    void *native() const;

private:
    explicit Serial_Port(std::intptr_t native);

    void drain() const;  // the destructor's half second
    bool has_unsent() const;
    void drop_unsent() const;

    // Sees a transfer to its end: at most ms milliseconds (a time that is over is no failure), or until `stop`.
    static bool finish(Transfer &transfer, bool done, unsigned long ms, std::size_t &moved, Event *stop = nullptr);

    struct State;
    const std::unique_ptr<State> state_;
};

}  // namespace platform
