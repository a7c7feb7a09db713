// The one lock type of the framework.
#pragma once

#include "kernel/base/kernel_api.h"

#include <mutex>

namespace kernel {

// A re-entrant mutual-exclusion lock. Connectable objects inherit it virtually, so that an object that is both client
// and server has one lock for both roles.
//
// Threads:   any thread, at any time except during destruction. The owning thread may take it again and must release it
//            as often. Never hold it while waiting for a thread that may request it.
// Ownership: owns its critical section. No thread may hold it or wait for it when it is destroyed.
// Errors:    none: it allocates nothing, so it is always valid.
class KERNEL_API KERNEL_CAPABILITY("Semaphore") Semaphore {
public:
    Semaphore();
    Semaphore(const Semaphore &) = delete;
    Semaphore &operator=(const Semaphore &) = delete;
    virtual ~Semaphore();

    void Request() const KERNEL_ACQUIRE();
    void Release() const KERNEL_RELEASE();
    bool IsValid() const { return true; }

private:
    mutable std::recursive_mutex section_;
};

// Holds a Semaphore for a scope.
//
// Threads:   made and destroyed on one thread.
// Ownership: the Semaphore outlives the guard.
// Errors:    none.
class KERNEL_API KERNEL_SCOPED_CAPABILITY Semaphore_Guard {
public:
    explicit Semaphore_Guard(const Semaphore &lock) KERNEL_ACQUIRE(lock) : lock_(lock) { lock_.Request(); }
    ~Semaphore_Guard() KERNEL_RELEASE() { lock_.Release(); }
    Semaphore_Guard(const Semaphore_Guard &) = delete;
    Semaphore_Guard &operator=(const Semaphore_Guard &) = delete;

private:
    const Semaphore &lock_;
};

}  // namespace kernel
