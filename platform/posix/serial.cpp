// Uses termios2 of the Linux kernel instead of termios.h, because it supports every speed and not only the named ones.
// One source cannot include both headers.
#include "platform/serial.h"

#include "platform/error.h"
#include "platform/fault.h"
#include "platform/posix/errno_table.h"

#include <algorithm>
#include <asm/ioctls.h>
#include <asm/termbits.h>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/serial.h>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace platform {

namespace {

struct Speed {
    std::uint32_t baud;
    tcflag_t name;
};

// A speed that has a name is set by name, for programs that read the port with termios.h.
constexpr Speed speeds[] = {
    {50, B50},           {75, B75},           {110, B110},         {134, B134},         {150, B150},
    {200, B200},         {300, B300},         {600, B600},         {1200, B1200},       {1800, B1800},
    {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},     {38400, B38400},
    {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
    {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000},
    {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000},
};

tcflag_t name_of(std::uint32_t baud)
{
    const auto found =
        std::find_if(std::begin(speeds), std::end(speeds), [=](const Speed &speed) { return speed.baud == baud; });
    return found == std::end(speeds) ? BOTHER : found->name;
}

constexpr tcflag_t sizes[] = {CS5, CS6, CS7, CS8};  // from 5 bits on

constexpr tcflag_t format_flags = CSIZE | PARENB | PARODD | CMSPAR | CSTOPB;

tcflag_t format_of(const Serial_Settings &settings)
{
    constexpr tcflag_t parities[] = {0, PARENB | PARODD, PARENB, PARENB | PARODD | CMSPAR, PARENB | CMSPAR};
    // CSTOPB means one and a half stop bits for characters of 5 bits; that is how UARTs work.
    const tcflag_t stop = settings.stop_bits == Serial_Settings::one_stop_bit ? 0 : CSTOPB;
    return sizes[settings.byte_size - 5] | parities[settings.parity] | stop;
}

// The rules of UARTs, which Win32 enforces as well. termios would take the nearest possible setting, and would hang up
// at speed 0.
bool is_possible(const Serial_Settings &settings)
{
    const bool half = settings.stop_bits == Serial_Settings::one5_stop_bits;
    const bool two = settings.stop_bits == Serial_Settings::two_stop_bits;
    return settings.baud > 0 && settings.byte_size >= 5 && settings.byte_size <= 8 &&
           settings.parity <= Serial_Settings::space_parity && !(half && settings.byte_size != 5) &&
           !(two && settings.byte_size == 5);
}

void read_format(const termios2 &line, Serial_Settings &settings)
{
    settings.baud = line.c_ospeed;
    for (std::uint8_t bits = 5; bits <= 8; ++bits) {
        if ((line.c_cflag & CSIZE) == sizes[bits - 5]) settings.byte_size = bits;
    }
    const bool odd = (line.c_cflag & PARODD) != 0, stick = (line.c_cflag & CMSPAR) != 0;
    settings.parity = (line.c_cflag & PARENB) == 0 ? Serial_Settings::no_parity
                      : stick ? (odd ? Serial_Settings::mark_parity : Serial_Settings::space_parity)
                      : odd   ? Serial_Settings::odd_parity
                              : Serial_Settings::even_parity;
    settings.stop_bits = (line.c_cflag & CSTOPB) == 0 ? Serial_Settings::one_stop_bit
                         : settings.byte_size == 5    ? Serial_Settings::one5_stop_bits
                                                      : Serial_Settings::two_stop_bits;
}

// Passes every byte unchanged and at once. Does not change speed and format.
void make_raw(termios2 &line)
{
    line.c_iflag = 0;
    line.c_oflag = 0;
    line.c_lflag = 0;
    line.c_cflag |= CLOCAL | CREAD;
    line.c_cc[VMIN] = 1;  // with 0 an idle line would look like an unplugged one
    line.c_cc[VTIME] = 0;
}

bool fail_with(std::uint32_t error)
{
    set_last_error(error);
    return false;
}

// An unplugged port gives error_invalid_handle.
bool fail_port()
{
    const bool gone = errno == EIO || errno == ENXIO || errno == ENODEV;
    return gone ? fail_with(error_invalid_handle) : posix::fail();
}

// True for a real line, false for a pseudo-terminal.
bool has_modem_lines(int descriptor)
{
    int lines = 0;
    return ioctl(descriptor, TIOCMGET, &lines) == 0;
}

// A port without this line is not an error.
void set_modem_line(int descriptor, int line, bool on) { ioctl(descriptor, on ? TIOCMBIS : TIOCMBIC, &line); }

std::string path_of(const char *name)
{
    constexpr char device_prefix[] = "\\\\.\\";
    std::string port(name);
    if (port.starts_with(device_prefix)) port.erase(0, sizeof device_prefix - 1);
    const bool is_com = port.size() > 3 && port.size() < 9 && strncasecmp(port.c_str(), "COM", 3) == 0 &&
                        std::all_of(port.begin() + 3, port.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
    const int number = is_com ? std::atoi(port.c_str() + 3) : 0;
    const bool is_path = port.empty() || port.find('/') != std::string::npos;
    if (number == 0) return is_path ? port : "/dev/" + port;
    const char *folder = std::getenv("GNSS_KERNEL_COM_DIR");
    const std::string link =
        std::string(folder && *folder ? folder : "/etc/gnss-kernel/com") + "/COM" + std::to_string(number);
    struct stat status {};  // of the link itself, because its target may be unplugged
    return lstat(link.c_str(), &status) == 0 ? link : "/dev/ttyS" + std::to_string(number - 1);
}

int open_exclusively(const std::string &path)
{
    const int descriptor = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        errno == EBUSY ? fail_with(error_access_denied) : posix::fail();
    } else if (isatty(descriptor) == 0) {
        fail_with(error_not_found);
    } else if (flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        fail_with(error_access_denied);  // root can open a port despite TIOCEXCL; the lock stops that, too
    } else {
        ioctl(descriptor, TIOCEXCL);
        return descriptor;
    }
    if (descriptor >= 0) close(descriptor);
    return -1;
}

}  // namespace

// The lock guards the settings, the time-outs and the error counts.
struct Serial_Port::State {
    int descriptor = -1;
    bool exclusive = false;  // this object has set TIOCEXCL
    mutable std::mutex lock;
    Serial_Settings wanted;  // for settings that termios, or a pseudo-terminal, cannot store
    Serial_Timeouts timeouts;
    serial_icounter_struct counted{};
    Transfer reading, writing;  // for read and write, which return when these have ended

    Serial_Timeouts current_timeouts() const
    {
        const std::lock_guard guard(lock);
        return timeouts;
    }
    bool get_line(termios2 &line) const { return ioctl(descriptor, TCGETS2, &line) == 0 || fail_port(); }
    bool set_line(const termios2 &line) const { return ioctl(descriptor, TCSETS2, &line) == 0 || fail_port(); }
    bool set_format(const Serial_Settings &settings) const;
    void set_controls(const Serial_Settings &settings) const;
};

// Sets all or nothing. A driver without mark parity would set the rest and report no error; so the result is read back.
bool Serial_Port::State::set_format(const Serial_Settings &settings) const
{
    termios2 before{};
    if (!get_line(before)) return false;
    const bool flow =
        settings.rts == Serial_Settings::handshake || settings.cts_flow;  // termios has one switch for both
    termios2 line = before;
    line.c_cflag &= ~(CBAUD | format_flags | CRTSCTS);
    line.c_cflag |= name_of(settings.baud) | format_of(settings) | (flow ? CRTSCTS : 0u);
    line.c_cflag &= ~(static_cast<tcflag_t>(CBAUD) << IBSHIFT);  // received at the same speed
    line.c_ispeed = line.c_ospeed = settings.baud;
    termios2 after{};
    if (!set_line(line) || !get_line(after)) return false;
    constexpr std::uint32_t tolerance = 20;  // the speed may be off by one part in 20
    const auto off = static_cast<std::uint32_t>(std::abs(static_cast<std::int64_t>(after.c_ospeed) - settings.baud));
    const bool same_format = (after.c_cflag & format_flags) == (line.c_cflag & format_flags);
    if (off <= settings.baud / tolerance && (same_format || !has_modem_lines(descriptor))) return true;
    set_line(before);
    return fail_with(error_invalid_parameter);
}

void Serial_Port::State::set_controls(const Serial_Settings &settings) const
{
    if (settings.rts != Serial_Settings::handshake)
        set_modem_line(descriptor, TIOCM_RTS, settings.rts != Serial_Settings::disable);
    set_modem_line(descriptor, TIOCM_DTR, settings.dtr != Serial_Settings::disable);
}

bool Serial_Port::has_unsent() const
{
    int left = 0;
    return ioctl(state_->descriptor, TIOCOUTQ, &left) == 0 && left > 0;
}

void Serial_Port::drop_unsent() const { ioctl(state_->descriptor, TCFLSH, TCOFLUSH); }

Serial_Port::Serial_Port(std::intptr_t native) : Stream(native, false), state_(std::make_unique<State>())
{
    state_->descriptor = static_cast<int>(native);
    ioctl(state_->descriptor, TIOCGICOUNT, &state_->counted);
}

Serial_Port::~Serial_Port()
{
    drain();
    if (state_->exclusive) ioctl(state_->descriptor, TIOCNXCL);
}

std::shared_ptr<Serial_Port> Serial_Port::open(const char *name)
{
    const int descriptor = open_exclusively(path_of(name));
    if (descriptor < 0) return nullptr;
    auto port = adopt(reinterpret_cast<void *>(std::intptr_t{descriptor}));
    if (!port) {
        ::close(descriptor);
        return nullptr;
    }
    port->state_->exclusive = true;
    return port;
}

// Refuses the null handle, although 0 is a descriptor: a null is more likely a mistake than standard input.
std::shared_ptr<Serial_Port> Serial_Port::adopt(void *handle)
{
    const auto native = reinterpret_cast<std::intptr_t>(handle);
    const int descriptor = static_cast<int>(native);
    termios2 line{};
    if (native <= 0 || ioctl(descriptor, TCGETS2, &line) != 0) {
        set_last_error(error_invalid_handle);
        return nullptr;
    }
    make_raw(line);
    const int flags = fcntl(descriptor, F_GETFL);
    if (ioctl(descriptor, TCSETS2, &line) != 0 || flags < 0 || fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) != 0) {
        fail_port();
        return nullptr;
    }
    std::shared_ptr<Serial_Port> port(new Serial_Port(native));
    read_format(line, port->state_->wanted);
    if ((line.c_cflag & CRTSCTS) != 0) port->state_->wanted.rts = Serial_Settings::handshake;
    return port;
}

bool Serial_Port::set_queues(std::uint32_t, std::uint32_t) { return !closed() || fail_with(error_invalid_handle); }

// A pseudo-terminal does not store parity and size; for it the last settings are returned.
bool Serial_Port::get_settings(Serial_Settings &settings) const
{
    if (closed()) return fail_with(error_invalid_handle);
    const std::lock_guard guard(state_->lock);
    termios2 line{};
    if (!state_->get_line(line)) return false;
    settings = state_->wanted;
    if (has_modem_lines(state_->descriptor))
        read_format(line, settings);
    else
        settings.baud = line.c_ospeed;
    return true;
}

bool Serial_Port::set_settings(const Serial_Settings &settings)
{
    if (closed()) return fail_with(error_invalid_handle);
    if (!is_possible(settings)) return fail_with(error_invalid_parameter);
    const std::lock_guard guard(state_->lock);
    if (!state_->set_format(settings)) return false;
    state_->set_controls(settings);
    state_->wanted = settings;
    state_->wanted.abort_on_error = false;
    return true;
}

bool Serial_Port::set_timeouts(const Serial_Timeouts &timeouts)
{
    if (closed()) return fail_with(error_invalid_handle);
    const std::lock_guard guard(state_->lock);
    state_->timeouts = timeouts;
    return true;
}

// The system counts all events, so the mask is not needed.
bool Serial_Port::set_event_mask(std::uint32_t) { return !closed() || fail_with(error_invalid_handle); }

bool Serial_Port::clear_error(std::uint32_t &errors)
{
    if (closed()) return fail_with(error_invalid_handle);
    const std::lock_guard guard(state_->lock);
    termios2 line{};
    if (!state_->get_line(line)) return false;  // unplugged; drivers without counts report it here
    errors = fault::planned_serial_errors();
    serial_icounter_struct now{};
    if (ioctl(state_->descriptor, TIOCGICOUNT, &now) != 0) return true;
    const serial_icounter_struct before = std::exchange(state_->counted, now);
    if (now.buf_overrun != before.buf_overrun) errors |= serial_rx_overflow;
    if (now.overrun != before.overrun) errors |= serial_overrun;
    if (now.parity != before.parity) errors |= serial_parity;
    if (now.frame != before.frame) errors |= serial_frame;
    if (now.brk != before.brk) errors |= serial_break;
    return true;
}

namespace {

std::uint64_t total_of(std::uint32_t multiplier, std::uint32_t constant, std::size_t n)
{
    return std::uint64_t{multiplier} * n + constant;
}

// How long [ms] a read of n bytes may still wait, `passed` milliseconds after its start.
unsigned long left_to_read(const Serial_Timeouts &timeouts, std::size_t n, bool has_some, std::uint64_t passed)
{
    const std::uint64_t total = total_of(timeouts.read_multiplier, timeouts.read_constant, n);
    if (total == 0 && timeouts.read_interval == Serial_Timeouts::no_wait) return 0;
    std::uint64_t left = wait_forever;
    if (total > 0) left = total > passed ? total - passed : 0;
    if (has_some && timeouts.read_interval > 0) left = std::min<std::uint64_t>(left, timeouts.read_interval);
    return static_cast<unsigned long>(std::min<std::uint64_t>(left, wait_forever));
}

}  // namespace

bool Serial_Port::read(void *buffer, std::size_t n, std::size_t &got)
{
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    const Serial_Timeouts timeouts = state_->current_timeouts();
    std::size_t moved = 1;
    for (got = 0; got < n && moved > 0; got += moved) {
        const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
        const unsigned long left = left_to_read(timeouts, n, got > 0, static_cast<std::uint64_t>(passed));
        Transfer &transfer = state_->reading;
        auto *const next = static_cast<unsigned char *>(buffer) + got;
        const bool good = left == 0 ? read_held(next, n - got, moved)
                                    : finish(transfer, transfer.read(shared_from_this(), next, n - got), left, moved);
        if (!good) return got > 0;
    }
    return true;
}

// Polls first: beginning and cancelling a transfer would cost more.
bool Serial_Port::read_held(void *buffer, std::size_t n, std::size_t &got)
{
    pollfd polled{state_->descriptor, POLLIN, 0};
    got = 0;
    if (!closed() && poll(&polled, 1, 0) == 0) return true;
    Transfer &transfer = state_->reading;
    return finish(transfer, transfer.read(shared_from_this(), buffer, n), 0, got);
}

bool Serial_Port::write(const void *buffer, std::size_t n, std::size_t &put, Event &stop)
{
    const Serial_Timeouts timeouts = state_->current_timeouts();
    const std::uint64_t total = total_of(timeouts.write_multiplier, timeouts.write_constant, n);
    const auto limit =
        static_cast<unsigned long>(std::min<std::uint64_t>(total > 0 ? total : wait_forever, wait_forever));
    Transfer &transfer = state_->writing;
    return finish(transfer, transfer.write(shared_from_this(), buffer, n), limit, put, &stop);
}

void *Serial_Port::native() const { return reinterpret_cast<void *>(native_); }

}  // namespace platform
