// Makes the ends of a stream from their paths.
#pragma once

#include "host/gnss_stream/Endpoint.h"
#include "host/gnss_stream/Stream_Options.h"

#include <memory>

namespace host {

class Console;

// True for a file and for standard input, which wait for the outputs (see Input::Can_Wait).
bool Can_Wait(const Stream_Path &input);

std::unique_ptr<Input> Make_Input(const Stream_Options &options, Console &console);
std::unique_ptr<Output> Make_Output(const Stream_Path &path, const Stream_Options &options, Console &console);

}  // namespace host
