// What the two halves provide for debug.h and message_box.h; nobody else calls it.
#pragma once

namespace platform {

void system_message_box(const char *text, const char *title);
void system_debug_output(const char *text);

}  // namespace platform
