// TCP connections and casters as ends of a stream.
#pragma once

#include "host/gnss_stream/Console.h"
#include "host/gnss_stream/Endpoint.h"
#include "host/gnss_stream/Stream_Path.h"

#include <memory>
#include <variant>

namespace host {

using Socket_Path = std::variant<Tcp_Client_Path, Tcp_Server_Path, Ntrip_Path>;

struct Socket_Options {
    unsigned int reconnect = 10;          // [s] between two tries of a client; 0: only one
    bool strict = false;                  // the first try decides whether the program starts
    unsigned int buffer_size = 1U << 20;  // bytes that wait for a peer
};

// A connection that is made again after a loss. The answer of a caster is removed from the stream. Host names are
// looked up on a separate thread, because a look-up may take long. The library's reports are faults of the run only
// when there is a single try.
std::unique_ptr<Input> Make_Socket_Input(const Socket_Path &path, const Socket_Options &options, Console &console);
// Bytes from the peer are discarded.
std::unique_ptr<Output> Make_Socket_Output(const Socket_Path &path, const Socket_Options &options, Console &console);

}  // namespace host
