#include "kernel/base/Base_Thread.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/base/Immortal_internal.h"

#include "platform/clock.h"
#include "platform/thread.h"
#include "platform/wait.h"

#include <algorithm>

namespace kernel {

namespace {

constexpr std::size_t stack_size = 8192;  // [bytes], at least
constexpr int start_polls = 40;
constexpr unsigned long start_poll_ms = 50;
constexpr unsigned long last_run_ms = 100;  // what a run that is about to end gets before a new start is refused
constexpr int terminate_polls = 50;
constexpr unsigned long terminate_poll_ms = 100;
constexpr unsigned long stop_wait_ms = 250;  // an end within this time is noticed at once
constexpr int stop_polls = 200;
constexpr unsigned long stop_poll_ms = 50;
constexpr unsigned long begin_pause_ms = 1;
constexpr unsigned long plain_sleep_ms = 5;  // shorter sleeps do not watch the stop
// Sleeping without an event: the flag is read after each slice, and the last part is slept in one piece.
constexpr unsigned long flag_slice_ms = 2500, flag_last_ms = 250;

// Results of terminate(). What it returns is also the exit code of the kill.
constexpr unsigned long body_ended = 1, body_still_runs = 2;
constexpr long kill_at_once = -5;

bool Runs(const std::shared_ptr<platform::Thread> &thread)
{
    return thread && thread->exit_code() == platform::Thread::still_active;
}

// Guards handle, flag and priority of all objects.
const Semaphore &Bookkeeping()
{
    static Immortal<Semaphore> lock;
    return *lock;
}

bool Has(const std::unique_ptr<platform::Event> &event) { return event && event->valid(); }

void Set(const std::unique_ptr<platform::Event> &event)
{
    if (event) event->set();
}

void Reset(const std::unique_ptr<platform::Event> &event)
{
    if (event) event->reset();
}

}  // namespace

Base_Thread::Base_Thread(int priority, bool quiet)
    : priority_(priority), stop_event_(new (std::nothrow) platform::Event), begun_(new (std::nothrow) platform::Event),
      quiet_(quiet)
{
}

Base_Thread::~Base_Thread() { stop(); }

std::shared_ptr<platform::Thread> Base_Thread::Handle() const
{
    const Semaphore_Guard guard(Bookkeeping());
    return handle_;
}

bool Base_Thread::Is_Own_Thread() const
{
    const auto handle = Handle();
    return handle && handle->is_current();
}

// Calls the action under the lock if `run` is still this object's: another thread may have removed it or started the
// next.
template <class Action>
void Base_Thread::If_Still(const std::shared_ptr<platform::Thread> &run, Action action)
{
    const Semaphore_Guard guard(Bookkeeping());
    if (handle_ == run) action();
}

bool Base_Thread::is_running() const
{
    const Semaphore_Guard guard(Bookkeeping());
    return Runs(handle_);
}

bool Base_Thread::Ends_Within(unsigned long ms) const
{
    const auto run = Handle();
    return !Runs(run) || run->wait(ms);
}

void Base_Thread::pre_stop()
{
    const Semaphore_Guard guard(Bookkeeping());
    // Flag first, event second: a body that the event wakes reads the flag. Without a thread the flag is cleared again,
    // because only a thread would clear it. A thread that is being made finds the flag.
    flag_.store(flag_requested, std::memory_order_release);
    if (is_starting_ || Runs(handle_))
        Set(stop_event_);
    else
        flag_.store(flag_clear, std::memory_order_release);
}

void Base_Thread::Sleep(unsigned long ms)
{
    if (ms < plain_sleep_ms) {
        platform::sleep_ms(ms);
        return;
    }
    // The event resets itself: it ends one sleep. A body that ignores the flag and sleeps again sleeps its full time.
    if (Has(stop_event_)) {
        stop_event_->wait(ms);
        return;
    }
    while (ms > flag_last_ms && !Stop_Requested()) {
        const unsigned long slice = std::min(ms - flag_last_ms, flag_slice_ms);
        platform::sleep_ms(slice);
        ms -= slice;
    }
    if (!Stop_Requested()) platform::sleep_ms(ms);
}

bool Base_Thread::start(bool suspended) { return start(quiet_ ? Quiet_Entry : Tracing_Entry, this, suspended); }

bool Base_Thread::start_virtual() { return start(Tracing_Entry, this, false); }

bool Base_Thread::start(Entry entry, void *context, bool suspended)
{
    if (is_running()) platform::sleep_ms(last_run_ms);
    const auto run = Create(entry, context, suspended);
    if (!run) return false;
    // The event ends the wait as soon as the body begins. The flag is read as well: there may be no event, or the start
    // of a later run may have taken its signal.
    bool settled = false;
    for (int poll = 0; poll < start_polls && !settled; ++poll) {
        if (Has(begun_) ? begun_->wait(start_poll_ms) : (platform::sleep_ms(start_poll_ms), false)) break;
        settled = true;
        If_Still(run, [&] { settled = !Runs(run) || flag_.load(std::memory_order_acquire) == flag_clear; });
    }
    return true;
}

// The system makes the thread without the lock, so that many threads can start at once. It is made suspended and runs
// when handle_ is stored: it calls Handle() and must not find it empty.
std::shared_ptr<platform::Thread> Base_Thread::Create(Entry entry, void *context, bool suspended)
{
    {
        const Semaphore_Guard guard(Bookkeeping());
        if (is_starting_ || Runs(handle_)) return nullptr;
        is_starting_ = true;
        // A body that was started suspended may have set this event after its start() gave up waiting.
        Reset(begun_);
        flag_.store(flag_pending, std::memory_order_release);
    }
    const auto run = platform::Thread::start(entry, context, true, stack_size);
    const Semaphore_Guard guard(Bookkeeping());
    is_starting_ = false;
    if (!run) {
        flag_.store(flag_clear, std::memory_order_release);  // there is no thread that would clear it
        return nullptr;
    }
    handle_ = run;
    // May be refused for lack of rights: the thread then runs with the priority that it has.
    run->set_priority(priority_);
    unsigned long previous = 0;
    if (!suspended) run->resume(previous);
    return run;
}

bool Base_Thread::Begin()
{
    std::uint32_t expected = flag_pending;
    // A plain store would lose a stop that was requested before this point.
    flag_.compare_exchange_strong(expected, flag_clear, std::memory_order_acq_rel);
    // The event may hold the signal of an earlier run. A stop of this run may lose its signal here; its flag stays and
    // is read below.
    Reset(stop_event_);
    platform::sleep_ms(begin_pause_ms);
    // Set the event first, then read the flag: a stop that follows the return of start() is seen before the body is
    // called. That stop may come from the destructor; the body's object is gone then.
    Set(begun_);
    return !Stop_Requested();
}

unsigned long Base_Thread::Tracing_Entry(void *context)
{
    auto *self = static_cast<Base_Thread *>(context);
    const bool runs = self->Begin();
    // BWTraceDebug is empty here; builds that trace replace it. The pointer is only printed, never followed.
    const void *handle = self->Handle().get();
    const int priority = self->GetPriorty();
    BWTraceDebug("Thread %8.8d=0x%08X started with priorty %d\n", handle, handle, priority);
    unsigned long exit_code = runs && !self->Stop_Requested() ? self->thread() : 0;
    // The exit code 259 means "still active": the thread would seem to run for ever.
    if (exit_code == platform::Thread::still_active) {
        exit_code = 0;
        BWTraceDebug("Thread %8.8d=0x%08X priorty %d stopped with illegal exit_code STILL_ACTIVE\n", handle, handle,
                     priority);
    } else {
        BWTraceDebug("Thread %8.8d=0x%08X priorty %d stopped with exit_code %d\n", handle, handle, priority, exit_code);
    }
    // A signal that the body did not consume must not end a sleep of the next run.
    Reset(self->stop_event_);
    return exit_code;
}

unsigned long Base_Thread::Quiet_Entry(void *context)
{
    auto *self = static_cast<Base_Thread *>(context);
    const unsigned long exit_code = self->Begin() ? self->thread() : 0;
    Reset(self->stop_event_);
    return exit_code == platform::Thread::still_active ? 0 : exit_code;
}

unsigned long Base_Thread::terminate()
{
    std::shared_ptr<platform::Thread> run;
    {
        const Semaphore_Guard guard(Bookkeeping());
        run = handle_;
        flag_.store(flag_requested, std::memory_order_release);
        Set(stop_event_);
    }
    for (int poll = 0; poll < terminate_polls && Runs(run); ++poll) run->wait(terminate_poll_ms);
    if (Runs(run)) return body_still_runs;
    // If a later run has begun, the flag and the event may hold another thread's stop: leave them alone.
    If_Still(run, [this] {
        flag_.store(flag_clear, std::memory_order_release);
        Reset(stop_event_);
    });
    return body_ended;
}

void Base_Thread::stop()
{
    if (Is_Own_Thread()) {  // a body that waited for itself would kill itself
        pre_stop();
        return;
    }
    const auto run = Handle();  // all that follows concerns this run; a later run is left alone
    long code = -1;
    if (Runs(run)) code = static_cast<std::int32_t>(terminate());
    if (code != kill_at_once) {
        if (Runs(run)) run->wait(stop_wait_ms);
        // Sleep is virtual, so that a subclass may shorten it. It may consume the stop signal; the body still sees the
        // flag.
        for (int poll = 0; poll < stop_polls && Runs(run); ++poll) Sleep(stop_poll_ms);
    }
    // Kill under the lock: the thread cannot hold the bookkeeping lock at that moment.
    If_Still(run, [&] {
        if (Runs(run) && !run->kill(code == kill_at_once ? 0 : static_cast<std::uint32_t>(code))) return;
        Reset(stop_event_);
        handle_.reset();
    });
}

bool Base_Thread::Suspend()
{
    // A thread that suspends itself must not hold the lock meanwhile.
    const auto handle = Handle();
    unsigned long previous = 0;
    if (handle && handle->is_current()) return handle->suspend(previous);
    // Another thread is suspended under the lock: if it were stopped while it held the lock, all Base_Threads would
    // block.
    const Semaphore_Guard guard(Bookkeeping());
    return handle_ && handle_->suspend(previous);
}

bool Base_Thread::Resume()
{
    const Semaphore_Guard guard(Bookkeeping());
    unsigned long previous = 0;
    if (handle_) handle_->resume(previous);
    return true;
}

bool Base_Thread::ResumeAll()
{
    const Semaphore_Guard guard(Bookkeeping());
    if (!handle_) return false;
    unsigned long previous = 0;
    // resume() gives the count before the call: at 1 the thread runs now.
    while (handle_->resume(previous) && previous > 1) continue;
    return true;
}

unsigned long Base_Thread::GetSuspendCount()
{
    const Semaphore_Guard guard(Bookkeeping());
    if (!handle_ || handle_->is_current()) return 0;  // the calling thread is running
    unsigned long count = 0;
    unsigned long ignored = 0;
    // The system returns the count only from suspend and resume, so the thread is suspended for a moment.
    if (!handle_->suspend(count)) return 0;
    handle_->resume(ignored);
    return count;
}

bool Base_Thread::SetPriorty(int priority)
{
    const Semaphore_Guard guard(Bookkeeping());
    if (priority == priority_) return true;
    priority_ = priority;
    return handle_ && handle_->set_priority(priority);
}

int Base_Thread::GetPriorty() const
{
    const Semaphore_Guard guard(Bookkeeping());
    return is_running() ? handle_->priority() : priority_;
}

platform::Thread *Base_Thread::GetHandleThread() const { return Handle().get(); }

Function_Thread::Function_Thread(int priority) : Base_Thread(priority, false) {}

Function_Thread::~Function_Thread() { stop(); }

void Function_Thread::Init(void *context, Function thread_function, Function terminate_function)
{
    context_ = context;
    thread_function_ = thread_function;
    terminate_function_ = terminate_function;
}

unsigned long Function_Thread::thread()
{
    return static_cast<unsigned long>(context_ && thread_function_ ? thread_function_(context_) : -1);
}

unsigned long Function_Thread::terminate()
{
    return static_cast<unsigned long>(context_ && terminate_function_ ? terminate_function_(context_) : -1);
}

}  // namespace kernel
