// The parts of debug.h and message_box.h that differ between the systems. Only debug.cpp and message_box.cpp call them.
#pragma once

namespace platform {

void system_message_box(const char *text, const char *title);
void system_debug_output(const char *text);

}  // namespace platform
