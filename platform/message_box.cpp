#include "platform/message_box.h"

#include "platform/system_output.h"

#include <atomic>

namespace platform {

namespace {

std::atomic<Message_Box> replaced{nullptr};

}  // namespace

void message_box(const char *text, const char *title)
{
    if (const Message_Box box = replaced.load(std::memory_order_acquire))
        box(text, title);
    else
        system_message_box(text, title);
}

Message_Box set_message_box(Message_Box box) { return replaced.exchange(box, std::memory_order_acq_rel); }

}  // namespace platform
