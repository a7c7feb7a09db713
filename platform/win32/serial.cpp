#include "platform/serial.h"

#include "platform/error.h"
#include "platform/fault.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>

namespace platform {

namespace {

// The enumerators have Win32's values and are passed on unchanged.
static_assert(Serial_Settings::space_parity == SPACEPARITY && Serial_Settings::even_parity == EVENPARITY);
static_assert(Serial_Settings::one5_stop_bits == ONE5STOPBITS && Serial_Settings::two_stop_bits == TWOSTOPBITS);
static_assert(Serial_Settings::handshake == RTS_CONTROL_HANDSHAKE && Serial_Settings::toggle == RTS_CONTROL_TOGGLE);
static_assert(Serial_Settings::handshake == DTR_CONTROL_HANDSHAKE);

HANDLE handle_of(std::intptr_t native) { return reinterpret_cast<HANDLE>(native); }

bool get_state(std::intptr_t native, DCB &state)
{
    state = DCB{};
    state.DCBlength = sizeof state;
    return GetCommState(handle_of(native), &state) != 0;
}

// A former user of the port may have left settings that remove, change or delay bytes.
void make_raw(DCB &state)
{
    state.fBinary = TRUE;
    state.fOutX = state.fInX = FALSE;
    state.fNull = state.fErrorChar = FALSE;
    state.fDsrSensitivity = FALSE;
}

// COM10 and above, and other device names, are found only in the namespace of devices.
std::string path_of(const std::string &name)
{
    const bool is_path = name.empty() || name.find_first_of("/\\") != std::string::npos;
    return is_path ? name : "\\\\.\\" + name;
}

bool fail_closed()
{
    SetLastError(ERROR_INVALID_HANDLE);
    return false;
}

}  // namespace

struct Serial_Port::State {
    explicit State(HANDLE port) : handle(port) {}

    // ClearCommError also clears the errors, so they are kept here for clear_error.
    bool look(COMSTAT &status)
    {
        DWORD found = 0;
        if (!ClearCommError(handle, &found, &status)) return false;
        errors.fetch_or(found);
        return true;
    }

    const HANDLE handle;
    Transfer reading, writing;  // for read and write, which return when these have ended
    std::atomic<bool> waits{true};
    std::atomic<std::uint32_t> errors{0};
};

Serial_Port::Serial_Port(std::intptr_t native)
    : Stream(native, false), state_(std::make_unique<State>(handle_of(native)))
{
}

Serial_Port::~Serial_Port() { drain(); }

bool Serial_Port::has_unsent() const
{
    COMSTAT status{};
    return state_->look(status) && status.cbOutQue > 0;
}

void Serial_Port::drop_unsent() const { PurgeComm(handle_of(native_), PURGE_TXCLEAR); }

// Opened for overlapped transfers, even where the caller waits. On another handle reads would queue behind a write, and
// close() could miss a transfer that is just beginning.
std::shared_ptr<Serial_Port> Serial_Port::open(const char *name)
{
    HANDLE handle = CreateFileA(path_of(name).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                FILE_FLAG_OVERLAPPED, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return nullptr;
    auto port = adopt(handle);
    if (!port) {
        const DWORD error = GetLastError();
        CloseHandle(handle);
        // An invalid handle here means that the name exists and is not a port.
        SetLastError(error == ERROR_INVALID_HANDLE ? DWORD{ERROR_FILE_NOT_FOUND} : error);
    }
    return port;
}

std::shared_ptr<Serial_Port> Serial_Port::adopt(void *handle)
{
    const auto native = reinterpret_cast<std::intptr_t>(handle);
    DCB state;
    if (!handle || handle == INVALID_HANDLE_VALUE || !get_state(native, state)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    const DCB before = state;
    make_raw(state);
    if (std::memcmp(&before, &state, sizeof state) != 0 && !SetCommState(handle, &state)) return nullptr;
    return std::shared_ptr<Serial_Port>(new Serial_Port(native));
}

bool Serial_Port::set_queues(std::uint32_t in, std::uint32_t out)
{
    return closed() ? fail_closed() : SetupComm(handle_of(native_), in, out) != 0;
}

bool Serial_Port::get_settings(Serial_Settings &settings) const
{
    DCB state;
    if (closed()) return fail_closed();
    if (!get_state(native_, state)) return false;
    settings.baud = state.BaudRate;
    settings.byte_size = state.ByteSize;
    settings.parity = static_cast<Serial_Settings::Parity>(state.Parity);
    settings.stop_bits = static_cast<Serial_Settings::Stop_Bits>(state.StopBits);
    settings.rts = static_cast<Serial_Settings::Control>(state.fRtsControl);
    settings.dtr = static_cast<Serial_Settings::Control>(state.fDtrControl);
    settings.cts_flow = state.fOutxCtsFlow != 0;
    settings.dsr_flow = state.fOutxDsrFlow != 0;
    settings.abort_on_error = state.fAbortOnError != 0;
    return true;
}

bool Serial_Port::set_settings(const Serial_Settings &settings)
{
    DCB state;
    if (closed()) return fail_closed();
    if (!get_state(native_, state)) return false;
    state.BaudRate = settings.baud;
    state.ByteSize = settings.byte_size;
    state.Parity = settings.parity;
    state.StopBits = settings.stop_bits;
    constexpr unsigned two_bits = 3;  // the width of both fields
    state.fRtsControl = settings.rts & two_bits;
    state.fDtrControl = settings.dtr & two_bits;
    state.fOutxCtsFlow = settings.cts_flow;
    state.fOutxDsrFlow = settings.dsr_flow;
    state.fAbortOnError = settings.abort_on_error;
    make_raw(state);
    if (SetCommState(handle_of(native_), &state)) return true;
    if (GetLastError() == ERROR_NOT_SUPPORTED) SetLastError(ERROR_INVALID_PARAMETER);  // some drivers' error for it
    return false;
}

bool Serial_Port::set_timeouts(const Serial_Timeouts &timeouts)
{
    COMMTIMEOUTS times{timeouts.read_interval, timeouts.read_multiplier, timeouts.read_constant,
                       timeouts.write_multiplier, timeouts.write_constant};
    if (closed()) return fail_closed();
    state_->waits = timeouts.read_interval != Serial_Timeouts::no_wait || timeouts.read_multiplier > 0 ||
                    timeouts.read_constant > 0;
    return SetCommTimeouts(handle_of(native_), &times) != 0;
}

bool Serial_Port::set_event_mask(std::uint32_t events)
{
    return closed() ? fail_closed() : SetCommMask(handle_of(native_), events) != 0;
}

// The driver obeys the time-outs, also for overlapped transfers.
bool Serial_Port::read(void *buffer, std::size_t n, std::size_t &got)
{
    if (!state_->waits) return read_held(buffer, n, got);
    Transfer &transfer = state_->reading;
    return finish(transfer, transfer.read(shared_from_this(), buffer, n), wait_forever, got);
}

// Some drivers ignore time-outs that forbid waiting (Wine's waits for ever). So only the bytes that are there are
// requested.
bool Serial_Port::read_held(void *buffer, std::size_t n, std::size_t &got)
{
    COMSTAT status{};
    got = 0;
    if (closed()) return fail_closed();
    if (!state_->look(status)) return false;
    n = std::min<std::size_t>(n, status.cbInQue);
    if (n == 0) return true;
    Transfer &transfer = state_->reading;
    return finish(transfer, transfer.read(shared_from_this(), buffer, n), wait_forever, got);
}

bool Serial_Port::write(const void *buffer, std::size_t n, std::size_t &put, Event &stop)
{
    Transfer &transfer = state_->writing;
    return finish(transfer, transfer.write(shared_from_this(), buffer, n), wait_forever, put, &stop);
}

bool Serial_Port::clear_error(std::uint32_t &errors)
{
    COMSTAT ignored{};
    if (closed()) return fail_closed();
    if (!state_->look(ignored)) return false;
    errors = state_->errors.exchange(0) | fault::planned_serial_errors();
    return true;
}

void *Serial_Port::native() const { return handle_of(native_); }

}  // namespace platform
