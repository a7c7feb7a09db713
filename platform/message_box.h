// A box with a text, for whoever sits at the machine; a host without a desktop puts a function of its own in its place.
#pragma once

namespace platform {

using Message_Box = void (*)(const char *text, const char *title);

// Shows the text; returns when it has been seen. Without a function of the host: Windows a box with an exclamation mark,
// POSIX one line on standard error.
void message_box(const char *text, const char *title);
// Called on whatever thread reports, several at once if they do. Null brings the system's own back. Returns the one before.
Message_Box set_message_box(Message_Box box);

}  // namespace platform
