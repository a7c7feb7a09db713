// Waiting for a change of a word in memory. Also for signal handlers, which may wait in no other way.
#pragma once

#include <atomic>
#include <climits>
#include <cstdint>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace platform::posix {

// Sleeps while the word has this value: at most `limit` (null: no limit). It may also return without a reason.
inline void futex_wait(const std::atomic<std::uint32_t> &word, std::uint32_t value, const timespec *limit)
{
    syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value, limit, nullptr, 0);
}

// Wakes all sleepers. Uses the address alone: a word that is gone by now does no harm.
inline void futex_wake(const std::atomic<std::uint32_t> &word)
{
    syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

}  // namespace platform::posix
