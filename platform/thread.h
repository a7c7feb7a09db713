// Threads of the operating system: start (also suspended), exit code, priority, suspension with a count, and giving up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform {

// A handle on a started thread. The thread keeps what it needs of the bookkeeping itself: the handle may go first.
//
// Threads:   any, the thread itself included.
// Ownership: the context stays the caller's and must outlive the thread's run, or its kill.
// Errors:    false or null, with last_error() set.
class Thread {
public:
    using Entry = unsigned long (*)(void *context);
    static constexpr std::uint32_t still_active = 259;

    // stack_size: bytes, at least. Null when the system has no thread left.
    static std::shared_ptr<Thread> start(Entry entry, void *context, bool suspended, std::size_t stack_size);
    ~Thread();
    Thread(const Thread &) = delete;
    Thread &operator=(const Thread &) = delete;

    // still_active until the end, then the low 32 bits of the entry's result.
    std::uint32_t exit_code() const;
    // Waits at most ms milliseconds for the end; true when it has come.
    bool wait(unsigned long ms) const;
    bool is_current() const;

    // The thread runs while its count is 0. Both answer the count before. A thread may suspend itself. When suspend returns
    // true, another thread has stopped, wherever it was: what it holds (a lock, the heap's too) stays held until resume.
    // False with error_busy: it did not stop within a second, the count is unchanged, and the thread runs on. POSIX stops
    // threads by a signal (SIGRTMAX - 4), which a body must not block.
    bool suspend(unsigned long &previous);
    bool resume(unsigned long &previous);

    // -15, -2 to 2, 15. Raising it may need rights: false then, and the priority stays.
    bool set_priority(int priority);
    int priority() const;

    // Ends a thread from outside; true when it has ended, by this or by itself. Windows terminates it. POSIX has no safe
    // way to do that, so the thread is stopped where it is and never runs again: it can touch nothing that is freed after
    // this call, and its stack is lost. False with error_busy: it did not stop within a second. The order stands: the
    // thread runs on until it can obey, and has ended then.
    bool kill(std::uint32_t exit_code);

private:
    struct State;
    explicit Thread(std::shared_ptr<State> state);
    std::shared_ptr<State> state_;
};

}  // namespace platform
