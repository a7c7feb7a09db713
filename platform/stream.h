// Byte streams that are moved without waiting: sockets, serial lines, pipes. A Transfer is a read or write under way.
#pragma once

#include "platform/wait.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform {

// An open stream.
//
// Threads:   one thread reads, another writes; any thread closes, also while they are at it.
// Ownership: by shared_ptr; a transfer that is under way is a holder, until it is waited for, asked for its result, or
//            cancelled. The system's handle is released when the last holder lets go, so that its number cannot be taken by
//            another stream under somebody's feet.
// Errors:    as said at each operation.
class Stream {
public:
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;
    virtual ~Stream();

    // For good: the peer sees the end, what is under way ends with error_operation_aborted and its waiters wake at once,
    // what is begun later fails with error_invalid_handle. Data that the system has taken already still goes out; what
    // was received and not read yet is dropped.
    void close();
    bool closed() const { return closed_.load(std::memory_order_acquire); }

protected:
    // native: Win32: a HANDLE opened for overlapped transfers, or a SOCKET; POSIX: a non-blocking descriptor (a socket, a
    // terminal, a pipe to read from). Owned from here on. is_socket: the numbers of failures are Winsock's.
    Stream(std::intptr_t native, bool is_socket);

    struct Closing;  // what wakes the waiters, and what else each system needs

    const std::intptr_t native_;
    const bool is_socket_;
    const std::unique_ptr<Closing> closing_;

private:
    friend class Transfer;

    std::atomic<bool> closed_{false};
};

// One read or write under way, and the waitable that tells its end. It is signalled once per transfer that was answered
// with error_io_pending, when that has come to its end, however it ended; without such a transfer it is not signalled.
//
// Threads:   one thread begins, asks for results and cancels; others may wait, and ask for pending(). That thread must live
//            until the transfer has ended: Windows cancels what a thread has begun when the thread ends.
// Ownership: the buffer stays the caller's, who leaves it alone until the transfer has ended or is cancelled. Destruction
//            cancels.
// Errors:    false, with last_error() set. The peer of a socket has gone: 10054; a device has been unplugged:
//            error_invalid_handle.
class Transfer : public Waitable {
public:
    Transfer();
    ~Transfer() override;

    // Begins a read of 1 to n bytes. True: done, result() says how many; 0 bytes are the stream's end. False with
    // error_io_pending: under way, to be waited for. False with anything else: failed (error_invalid_handle when closed,
    // error_busy when the last one has not ended yet; that one goes on).
    bool read(const std::shared_ptr<Stream> &stream, void *buffer, std::size_t n);
    // Begins a write of n bytes; it has ended when all of them are with the system: a short write of the system goes on as
    // soon as there is room, when this transfer is waited for (POSIX) or by itself (Win32). Who waits for a write to a
    // terminal asks pending() now and then: POSIX may forget to tell that there is room again.
    bool write(const std::shared_ptr<Stream> &stream, const void *buffer, std::size_t n);
    // Under way? False does not take the signal: that is forgotten when the next transfer begins.
    bool pending() const;
    // Of the last transfer: true with the bytes moved; false with its error, or error_io_incomplete while it is pending
    // (`moved` then counts what has gone already). May be asked again.
    bool result(std::size_t &moved);
    // Ends what is pending, with error_operation_aborted (unless it has come to its own end just now: ask result()), and
    // returns when the buffer is the caller's again.
    void cancel();

private:
    struct State;   // what both systems have in common: platform/transfer.h
    struct Native;  // each system's own
    bool take() override;

    std::unique_ptr<State> state_;
};

}  // namespace platform
