// A lock that processes share by name, and a counting semaphore.
#pragma once

#include "kernel/base/kernel_api.h"

#include <condition_variable>
#include <memory>
#include <mutex>

namespace platform {
class Named_Lock;
}

namespace kernel {

// The common part: an error state.
//
// Threads:   any; the state is constant after construction.
// Ownership: see the subclasses.
// Errors:    rdstate() is 0 or the operating system's error (Win32 numbers) of the failed construction; 8 without
//            memory.
class KERNEL_API ipcSemaphore {
public:
    ipcSemaphore(const ipcSemaphore &) = delete;
    ipcSemaphore &operator=(const ipcSemaphore &) = delete;
    virtual ~ipcSemaphore();

    unsigned long rdstate() const { return state_; }
    bool operator!() const { return state_ != 0; }

    virtual void Request() = 0;
    virtual void Release() = 0;

protected:
    ipcSemaphore() = default;
    void Set_State(unsigned long error) { state_ = error; }

private:
    unsigned long state_ = 0;
};

// A named lock, one for all processes that use the name; re-entrant within a thread.
//
// Threads:   any; the thread that requested it releases it. A release by another thread, or one too many, does nothing.
// Ownership: no thread may hold it when it is destroyed.
// Errors:    as ipcSemaphore; after a failed construction it locks nothing.
class KERNEL_API ipcMutexSemaphore : public ipcSemaphore {
public:
    explicit ipcMutexSemaphore(const char *name);  // null or empty: a lock without a name, shared with no one
    ~ipcMutexSemaphore() override;
    void Request() override;
    bool Try_Request();  // does not wait; false when another thread or process holds it
    void Release() override;

private:
    std::unique_ptr<platform::Named_Lock> lock_;
};

// A counting semaphore of this process: Request waits while the count is 0.
//
// Threads:   any, at any time except during destruction. Any thread may release, not only the one that requested.
// Ownership: no thread may wait for it when it is destroyed.
// Errors:    none: it allocates nothing. A count below 0 is taken as 0.
class KERNEL_API osSemaphore : public ipcSemaphore {
public:
    explicit osSemaphore(long count = 1);
    ~osSemaphore() override;
    void Request() override;
    void Release() override;

private:
    std::mutex guard_;
    std::condition_variable more_;
    long count_;
};

}  // namespace kernel
