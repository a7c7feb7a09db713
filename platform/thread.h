// Threads of the operating system: start (also suspended), exit code, priority, counted suspension, kill.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform {

// A handle of a started thread. The handle may be destroyed before the thread ends: the thread shares the state it
// needs.
//
// Threads:   any, the thread itself included.
// Ownership: the context stays the caller's and must outlive the thread's run, or its kill.
// Errors:    false or null, with last_error() set.
class Thread {
public:
    using Entry = unsigned long (*)(void *context);
    static constexpr std::uint32_t still_active = 259;

    // stack_size: [bytes], at least. Null when the system has no thread left.
    static std::shared_ptr<Thread> start(Entry entry, void *context, bool suspended, std::size_t stack_size);
    ~Thread();
    Thread(const Thread &) = delete;
    Thread &operator=(const Thread &) = delete;

    // still_active until the thread ends, then the low 32 bits of the entry's result.
    std::uint32_t exit_code() const;
    // Waits at most ms milliseconds; true when the thread has ended.
    bool wait(unsigned long ms) const;
    bool is_current() const;

    // The thread runs while its count is 0. Both give the count before the call in `previous`. A thread may suspend
    // itself. When suspend returns true for another thread, that thread has stopped at an arbitrary point: locks that
    // it holds, the heap's included, stay held until resume. False with error_busy: the thread did not stop within a
    // second, the count is unchanged, and the thread still runs. POSIX stops threads by a signal (SIGRTMAX - 4), which
    // a body must not block.
    bool suspend(unsigned long &previous);
    bool resume(unsigned long &previous);

    // -15, -2 to 2, 15. Raising the priority may need rights; without them it returns false and changes nothing.
    bool set_priority(int priority);
    int priority() const;

    // Ends a thread from outside. True when it has ended, by this call or by itself. Windows terminates it. POSIX has
    // no safe way to do that, so the thread is stopped where it is and never runs again: it cannot touch anything that
    // is freed after this call, and its stack is lost. False with error_busy: it did not stop within a second. The
    // order remains: the thread runs until it can obey, and counts as ended from then on.
    bool kill(std::uint32_t exit_code);

private:
    struct State;
    explicit Thread(std::shared_ptr<State> state);
    std::shared_ptr<State> state_;
};

}  // namespace platform
