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
    bool strict = false;                  // the first try decides
    unsigned int buffer_size = 1U << 20;  // bytes that wait for a peer
};

// A connection that is made, watched and made again. What a caster says before its data is left out. The name of a host is looked up on a thread of its own, which takes as
// long as the system does. The library's reports are faults of the run where there is a single try only.
std::unique_ptr<Input> Make_Socket_Input(const Socket_Path &path, const Socket_Options &options, Console &console);
// What the peer says is discarded.
std::unique_ptr<Output> Make_Socket_Output(const Socket_Path &path, const Socket_Options &options, Console &console);

}  // namespace host
