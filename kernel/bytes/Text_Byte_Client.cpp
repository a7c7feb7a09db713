#include "kernel/bytes/Text_Byte_Client.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace kernel {

const char Text_Byte_Client::Name[] = "Text_Byte_Client";

Text_Byte_Client::Text_Byte_Client(const char *name) : Object(name) {}

Text_Byte_Client *Text_Byte_Client::Construct()
{
    return Constructed([&] { return new Text_Byte_Client(ClassName()); });
}

bool Text_Byte_Client::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Client::IsInheritedFrom(name);
}

bool Text_Byte_Client::Send(Byte_Server &server, CL_Mesg message)
{
    switch (message) {
    case Mesg_Request_Invite: server.Request(1); return true;
    // True although nothing may have been printed: a screen that is closed is no reason to end a connection.
    case Mesg_Data_Ready: std::putchar(static_cast<std::int16_t>(server.GetByte())); return true;
    default: return Byte_Client::Send(server, message);
    }
}

}  // namespace kernel
