// A receiver of status messages for hosts, on every system.
#pragma once

#include "kernel/base/kernel_api.h"

#include <cstdint>
#include <memory>

namespace kernel {

// A window without a face: its handle is what SetMessage takes, in this process or in another one of the same user. A
// host with windows of its own (Windows) may use those instead.
//
// Threads:   made, asked and destroyed on one thread; posting comes from any.
// Ownership: the host's.
// Errors:    IsValid is false when the system had none left; Receive then answers false.
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
