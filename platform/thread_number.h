// Unique numbers for threads, and the record of killed threads.
#pragma once

#include <cstdint>

namespace platform {

using Thread_Number = std::uint64_t;

// The number of the calling thread, from 1. Unlike the system's numbers it is never given to another thread of the
// process.
Thread_Number thread_number();

// For Thread: reserves a number for a thread that is about to start, which then sets it as its own.
Thread_Number reserve_thread_number();
void set_thread_number(Thread_Number number);

// Records that Thread::kill has ended a thread: it never runs again and never releases what it holds.
void note_killed(Thread_Number number);
bool was_killed(Thread_Number number);

}  // namespace platform
