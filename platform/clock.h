// Time since the process started, and plain sleeping.
#pragma once

#include <cstdint>

namespace platform {

// Milliseconds of wall time since the process started; never processor time, never backwards.
std::uint64_t clock_ms();

// For tests: pushes clock_ms forward, so that a watchdog of a minute is tested in a moment. Waits stay as they are.
void advance_clock(std::uint64_t ms);

void sleep_ms(unsigned long ms);  // 49 days at most

}  // namespace platform
