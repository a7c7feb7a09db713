// What stands behind a Waitable on POSIX: a flag in memory with the list of the threads that wait for it, and perhaps a
// descriptor to poll. An event needs no descriptor.
#pragma once

#include "platform/wait.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <poll.h>

namespace platform::posix {

// How the calling thread sleeps: in a futex when it waits for flags alone; in poll when it waits for descriptors, too.
// For poll it has one eventfd, made when it is needed first and closed at the thread's end.
//
// A waker takes two steps. rouse() changes the state under the lock of the source, so that the sleeper is still in its
// list. finish_rousing() makes the system call that the former state needs.
//
// Threads:   begin, sleep and poll are the own thread's; rouse and finish_rousing are for all.
// Ownership: belongs to the thread. It has no destructor, so that a thread can wait until its very end.
// Errors:    without a descriptor left, poll looks again every 20 ms.
class Sleeper {
public:
    using Clock = std::chrono::steady_clock;
    enum State : std::uint32_t { awake, woken, sleeps, polls };

    static Sleeper &own();
    // Forgets earlier wake-ups. Look for signals after it: each signal that comes later ends the next sleep.
    void begin() { state_.exchange(awake, std::memory_order_acq_rel); }
    void sleep(const Clock::time_point *end);  // null: no limit
    // `descriptors` has room for one more entry behind the n. False with errno when poll failed.
    bool poll(pollfd *descriptors, std::size_t n, const Clock::time_point *end);

    State rouse() { return static_cast<State>(state_.exchange(woken, std::memory_order_acq_rel)); }
    void finish_rousing(State former);

private:
    bool has_event();

    std::atomic<std::uint32_t> state_{awake};
    int event_ = -1;        // the thread's eventfd; published by the state `polls`
    bool is_over_ = false;  // the thread is about to end and has closed it
};

// What a waiting thread polls for a source.
struct Polled {
    int descriptor = -1;                // -1: nothing, the source is signalled in memory only
    short events = 0;                   // POLLIN, POLLOUT
    std::shared_ptr<const void> keeps;  // what is polled or taken stays open until the wait is over
};

// The native part of a Waitable, whose native_ points to it.
//
// Threads:   any. A set may still be inside raise() when the thread that it has woken destroys the source.
// Ownership: belongs to its Waitable. Lists the threads that wait for it, and does not own them.
// Errors:    none.
class Source {
public:
    Source() = default;
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;
    virtual ~Source() = default;

    // True when there may be something to take. Otherwise says what to poll. A source that is not raised yet changes
    // its answer only after wake().
    virtual bool peek(Polled &) { return is_raised(); }
    void raise() { wake_all(true); }
    bool take_raised();  // false when it was not raised
    void wake() { wake_all(false); }

protected:
    bool is_raised() const { return raised_.load(std::memory_order_acquire); }

private:
    friend class Wait;
    struct Waiter {
        Sleeper *sleeper;
        Waiter *next;
        Waiter **link;  // what points to this one
    };
    void wake_all(bool raises);
    void enter(Waiter &waiter);
    void leave(Waiter &waiter);

    std::mutex lock_;                  // taken in unstoppable sections only; calls nothing
    std::atomic<bool> raised_{false};  // changes under the lock
    Waiter *waiters_ = nullptr;        // of the threads that are about to sleep or asleep
};

// A source that is signalled while a descriptor is ready for `events` (POLLIN, POLLOUT).
//
// Threads:   as Source.
// Ownership: the descriptor is the caller's.
// Errors:    none.
class Descriptor_Source : public Source {
public:
    Descriptor_Source(int descriptor, short events) : descriptor_(descriptor), events_(events) {}
    bool peek(Polled &polled) override
    {
        polled = {descriptor_, events_, nullptr};
        return false;
    }

private:
    const int descriptor_;
    const short events_;
};

}  // namespace platform::posix
