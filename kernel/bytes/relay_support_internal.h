// What objects in the middle of a chain share that have several clients below.
#pragma once

#include "kernel/connections/CL_Mesg.h"

#include <utility>

namespace kernel {

// The messages that every client makes of its own ticks and sends to the upstream server's client. An object with n
// clients would pass each of them on n times: it counts the ticks itself and passes on what comes of that.
inline bool Is_Derived_Tick(CL_Mesg message)
{
    return message == Mesg_Minute || message == Mesg_Hour || message == Mesg_Day;
}

// Gives a flag a value for a scope; afterwards it is as before.
//
// Threads:   those of the flag.
// Ownership: the flag outlives the scope.
// Errors:    none.
class Held_Flag {
public:
    explicit Held_Flag(bool &flag, bool value = true) : flag_(flag), before_(std::exchange(flag, value)) {}
    ~Held_Flag() { flag_ = before_; }
    Held_Flag(const Held_Flag &) = delete;
    Held_Flag &operator=(const Held_Flag &) = delete;

private:
    bool &flag_;
    const bool before_;
};

}  // namespace kernel
