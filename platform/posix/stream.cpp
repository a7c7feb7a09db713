#include "platform/stream.h"

#include "platform/error.h"
#include "platform/fault.h"
#include "platform/posix/errno_table.h"
#include "platform/posix/stream_internal.h"
#include "platform/transfer.h"

#include <cerrno>
#include <mutex>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace platform {

namespace {

using fault::Operation;

int descriptor_of(std::intptr_t native) { return static_cast<int>(native); }

bool is_socket_of_any_kind(int descriptor)
{
    struct stat status {};
    return fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode);
}

// Sets an eventfd: it polls readable until it is read. Setting it twice gives one signal.
void raise(int event)
{
    const std::uint64_t one = 1;
    while (write(event, &one, sizeof one) < 0 && errno == EINTR) continue;
}

// A terminal may return 0 bytes both for "no data yet" and for "hung up".
bool hung_up(int descriptor)
{
    pollfd polled{descriptor, POLLIN, 0};
    return poll(&polled, 1, 0) > 0 && (polled.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

}  // namespace

bool posix::watch(int epoll, int descriptor, std::uint32_t events)
{
    epoll_event event{};
    event.events = events;
    return epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0 || posix::fail();
}

void posix::unwatch(int epoll, int descriptor) { epoll_ctl(epoll, EPOLL_CTL_DEL, descriptor, nullptr); }

posix::Ready::Ready(int descriptor, std::uint32_t events, int closing_event)
{
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    if (epoll < 0) {
        posix::fail();
    } else if (watch(epoll, descriptor, events) && watch(epoll, closing_event, EPOLLIN)) {
        native_ = epoll;
    } else {
        ::close(epoll);
    }
}

posix::Ready::~Ready()
{
    if (valid()) ::close(descriptor_of(native_));
}

Stream::Closing::Closing(int descriptor)
    : event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), uses_send(is_socket_of_any_kind(descriptor))
{
}

Stream::Closing::~Closing()
{
    if (event >= 0) ::close(event);
}

Stream::Stream(std::intptr_t native, bool is_socket)
    : native_(native), is_socket_(is_socket), closing_(std::make_unique<Closing>(descriptor_of(native)))
{
}

Stream::~Stream()
{
    if (closing_->given_away.load(std::memory_order_relaxed)) return;
    // Read the received data first: otherwise the system resets the connection and drops what it still has to send.
    unsigned char dropped[4096];
    constexpr int most_reads = 1024;
    for (int i = 0; closing_->uses_send && i < most_reads; ++i) {
        if (recv(descriptor_of(native_), dropped, sizeof dropped, MSG_DONTWAIT) <= 0) break;
    }
    ::close(descriptor_of(native_));
}

// closed_ is set first, because threads that the event wakes read it. A listener is freed by shutting down its
// receiving side. For a connection only the sending side is shut down: the peer gets the data on its way and then the
// end. Shutting down the receiving side would reset the connection if the peer still sends.
void Stream::close()
{
    if (closed_.exchange(true, std::memory_order_acq_rel)) return;
    raise(closing_->event);
    if (!closing_->uses_send) return;
    closing_->shut_down.store(true, std::memory_order_relaxed);
    ::shutdown(descriptor_of(native_), closing_->listening.load(std::memory_order_relaxed) ? SHUT_RDWR : SHUT_WR);
}

// Of close() and this only the first one takes effect. The flag is read by the last owner, after both.
std::intptr_t Stream::give_away()
{
    if (closed_.exchange(true, std::memory_order_acq_rel)) return none;
    closing_->given_away.store(true, std::memory_order_relaxed);
    raise(closing_->event);
    return native_;
}

// The Transfer's descriptor is an epoll descriptor that watches the stream and its closing event. It is ready when the
// transfer can continue and when the stream is closed. It keeps watching after the transfer, so that the next one on
// the same stream needs no system call for that. If take() finds it ready without a transfer, it stops watching;
// otherwise waiters would spin. Between transfers it holds no reference to the stream: closing a descriptor removes it
// from epoll.
struct Transfer::Native : State {
    explicit Native(int epoll_descriptor) : epoll(epoll_descriptor) {}
    ~Native() override;

    std::uint32_t start(void *bytes) override;
    void look() override;
    void forget_signal() override { take_signal(); }
    void cancel() override;
    bool take() override;

    std::uint32_t advance();
    void end_watched(std::uint32_t with);
    ssize_t move(std::size_t n) const;
    std::uint32_t failure() const;
    bool watch();
    void stop_watching();
    void signal();
    bool take_signal();

    const int epoll;
    unsigned char *buffer = nullptr;
    bool signalled = false;  // the transfer has ended, and its signal has not been taken
    int nudge = -1;          // a watched eventfd: the signal of a transfer that ended without a wait
    std::weak_ptr<Stream> watched;
    Operation watched_for = Operation::read;
};

Transfer::Native::~Native()
{
    if (epoll >= 0) ::close(epoll);
    if (nudge >= 0) ::close(nudge);
}

std::uint32_t Transfer::Native::start(void *bytes)
{
    buffer = static_cast<unsigned char *>(bytes);
    const std::uint32_t now = advance();
    return now == error_io_pending && !watch() ? last_error() : now;
}

// Moves what can be moved now. Returns error_io_pending when bytes are left, else the result of the transfer. Checks
// closed() first, because the effects of close() on a socket look like those of its peer.
std::uint32_t Transfer::Native::advance()
{
    if (stream->closed()) return error_operation_aborted;
    while (moved < admitted) {
        const ssize_t got = move(fault::piece(admitted - moved));
        if (got < 0) return errno == EAGAIN || errno == EWOULDBLOCK ? std::uint32_t{error_io_pending} : failure();
        moved += static_cast<std::size_t>(got);
        if (operation == Operation::read) break;
    }
    return error_none;
}

// One system call for the next n bytes. MSG_DONTWAIT: an adopted descriptor may be shared with code that makes it
// blocking. MSG_NOSIGNAL: a peer that has gone gives an error and not a signal.
ssize_t Transfer::Native::move(std::size_t n) const
{
    const int descriptor = descriptor_of(stream->native_);
    const bool is_read = operation == Operation::read, uses_send = stream->closing_->uses_send;
    unsigned char *const next = buffer + moved;
    ssize_t result = 0;
    do {
        if (is_read)
            result = uses_send ? recv(descriptor, next, n, MSG_DONTWAIT) : ::read(descriptor, next, n);
        else
            result = uses_send ? send(descriptor, next, n, MSG_DONTWAIT | MSG_NOSIGNAL) : ::write(descriptor, next, n);
    } while (result < 0 && errno == EINTR);
    if (result == 0 && is_read && (isatty(descriptor) || errno == EIO)) {  // after a hang-up isatty fails with EIO
        errno = hung_up(descriptor) ? EIO : EAGAIN;
        return -1;
    }
    return result;
}

// From errno. An unplugged device gives error_invalid_handle.
std::uint32_t Transfer::Native::failure() const
{
    const int code = errno;
    if (stream->is_socket_) {
        const bool own_doing = code == EPIPE && stream->closing_->shut_down.load(std::memory_order_relaxed);
        return posix::from_socket_errno(own_doing ? ESHUTDOWN : code);
    }
    return code == EIO || code == ENXIO || code == ENODEV ? error_invalid_handle : posix::from_errno(code);
}

// A transfer advances where it is waited for. Callers that only query it detect a close() here. A write to a terminal
// is retried here as well: a pseudo-terminal may not signal that it has room again, because the room appears a moment
// after the other end has read. epoll would then wait for ever.
void Transfer::Native::look()
{
    if (!under_way()) return;
    const bool may_be_forgotten = operation == Operation::write && !stream->closing_->uses_send;
    std::uint32_t now = error_io_pending;
    if (may_be_forgotten || stream->closed()) now = advance();
    if (now == error_io_pending) return;
    end_watched(now);
    signal();
}

void Transfer::Native::cancel()
{
    end_watched(error_operation_aborted);
    signal();
}

// Called when the descriptor is ready: for the transfer, for its signal, or for an event between transfers.
bool Transfer::Native::take()
{
    if (under_way()) {
        const std::uint32_t now = advance();
        if (now != error_io_pending) end_watched(now);
        return now != error_io_pending;
    }
    const bool taken = take_signal();
    if (!taken) stop_watching();
    return taken;
}

// Stops watching after a failure or an end, because no further transfer may follow. If other code shares the
// descriptor, closing the stream would not end the watching.
void Transfer::Native::end_watched(std::uint32_t with)
{
    if (with != error_none || moved == 0) stop_watching();
    end(with);
}

// Compares owners: a new stream may have the address or the descriptor of a former one.
bool Transfer::Native::watch()
{
    const bool is_watching = !watched.owner_before(stream) && !stream.owner_before(watched);
    if (is_watching && watched_for == operation) return true;
    stop_watching();
    watched = stream;
    watched_for = operation;
    return posix::watch(epoll, descriptor_of(stream->native_), operation == Operation::read ? EPOLLIN : EPOLLOUT) &&
           posix::watch(epoll, stream->closing_->event, EPOLLIN);
}

void Transfer::Native::stop_watching()
{
    if (const std::shared_ptr<Stream> still = watched.lock()) {
        posix::unwatch(epoll, descriptor_of(still->native_));
        posix::unwatch(epoll, still->closing_->event);
    }
    watched.reset();
}

// Wakes the waiters by an eventfd, because the stream itself may not become ready.
void Transfer::Native::signal()
{
    signalled = true;
    if (nudge < 0) {
        nudge = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        posix::watch(epoll, nudge, EPOLLIN);
    }
    raise(nudge);
}

bool Transfer::Native::take_signal()
{
    std::uint64_t count = 0;
    if (!std::exchange(signalled, false)) return false;
    while (::read(nudge, &count, sizeof count) < 0 && errno == EINTR) continue;
    return true;
}

Transfer::Transfer()
{
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    if (epoll >= 0) native_ = epoll;
    state_ = std::make_unique<Native>(epoll);
}

Transfer::~Transfer() = default;

}  // namespace platform
