// A box with a text for the user at the machine. A host without a desktop replaces it by its own function.
#pragma once

namespace platform {

using Message_Box = void (*)(const char *text, const char *title);

// Shows the text and returns after the user has closed the box. Without a host function Windows shows a box with an
// exclamation mark; POSIX writes one line on standard error.
void message_box(const char *text, const char *title);
// The function is called on the reporting thread, and on several threads at once. Null restores the system's box.
// Returns the previous function.
Message_Box set_message_box(Message_Box box);

}  // namespace platform
