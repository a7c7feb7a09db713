// The debugger's output.
#pragma once

namespace platform {

using Debug_Output = void (*)(const char *text);

// Writes the text as it is, in one call: Windows to the debugger's output, POSIX to standard error.
void debug_output(const char *text);
// For tests and hosts that keep the texts. Null brings the system's own back. Returns the one before.
Debug_Output set_debug_output(Debug_Output output);

// Stops in the debugger when one is attached; otherwise nothing.
void debug_break();

}  // namespace platform
