#include "platform/system_output.h"

#include "platform/debug.h"
#include "platform/win32/wide_text.h"

#include <windows.h>

namespace platform {

void system_message_box(const char *text, const char *title)
{
    MessageBoxW(nullptr, win32::wide(text).c_str(), win32::wide(title).c_str(), MB_ICONEXCLAMATION);
}

void system_debug_output(const char *text) { OutputDebugStringW(win32::wide(text).c_str()); }

void debug_break()
{
    if (IsDebuggerPresent()) DebugBreak();
}

}  // namespace platform
