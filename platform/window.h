// Windows as receivers of small messages: every process of the same user can reach one by its number.
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

// A receiver. Its messages wait in a queue of the system. If the queue is full, posting fails.
//
// Threads:   create, receive and destroy on one thread (on Windows a window belongs to the thread that made it).
// Ownership: the creator owns it. Its number becomes invalid when it is destroyed or its process ends.
// Errors:    create returns null with last_error() set.
class Window {
public:
    static std::unique_ptr<Window> create();
    ~Window();
    Window(const Window &) = delete;
    Window &operator=(const Window &) = delete;

    // The number, never null, for is_window and post_message in any process of this user. It is not reused soon.
    void *handle() const;
    // Takes the next message, in the order of posting; false when none came within ms milliseconds.
    bool receive(Window_Message &message, unsigned long ms);

private:
    struct State;
    explicit Window(std::unique_ptr<State> state);
    const std::unique_ptr<State> state_;
};

// Whether an existing window has this number. On Windows the window may belong to any program.
bool is_window(void *window);
// Never waits. False, with last_error(): error_invalid_window, or error_not_enough_quota when its queue is full.
bool post_message(void *window, const Window_Message &message);
// Posts to every window of this user and removes leftovers of dead processes. Returns how many windows took it.
int broadcast_message(const Window_Message &message);

}  // namespace platform
