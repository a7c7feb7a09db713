// A lock with a name, shared by all threads of all processes that use the name.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace platform {

// Re-entrant within a thread. An empty name makes a lock that is shared with no one.
//
// Threads:   any; the thread that locks it unlocks it. One unlock too many, or one by another thread, does nothing.
//            When a process dies, its locks become free. A thread that may be killed uses try_lock: if it were killed
//            while it waits in lock(), the lock would stay locked.
// Ownership: no thread may hold the lock through this object when it is destroyed; other objects of the name stay
//            valid.
// Errors:    invalid, with last_error() set, when the system could not create it; an invalid lock locks nothing.
class Named_Lock {
public:
    explicit Named_Lock(std::string_view name);
    ~Named_Lock();
    Named_Lock(const Named_Lock &) = delete;
    Named_Lock &operator=(const Named_Lock &) = delete;

    bool valid() const { return state_ != nullptr; }
    void lock();
    bool try_lock();  // does not wait; false when another thread or process holds it
    void unlock();

private:
    struct State;
    struct Known;
    std::shared_ptr<State> state_;
};

}  // namespace platform
