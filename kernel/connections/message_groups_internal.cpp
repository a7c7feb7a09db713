#include "kernel/connections/message_groups_internal.h"

namespace kernel {

// No default: the compiler names each message that is missing here.
Message_Group Group_Of(CL_Mesg message)
{
    switch (message) {
    case Mesg_Reset_Counters:
    case Mesg_Status_250: return Message_Group::Order;

    case Mesg_Disconnect_Query:
    case Mesg_PreDisconnect_Query:
    case Mesg_Delete_Query: return Message_Group::Question;

    case Mesg_Pause:
    case Mesg_Status_40:
    case Mesg_Status_50:
    case Mesg_Status_90:
    case Mesg_Status_100:
    case Mesg_Status_110:
    case Mesg_Attached:
    case Mesg_Detached:
    case Mesg_Login:
    case Mesg_Ask_Password:
    case Mesg_Start:
    case Mesg_Second:
    case Mesg_Minute:
    case Mesg_Hour:
    case Mesg_Day:
    case Mesg_Status_210:
    case Mesg_Status_220:
    case Mesg_Status_230: return Message_Group::Notice;

    case Mesg_Request_Invite:
    case Mesg_Data_Ready:
    case Mesg_Byte_Type:
    case Mesg_Object_Type: return Message_Group::Offer;

    case Mesg_Type_Obs:
    case Mesg_Type_Eph:
    case Mesg_Type_Pos:
    case Mesg_Type_Alm:
    case Mesg_Type_UTC:
    case Mesg_Type_Voltage:
    case Mesg_Type_IONO:
    case Mesg_Type_10060:
    case Mesg_Type_Glo_Eph:
    case Mesg_Type_Met:
    case Mesg_Type_RTCM: return Message_Group::Record_Type;

    case Mesg_Type_Event:
    case Mesg_Type_10100:
    case Mesg_Type_10110:
    case Mesg_Type_10130:
    case Mesg_Type_10140:
    case Mesg_Type_10150:
    case Mesg_Type_11000:
    case Mesg_Type_20000: return Message_Group::Kept_Record_Type;

    case Mesg_Object_Connect:
    case Mesg_Type_WAAS: return Message_Group::Unhandled;
    }
    return Message_Group::Unhandled;
}

}  // namespace kernel
