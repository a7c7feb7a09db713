// Serial lines as ends of a stream.
#pragma once

#include "host/gnss_stream/Console.h"
#include "host/gnss_stream/Endpoint.h"
#include "host/gnss_stream/Stream_Path.h"

#include <cstddef>
#include <memory>

namespace host {

// A port that is missing or goes away is opened again, with a try each second; its going and its coming back are reported
// once each. Where it cannot be opened at the start, this is no fault of the run.
std::unique_ptr<Input> Make_Serial_Input(const Serial_Path &path, Console &console);
// What comes in on the line is discarded. A line is slow and blocks: its bytes wait in a queue of their own.
std::unique_ptr<Output> Make_Serial_Output(const Serial_Path &path, std::size_t queue_size, Console &console);

}  // namespace host
