#include "platform/thread.h"

#include "platform/error.h"
#include "platform/thread_number.h"

#include <windows.h>

#include <process.h>

namespace platform {

struct Thread::State {
    HANDLE handle = nullptr;
    unsigned int id = 0;
    const Thread_Number number = reserve_thread_number();

    ~State()
    {
        if (handle) CloseHandle(handle);
    }
};

namespace {

struct Start {
    Thread::Entry entry;
    void *context;
    Thread_Number number;
};

unsigned int __stdcall run(void *argument)
{
    const Start start = *static_cast<Start *>(argument);
    delete static_cast<Start *>(argument);
    set_thread_number(start.number);
    return static_cast<unsigned int>(start.entry(start.context));
}

constexpr DWORD failed = 0xFFFFFFFF;
constexpr unsigned long kill_wait_ms = 1000;

}  // namespace

Thread::Thread(std::shared_ptr<State> state) : state_(std::move(state)) {}

Thread::~Thread() = default;

std::shared_ptr<Thread> Thread::start(Entry entry, void *context, bool suspended, std::size_t stack_size)
{
    std::shared_ptr<Thread> thread;
    std::unique_ptr<Start> start;  // owned by the thread once it runs
    try {
        thread.reset(new Thread(std::make_shared<State>()));
        start.reset(new Start{entry, context, thread->state_->number});
    } catch (const std::bad_alloc &) {
        set_last_error(error_no_memory);
        return nullptr;
    }
    State &state = *thread->state_;
    state.handle = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, static_cast<unsigned int>(stack_size), run,
                                                           start.get(), suspended ? CREATE_SUSPENDED : 0, &state.id));
    if (!state.handle) return nullptr;
    start.release();
    return thread;
}

std::uint32_t Thread::exit_code() const
{
    DWORD code = 0;
    return GetExitCodeThread(state_->handle, &code) ? code : 0;
}

bool Thread::wait(unsigned long ms) const { return WaitForSingleObject(state_->handle, ms) == WAIT_OBJECT_0; }

bool Thread::is_current() const { return GetCurrentThreadId() == state_->id; }

bool Thread::suspend(unsigned long &previous)
{
    previous = SuspendThread(state_->handle);
    if (previous == failed || is_current()) return previous != failed;
    // SuspendThread only requests the stop; GetThreadContext waits until the thread has stopped.
    CONTEXT context{};
    context.ContextFlags = CONTEXT_CONTROL;
    GetThreadContext(state_->handle, &context);
    return true;
}

bool Thread::resume(unsigned long &previous)
{
    previous = ResumeThread(state_->handle);
    return previous != failed;
}

bool Thread::set_priority(int priority) { return SetThreadPriority(state_->handle, priority) != 0; }

int Thread::priority() const
{
    const int priority = GetThreadPriority(state_->handle);
    return priority == THREAD_PRIORITY_ERROR_RETURN ? 0 : priority;
}

// A thread inside a hanging driver ends only when the driver returns.
bool Thread::kill(std::uint32_t exit_code)
{
    if (wait(0)) return true;
    const bool ordered = TerminateThread(state_->handle, exit_code) != 0;
    if (!wait(kill_wait_ms)) {
        set_last_error(error_busy);
        return false;
    }
    if (ordered) note_killed(state_->number);
    return true;
}

}  // namespace platform
