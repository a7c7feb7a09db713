// What kind of message each control message is. The base answers, what goes down a chain and which records can be
// dropped follow from the group, so that a new message is put into one list only.
#pragma once

#include "kernel/connections/CL_Mesg.h"

namespace kernel {

enum class Message_Group {
    Order,             // between a server and its own client: true, not passed down a chain
    Question,          // about the connection: the client's own flags answer, not passed down a chain
    Notice,            // true, because a refusal may end a transport; passed down a chain
    Offer,             // of data or of a family: false, because true would promise to take it
    Record_Type,       // false; Object_Client_NULL can be made for it
    Kept_Record_Type,  // false; Object_Client_NULL cannot be made for it
    Unhandled          // false and a report: a client that may be asked handles it. Also every number without a name
};

Message_Group Group_Of(CL_Mesg message);

}  // namespace kernel
