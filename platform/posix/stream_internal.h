// The data of a stream on POSIX beside its descriptor, and waiting for a descriptor.
#pragma once

#include "platform/stream.h"

#include <atomic>
#include <cstdint>

namespace platform {

// Threads:   constant except for the flags, which are atomics.
// Ownership: the event is owned.
// Errors:    without an event (-1) nothing on the stream can be waited for: transfers that would be pending fail.
struct Stream::Closing {
    explicit Closing(int descriptor);
    ~Closing();

    const int event;       // an eventfd; close() sets it for good
    const bool uses_send;  // a socket of any kind (Unix-domain included), moved by send and recv
    std::atomic<bool> listening{false};
    std::atomic<bool> shut_down{false};   // for sending, by this side
    std::atomic<bool> given_away{false};  // the descriptor belongs to somebody else
};

namespace posix {

// Adds a descriptor to an epoll descriptor, which then polls readable while the former is ready. False with
// last_error().
bool watch(int epoll, int descriptor, std::uint32_t events);
void unwatch(int epoll, int descriptor);

// Signalled while a descriptor is ready for `events` (EPOLLIN, EPOLLOUT), or once its stream is closed.
//
// Threads:   as Waitable.
// Ownership: owns its epoll descriptor; both descriptors outlive it.
// Errors:    as Waitable, with last_error().
class Ready : public Waitable {
public:
    Ready(int descriptor, std::uint32_t events, int closing_event);
    ~Ready() override;

private:
    bool take() override { return true; }
};

}  // namespace posix

}  // namespace platform
