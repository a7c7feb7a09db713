// What the Win32 half knows of a stream beside its handle.
#pragma once

#include "platform/stream.h"

#include <cstdint>
#include <mutex>

namespace platform {

// Threads:   `lock` is held by close() and, for a moment, by each call on a listener: a listening port is free only when
//            its socket is closed, so close() does that at once, and then nobody may use the number any more.
// Ownership: the event is owned.
// Errors:    without an event connect and accept fail.
struct Stream::Closing {
    explicit Closing(bool is_socket);
    ~Closing();

    std::intptr_t event = 0;  // sockets: manual-reset; what connect and accept wait for, set by close() too
    std::mutex lock;
    bool listening = false;
    bool released = false;  // the handle is closed already
};

}  // namespace platform
