// The port of a serial object: opened, used and closed by several threads. Not installed.
#pragma once

#include "platform/serial.h"
#include "platform/wait.h"

#include <memory>
#include <mutex>
#include <utility>

namespace kernel {

// Threads:   any. Who has got the port may go on with it after it was closed: every operation then fails at once.
// Ownership: shared with those who are inside a call.
// Errors:    none.
class Serial_Line {
public:
    std::shared_ptr<platform::Serial_Port> Get() const  // null: no port is open
    {
        const std::lock_guard lock(guard_);
        return port_;
    }
    // Closes what was open before.
    void Set(std::shared_ptr<platform::Serial_Port> port)
    {
        {
            const std::lock_guard lock(guard_);
            std::swap(port, port_);
        }
        if (port) port->close();
    }

    platform::Event send_stop;  // ends what Send waits for

private:
    mutable std::mutex guard_;
    std::shared_ptr<platform::Serial_Port> port_;
};

}  // namespace kernel
