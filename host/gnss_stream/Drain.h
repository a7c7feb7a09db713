// A client that takes the bytes of a stream and drops them.
#pragma once

#include "kernel/connections/BYTE_SER.h"

#include <array>

namespace host {

// Threads:   the server's delivering thread.
// Ownership: belongs to its server unless Dont_Delete_Me was called.
// Errors:    none.
class Drain : public kernel::Byte_Client {
public:
    Drain() : Object("Drain") {}
    bool Send(kernel::Byte_Server &server, kernel::CL_Mesg message) override
    {
        std::array<unsigned char, 4096> block;
        if (message == kernel::Mesg_Request_Invite) server.Request(1);
        if (message == kernel::Mesg_Data_Ready) server.GetNBytes(block.data(), static_cast<long>(block.size()));
        return message == kernel::Mesg_Request_Invite || message == kernel::Mesg_Data_Ready ||
               Byte_Client::Send(server, message);
    }
};

}  // namespace host
