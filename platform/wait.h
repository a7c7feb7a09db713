// Waiting: an auto-reset event, and waiting for the first of several.
#pragma once

#include <cstdint>
#include <span>

namespace platform {

constexpr unsigned long wait_forever = 0xFFFFFFFF;  // milliseconds; more is for ever as well

// Something that can be waited for.
//
// Threads:   any; each signal ends one wait.
// Ownership: owns its handle of the system; nobody may wait on it any more when it is destroyed.
// Errors:    invalid when the system had no handle left; waiting for it fails.
class Waitable {
public:
    Waitable(const Waitable &) = delete;
    Waitable &operator=(const Waitable &) = delete;
    virtual ~Waitable() = default;

    bool valid() const { return native_ != invalid; }
    // Waits at most ms milliseconds; true when it was signalled, and the signal is taken.
    bool wait(unsigned long ms);

protected:
    Waitable() = default;

    static constexpr std::intptr_t invalid = -1;
    std::intptr_t native_ = invalid;  // Win32: the HANDLE; POSIX: a descriptor that polls readable while signalled

private:
    friend int wait_any(std::span<Waitable *const> waitables, unsigned long ms);
    // POSIX: takes the signal, without waiting; false when somebody else was quicker. Win32: the wait itself takes it.
    virtual bool take() = 0;
};

// An auto-reset event, unsignalled at first. Setting it twice is setting it once.
//
// Threads:   set and reset from any thread.
// Ownership: as Waitable.
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
constexpr std::uint32_t win32_wait_failed = 0xFFFFFFFF;  // what Win32 answers in its place; for reports

// Waits for the first signalled of at most 64, at most ms milliseconds: its index (the lowest when several are signalled;
// only its signal is taken), wait_timeout, or wait_failed.
int wait_any(std::span<Waitable *const> waitables, unsigned long ms);

}  // namespace platform
