#include "kernel/base/ipcSemaphore.h"

#include "platform/error.h"
#include "platform/named_lock.h"

#include <semaphore>

namespace kernel {

ipcSemaphore::~ipcSemaphore() = default;

ipcMutexSemaphore::ipcMutexSemaphore(const char *name) : lock_(std::make_unique<platform::Named_Lock>(name ? name : ""))
{
    // Read at once: the last error is the thread's, and any later call may change it.
    if (!lock_->valid()) Set_State(platform::last_error());
}

ipcMutexSemaphore::~ipcMutexSemaphore() = default;

void ipcMutexSemaphore::Request() { lock_->lock(); }

void ipcMutexSemaphore::Release() { lock_->unlock(); }

// Not Semaphore's mutex: that one belongs to the thread that took it.
struct osSemaphore::Counter {
    explicit Counter(long count) : value(count) {}
    std::counting_semaphore<> value;
};

// The standard's semaphore is undefined below 0.
osSemaphore::osSemaphore(long count) : counter_(std::make_unique<Counter>(count < 0 ? 0 : count)) {}

osSemaphore::~osSemaphore() = default;

void osSemaphore::Request() { counter_->value.acquire(); }

void osSemaphore::Release() { counter_->value.release(); }

}  // namespace kernel
