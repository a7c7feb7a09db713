// A server above a client that sends bytes on.
#pragma once

#include "kernel/bytes/String_Byte_Server.h"

#include <memory>
#include <string>

class Upstream {
public:
    explicit Upstream(kernel::Byte_Client &client)
    {
        client.Dont_Delete_Me();
        server_->Connect(&client);
    }
    // Whether the client took all that was not taken before; at most 19,999 bytes.
    bool Give(const std::string &bytes)
    {
        server_->PutBin(reinterpret_cast<const unsigned char *>(bytes.data()), static_cast<unsigned int>(bytes.size()));
        while (server_->MinAvail(0) > 0 && server_->Work()) continue;
        return server_->MinAvail(0) == 0;
    }

private:
    std::unique_ptr<kernel::String_Byte_Server> server_{kernel::String_Byte_Server::Construct(20000, nullptr)};
};
