// The data of a stream on Win32 beside its handle.
#pragma once

#include "platform/stream.h"

#include <cstdint>
#include <mutex>

namespace platform {

// The event of a stream, which belongs to the stream.
//
// Threads:   as Waitable.
// Ownership: none.
// Errors:    as Waitable.
class Network_Event : public Waitable {
public:
    explicit Network_Event(std::intptr_t event)
    {
        if (event != 0) native_ = event;
    }

private:
    bool take() override { return true; }
};

// Threads:   close(), the beginning and the cancelling of a transfer, and each call on a listener hold `lock`. A
//            listening port and the name of a pipe are free only when the handle is closed, so close() closes it at
//            once, and no call may use its number after that.
// Ownership: the event is owned.
// Errors:    without an event connect and accept fail.
struct Stream::Closing {
    explicit Closing(bool is_socket);
    ~Closing();

    const std::intptr_t event;  // sockets: manual-reset; connect and accept wait for it, and close() sets it
    Network_Event readiness{event};
    bool connecting = false;  // the connecting thread's
    std::mutex lock;
    bool closes_at_once = false;
    bool released = false;  // the handle is closed already, or belongs to somebody else
};

}  // namespace platform
