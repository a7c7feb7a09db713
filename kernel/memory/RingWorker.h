// A station ring whose new epochs a thread hands to functions of a subclass.
#pragma once

#include "kernel/base/Base_Thread.h"
#include "kernel/base/Object.h"
#include "kernel/memory/Ring.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace kernel {

// Add() wakes the thread. The first wake-up says that the object is complete, and the second one sets the beginning:
// epochs that the ring has by then are not handled. From the third on, each epoch after the last one goes to PreEpo,
// then to WorkEpo or SpareEpo, then to PostEpo. A work epoch is one whose time is within 1 ms of a multiple of the
// effective interval; with an interval of 0 every epoch is one. After each epoch the thread sleeps for 2 ms, so that it
// handles at most some 450 epochs a second.
//
// A subclass derives from RingWorker and passes name and handler to Object, which the most derived class constructs. It
// calls stop() in its own destructor, unless it is always deleted by Delete.
//
// Threads:   the four functions run on the worker's thread. Every other function may be called from any thread, also by
//            number while another thread deletes the worker. Do not wake the worker before the constructor of the
//            subclass has returned. Delete stops the thread before it destroys the object. In one of the four functions
//            it only asks the thread to end; another thread destroys the object when that function has returned.
// Ownership: the host's, until Delete. The table of workers owns nothing. Records belong to the ring.
// Errors:    epochs that were overwritten before the worker came to them are reported (level 2); it goes on with the
//            oldest one that there is. A number outside of 0..3 is traced on the debugger's output.
class KERNEL_API RingWorker : public Ring, public Base_Thread, public virtual Object {
public:
    static const char Name[];  // "Ring to DD-Records"
    static const char *ClassName() { return Name; }

    virtual void WorkEpo(const REFDATA *record);  // these four do nothing here
    virtual void SpareEpo(const REFDATA *record);
    virtual void PreEpo(const REFDATA *record);
    virtual void PostEpo(const REFDATA *record);

    bool IsValid() const override;  // the ring is open and the thread was started
    bool IsInheritedFrom(const char *name) const override;
    bool valid() const { return IsValid(); }
    void pre_stop() override;
    unsigned long thread() override;
    ~RingWorker() override;

    // By the number of the station ring, 0 to 3. Without such a worker they do nothing and return null or 0.
    static RingWorker *Search(int ring);
    static void Add(int ring);
    static void PreDisconnect(int ring);
    static void Delete(int ring);
    static void Delete(RingWorker *&worker);  // sets the pointer to null
    // Sets the requested interval [s]. The effective one is its least common multiple with the ring's own interval,
    // rounded to seconds; the requested one itself if that is 0. Returns the effective one.
    static unsigned ChangeInterval(int ring, unsigned seconds);
    static unsigned GetInterval(int ring);

    void Add();
    void PreDisconnect();
    unsigned ChangeInterval(unsigned seconds);
    unsigned GetInterval() const;

protected:
    RingWorker(Error_Handler *handler, int ring);  // a null handler: the one of Object
    unsigned long terminate() override;

private:
    struct Table;
    static unsigned long Entry(void *worker);
    static void Dispose(sharemem *worker);
    template <class Action>
    static auto With(int ring, const char *trace, Action action);

    void Wake();
    bool Woken(bool one_by_one);
    REFDATA *Next_After(const REFDATA *last, double time);
    bool Handle_New(const REFDATA *&last, double &time);
    void Handle(const REFDATA *record, double time);

    std::atomic<std::uint32_t> effective_{0}, requested_{0};  // [s]
    std::atomic<std::uint32_t> wakes_{0};
    std::uint32_t taken_ = 0;  // of these wake-ups; the worker's thread alone
    struct Signal;
    const std::unique_ptr<Signal> signal_;  // set with each wake-up and stop
    bool started_ = false;
};

}  // namespace kernel
