// Locks beyond one object: between processes by name, and a counting one.
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
// Threads:   any; the state is constant from construction on.
// Ownership: see the subclasses.
// Errors:    rdstate() is 0 or the operating system's error (Win32 numbers) of the failed construction; 8 without memory.
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
// Threads:   any; who requests releases: a release by another thread, or one too many, does nothing.
// Ownership: nobody may hold it when it is destroyed.
// Errors:    as ipcSemaphore; a failed one locks nothing.
class KERNEL_API ipcMutexSemaphore : public ipcSemaphore {
public:
    explicit ipcMutexSemaphore(const char *name);  // null or empty: a lock of its own
    ~ipcMutexSemaphore() override;
    void Request() override;
    bool Try_Request();  // false: another thread or process has it; does not wait
    void Release() override;

private:
    std::unique_ptr<platform::Named_Lock> lock_;
};

// A counting semaphore of this process: Request waits while the count is 0.
//
// Threads:   any, at any moment but destruction; another thread than the one that requested may release.
// Ownership: nobody may wait for it when it is destroyed.
// Errors:    none: it needs no memory of its own. A count below 0 is 0.
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
