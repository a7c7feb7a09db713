// A value per thread, with an action at the thread's end.
#pragma once

#include <cstdint>
#include <memory>

namespace platform {

// Something that ends with its thread: the destructor runs on it.
//
// Threads:   its own.
// Ownership: the slot that it was given to.
// Errors:    none.
struct Thread_End {
    virtual ~Thread_End() = default;
};

// One object per thread. A thread_local object would do, but under MinGW its destructor may find its own memory freed.
// The main thread's object is not destroyed at the end of the process.
//
// Threads:   any; each sees its own object.
// Ownership: never destroyed itself: threads may end later than everything else.
// Errors:    false when the system has no slot left; nothing is kept then.
class Thread_Slot {
public:
    Thread_Slot();
    Thread_Slot(const Thread_Slot &) = delete;
    Thread_Slot &operator=(const Thread_Slot &) = delete;

    Thread_End *get() const;                      // null: none yet
    bool set(std::unique_ptr<Thread_End> &&end);  // once per thread

private:
    std::intptr_t key_;
};

}  // namespace platform
