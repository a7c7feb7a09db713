// The control messages by name: in what a test expects, and in what it prints when it fails.
#pragma once

#include "kernel/connections/CL_Mesg.h"

#include <ostream>
#include <vector>

using Heard = std::vector<kernel::CL_Mesg>;

namespace kernel {

// Null for a number without a name. No default: the compiler names each message that is missing here.
inline const char *Message_Name(CL_Mesg message)
{
#define NAME(message)                                                                                                  \
    case message: return #message
    switch (message) {
        NAME(Mesg_Reset_Counters);
        NAME(Mesg_Disconnect_Query);
        NAME(Mesg_PreDisconnect_Query);
        NAME(Mesg_Pause);
        NAME(Mesg_Status_40);
        NAME(Mesg_Status_50);
        NAME(Mesg_Request_Invite);
        NAME(Mesg_Data_Ready);
        NAME(Mesg_Status_90);
        NAME(Mesg_Status_100);
        NAME(Mesg_Status_110);
        NAME(Mesg_Delete_Query);
        NAME(Mesg_Object_Connect);
        NAME(Mesg_Attached);
        NAME(Mesg_Detached);
        NAME(Mesg_Login);
        NAME(Mesg_Ask_Password);
        NAME(Mesg_Start);
        NAME(Mesg_Second);
        NAME(Mesg_Minute);
        NAME(Mesg_Hour);
        NAME(Mesg_Day);
        NAME(Mesg_Status_210);
        NAME(Mesg_Status_220);
        NAME(Mesg_Status_230);
        NAME(Mesg_Status_250);
        NAME(Mesg_Byte_Type);
        NAME(Mesg_Object_Type);
        NAME(Mesg_Type_Obs);
        NAME(Mesg_Type_Eph);
        NAME(Mesg_Type_Pos);
        NAME(Mesg_Type_Alm);
        NAME(Mesg_Type_UTC);
        NAME(Mesg_Type_Voltage);
        NAME(Mesg_Type_Event);
        NAME(Mesg_Type_IONO);
        NAME(Mesg_Type_10060);
        NAME(Mesg_Type_Glo_Eph);
        NAME(Mesg_Type_Met);
        NAME(Mesg_Type_WAAS);
        NAME(Mesg_Type_RTCM);
        NAME(Mesg_Type_10100);
        NAME(Mesg_Type_10110);
        NAME(Mesg_Type_10130);
        NAME(Mesg_Type_10140);
        NAME(Mesg_Type_10150);
        NAME(Mesg_Type_11000);
        NAME(Mesg_Type_20000);
    }
#undef NAME
    return nullptr;
}

inline std::ostream &operator<<(std::ostream &out, CL_Mesg message)
{
    const char *const name = Message_Name(message);
    return name ? out << name : out << "message " << static_cast<int>(message);
}

}  // namespace kernel
