// What both families of servers and clients do alike: how a server ends, and how ticks become minutes, hours and days.
#pragma once

#include "kernel/connections/CL_Mesg.h"
#include "kernel/connections/Client_Server.h"

#include <cstdint>

namespace kernel {

// The end of a server, from its destructor. leave(): disconnects, and returns the client that there was, or null.
// forget(client): after it returned no other thread is inside the client.
template <class Family, class Leave, class Forget>
void End_Connection(Family &server, Leave leave, Forget forget)
{
    // An object in the middle is a client as well. Nobody that is deleted in the course of this may delete it again.
    server.Dont_Delete_Me();
    auto *const former = leave();
    // Asked even when it has refused disconnection: the server ends either way.
    const bool goes = former && former->Send(server, Mesg_Delete_Query);
    forget(former);
    if (goes) Object::Destruct(former);
}

constexpr bool Is_Minute(std::uint32_t ticks) { return ticks % 60 == 0; }

// Sends what a full minute stands for. The count is passed by value: what a client does in Mesg_Minute, and a tick on
// another thread, do not change whether the hour and the day follow.
template <class Tell>
void Tell_Minute(std::uint32_t ticks, Tell tell)
{
    tell(Mesg_Minute);
    if (ticks % 3600 == 0) tell(Mesg_Hour);
    if (ticks % 86400 == 0) tell(Mesg_Day);
}

}  // namespace kernel
