// Named pipes as ends of a stream.
#pragma once

#include "host/gnss_stream/Console.h"
#include "host/gnss_stream/Endpoint.h"
#include "host/gnss_stream/Stream_Path.h"

#include <memory>

namespace host {

struct Pipe_Options {
    unsigned int reconnect = 10;          // [s] between two tries of a client; 0: only one
    bool strict = false;                  // the first try decides whether the program starts
    unsigned int buffer_size = 1U << 20;  // bytes that wait for the other process
};

// A client opens the pipe again after a loss. A server serves one client after another; a pipe that cannot be made is
// tried again each second. The library's reports are faults of the run only when there is a single try.
std::unique_ptr<Input> Make_Pipe_Input(const Pipe_Path &path, const Pipe_Options &options, Console &console);
std::unique_ptr<Output> Make_Pipe_Output(const Pipe_Path &path, const Pipe_Options &options, Console &console);

}  // namespace host
