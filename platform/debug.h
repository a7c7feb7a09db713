// The debugger's output.
#pragma once

namespace platform {

using Debug_Output = void (*)(const char *text);

// Writes the unchanged text in one call, on Windows to the debugger's output, on POSIX to standard error.
void debug_output(const char *text);
// For tests, and for hosts that keep the texts. Null restores the system's output. Returns the previous function.
Debug_Output set_debug_output(Debug_Output output);

// Stops in the debugger if one is attached; otherwise does nothing.
void debug_break();

}  // namespace platform
