// A receiver of status messages for hosts, on every system.
#pragma once

#include "kernel/base/kernel_api.h"

#include <cstdint>
#include <memory>

namespace kernel {

// An invisible window. Remote_Control::SetMessage takes its handle, in this process or in another one of the same user.
// On Windows a host may use windows of its own instead.
//
// Threads:   create, use and destroy it on one thread; any thread may post to it.
// Ownership: the host's.
// Errors:    IsValid returns false when the system had no window left; Receive then returns false.
class KERNEL_API Message_Window {
public:
    struct Message {
        std::uint32_t message = 0;
        std::uint64_t wparam = 0;
        std::int64_t lparam = 0;
    };

    Message_Window();
    ~Message_Window();
    Message_Window(const Message_Window &) = delete;
    Message_Window &operator=(const Message_Window &) = delete;

    bool IsValid() const { return receiver_ != nullptr; }
    void *GetHandle() const;  // null when not valid
    // The next message in the order of posting; false when none comes within ms milliseconds.
    bool Receive(Message &message, unsigned long ms);

private:
    struct Receiver;
    const std::unique_ptr<Receiver> receiver_;
};

}  // namespace kernel
