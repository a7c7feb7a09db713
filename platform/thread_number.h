// Numbers for threads, and which of them were killed.
#pragma once

#include <cstdint>

namespace platform {

using Thread_Number = std::uint64_t;

// The calling thread's, from 1. No other thread of the process ever gets it, unlike the numbers of the system.
Thread_Number thread_number();

// For Thread. A number for a thread that is about to be started, and the thread's own call to have it.
Thread_Number reserve_thread_number();
void set_thread_number(Thread_Number number);

// Thread::kill has ended it: it never runs again, and what it had entered it never leaves.
void note_killed(Thread_Number number);
bool was_killed(Thread_Number number);

}  // namespace platform
