// The standard library's steady clock serves every platform, so there is no posix or win32 half.
#include "platform/clock.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

const Clock::time_point process_start = Clock::now();
std::atomic<std::uint64_t> pushed_ms{0};

}  // namespace

std::uint64_t clock_ms()
{
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - process_start);
    return static_cast<std::uint64_t>(elapsed.count()) + pushed_ms.load(std::memory_order_relaxed);
}

void advance_clock(std::uint64_t ms) { pushed_ms.fetch_add(ms, std::memory_order_relaxed); }

void sleep_ms(unsigned long ms) { std::this_thread::sleep_for(std::chrono::milliseconds(std::min(ms, longest_sleep))); }

}  // namespace platform
