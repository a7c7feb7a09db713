// Windows in the sense of receivers of small messages, reachable from every process of the same user by a number.
#pragma once

#include <cstdint>
#include <memory>

namespace platform {

// A message: three numbers.
//
// Threads:   a value.
// Ownership: a value.
// Errors:    none.
struct Window_Message {
    std::uint32_t message = 0;
    std::uint64_t wparam = 0;
    std::int64_t lparam = 0;
};

// A receiver. Its messages wait in a queue of the system's: what finds it full is refused to the sender.
//
// Threads:   create, receive and destruction on one thread (on Windows a window belongs to the thread that made it).
// Ownership: by the creator. Destroyed, or when its process ends in whatever way, it is no window any more.
// Errors:    create answers null with last_error() set.
class Window {
public:
    static std::unique_ptr<Window> create();
    ~Window();
    Window(const Window &) = delete;
    Window &operator=(const Window &) = delete;

    // The number, never null; what is_window and post_message take, in any process of this user. Not used again soon.
    void *handle() const;
    // The next message, in the order of posting; false when none came within ms milliseconds.
    bool receive(Window_Message &message, unsigned long ms);

private:
    struct State;
    explicit Window(std::unique_ptr<State> state);
    const std::unique_ptr<State> state_;
};

// Does a living window have this number? (Windows: any program's window.)
bool is_window(void *window);
// Never waits. False, with last_error(): 1400 (no window), 1816 (its queue is full).
bool post_message(void *window, const Window_Message &message);
// To every living window of this user; leftovers of dead processes are cleaned up. The number that took it.
int broadcast_message(const Window_Message &message);

}  // namespace platform
