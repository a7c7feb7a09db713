// The connection status of every transport: a number, a count of its changes, and a message to a window of the host for
// each change.
#pragma once

#include "kernel/base/Object.h"
#include "kernel/base/Semaphore.h"

#include <cstdint>

namespace kernel {

// The base of serial lines, sockets and pipes.
//
// Threads:   a lock of this class guards status and message; it is not held while a message is posted. SetStatus runs
//            on the transport's threads. When the window's queue is full, it waits until there is room or the window is
//            gone, so that no change is lost. A stop of the transport's thread ends that wait: see Gives_Up_Posting.
// Ownership: the window is the host's. The host may destroy it at any time; that ends the messages.
// Errors:    every 10th failed try to post is reported (level 2), and so is the last one when posting is given up.
class KERNEL_API Remote_Control : public virtual Object {
public:
    static const char Name[];  // "Remote_Control"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // The host's window gets these numbers.
    enum Status : std::uint32_t {
        Status_Failed = 0,   // also: no client to deliver to
        Status_Waiting = 1,  // for the next try to connect, or for a client of a pipe
        Status_Connecting = 10,
        Status_Connected_As_Server = 11,
        Status_Connected_As_Client = 12,
        Status_Disconnected = 13,
        Status_Client_Target_Set = 103,
        Status_Pipe_Busy = 106,
        Status_Pipe_Invalid = 150,
    };

    virtual bool Hang_Up();  // these four do nothing here and return false or null
    virtual bool Dial(const char *number, const char *user, const char *password);
    virtual bool IsBusy();
    virtual const char *GetRemoteName();
    // changes: receives the number of SetStatus calls up to the same moment; may be null.
    virtual Status GetStatus(unsigned long *const changes);
    virtual void SetStatus(Status status);
    // Each later change is posted to this window as (message, wparam, status). A null window ends that. Message_Window
    // is a receiver that works on every system.
    virtual void SetMessage(void *const window, long message, long wparam);

    ~Remote_Control() override;

protected:
    explicit Remote_Control(const char *name);
    // Sets the status without counting or posting the change.
    void Set_Status_Quietly(Status status);
    // Called after each failed post on the posting thread; true ends the tries. A transport returns true on a thread of
    // its own that was asked to stop, because the stopping thread may be the one that should empty the queue. The base
    // returns false.
    virtual bool Gives_Up_Posting() const;

private:
    void Post(void *window, long message, long wparam, Status status);

    const Semaphore lock_;
    Status status_ KERNEL_GUARDED_BY(lock_) = Status_Failed;
    std::uint32_t changes_ KERNEL_GUARDED_BY(lock_) = 0;
    long message_ KERNEL_GUARDED_BY(lock_) = 0;
    long wparam_ KERNEL_GUARDED_BY(lock_) = 0;
    void *window_ KERNEL_GUARDED_BY(lock_) = nullptr;
};

}  // namespace kernel
