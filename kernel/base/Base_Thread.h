// Threads with a cooperative stop: the body watches a flag and an event. A body that ignores both is killed.
#pragma once

#include "kernel/base/Semaphore.h"
#include "kernel/base/kernel_api.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace platform {
class Event;
class Thread;
}  // namespace platform

namespace kernel {

// One thread of the operating system. A subclass provides the body, thread(), which polls Stop_Requested() or sleeps
// through Sleep(). A subclass calls stop() in its own destructor: the destructor of Base_Thread comes too late, because
// the subclass and the data of its body are destroyed by then.
//
// Threads:   every operation may be called from any thread, the body's own included; there stop() only asks. stop()
//            ends the run that it finds. Another thread may start the next run meanwhile: neither that run nor a stop
//            of that run is touched. One lock for all Base_Threads guards handle, flag and priority. It is never held
//            while the system makes a thread, nor while waiting for a body to end. A suspension or a kill holds it
//            until the thread obeys, at most one second. While the thread is being made stop() finds no run;
//            pre_stop() asks it to end before its body. One thread destroys the object, and not the object's own;
//            nothing may be called during or after that.
// Ownership: owns the thread's handle and the stop event.
// Errors:    none reported: results only. A body that ignores the stop for 5 s (the poll of terminate) and 10 s more is
//            killed. POSIX has no kill that is safe for the process, so there the thread is parked instead: it never
//            runs again, and what it locked or allocated stays so. A POSIX body that blocks signals obeys neither
//            suspension nor kill: Suspend() returns false, and is_running() stays true after stop(). Without memory or
//            descriptors for its events the object still works; its Sleep then looks at the flag every 2.5 s.
class KERNEL_API Base_Thread {
public:
    // priority: -15, -2 to 2, 15 from lowest to highest, as on Windows. quiet: no trace lines.
    explicit Base_Thread(int priority = 0, bool quiet = false);
    Base_Thread(const Base_Thread &) = delete;
    Base_Thread &operator=(const Base_Thread &) = delete;

    virtual ~Base_Thread();
    virtual void pre_stop();             // asks a running body to end and does not wait
    virtual unsigned long thread() = 0;  // the body; returns the exit code (259 becomes 0)
    // For bodies: sleeps for `ms` milliseconds; a stop request ends the sleep. Below 5 ms it is a plain sleep.
    virtual void Sleep(unsigned long ms);

protected:
    // Asks the body to end and waits up to 5 s. Returns 1 when the body has ended and 2 when it still runs. An override
    // may return -5: stop() then kills at once.
    virtual unsigned long terminate();

public:
    // Returns false when the body runs already or the system has no thread left. Waits up to 2 s for the body to begin;
    // a suspended start always waits the full 2 s.
    bool start(bool suspended);
    bool start_virtual();
    bool is_running() const;
    // Calls terminate(), waits up to a quarter of a second, calls Sleep(50) up to 200 times, then kills. An end within
    // terminate() or that quarter is noticed at once. The object may be started again afterwards, unless
    // is_running() is still true: then the body could not be killed yet, and the kill takes effect as soon as it can.
    void stop();

    // Returns false without a thread, and when the thread did not stop within a second; it then still runs.
    bool Suspend();
    bool Resume();     // always true, also without a thread to resume
    bool ResumeAll();  // resumes until it runs; false without a thread
    unsigned long GetSuspendCount();
    bool SetPriorty(int priority);  // false without a thread: the priority is kept for the next start
    int GetPriorty() const;
    platform::Thread *GetHandleThread() const;  // null before start and after stop; valid until stop

protected:
    // What start() does. An entry of a subclass calls Begin() first: Begin clears the flag and ends the wait of
    // start(). Begin returns false when a stop was requested before it; the body must not run then.
    using Entry = unsigned long (*)(void *context);
    bool start(Entry entry, void *context, bool suspended);
    bool Begin();

    // Tests flag != clear, so it is also true while a start is pending.
    bool Stop_Requested() const { return flag_.load(std::memory_order_acquire) != flag_clear; }
    // Sets the flag alone: a body inside Sleep() is not woken.
    void Request_Stop() { flag_.store(flag_requested, std::memory_order_release); }
    bool Is_Own_Thread() const;                // whether the caller runs on the thread of this object
    bool Ends_Within(unsigned long ms) const;  // waits at most ms for the end; true when no thread runs

private:
    static unsigned long Tracing_Entry(void *context);
    static unsigned long Quiet_Entry(void *context);
    std::shared_ptr<platform::Thread> Handle() const;
    std::shared_ptr<platform::Thread> Create(Entry entry, void *context, bool suspended);
    template <class Action>
    void If_Still(const std::shared_ptr<platform::Thread> &run, Action action);

    // Values of flag_. start() stores pending before it creates the thread, Begin() turns pending into clear, and a
    // stop stores requested. A stop between start and Begin turns pending into requested, so Begin does not lose it.
    static constexpr std::uint32_t flag_clear = 0, flag_requested = 1, flag_pending = 2;

    std::atomic<std::uint32_t> flag_{flag_clear};
    std::shared_ptr<platform::Thread> handle_;
    bool is_starting_ = false;  // a thread is being made; under the lock
    int priority_;
    // Both are null or invalid when the system had no event left.
    std::unique_ptr<platform::Event> stop_event_;  // auto-reset
    std::unique_ptr<platform::Event> begun_;       // ends start's wait as soon as the body begins
    const bool quiet_;
};

// Runs a plain function.
//
// Threads:   call Init before start.
// Ownership: the context stays the caller's and outlives the thread.
// Errors:    without a context or function both thread() and terminate() return -1.
class KERNEL_API Function_Thread : public Base_Thread {
public:
    using Function = int (*)(void *context);

    explicit Function_Thread(int priority = 0);
    ~Function_Thread() override;
    // The terminate function's result is the exit code of a kill; -5 kills at once.
    void Init(void *context, Function thread_function, Function terminate_function);
    unsigned long thread() override;

protected:
    unsigned long terminate() override;

private:
    void *context_ = nullptr;
    Function thread_function_ = nullptr;
    Function terminate_function_ = nullptr;
};

// Runs member functions of an object.
//
// Threads:   call Init before start.
// Ownership: the object stays the caller's and outlives the thread.
// Errors:    without an object or body thread() returns -1.
template <class T>
class Member_Thread : public Base_Thread {
public:
    using Body = unsigned long (T::*)();
    using Terminate = unsigned long (T::*)();
    using Pre_Stop = void (T::*)();

    explicit Member_Thread(int priority = 0, bool quiet = false) : Base_Thread(priority, quiet) {}
    ~Member_Thread() override { stop(); }

    void Init(T *object, Body body, Terminate terminate_member = nullptr, Pre_Stop pre_stop_member = nullptr)
    {
        object_ = object;
        body_ = body;
        terminate_ = terminate_member;
        pre_stop_ = pre_stop_member;
    }
    void pre_stop() override
    {
        if (object_ && pre_stop_) (object_->*pre_stop_)();
        Base_Thread::pre_stop();
    }
    unsigned long thread() override { return object_ && body_ ? (object_->*body_)() : static_cast<unsigned long>(-1); }

protected:
    unsigned long terminate() override
    {
        return object_ && terminate_ ? (object_->*terminate_)() : Base_Thread::terminate();
    }

private:
    T *object_ = nullptr;
    Body body_ = nullptr;
    Terminate terminate_ = nullptr;
    Pre_Stop pre_stop_ = nullptr;
};

}  // namespace kernel
