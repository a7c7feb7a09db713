// Sections in which a thread is not stopped: it may hold a lock that other threads need.
#pragma once

namespace platform::posix {

// Thread::suspend and Thread::kill stop a thread at an arbitrary point, by a signal. Inside such a section the signal's
// handler only notes the order, and the thread obeys when it leaves the outermost section. A section is short and waits
// for nothing but the locks that such sections hold.
//
// Threads:   one object per section, on the thread's own stack.
// Ownership: nothing.
// Errors:    none.
class Unstoppable {
public:
    Unstoppable() { enter(); }
    ~Unstoppable() { leave(); }
    Unstoppable(const Unstoppable &) = delete;
    Unstoppable &operator=(const Unstoppable &) = delete;

    static void enter();
    static void leave();
};

}  // namespace platform::posix
