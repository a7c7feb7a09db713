#include "platform/stream.h"

#include "platform/error.h"
#include "platform/fault.h"
#include "platform/transfer.h"
#include "platform/win32/stream_internal.h"

#include <winsock2.h>

#include <windows.h>

#include <algorithm>
#include <mutex>

namespace platform {

namespace {

using fault::Operation;

constexpr std::size_t most_per_call = 0x40000000;  // [bytes]; a DWORD holds it
constexpr DWORD late_signal_ms = 100, cancel_poll_ms = 10;

HANDLE handle_of(std::intptr_t native) { return reinterpret_cast<HANDLE>(native); }

SOCKET socket_of(std::intptr_t native) { return static_cast<SOCKET>(native); }

// With unread data the system would reset the connection at the close and drop what it still has to send.
void drop_received(SOCKET socket)
{
    char dropped[4096];
    unsigned long non_blocking = 1;
    ioctlsocket(socket, static_cast<long>(FIONBIO), &non_blocking);
    constexpr int most_reads = 1024;
    for (int i = 0; i < most_reads; ++i) {
        if (recv(socket, dropped, sizeof dropped, 0) <= 0) break;
    }
}

void release(std::intptr_t native, bool is_socket)
{
    if (is_socket)
        closesocket(socket_of(native));
    else
        CloseHandle(handle_of(native));
}

}  // namespace

Stream::Closing::Closing(bool is_socket)
    : event(is_socket ? reinterpret_cast<std::intptr_t>(CreateEventA(nullptr, TRUE, FALSE, nullptr)) : 0)
{
}

Stream::Closing::~Closing()
{
    if (event != 0) CloseHandle(handle_of(event));
}

Stream::Stream(std::intptr_t native, bool is_socket)
    : native_(native), is_socket_(is_socket), closing_(std::make_unique<Closing>(is_socket))
{
}

Stream::~Stream()
{
    if (closing_->released) return;
    if (is_socket_) drop_received(socket_of(native_));
    release(native_, is_socket_);
}

// A transfer that another thread begins at this moment is either cancelled here, or finds the stream closed. The event
// wakes connect and accept, which do not use transfers.
void Stream::close()
{
    const std::lock_guard guard(closing_->lock);
    if (closed_.exchange(true, std::memory_order_acq_rel)) return;
    if (closing_->event != 0) SetEvent(handle_of(closing_->event));
    CancelIoEx(handle_of(native_), nullptr);
    if (closing_->closes_at_once) {
        release(native_, is_socket_);
        closing_->released = true;
    } else if (is_socket_) {
        shutdown(socket_of(native_), SD_SEND);  // the peer gets the data on its way and then the end
    }
}

std::intptr_t Stream::give_away()
{
    const std::lock_guard guard(closing_->lock);
    if (closed_.exchange(true, std::memory_order_acq_rel)) return none;
    closing_->released = true;
    if (closing_->event != 0) SetEvent(handle_of(closing_->event));
    return native_;
}

// While the transfer is in progress the system uses the OVERLAPPED and the buffer.
struct Transfer::Native : State {
    explicit Native(HANDLE event) { overlapped.hEvent = event; }
    ~Native() override;

    std::uint32_t start(void *bytes) override;
    void look() override;
    void forget_signal() override;
    void cancel() override;
    bool take() override;

    std::uint32_t issue(void *bytes, DWORD n);
    std::uint32_t judge(DWORD code) const;
    bool has_ended() const { return HasOverlappedIoCompleted(&overlapped); }

    OVERLAPPED overlapped{};  // its event is the Transfer's, auto-reset
    bool signal_due = false;  // a transfer was pending, and its signal has not been taken
};

Transfer::Native::~Native()
{
    if (under_way()) cancel();
    if (overlapped.hEvent) CloseHandle(overlapped.hEvent);
}

// A write is handed over as a whole, because the system moves all of it or fails; a test's limit per call does not
// apply. A transfer that is done at once sets the event as well.
std::uint32_t Transfer::Native::start(void *bytes)
{
    const std::size_t n = operation == Operation::read ? fault::piece(admitted) : admitted;
    const std::uint32_t started = issue(bytes, static_cast<DWORD>(std::min(n, most_per_call)));
    signal_due = started == error_io_pending;
    if (signal_due) return started;
    ResetEvent(overlapped.hEvent);
    moved = started == error_none ? overlapped.InternalHigh : 0;
    return started;
}

// Sockets have their own calls, which return Winsock's errors. The lock excludes a close: after it a pipe may already
// serve the next client.
std::uint32_t Transfer::Native::issue(void *bytes, DWORD n)
{
    const std::lock_guard guard(stream->closing_->lock);
    if (stream->closed()) return error_invalid_handle;
    const bool is_read = operation == Operation::read;
    HANDLE const event = overlapped.hEvent;
    overlapped = {};
    overlapped.hEvent = event;
    if (!stream->is_socket_) {
        HANDLE const handle = handle_of(stream->native_);
        const BOOL done = is_read ? ReadFile(handle, bytes, n, nullptr, &overlapped)
                                  : WriteFile(handle, bytes, n, nullptr, &overlapped);
        return done ? 0 : judge(GetLastError());
    }
    SOCKET const socket = socket_of(stream->native_);
    WSABUF buffer{n, static_cast<char *>(bytes)};
    DWORD flags = 0;
    const int result = is_read ? WSARecv(socket, &buffer, 1, nullptr, &flags, &overlapped, nullptr)
                               : WSASend(socket, &buffer, 1, nullptr, 0, &overlapped, nullptr);
    return result == 0 ? 0 : static_cast<std::uint32_t>(WSAGetLastError());
}

// For a read the end of a pipe is not a failure.
std::uint32_t Transfer::Native::judge(DWORD code) const
{
    const bool is_end = code == ERROR_BROKEN_PIPE || code == ERROR_HANDLE_EOF;
    return is_end && operation == Operation::read ? DWORD{ERROR_SUCCESS} : code;
}

// Windows does not report the end by a call, so the stream is held until this is called. The result of a transfer that
// has ended stands in the OVERLAPPED; the handle may be closed already.
void Transfer::Native::look()
{
    if (!under_way() || !has_ended()) return;
    DWORD bytes = 0, flags = 0;
    const BOOL good = stream->is_socket_
                          ? WSAGetOverlappedResult(socket_of(stream->native_), &overlapped, &bytes, FALSE, &flags)
                          : GetOverlappedResult(handle_of(stream->native_), &overlapped, &bytes, FALSE);
    moved = bytes;
    end(good ? std::uint32_t{error_none} : judge(GetLastError()));
}

// The end of a transfer may be visible before the system sets its event. That late signal must not count for the next
// one.
void Transfer::Native::forget_signal()
{
    if (signal_due) WaitForSingleObject(overlapped.hEvent, late_signal_ms);
    signal_due = false;
}

// Waits in slices, because another waiter may take the signal. If this thread took it, it sets it again for the
// waiters.
void Transfer::Native::cancel()
{
    bool taken = false;
    {
        const std::lock_guard guard(stream->closing_->lock);
        if (!stream->closing_->released) CancelIoEx(handle_of(stream->native_), &overlapped);
    }
    while (!has_ended()) taken = WaitForSingleObject(overlapped.hEvent, cancel_poll_ms) == WAIT_OBJECT_0 || taken;
    look();
    if (taken) SetEvent(overlapped.hEvent);
}

bool Transfer::Native::take()
{
    look();
    signal_due = false;
    return true;
}

Transfer::Transfer()
{
    HANDLE const event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    if (event) native_ = reinterpret_cast<std::intptr_t>(event);
    state_ = std::make_unique<Native>(event);
}

Transfer::~Transfer() = default;

}  // namespace platform
