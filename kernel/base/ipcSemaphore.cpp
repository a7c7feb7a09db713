#include "kernel/base/ipcSemaphore.h"

#include "platform/error.h"
#include "platform/named_lock.h"

#include <new>

namespace kernel {

ipcSemaphore::~ipcSemaphore() = default;

ipcMutexSemaphore::ipcMutexSemaphore(const char *name)
{
    try {
        lock_ = std::make_unique<platform::Named_Lock>(name ? name : "");
        // Read at once: any later call on this thread may change the last error.
        if (!lock_->valid()) Set_State(platform::last_error());
    } catch (const std::bad_alloc &) {
        Set_State(platform::error_no_memory);
    }
}

ipcMutexSemaphore::~ipcMutexSemaphore() = default;

void ipcMutexSemaphore::Request()
{
    if (lock_) lock_->lock();
}

bool ipcMutexSemaphore::Try_Request() { return !lock_ || lock_->try_lock(); }

void ipcMutexSemaphore::Release()
{
    if (lock_) lock_->unlock();
}

osSemaphore::osSemaphore(long count) : count_(count < 0 ? 0 : count) {}

osSemaphore::~osSemaphore() = default;

// A mutex and a condition variable, because std::counting_semaphore and std::atomic::wait of MinGW's library lose
// wake-ups.
void osSemaphore::Request()
{
    std::unique_lock guard(guard_);
    more_.wait(guard, [this] { return count_ > 0; });
    --count_;
}

// Notify under the lock: the woken thread may destroy the semaphore as soon as the lock is free.
void osSemaphore::Release()
{
    const std::lock_guard guard(guard_);
    ++count_;
    more_.notify_one();
}

}  // namespace kernel
