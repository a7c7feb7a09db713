// The box that a failed open of a replay file shows.
#pragma once

#include "kernel/base/kernel_api.h"

namespace kernel {

using Message_Box_Function = void (*)(const char *text, const char *title);

// Replaces the system's box (Windows: a box that waits for a click; elsewhere a line on standard error) by the host's
// function. The library calls it on the reporting thread. Null restores the system's box. Returns the previous
// function.
KERNEL_API Message_Box_Function Set_Message_Box(Message_Box_Function box);

}  // namespace kernel
