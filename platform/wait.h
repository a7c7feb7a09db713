// Waiting: an auto-reset event, and waiting for the first of several.
#pragma once

#include <cstdint>
#include <span>

namespace platform {

constexpr unsigned long wait_forever = 0xFFFFFFFF;  // [ms]; larger values mean the same

// Something that can be waited for.
//
// Threads:   any; each signal ends one wait.
// Ownership: owns its system handle; no thread may wait for it when it is destroyed.
// Errors:    invalid when the system had no handle (POSIX: no memory) left; waiting for it then fails.
class Waitable {
public:
    Waitable(const Waitable &) = delete;
    Waitable &operator=(const Waitable &) = delete;
    virtual ~Waitable() = default;

    bool valid() const { return native_ != invalid; }
    // Waits at most ms milliseconds. Returns true, and takes the signal, when it was signalled.
    bool wait(unsigned long ms);

protected:
    Waitable() = default;

    static constexpr std::intptr_t invalid = -1;
    std::intptr_t native_ = invalid;  // Win32: the HANDLE; POSIX: a posix::Source *

private:
    friend int wait_any(std::span<Waitable *const> waitables, unsigned long ms);
    // POSIX: takes the signal without waiting; false when another thread has taken it. Win32: the wait itself takes it.
    virtual bool take() = 0;
};

// An auto-reset event, not signalled at first. Setting it twice gives one signal.
//
// Threads:   set and reset from any thread.
// Ownership: as Waitable. On POSIX an event is memory; it costs no descriptor. The thread that a set() has woken may
//            destroy the event, even while that set() has not returned yet.
// Errors:    as Waitable; set and reset of an invalid event do nothing.
class Event : public Waitable {
public:
    Event();
    ~Event() override;
    void set();
    void reset();

private:
    bool take() override;
};

constexpr int wait_timeout = -1;
constexpr int wait_failed = -2;
constexpr std::uint32_t win32_wait_failed = 0xFFFFFFFF;  // Win32's value of wait_failed, for reports

// Waits at most ms milliseconds for the first of at most 64 waitables. Returns its index (the lowest if several are
// signalled; only its signal is taken), wait_timeout, or wait_failed.
int wait_any(std::span<Waitable *const> waitables, unsigned long ms);

}  // namespace platform
