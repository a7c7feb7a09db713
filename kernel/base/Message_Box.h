// The box that a failed open of a replay file shows.
#pragma once

#include "kernel/base/kernel_api.h"

namespace kernel {

using Message_Box_Function = void (*)(const char *text, const char *title);

// Puts the host's own in place of the system's box (Windows: a box that waits for a click; elsewhere a line on standard
// error). Called on whatever thread reports. Null brings the system's back. Returns the function before.
KERNEL_API Message_Box_Function Set_Message_Box(Message_Box_Function box);

}  // namespace kernel
