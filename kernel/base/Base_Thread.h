// Threads with a cooperative stop: a flag and an event that the body watches, and a kill for a body that does not.
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
// through Sleep(), and calls stop() in its own destructor: here the subclass is gone already, and with it the body's data.
//
// Threads:   every operation may be called from any thread, the body's own included; there stop() only asks. A stop belongs
//            to the run that it found: another thread may start the next one meanwhile, and neither that run nor a stop of
//            that run is touched. One lock for all Base_Threads guards handle, flag and priority; it is never held while
//            waiting for a body to end. A suspension or a kill holds it for as long as the thread takes to obey, a second
//            at most. Nothing may be called during or after the destruction, which belongs to one thread, not its own.
// Ownership: owns the thread's handle and the stop event.
// Errors:    none reported: results only. A body that ignores the stop for 5 s (the poll of terminate) and 10 s more is
//            killed. Where the system has no kill that is safe for the process (POSIX), it is parked for good instead: it
//            never runs again, and what it locked or allocated stays so. A body there that blocks signals obeys neither
//            suspension nor kill: Suspend() returns false, and is_running() stays true after stop(). Without memory or
//            descriptors for its events the object works all the same, and its Sleep looks at the flag every 2.5 s.
class KERNEL_API Base_Thread {
public:
    // priority: -15, -2 to 2, 15 from lowest to highest, as on Windows. quiet: no trace lines.
    explicit Base_Thread(int priority = 0, bool quiet = false);
    Base_Thread(const Base_Thread &) = delete;
    Base_Thread &operator=(const Base_Thread &) = delete;

    virtual ~Base_Thread();
    virtual void pre_stop();             // asks a running body to end, and does not wait
    virtual unsigned long thread() = 0;  // the body; returns the exit code (259 becomes 0)
    // For bodies: a sleep that a stop request ends. Below 5 ms a plain sleep.
    virtual void Sleep(unsigned long ms);

protected:
    // Asks the body to end and waits up to 5 s. 1: it has; 2: it runs on. An override may answer -5: kill at once.
    virtual unsigned long terminate();

public:
    // False when it runs already or no thread could be had. Waits up to 2 s for the body to begin; started suspended, it
    // waits the 2 s out.
    bool start(bool suspended);
    bool start_virtual();
    bool is_running() const;
    // terminate(), then Sleep(50) up to 200 times, then the kill. The object may be started again afterwards, unless
    // is_running() is still true: the body could not be killed. The kill takes effect as soon as it can.
    void stop();

    bool Suspend();    // false without a thread, and when the thread did not stop within a second: it runs on
    bool Resume();     // true, also when there is nothing to resume
    bool ResumeAll();  // resumes until it runs; false without a thread
    unsigned long GetSuspendCount();
    bool SetPriorty(int priority);  // false without a thread: the priority is kept for the next start
    int GetPriorty() const;
    platform::Thread *GetHandleThread() const;  // null before start and after stop; valid until stop

protected:
    // The work of starting. An entry of a subclass calls Begin first, which clears the flag and ends start's wait; false: a
    // stop came before it, and the body is not to run.
    using Entry = unsigned long (*)(void *context);
    bool start(Entry entry, void *context, bool suspended);
    bool Begin();

    bool Stop_Requested() const { return flag_.load(std::memory_order_acquire) != 0; }
    void Request_Stop() { flag_.store(1, std::memory_order_release); }  // the flag alone; the event stays
    bool Is_Own_Thread() const;                                         // called on the thread of this object?

private:
    static unsigned long Tracing_Entry(void *context);
    static unsigned long Quiet_Entry(void *context);
    std::shared_ptr<platform::Thread> Handle() const;
    std::shared_ptr<platform::Thread> Create(Entry entry, void *context, bool suspended);
    template <class Action>
    void If_Still(const std::shared_ptr<platform::Thread> &run, Action action);

    // Start pending before creation, cleared by the thread when it begins, stop requested to ask for the end.
    std::atomic<std::uint32_t> flag_{0};
    std::shared_ptr<platform::Thread> handle_;
    int priority_;
    // Null or invalid when the system had none left.
    std::unique_ptr<platform::Event> stop_event_;  // auto-reset
    std::unique_ptr<platform::Event> begun_;       // ends start's wait as soon as the body begins
    const bool quiet_;
};

// Runs a plain function.
//
// Threads:   Init belongs to the time before start.
// Ownership: the context stays the caller's and outlives the thread.
// Errors:    without a context or function both thread() and terminate() answer -1.
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
// Threads:   Init belongs to the time before start.
// Ownership: the object stays the caller's and outlives the thread.
// Errors:    without an object or body thread() answers -1.
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
