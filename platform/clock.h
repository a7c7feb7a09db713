// Time since the process started, and plain sleeping.
#pragma once

#include <cstdint>

namespace platform {

// [ms] Elapsed time since the process started. It never runs backwards and does not depend on processor time.
std::uint64_t clock_ms();

// For tests: advances clock_ms, so that a time-out of a minute can be tested at once. Waits and sleeps are not
// affected.
void advance_clock(std::uint64_t ms);

constexpr unsigned long longest_sleep = 0xFFFFFFFF;  // [ms], 49 days
void sleep_ms(unsigned long ms);                     // at most longest_sleep

}  // namespace platform
