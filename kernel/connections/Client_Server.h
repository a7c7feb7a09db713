// What clients and servers share: one name, one handler, one lock.
#pragma once

#include "kernel/base/Object.h"
#include "kernel/base/Semaphore.h"

#include <atomic>

namespace kernel {

// The common base of everything that can be connected, inherited virtually.
//
// Threads:   any for Dont_Delete_Me; the rest is for subclasses.
// Ownership: the server that a client is connected to deletes it, unless the client called Dont_Delete_Me.
// Errors:    none reported.
class KERNEL_API Client_Server : public virtual Object, public virtual Semaphore {
public:
    static const char Name[];  // "Basisklasse Client_Server"
    static const char *ClassName() { return Name; }

    bool IsValid() const override;
    bool IsInheritedFrom(const char *name) const override;

    // The line speed; what it means is the subclass's. Not settable (false) and 0 here.
    virtual bool Set_Speed(unsigned long speed);
    virtual unsigned long Get_Speed();

    void Dont_Delete_Me() { delete_me_.store(false, std::memory_order_relaxed); }

protected:
    Client_Server();
    bool Delete_Me() const { return delete_me_.load(std::memory_order_relaxed); }  // the answer to Mesg_Delete_Query

private:
    friend class Server;  // looks whether a client may be asked

    std::atomic<bool> delete_me_{true};
};

}  // namespace kernel
