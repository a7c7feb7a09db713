#include "platform/stream.h"

#include "platform/error.h"
#include "platform/fault.h"
#include "platform/posix/errno_table.h"
#include "platform/posix/stream_internal.h"
#include "platform/posix/unstoppable.h"
#include "platform/transfer.h"

#include <cerrno>
#include <mutex>
#include <poll.h>
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

// A terminal may return 0 bytes both for "no data yet" and for "hung up".
bool hung_up(int descriptor)
{
    pollfd polled{descriptor, POLLIN, 0};
    return poll(&polled, 1, 0) > 0 && (polled.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

}  // namespace

// `closed_` is set under the lock: a source that joins later finds it set.
void posix::Closing_List::close()
{
    const Unstoppable whole;
    const std::lock_guard guard(lock_);
    closed_.store(true, std::memory_order_release);
    for (const Member *member = members_; member; member = member->next_) member->source_.wake();
}

void posix::Closing_List::Member::join(Closing_List &list)
{
    const Unstoppable whole;
    const std::lock_guard guard(list.lock_);
    list_ = &list;
    next_ = list.members_;
    link_ = &list.members_;
    if (next_) next_->link_ = &next_;
    list.members_ = this;
}

void posix::Closing_List::Member::leave()
{
    if (!list_) return;
    const Unstoppable whole;
    const std::lock_guard guard(list_->lock_);
    *link_ = next_;
    if (next_) next_->link_ = link_;
    list_ = nullptr;
}

posix::Ready::Native::Native(int descriptor, short events, Closing_List &list)
    : Descriptor_Source(descriptor, events), closing(list)
{
    member.join(list);
}

posix::Ready::Ready(int descriptor, short events, Closing_List &closing) : source_(descriptor, events, closing)
{
    native_ = reinterpret_cast<std::intptr_t>(static_cast<Source *>(&source_));
}

Stream::Closing::Closing(int descriptor) : uses_send(is_socket_of_any_kind(descriptor)) {}

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

// closed_ is set first, because threads that the list wakes read it. A listener is freed by shutting down its
// receiving side. For a connection only the sending side is shut down: the peer gets the data on its way and then the
// end. Shutting down the receiving side would reset the connection if the peer still sends.
void Stream::close()
{
    if (closed_.exchange(true, std::memory_order_acq_rel)) return;
    closing_->waiters.close();
    if (!closing_->uses_send) return;
    closing_->shut_down.store(true, std::memory_order_relaxed);
    ::shutdown(descriptor_of(native_), closing_->listening.load(std::memory_order_relaxed) ? SHUT_RDWR : SHUT_WR);
}

// Of close() and this only the first one takes effect. The flag is read by the last owner, after both.
std::intptr_t Stream::give_away()
{
    if (closed_.exchange(true, std::memory_order_acq_rel)) return none;
    closing_->given_away.store(true, std::memory_order_relaxed);
    closing_->waiters.close();
    return native_;
}

// A Transfer is polled on the stream's own descriptor, and advances where it is waited for. Whoever waits holds a
// reference to the stream meanwhile: the descriptor is not closed while it is polled. A transfer under way is a member
// of the stream's closing list.
//
// The lock is held in unstoppable sections, because the threads that wait for the transfer need it.
struct Transfer::Native : State, posix::Source {
    void lock() override
    {
        posix::Unstoppable::enter();
        State::lock();
    }
    void unlock() override
    {
        State::unlock();
        posix::Unstoppable::leave();
    }
    std::uint32_t start(void *bytes) override;
    void look() override;
    void forget_signal() override { take_raised(); }
    void cancel() override;
    bool take() override;
    bool peek(posix::Polled &polled) override;

    std::uint32_t advance();
    void finish(std::uint32_t with);
    ssize_t move(std::size_t n) const;
    std::uint32_t failure() const;

    unsigned char *buffer = nullptr;
    posix::Closing_List::Member closing{*this};
};

// Threads that have waited since before this transfer do not poll its stream yet.
std::uint32_t Transfer::Native::start(void *bytes)
{
    buffer = static_cast<unsigned char *>(bytes);
    const std::uint32_t now = advance();
    if (now != error_io_pending) return now;
    closing.join(stream->closing_->waiters);
    wake();
    return now;
}

bool Transfer::Native::peek(posix::Polled &polled)
{
    const std::lock_guard guard(*this);
    if (!under_way()) return is_raised();
    polled = {descriptor_of(stream->native_), operation == Operation::read ? short{POLLIN} : short{POLLOUT}, stream};
    return stream->closed();
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
// after the other end has read. poll would then wait for ever.
void Transfer::Native::look()
{
    if (!under_way()) return;
    const bool may_be_forgotten = operation == Operation::write && !stream->closing_->uses_send;
    std::uint32_t now = error_io_pending;
    if (may_be_forgotten || stream->closed()) now = advance();
    if (now == error_io_pending) return;
    finish(now);
    raise();
}

void Transfer::Native::cancel()
{
    finish(error_operation_aborted);
    raise();
}

// Called when the stream is ready or closed, or when the signal was raised.
bool Transfer::Native::take()
{
    if (!under_way()) return take_raised();
    const std::uint32_t now = advance();
    if (now != error_io_pending) finish(now);
    return now != error_io_pending;
}

void Transfer::Native::finish(std::uint32_t with)
{
    closing.leave();
    end(with);
}

Transfer::Transfer()
{
    auto native = std::make_unique<Native>();
    native_ = reinterpret_cast<std::intptr_t>(static_cast<posix::Source *>(native.get()));
    state_ = std::move(native);
}

Transfer::~Transfer() = default;

}  // namespace platform
