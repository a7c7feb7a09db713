// Serial lines as ends of a stream.
#pragma once

#include "host/gnss_stream/Console.h"
#include "host/gnss_stream/Endpoint.h"
#include "host/gnss_stream/Stream_Path.h"

#include <cstddef>
#include <memory>

namespace host {

// A port that is missing or lost is tried again each second. Its loss and its return are reported once each. A port
// that is missing at the start is no fault of the run.
std::unique_ptr<Input> Make_Serial_Input(const Serial_Path &path, Console &console);
// Bytes that come in on the line are discarded. Writing to a line blocks, so that the bytes wait in a queue.
std::unique_ptr<Output> Make_Serial_Output(const Serial_Path &path, std::size_t queue_size, Console &console);

}  // namespace host
