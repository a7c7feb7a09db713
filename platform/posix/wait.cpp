#include "platform/wait.h"

#include "platform/posix/errno_table.h"
#include "platform/posix/futex.h"
#include "platform/posix/unstoppable.h"
#include "platform/posix/wait_internal.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace platform {

namespace posix {

namespace {

using Clock = Sleeper::Clock;

constexpr std::size_t most_waitables = 64;
constexpr int look_again_ms = 20;  // without an eventfd

// The time left [ms], rounded up, so that a wait never ends early; -1 for no limit.
int left_ms(const Clock::time_point *end)
{
    if (!end) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*end - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
}

thread_local constinit Sleeper own_sleeper;

}  // namespace

Sleeper &Sleeper::own() { return own_sleeper; }

// The eventfd blocks, see poll. It is closed with the thread's other data; the thread may wait even after that.
bool Sleeper::has_event()
{
    struct Closer {
        ~Closer()
        {
            close(std::exchange(own_sleeper.event_, -1));
            own_sleeper.is_over_ = true;
        }
    };
    if (event_ >= 0 || is_over_) return event_ >= 0;
    event_ = eventfd(0, EFD_CLOEXEC);
    if (event_ < 0) return false;
    thread_local const Closer closer;
    return true;
}

// Returns at once when it was roused since begin().
void Sleeper::sleep(const Clock::time_point *end)
{
    std::uint32_t before = awake;
    if (!state_.compare_exchange_strong(before, sleeps, std::memory_order_acq_rel)) return;
    if (!end) {
        futex_wait(state_, sleeps, nullptr);
        return;
    }
    const auto left = std::max<std::int64_t>((*end - Clock::now()) / std::chrono::nanoseconds(1), 0);
    const timespec limit{left / 1'000'000'000, left % 1'000'000'000};
    futex_wait(state_, sleeps, &limit);
}

// A waker that finds `polls` writes once. That write is taken before going on: it must not end a later poll, and the
// waker may still need the eventfd.
bool Sleeper::poll(pollfd *descriptors, std::size_t n, const Clock::time_point *end)
{
    const int left = left_ms(end);
    const auto all_good = [](int ready) { return ready >= 0 || errno == EINTR; };  // a signal suspends threads
    if (!has_event()) return all_good(::poll(descriptors, n, left < 0 ? look_again_ms : std::min(left, look_again_ms)));
    std::uint32_t before = awake;
    if (!state_.compare_exchange_strong(before, polls, std::memory_order_acq_rel)) return true;
    descriptors[n] = {event_, POLLIN, 0};
    const bool good = all_good(::poll(descriptors, n + 1, left));
    const int error = errno;
    std::uint64_t count = 0;
    if (state_.exchange(awake, std::memory_order_acq_rel) == woken) {
        while (read(event_, &count, sizeof count) < 0 && errno == EINTR) continue;
    }
    errno = error;
    return good;
}

// A sleeper that is not in the list any more may have ended: only its address is used then. One that polls has not,
// because it waits for the write. The eventfd's number is published by the exchange of the state.
void Sleeper::finish_rousing(State former)
{
    if (former == sleeps) futex_wake(state_);
    if (former != polls) return;
    const std::uint64_t one = 1;
    while (write(event_, &one, sizeof one) < 0 && errno == EINTR) continue;
}

bool Source::take_raised()
{
    if (!is_raised()) return false;
    const Unstoppable whole;
    const std::lock_guard guard(lock_);
    return raised_.exchange(false, std::memory_order_acq_rel);
}

// Wakes all waiters; one of them takes the signal, and the others sleep again. The last one is woken without the lock,
// because it takes the lock at once.
void Source::wake_all(bool raises)
{
    const Unstoppable whole;
    Sleeper *last = nullptr;
    Sleeper::State state_of_last = Sleeper::awake;
    {
        const std::lock_guard guard(lock_);
        if (raises) raised_.store(true, std::memory_order_release);
        for (const Waiter *waiter = waiters_; waiter; waiter = waiter->next) {
            if (last) last->finish_rousing(state_of_last);
            last = waiter->sleeper;
            state_of_last = last->rouse();
        }
    }
    if (last) last->finish_rousing(state_of_last);
}

void Source::enter(Waiter &waiter)
{
    const std::lock_guard guard(lock_);
    waiter.next = waiters_;
    waiter.link = &waiters_;
    if (waiters_) waiters_->link = &waiter.next;
    waiters_ = &waiter;
}

void Source::leave(Waiter &waiter)
{
    const std::lock_guard guard(lock_);
    *waiter.link = waiter.next;
    if (waiter.next) waiter.next->link = waiter.link;
}

// One call of wait_any. It enters the lists of its sources only if it has to sleep.
//
// Threads:   the waiting thread.
// Ownership: keeps what the sources want to be kept while they are polled.
// Errors:    sleep: false with errno.
class Wait {
public:
    Wait(std::span<Waitable *const> waitables, Source *const *sources, unsigned long ms)
        : n_(waitables.size()), sources_(sources), is_limited_(ms < wait_forever),
          end_(is_limited_ ? Clock::now() + std::chrono::milliseconds(ms) : Clock::time_point())
    {
    }
    ~Wait();
    Wait(const Wait &) = delete;
    Wait &operator=(const Wait &) = delete;

    bool is_over() const { return is_limited_ && Clock::now() >= end_; }
    // The index of the first source that is signalled in memory, or n. Notes what to poll for those before it.
    std::size_t look(bool may_sleep);
    // Polls what look() has noted; sleeps when nothing is signalled and `may_sleep`.
    bool sleep(std::size_t first, bool may_sleep);
    bool is_ready(std::size_t i) const { return polled_[i].revents != 0; }

private:
    std::size_t peek_all();
    void enter_all();

    const std::size_t n_;
    Source *const *const sources_;
    const bool is_limited_;
    const Clock::time_point end_;
    Sleeper &sleeper_ = Sleeper::own();
    bool has_entered_ = false;
    Source::Waiter waiters_[most_waitables];
    pollfd polled_[most_waitables + 1];
    std::shared_ptr<const void> keeps_[most_waitables];
};

Wait::~Wait()
{
    const Unstoppable whole;
    for (std::size_t i = 0; has_entered_ && i < n_; ++i) sources_[i]->leave(waiters_[i]);
}

void Wait::enter_all()
{
    const Unstoppable whole;
    for (std::size_t i = 0; i < n_; ++i) {
        waiters_[i].sleeper = &sleeper_;
        sources_[i]->enter(waiters_[i]);
    }
    has_entered_ = true;
}

// The last holder of a stream closes it, which may take long: that is done before the section begins.
std::size_t Wait::peek_all()
{
    for (std::size_t i = 0; i < n_; ++i) keeps_[i].reset();
    sleeper_.begin();
    const Unstoppable whole;
    for (std::size_t i = 0; i < n_; ++i) {
        Polled polled;
        const bool found = sources_[i]->peek(polled);
        keeps_[i] = std::move(polled.keeps);
        if (found) return i;
        polled_[i] = {polled.descriptor, polled.events, 0};
    }
    return n_;
}

// A signal that comes before the thread is in the lists does not wake it: look again after entering them.
std::size_t Wait::look(bool may_sleep)
{
    const std::size_t first = peek_all();
    if (first < n_ || !may_sleep || has_entered_) return first;
    enter_all();
    return peek_all();
}

bool Wait::sleep(std::size_t first, bool may_sleep)
{
    const bool has_descriptors =
        std::any_of(polled_, polled_ + first, [](const pollfd &polled) { return polled.fd >= 0; });
    const Clock::time_point *const end = is_limited_ ? &end_ : nullptr;
    if (first < n_ || !may_sleep) return !has_descriptors || ::poll(polled_, first, 0) >= 0 || errno == EINTR;
    if (has_descriptors) return sleeper_.poll(polled_, n_, end);
    sleeper_.sleep(end);
    return true;
}

}  // namespace posix

Event::Event()
{
    if (auto *const source = new (std::nothrow) posix::Source) native_ = reinterpret_cast<std::intptr_t>(source);
}

namespace {

posix::Source *source_of(std::intptr_t native) { return reinterpret_cast<posix::Source *>(native); }

}  // namespace

Event::~Event()
{
    if (valid()) delete source_of(native_);
}

void Event::set()
{
    if (valid()) source_of(native_)->raise();
}

void Event::reset()
{
    if (valid()) source_of(native_)->take_raised();
}

bool Event::take() { return source_of(native_)->take_raised(); }

// The lowest index wins, as on Win32. A waiter that finds the signal taken by another one continues for the rest of its
// time. Whether the time is over is asked before the look, so that a signal that came in time is taken.
int wait_any(std::span<Waitable *const> waitables, unsigned long ms)
{
    const std::size_t n = waitables.size();
    posix::Source *sources[posix::most_waitables];
    if (n == 0 || n > posix::most_waitables) return wait_failed;
    for (std::size_t i = 0; i < n; ++i) {
        if (!waitables[i]->valid()) return wait_failed;
        sources[i] = source_of(waitables[i]->native_);
    }
    for (posix::Wait wait(waitables, sources, ms);;) {
        const bool may_sleep = !wait.is_over();
        const std::size_t first = wait.look(may_sleep);
        if (!wait.sleep(first, may_sleep)) {
            posix::fail();
            return wait_failed;
        }
        const posix::Unstoppable whole;
        for (std::size_t i = 0; i < n && i <= first; ++i) {
            if ((i == first || wait.is_ready(i)) && waitables[i]->take()) return static_cast<int>(i);
        }
        if (first == n && !may_sleep) return wait_timeout;
    }
}

}  // namespace platform
