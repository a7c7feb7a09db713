// Gives blocks to a byte client, which can only pull them from a server.
#pragma once

#include "kernel/bytes/String_Byte_Server.h"

#include <cstdint>
#include <memory>
#include <span>

namespace host {

// Threads:   the delivering thread; the client's Send runs on it.
// Ownership: the client stays its owner's and outlives this object.
// Errors:    std::bad_alloc when there is no memory for the ring.
class Feed {
public:
    explicit Feed(kernel::Byte_Client &client);

    // A block of at most Output::block_limit bytes. Bytes that the client does not pull are dropped: they belong to a
    // connection that is gone.
    void Give(std::span<const unsigned char> block);
    bool Tell(kernel::CL_Mesg message) { return client_.Send(*server_, message); }

private:
    struct Deleter {
        void operator()(kernel::String_Byte_Server *server) const { kernel::String_Byte_Server::Destruct(server); }
    };
    kernel::Byte_Client &client_;
    const std::unique_ptr<kernel::String_Byte_Server, Deleter> server_;
};

}  // namespace host
