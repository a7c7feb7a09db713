#include "platform/system_output.h"

#include "platform/debug.h"

#include <windows.h>

namespace platform {

void system_message_box(const char *text, const char *title) { MessageBoxA(nullptr, text, title, MB_ICONEXCLAMATION); }

void system_debug_output(const char *text) { OutputDebugStringA(text); }

void debug_break()
{
    if (IsDebuggerPresent()) DebugBreak();
}

}  // namespace platform
