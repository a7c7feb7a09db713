// How long a test waits for something, and how long something took.
#pragma once

#include "platform/clock.h"

#include <cstdint>
#include <functional>

// True once `done` is; false after ten seconds.
inline bool Comes(const std::function<bool()> &done)
{
    for (int i = 0; i < 2000 && !done(); ++i) platform::sleep_ms(5);
    return done();
}

inline std::uint64_t Elapsed(const std::function<void()> &action)  // [ms]
{
    const std::uint64_t begin = platform::clock_ms();
    action();
    return platform::clock_ms() - begin;
}
