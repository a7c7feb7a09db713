#include "kernel/connections/CLIENT.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/connections/SERVER.h"

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

bool Client::Send(Server &server, CL_Mesg message)
{
    switch (message) {
    case Mesg_Status_250: return true;

    // The counts alone: a client that is attached hears no 140 after this and must go on counting.
    case Mesg_Reset_Counters:
        ticks_.store(0, std::memory_order_relaxed);
        attached_ticks_.store(0, std::memory_order_relaxed);
        return true;
    case Mesg_Disconnect_Query:
    case Mesg_PreDisconnect_Query: return DisconnectAllowed();
    case Mesg_Pause: platform::sleep_ms(pause_ms); return true;
    case Mesg_Delete_Query: return Delete_Me();
    // The other count runs on over losses of the connection. Byte clients derive minutes from that one, object clients
    // from this one; both are meant.
    case Mesg_Attached:
        attached_ticks_.store(0, std::memory_order_relaxed);
        counts_attached_.store(true, std::memory_order_relaxed);
        return true;
    case Mesg_Detached: counts_attached_.store(false, std::memory_order_relaxed); return true;
    case Mesg_Second:
        ticks_.fetch_add(1, std::memory_order_relaxed);
        if (counts_attached_.load(std::memory_order_relaxed)) attached_ticks_.fetch_add(1, std::memory_order_relaxed);
        return true;

    // Notices. Who does not care must not say no: a socket, for one, ends when its client refuses 140 or 50.
    case Mesg_Status_40:
    case Mesg_Status_50:
    case Mesg_Status_90:
    case Mesg_Status_100:
    case Mesg_Status_110:
    case Mesg_Login:
    case Mesg_Ask_Password:
    case Mesg_Start:
    case Mesg_Minute:
    case Mesg_Hour:
    case Mesg_Day:
    case Mesg_Status_210:
    case Mesg_Status_220:
    case Mesg_Status_230: return true;

    // Offers and questions. A yes would be a promise to pull, or to understand records of that type.
    case Mesg_Request_Invite:
    case Mesg_Data_Ready:
    case Mesg_Byte_Type:
    case Mesg_Object_Type:
    case Mesg_Type_Obs:
    case Mesg_Type_Eph:
    case Mesg_Type_Pos:
    case Mesg_Type_Alm:
    case Mesg_Type_UTC:
    case Mesg_Type_Voltage:
    case Mesg_Type_Event:
    case Mesg_Type_IONO:
    case Mesg_Type_10060:
    case Mesg_Type_Glo_Eph:
    case Mesg_Type_Met:
    case Mesg_Type_RTCM:
    case Mesg_Type_10100:
    case Mesg_Type_10110:
    case Mesg_Type_10130:
    case Mesg_Type_10140:
    case Mesg_Type_10150:
    case Mesg_Type_11000:
    case Mesg_Type_20000: return false;

    case Mesg_Object_Connect:  // these two are missing from the base's table on purpose: who may be asked handles them
    case Mesg_Type_WAAS:
    default: break;
    }
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, 31, "Illegal CL_Mesg %d from Server %s", static_cast<int>(message),
                   server.GetName());
    return false;
}

}  // namespace kernel
