#include "kernel/base/Base_Thread.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/base/Immortal_internal.h"

#include "platform/clock.h"
#include "platform/thread.h"
#include "platform/wait.h"

#include <algorithm>

namespace kernel {

namespace {

constexpr std::size_t stack_size = 8192;  // bytes, at least
constexpr int start_polls = 40;           // of 50 ms
constexpr unsigned long start_poll_ms = 50;
constexpr int terminate_polls = 50;  // of 100 ms
constexpr unsigned long terminate_poll_ms = 100;
constexpr int stop_polls = 200;  // of 50 ms
constexpr unsigned long stop_poll_ms = 50;
constexpr long kill_at_once = -5;

// Values of the flag. A stop that comes between start and begin turns pending into requested and is not forgotten.
// Stop_Requested() asks for not clear: between start and begin it says yes as well.
constexpr std::uint32_t clear = 0, requested = 1, pending = 2;

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

// Does something for a run, under the lock, unless another thread has cleared it away or started the next one.
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

void Base_Thread::pre_stop()
{
    const Semaphore_Guard guard(Bookkeeping());
    // Flag first, event second: a body that is woken looks at the flag. Without a thread there is nobody to ask, and
    // nobody who would take the request back.
    flag_.store(requested, std::memory_order_release);
    if (is_running())
        Set(stop_event_);
    else
        flag_.store(clear, std::memory_order_release);
}

void Base_Thread::Sleep(unsigned long ms)
{
    if (ms < 5) {
        platform::sleep_ms(ms);
        return;
    }
    // The signal ends one sleep and is gone with it: a body that sleeps again without a look at the flag sleeps the
    // time out.
    if (Has(stop_event_)) {
        stop_event_->wait(ms);
        return;
    }
    // No event could be had: look at the flag every 2.5 s until shortly before the end.
    while (ms > 250 && !Stop_Requested()) {
        const unsigned long slice = std::min(ms - 250, 2500UL);
        platform::sleep_ms(slice);
        ms -= slice;
    }
    if (!Stop_Requested()) platform::sleep_ms(ms);
}

bool Base_Thread::start(bool suspended) { return start(quiet_ ? Quiet_Entry : Tracing_Entry, this, suspended); }

bool Base_Thread::start_virtual() { return start(Tracing_Entry, this, false); }

bool Base_Thread::start(Entry entry, void *context, bool suspended)
{
    // The last run may be at its end: it gets that long before the start is refused.
    if (is_running()) platform::sleep_ms(100);
    const auto run = Create(entry, context, suspended);
    if (!run) return false;
    // A look every 50 ms, and sooner when it is settled whether the body runs. The flag tells where the event does not:
    // there is none, or the start of a later run took its signal.
    bool settled = false;
    for (int poll = 0; poll < start_polls && !settled; ++poll) {
        if (Has(begun_) ? begun_->wait(start_poll_ms) : (platform::sleep_ms(start_poll_ms), false)) break;
        settled = true;
        If_Still(run, [&] { settled = !Runs(run) || flag_.load(std::memory_order_acquire) == clear; });
    }
    return true;
}

// The lock is held until the handle is stored: the new thread asks for its own, and waits here for it.
std::shared_ptr<platform::Thread> Base_Thread::Create(Entry entry, void *context, bool suspended)
{
    const Semaphore_Guard guard(Bookkeeping());
    if (is_running()) return nullptr;
    // Left signalled by a body that began after its start had stopped waiting: one started suspended.
    Reset(begun_);
    flag_.store(pending, std::memory_order_release);
    handle_ = platform::Thread::start(entry, context, suspended, stack_size);
    if (!handle_) {
        flag_.store(clear, std::memory_order_release);  // nobody else would take it back
        return nullptr;
    }
    // Refused for want of rights, the thread runs all the same, with the priority that it has.
    handle_->set_priority(priority_);
    return handle_;
}

bool Base_Thread::Begin()
{
    std::uint32_t expected = pending;
    // Not a plain store: that would forget a stop that came before the beginning.
    flag_.compare_exchange_strong(expected, clear, std::memory_order_acq_rel);
    // An earlier run's signal. A stop that comes between flag and event loses its signal here, and not its flag: that
    // is looked at below.
    Reset(stop_event_);
    platform::sleep_ms(1);
    // Set first, then look: a stop that follows the return of start() is seen here, before the body is called. That stop
    // may be the destructor's, and then there is no body any more.
    Set(begun_);
    return !Stop_Requested();
}

unsigned long Base_Thread::Tracing_Entry(void *context)
{
    auto *self = static_cast<Base_Thread *>(context);
    const bool runs = self->Begin();
    // The trace goes nowhere (BWTraceDebug is empty) and is kept for builds that trace. The pointer is for print alone.
    const void *handle = self->Handle().get();
    const int priority = self->GetPriorty();
    BWTraceDebug("Thread %8.8d=0x%08X started with priorty %d\n", handle, handle, priority);
    unsigned long exit_code = runs && !self->Stop_Requested() ? self->thread() : 0;
    // As an exit code, 259 would read as a thread that runs for ever.
    if (exit_code == platform::Thread::still_active) {
        exit_code = 0;
        BWTraceDebug("Thread %8.8d=0x%08X priorty %d stopped with illegal exit_code STILL_ACTIVE\n", handle, handle,
                     priority);
    } else {
        BWTraceDebug("Thread %8.8d=0x%08X priorty %d stopped with exit_code %d\n", handle, handle, priority, exit_code);
    }
    // A signal that came too late for the body must not end a later sleep.
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
        flag_.store(requested, std::memory_order_release);
        Set(stop_event_);
    }
    for (int poll = 0; poll < terminate_polls && Runs(run); ++poll) run->wait(terminate_poll_ms);
    // 2 is the exit code of the kill, if it comes to one.
    if (Runs(run)) return 2;
    // Of a later run, the flag and the event may hold another thread's stop.
    If_Still(run, [this] {
        flag_.store(clear, std::memory_order_release);
        Reset(stop_event_);
    });
    return 1;
}

void Base_Thread::stop()
{
    if (Is_Own_Thread()) {  // waiting for itself would end in its own kill
        pre_stop();
        return;
    }
    const auto run = Handle();  // this one is asked, waited for and given up on, and no later one
    long code = -1;
    if (Runs(run)) code = static_cast<std::int32_t>(terminate());
    if (code != kill_at_once) {
        // The object's own Sleep, which a subclass may shorten. It may take the stop signal from the body, which then
        // has the flag.
        for (int poll = 0; poll < stop_polls && Runs(run); ++poll) Sleep(stop_poll_ms);
    }
    // The kill is under the lock as well: a thread that is inside the bookkeeping leaves it first.
    If_Still(run, [&] {
        if (Runs(run) && !run->kill(code == kill_at_once ? 0 : static_cast<std::uint32_t>(code))) return;
        Reset(stop_event_);
        handle_.reset();
    });
}

bool Base_Thread::Suspend()
{
    // A thread that suspends itself must not take the lock with it.
    const auto handle = Handle();
    unsigned long previous = 0;
    if (handle && handle->is_current()) return handle->suspend(previous);
    // Any other, under the lock: a thread that is stopped while it holds the lock would stop everybody.
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
    // The answer is the count before: at 1 the thread runs now.
    while (handle_->resume(previous) && previous > 1) continue;
    return true;
}

unsigned long Base_Thread::GetSuspendCount()
{
    const Semaphore_Guard guard(Bookkeeping());
    if (!handle_ || handle_->is_current()) return 0;  // who asks about itself runs
    unsigned long count = 0;
    unsigned long ignored = 0;
    // The count is told only to who changes it; the thread stands still for that moment.
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
