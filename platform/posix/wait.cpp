#include "platform/wait.h"

#include "platform/posix/errno_table.h"

#include <cerrno>
#include <chrono>
#include <limits>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t most_waitables = 64;

// The time left [ms], rounded up, so that a wait never ends early.
int left_ms(Clock::time_point end)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    if (left <= 0) return 0;
    constexpr int most = std::numeric_limits<int>::max();
    return left > most ? most : static_cast<int>(left);
}

}  // namespace

// One descriptor per event, so that poll can wait for events, sockets and transfers together.
Event::Event() { native_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); }

Event::~Event()
{
    if (valid()) close(static_cast<int>(native_));
}

// write fails only when the counter is at its limit; the event is set then.
void Event::set()
{
    const std::uint64_t one = 1;
    while (valid() && write(static_cast<int>(native_), &one, sizeof one) < 0 && errno == EINTR) continue;
}

void Event::reset() { take(); }

// Reading resets the whole counter: two sets give one signal.
bool Event::take()
{
    std::uint64_t count = 0;
    ssize_t got = 0;
    do {
        got = read(static_cast<int>(native_), &count, sizeof count);
    } while (got < 0 && errno == EINTR);
    return got == sizeof count;
}

// The lowest index wins, as on Win32. If another waiter takes the signal first, the wait continues for the rest of its
// time. It also continues after EINTR, because a signal suspends threads.
int wait_any(std::span<Waitable *const> waitables, unsigned long ms)
{
    pollfd polled[most_waitables];
    if (waitables.empty() || waitables.size() > most_waitables) return wait_failed;
    for (std::size_t i = 0; i < waitables.size(); ++i) {
        if (!waitables[i]->valid()) return wait_failed;
        polled[i] = {static_cast<int>(waitables[i]->native_), POLLIN, 0};
    }
    const bool forever = ms >= wait_forever;
    const auto end = Clock::now() + std::chrono::milliseconds(forever ? 0 : ms);
    for (;;) {
        const int ready = poll(polled, waitables.size(), forever ? -1 : left_ms(end));
        if (ready < 0 && errno != EINTR) {
            posix::fail();
            return wait_failed;
        }
        for (std::size_t i = 0; ready > 0 && i < waitables.size(); ++i) {
            if (polled[i].revents != 0 && waitables[i]->take()) return static_cast<int>(i);
        }
        if (ready == 0 || (ready < 0 && !forever && Clock::now() >= end)) return wait_timeout;
    }
}

}  // namespace platform
