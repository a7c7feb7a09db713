#include "platform/pipe.h"

#include "platform/error.h"
#include "platform/win32/stream_internal.h"
#include "platform/win32/wide_text.h"

#include <windows.h>

#include <atomic>
#include <mutex>
#include <new>
#include <utility>

namespace platform {

namespace {

constexpr DWORD buffer_size = 8192;  // [bytes] of each direction
constexpr DWORD default_wait_ms = 1000;
constexpr DWORD cancel_poll_ms = 10;
constexpr std::intptr_t no_handle = 0;

std::intptr_t native_of(HANDLE handle) { return reinterpret_cast<std::intptr_t>(handle); }

bool fail_with(DWORD error)
{
    SetLastError(error);
    return false;
}

// The system's name; empty with the last error.
std::wstring system_name(std::string_view name)
{
    std::string plain;
    if (plain_pipe_name(name, plain)) return L"\\\\.\\pipe\\" + win32::wide(plain);
    return GetLastError() == ERROR_BAD_NETPATH ? win32::wide(name) : std::wstring();
}

class Connection : public Stream {
public:
    explicit Connection(HANDLE handle) : Stream(native_of(handle), false) { closing_->closes_at_once = true; }
};

// Takes ownership of the handle, also when there is no memory.
std::shared_ptr<Stream> connection_of(HANDLE handle)
{
    try {
        return std::make_shared<Connection>(handle);
    } catch (const std::bad_alloc &) {
        CloseHandle(handle);
        throw;
    }
}

// The event of the wait for a client.
//
// Threads:   as Waitable.
// Ownership: owns the event.
// Errors:    as Waitable.
class Arrival : public Waitable {
public:
    Arrival()
    {
        if (HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr)) native_ = native_of(event);
    }
    ~Arrival() override
    {
        if (valid()) CloseHandle(event());
    }
    HANDLE event() const { return reinterpret_cast<HANDLE>(native_); }

private:
    bool take() override { return true; }
};

}  // namespace

// Threads:   under `lock`.
// Ownership: owns the pipe until close(). The system uses `overlapped` while the wait is pending.
// Errors:    none.
struct Server_Pipe::State {
    ~State()
    {
        close();
        while (pending && !HasOverlappedIoCompleted(&overlapped)) WaitForSingleObject(arrival.event(), cancel_poll_ms);
    }
    void close()
    {
        if (pipe == INVALID_HANDLE_VALUE) return;
        CancelIoEx(pipe, nullptr);
        CloseHandle(std::exchange(pipe, INVALID_HANDLE_VALUE));
    }

    std::mutex lock;
    Arrival arrival;
    OVERLAPPED overlapped{};
    HANDLE pipe = INVALID_HANDLE_VALUE;
    bool pending = false;  // the system waits for a client
    bool come = false;     // a client has come and was not taken
    std::atomic<bool> listens{true};
};

std::shared_ptr<Server_Pipe> Server_Pipe::create(std::string_view name)
try {
    const std::wstring full = system_name(name);
    if (full.empty()) return nullptr;
    auto state = std::make_unique<State>();
    state->pipe = CreateNamedPipeW(full.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                   PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1, buffer_size, buffer_size,
                                   default_wait_ms, nullptr);
    if (state->pipe == INVALID_HANDLE_VALUE) return nullptr;
    return std::shared_ptr<Server_Pipe>(new Server_Pipe(no_handle, std::move(state)));
} catch (const std::bad_alloc &) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

Server_Pipe::Server_Pipe(std::intptr_t native, std::unique_ptr<State> state)
    : Stream(native, false), state_(std::move(state))
{
    closing_->released = true;
}

Server_Pipe::~Server_Pipe() = default;

void Server_Pipe::close()
{
    const std::lock_guard guard(state_->lock);
    Stream::close();
    state_->close();
}

// Forgets a client that has come and was not taken.
bool Server_Pipe::disconnect()
{
    const std::lock_guard guard(state_->lock);
    if (closed()) return fail_with(ERROR_INVALID_HANDLE);
    if (!DisconnectNamedPipe(state_->pipe)) return false;
    state_->come = false;
    state_->listens.store(false, std::memory_order_release);
    if (!state_->pending) return true;
    while (!HasOverlappedIoCompleted(&state_->overlapped)) Sleep(1);
    state_->pending = false;
    return true;
}

// A client may have come, and perhaps left, before this call: the system returns an error for that.
bool Server_Pipe::listen()
{
    const std::lock_guard guard(state_->lock);
    if (closed()) return fail_with(ERROR_INVALID_HANDLE);
    if (state_->pending) return true;
    HANDLE const event = state_->arrival.event();
    state_->overlapped = {};
    state_->overlapped.hEvent = event;
    ResetEvent(event);
    const DWORD error = ConnectNamedPipe(state_->pipe, &state_->overlapped) ? ERROR_PIPE_CONNECTED : GetLastError();
    state_->pending = error == ERROR_IO_PENDING;
    state_->come = error == ERROR_PIPE_CONNECTED || error == ERROR_NO_DATA;
    if (state_->come) SetEvent(event);
    if (!state_->pending && !state_->come) return fail_with(error);
    state_->listens.store(true, std::memory_order_release);
    return true;
}

Waitable &Server_Pipe::arrival() const { return state_->arrival; }

std::shared_ptr<Stream> Server_Pipe::take()
try {
    const std::lock_guard guard(state_->lock);
    DWORD ignored = 0;
    if (closed()) return fail_with(ERROR_OPERATION_ABORTED), nullptr;
    if (state_->pending) {
        state_->come = GetOverlappedResult(state_->pipe, &state_->overlapped, &ignored, FALSE) != 0;
        state_->pending = !state_->come && GetLastError() == ERROR_IO_INCOMPLETE;
        if (!state_->come && !state_->pending) return nullptr;
    }
    if (!state_->come) return fail_with(ERROR_IO_PENDING), nullptr;
    HANDLE const self = GetCurrentProcess();
    HANDLE connection = nullptr;
    if (!DuplicateHandle(self, state_->pipe, self, &connection, 0, FALSE, DUPLICATE_SAME_ACCESS)) return nullptr;
    state_->come = false;
    return connection_of(connection);
} catch (const std::bad_alloc &) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

// The stream has no handle, so that each transfer fails at once: the pipe's would bring it to the next client.
std::uint32_t Server_Pipe::judge(bool, std::uint32_t, std::size_t &moved) const
{
    moved = 0;
    return state_->listens.load(std::memory_order_acquire) ? ERROR_PIPE_LISTENING : ERROR_PIPE_NOT_CONNECTED;
}

std::shared_ptr<Stream> open_pipe(std::string_view name)
try {
    const std::wstring full = system_name(name);
    if (full.empty()) return nullptr;
    HANDLE handle = CreateFileW(full.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                FILE_FLAG_OVERLAPPED | FILE_ATTRIBUTE_NORMAL, nullptr);
    return handle == INVALID_HANDLE_VALUE ? nullptr : connection_of(handle);
} catch (const std::bad_alloc &) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

// A time of 0 would mean the server's default.
bool wait_for_pipe(std::string_view name, unsigned long ms)
try {
    const std::wstring full = system_name(name);
    return !full.empty() && WaitNamedPipeW(full.c_str(), ms > 0 ? ms : 1) != 0;
} catch (const std::bad_alloc &) {
    return fail_with(ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace platform
