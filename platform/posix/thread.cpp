#include "platform/thread.h"

#include "platform/error.h"
#include "platform/posix/errno_table.h"
#include "platform/posix/futex.h"
#include "platform/posix/unstoppable.h"
#include "platform/thread_number.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace platform {

using posix::futex_wait, posix::futex_wake;

namespace {

constexpr unsigned long most_suspends = 127;  // as on Win32
constexpr std::uint32_t stay_bit = 1;
constexpr int highest_nice = 19;

int stop_signal() { return SIGRTMAX - 4; }

struct Nice {
    int priority;  // Win32
    int nice;
};
// Niceness relative to that of the process, which need not be 0.
constexpr Nice nice_table[] = {{-15, 19}, {-2, 10}, {-1, 5}, {0, 0}, {1, -5}, {2, -10}, {15, -15}};

int nice_of(pid_t tid) { return getpriority(PRIO_PROCESS, static_cast<id_t>(tid)); }

int nice_of_process() { return nice_of(getpid()); }

// A thread starts with the niceness of the thread that started it.
int inherited_priority(pid_t tid)
{
    const int nice = nice_of(tid) - nice_of_process();
    for (const Nice &row : nice_table) {
        if (row.nice == nice) return row.priority;
    }
    return 0;
}

}  // namespace

// Shared by the handle and the thread. `lock` guards the plain fields. The atomics exchange orders with the signal
// handler.
struct Thread::State {
    Entry entry = nullptr;
    void *context = nullptr;
    const Thread_Number thread_number = reserve_thread_number();

    std::mutex lock;
    std::condition_variable changed;  // tid known, ended
    pthread_t id{};
    pid_t tid = 0;  // 0 until the thread has begun
    bool ended = false;
    std::uint32_t exit_code = still_active;
    std::uint32_t kill_order = 0;  // the order that ends the thread; 0: none
    std::uint32_t kill_code = 0;
    int priority = 0;
    unsigned long suspends = 0;

    // The last order to the thread: its number, and in the lowest bit whether to stop (1) or to run (0). Both are in
    // one word, so that a thread that goes to sleep on one order cannot miss the next.
    std::atomic<std::uint32_t> order{0};
    std::atomic<std::uint32_t> obeyed{0};  // the last order to stop that the thread has seen

    static void install_handler();
    static void on_stop_signal(int);
    static void *main(void *share);
    void stay();
    std::uint32_t new_order();
    bool order_stop();
    void release();
    void end(std::uint32_t code);
    bool has_ended();
    std::uint32_t run();
};

namespace {

// The State of the running thread, for the signal handler; set before the signal can arrive.
thread_local void *current_state = nullptr;

// The thread is inside so many unstoppable sections, and a stop has come meanwhile.
thread_local volatile std::sig_atomic_t unstoppable_sections = 0, stop_is_due = 0;

}  // namespace

void posix::Unstoppable::enter()
{
    unstoppable_sections = unstoppable_sections + 1;
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

// A stop that was put off is ordered again, so that it is obeyed in the signal handler as always.
void posix::Unstoppable::leave()
{
    std::atomic_signal_fence(std::memory_order_seq_cst);
    unstoppable_sections = unstoppable_sections - 1;
    if (unstoppable_sections > 0 || stop_is_due == 0) return;
    const int saved = errno;
    stop_is_due = 0;
    pthread_kill(pthread_self(), stop_signal());
    errno = saved;
}

// Runs in the thread itself, usually inside the signal handler, so it may use only atomics and system calls.
void Thread::State::stay()
{
    for (;;) {
        const std::uint32_t seen = order.load(std::memory_order_acquire);
        if ((seen & stay_bit) == 0) return;
        if (obeyed.exchange(seen, std::memory_order_acq_rel) != seen) futex_wake(obeyed);
        futex_wait(order, seen, nullptr);
    }
}

void Thread::State::on_stop_signal(int)
{
    if (unstoppable_sections > 0) {
        stop_is_due = 1;
        return;
    }
    const int saved = errno;
    if (current_state) static_cast<State *>(current_state)->stay();
    errno = saved;
}

void Thread::State::install_handler()
{
    static std::once_flag once;
    std::call_once(once, [] {
        struct sigaction action {};
        action.sa_handler = on_stop_signal;
        action.sa_flags = SA_RESTART;
        sigfillset(&action.sa_mask);
        sigaction(stop_signal(), &action, nullptr);
    });
}

namespace {

void unblock_stop_signal()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, stop_signal());
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace

// Call with the lock held. The numbers of two successive orders must differ.
std::uint32_t Thread::State::new_order()
{
    const std::uint32_t number = (order.load(std::memory_order_relaxed) | stay_bit) + 2;
    order.store(number, std::memory_order_release);
    return number;
}

// Waits at most a second until the thread has stopped; false when it has not. A thread that blocks signals stops when
// it unblocks them. A thread inside a hanging system call (a disk) stops when the call returns.
bool Thread::State::order_stop()
{
    const std::uint32_t number = new_order();
    // A thread that is already suspended blocks the signal and sleeps on `order`, which has just changed.
    futex_wake(order);
    pthread_kill(id, stop_signal());
    constexpr int slices = 100;
    const timespec limit{0, 10'000'000};  // 10 ms
    for (int slice = 0; slice < slices; ++slice) {
        const std::uint32_t seen = obeyed.load(std::memory_order_acquire);
        if (seen == number) return true;
        futex_wait(obeyed, seen, &limit);
    }
    set_last_error(error_busy);
    return false;
}

void Thread::State::release()
{
    order.fetch_and(~stay_bit, std::memory_order_release);
    futex_wake(order);
}

// Call with the lock held, like has_ended.
void Thread::State::end(std::uint32_t code)
{
    ended = true;
    exit_code = code;
    changed.notify_all();
}

// A thread that did not obey a kill at once may have obeyed it since. The signal handler cannot report that, so check
// here.
bool Thread::State::has_ended()
{
    if (!ended && kill_order != 0 && obeyed.load(std::memory_order_acquire) == kill_order) {
        note_killed(thread_number);
        end(kill_code);
    }
    return ended;
}

std::uint32_t Thread::State::run()
{
    current_state = this;
    set_thread_number(thread_number);
    unblock_stop_signal();
    {
        const std::lock_guard guard(lock);
        tid = static_cast<pid_t>(syscall(SYS_gettid));
        priority = inherited_priority(tid);
        changed.notify_all();
    }
    stay();  // if started suspended
    return static_cast<std::uint32_t>(entry(context));
}

// `own` is on the thread's stack: if the thread is killed, it keeps the state alive for ever.
void *Thread::State::main(void *share)
{
    const auto given = static_cast<std::shared_ptr<State> *>(share);
    const std::shared_ptr<State> own = std::move(*given);
    delete given;
    const std::uint32_t code = own->run();
    const std::lock_guard last(own->lock);
    if (!own->ended) own->end(code == still_active ? 0 : code);
    return nullptr;
}

Thread::Thread(std::shared_ptr<State> state) : state_(std::move(state)) {}

Thread::~Thread() = default;

std::shared_ptr<Thread> Thread::start(Entry entry, void *context, bool suspended, std::size_t)
{
    State::install_handler();
    std::shared_ptr<Thread> thread;
    std::unique_ptr<std::shared_ptr<State>> share;  // the thread's reference
    try {
        thread.reset(new Thread(std::make_shared<State>()));
        share = std::make_unique<std::shared_ptr<State>>(thread->state_);
    } catch (const std::bad_alloc &) {
        set_last_error(error_no_memory);
        return nullptr;
    }
    const std::shared_ptr<State> &state = thread->state_;
    state->entry = entry;
    state->context = context;
    state->suspends = suspended ? 1 : 0;
    state->order.store(suspended ? stay_bit : 0, std::memory_order_relaxed);  // published by pthread_create

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    std::unique_lock guard(state->lock);  // pthread_create writes `id` before any other thread reads it
    const int error = pthread_create(&state->id, &attributes, State::main, share.get());
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        set_last_error(error == EAGAIN ? std::uint32_t{error_no_memory} : posix::from_errno(error));
        guard.unlock();  // before the state is destroyed with its last reference
        return nullptr;
    }
    share.release();
    state->changed.wait(guard, [&state] { return state->tid != 0; });
    guard.unlock();
    return thread;
}

std::uint32_t Thread::exit_code() const
{
    const std::lock_guard guard(state_->lock);
    state_->has_ended();
    return state_->exit_code;
}

bool Thread::wait(unsigned long ms) const
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::min(ms, 0xFFFFFFFFUL));
    std::unique_lock guard(state_->lock);
    // After a kill order the loop polls, because the signal handler cannot notify `changed`.
    constexpr std::chrono::milliseconds kill_poll(50);
    while (!state_->has_ended() && std::chrono::steady_clock::now() < end) {
        const auto look = std::chrono::steady_clock::now() + kill_poll;
        state_->changed.wait_until(guard, state_->kill_order == 0 ? end : std::min(end, look));
    }
    return state_->has_ended();
}

bool Thread::is_current() const { return current_state == state_.get(); }

bool Thread::suspend(unsigned long &previous)
{
    std::unique_lock guard(state_->lock);
    if (state_->has_ended() || state_->kill_order != 0 || state_->suspends >= most_suspends) {
        set_last_error(error_access_denied);
        return false;
    }
    previous = state_->suspends++;
    if (previous > 0) return true;
    if (is_current()) {
        state_->new_order();
        guard.unlock();
        state_->stay();
    } else if (!state_->order_stop()) {
        --state_->suspends;
        state_->release();
        return false;
    }
    return true;
}

bool Thread::resume(unsigned long &previous)
{
    const std::lock_guard guard(state_->lock);
    if (state_->has_ended() || state_->kill_order != 0) {
        set_last_error(error_access_denied);
        return false;
    }
    previous = state_->suspends;
    if (previous > 0 && --state_->suspends == 0) state_->release();
    return true;
}

bool Thread::set_priority(int priority)
{
    const std::lock_guard guard(state_->lock);
    for (const Nice &row : nice_table) {
        if (row.priority != priority) continue;
        if (state_->has_ended()) break;
        if (priority != state_->priority && setpriority(PRIO_PROCESS, static_cast<id_t>(state_->tid),
                                                        std::min(nice_of_process() + row.nice, highest_nice)) != 0)
            return posix::fail();
        state_->priority = priority;
        return true;
    }
    set_last_error(error_invalid_parameter);
    return false;
}

int Thread::priority() const
{
    const std::lock_guard guard(state_->lock);
    return state_->priority;
}

bool Thread::kill(std::uint32_t exit_code)
{
    const std::lock_guard guard(state_->lock);
    if (state_->has_ended()) return true;
    const bool obeys = state_->order_stop();
    state_->kill_code = exit_code;
    state_->kill_order = state_->order.load(std::memory_order_relaxed);
    return obeys && state_->has_ended();
}

}  // namespace platform
