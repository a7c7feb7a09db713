// Byte streams with asynchronous transfers: sockets, serial lines, pipes. A Transfer is a read or write in progress.
#pragma once

#include "platform/wait.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform {

// An open stream.
//
// Threads:   one thread reads, another writes; any thread may close at any time.
// Ownership: by shared_ptr. A transfer in progress holds a reference until it is waited for, asked for its result, or
//            cancelled. The system's handle is released with the last reference, so that the system cannot give its
//            number to another stream while it is still in use.
// Errors:    see each operation.
class Stream {
public:
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;
    virtual ~Stream();

    // Closes for good. The peer sees the end of the stream. Transfers in progress end with error_operation_aborted, and
    // their waiters wake at once; later transfers fail with error_invalid_handle. Data that the system has taken
    // already is still sent. Data received and not read yet is dropped.
    void close();
    bool closed() const { return closed_.load(std::memory_order_acquire); }
    std::intptr_t number() const { return native_; }  // the system's, for reports

protected:
    static constexpr std::intptr_t none = -1;
    // Gives up the system's handle without closing it. The stream counts as closed from then on; the peer notices
    // nothing. Returns `none` if the stream is closed already.
    std::intptr_t give_away();

    // Takes ownership of `native`. On Win32 it is a HANDLE opened for overlapped transfers, or a SOCKET; on POSIX a
    // non-blocking descriptor (a socket, a terminal, a pipe to read from). is_socket: errors are those of Winsock.
    Stream(std::intptr_t native, bool is_socket);

    // What the system's result of a transfer means on this stream: returns its error, and may take back what was moved.
    // Called when a transfer ends; it must not wait.
    virtual std::uint32_t judge(bool is_read, std::uint32_t error, std::size_t &moved) const;

    struct Closing;  // the event that wakes the waiters, and other data that each system needs

    const std::intptr_t native_;
    const bool is_socket_;
    const std::unique_ptr<Closing> closing_;

private:
    friend class Transfer;

    std::atomic<bool> closed_{false};
};

// One read or write in progress, and the waitable that signals its end. It is signalled once for each transfer that
// began with error_io_pending, when that transfer ends with any result. It is not signalled for other transfers.
//
// Threads:   one thread begins, asks for results and cancels; others may wait and call pending(). The beginning thread
//            must live until the transfer has ended: when a thread ends, Windows cancels the transfers that it began.
// Ownership: the buffer stays the caller's, which must not touch it until the transfer has ended or is cancelled. The
//            destructor cancels.
// Errors:    false, with last_error() set: 10054 when the peer of a socket has gone, error_invalid_handle when a device
//            has been unplugged.
class Transfer : public Waitable {
public:
    Transfer();
    ~Transfer() override;

    // Begins a read of 1 to n bytes. True: done, and result() says how many; 0 bytes are the end of the stream. False
    // with error_io_pending: in progress; wait for it. False with another error: failed (error_invalid_handle when
    // closed, error_busy when the last transfer has not ended yet; that one continues).
    bool read(const std::shared_ptr<Stream> &stream, void *buffer, std::size_t n);
    // Begins a write of n bytes. It ends when the system has taken all of them. A short write of the system continues
    // as soon as there is room: on POSIX while a thread waits for this transfer, on Win32 by itself. While waiting for
    // a write to a terminal, call pending() from time to time: POSIX may not signal that there is room again.
    bool write(const std::shared_ptr<Stream> &stream, const void *buffer, std::size_t n);
    // Whether the transfer is in progress. When it has ended, its signal stays until the next transfer begins.
    bool pending() const;
    // The result of the last transfer: true with the bytes moved; false with its error, or with error_io_incomplete
    // while it is pending (`moved` then counts the bytes moved so far). May be called again.
    bool result(std::size_t &moved);
    // Ends a pending transfer with error_operation_aborted, or with its own result if it has just ended; see result().
    // When this returns, the caller may use the buffer again.
    void cancel();

private:
    struct State;   // the common part, see platform/transfer.h
    struct Native;  // the part of each system
    bool take() override;

    std::unique_ptr<State> state_;
};

}  // namespace platform
