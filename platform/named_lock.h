// A lock with a name: one for all threads of all processes that use the name.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace platform {

// Re-entrant within a thread. An empty name is a lock of its own.
//
// Threads:   any; who locks unlocks: one unlock too many, or one by another thread, does nothing. When a process dies its
//            locks are free. A thread that may be killed takes the lock by try_lock: one that is killed while it waits in
//            lock() would leave the lock locked.
// Ownership: the object may go while others of the same name stay; nobody may hold it then.
// Errors:    invalid, with last_error() set, when the system could not make it; an invalid lock locks nothing.
class Named_Lock {
public:
    explicit Named_Lock(std::string_view name);
    ~Named_Lock();
    Named_Lock(const Named_Lock &) = delete;
    Named_Lock &operator=(const Named_Lock &) = delete;

    bool valid() const { return state_ != nullptr; }
    void lock();
    bool try_lock();  // false: another thread or process has it; does not wait
    void unlock();

private:
    struct State;
    struct Known;
    std::shared_ptr<State> state_;
};

}  // namespace platform
