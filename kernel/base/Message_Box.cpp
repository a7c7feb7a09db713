#include "kernel/base/Message_Box.h"

#include "platform/message_box.h"

namespace kernel {

Message_Box_Function Set_Message_Box(Message_Box_Function box) { return platform::set_message_box(box); }

}  // namespace kernel
