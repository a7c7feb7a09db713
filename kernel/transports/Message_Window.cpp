#include "kernel/transports/Message_Window.h"

#include "platform/window.h"

namespace kernel {

struct Message_Window::Receiver {
    std::unique_ptr<platform::Window> window;

    static std::unique_ptr<Receiver> Create()
    {
        auto window = platform::Window::create();
        return window ? std::make_unique<Receiver>(Receiver{std::move(window)}) : nullptr;
    }
};

Message_Window::Message_Window() : receiver_(Receiver::Create()) {}

Message_Window::~Message_Window() = default;

void *Message_Window::GetHandle() const { return receiver_ ? receiver_->window->handle() : nullptr; }

bool Message_Window::Receive(Message &message, unsigned long ms)
{
    platform::Window_Message received;
    if (!receiver_ || !receiver_->window->receive(received, ms)) return false;
    message = {received.message, received.wparam, received.lparam};
    return true;
}

}  // namespace kernel
