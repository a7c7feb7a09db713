#include "kernel/connections/CLIENT.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/connections/SERVER.h"
#include "kernel/connections/message_groups_internal.h"

#include "platform/clock.h"

#include <cstring>

namespace kernel {

namespace {

const char unit[] = "kernel/CLIENT";
// Slept on the sender's thread: a serial line that has found nothing to read is slowed down by its client.
constexpr unsigned long pause_ms = 40;

}  // namespace

const char Client::Name[] = "Basisklasse Client";

Client::Client() : Object(nullptr) {}

bool Client::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Client_Server::IsInheritedFrom(name);
}

// What a message does to the client itself, whatever the answer is.
void Client::Note(CL_Mesg message)
{
    switch (message) {
    // The counts alone: a client that is attached does not get Mesg_Attached again after this and must go on counting.
    case Mesg_Reset_Counters:
        ticks_.store(0, std::memory_order_relaxed);
        attached_ticks_.store(0, std::memory_order_relaxed);
        break;
    case Mesg_Pause: platform::sleep_ms(pause_ms); break;
    // The other count runs on over losses of the connection. Byte clients derive minutes from that one, object clients
    // from this one; hosts rely on both.
    case Mesg_Attached:
        attached_ticks_.store(0, std::memory_order_relaxed);
        counts_attached_.store(true, std::memory_order_relaxed);
        break;
    case Mesg_Detached: counts_attached_.store(false, std::memory_order_relaxed); break;
    case Mesg_Second:
        ticks_.fetch_add(1, std::memory_order_relaxed);
        if (counts_attached_.load(std::memory_order_relaxed)) attached_ticks_.fetch_add(1, std::memory_order_relaxed);
        break;
    default: break;  // the others leave no trace
    }
}

bool Client::Send(Server &server, CL_Mesg message)
{
    Note(message);
    switch (Group_Of(message)) {
    case Message_Group::Order:
    case Message_Group::Notice: return true;
    case Message_Group::Question: return message == Mesg_Delete_Query ? Delete_Me() : DisconnectAllowed();
    case Message_Group::Offer:
    case Message_Group::Record_Type:
    case Message_Group::Kept_Record_Type: return false;
    case Message_Group::Unhandled: break;
    }
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, 31, "Illegal CL_Mesg %d from Server %s", static_cast<int>(message),
                   server.GetName());
    return false;
}

}  // namespace kernel
