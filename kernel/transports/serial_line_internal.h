// The port of a serial object: opened, used and closed by several threads. Not installed.
#pragma once

#include "platform/clock.h"
#include "platform/serial.h"
#include "platform/wait.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

namespace kernel {

// Threads:   any. A thread that holds the port may use it after it was closed: every operation then fails at once.
// Ownership: shared with the threads that are inside a call.
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
        if (port) port = Counted(std::move(port));
        {
            const std::lock_guard lock(guard_);
            std::swap(port, port_);
        }
        if (port) port->close();
    }

    // A closed port can be opened again only when the last thread inside a call has released it. Waits for that, at
    // most two seconds.
    void Await_Release() const
    {
        for (int ms = 0; ms<release_limit_ms && * in_use_> 0; ++ms) platform::sleep_ms(1);
    }

    platform::Event send_stop;  // ends what Send waits for

private:
    static constexpr int release_limit_ms = 2000;

    // Counts the ports whose destruction is not over yet: a weak_ptr would tell its beginning.
    std::shared_ptr<platform::Serial_Port> Counted(std::shared_ptr<platform::Serial_Port> port) const
    {
        auto *const counted = port.get();
        ++*in_use_;
        return {counted, [port = std::move(port), in_use = in_use_](auto *) mutable {
                    port.reset();
                    --*in_use;
                }};
    }

    const std::shared_ptr<std::atomic<int>> in_use_ = std::make_shared<std::atomic<int>>(0);
    mutable std::mutex guard_;
    std::shared_ptr<platform::Serial_Port> port_;
};

}  // namespace kernel
