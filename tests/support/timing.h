// How long a test waits for something that other threads do, and how long something took.
#pragma once

#include "platform/clock.h"

#include <cstdint>
#include <functional>

template <class Done>
bool Soon(Done done, int ms = 10000)
{
    for (; !done(); ms -= 2) {
        if (ms <= 0) return false;
        platform::sleep_ms(2);
    }
    return true;
}

inline std::uint64_t Elapsed(const std::function<void()> &action)  // [ms]
{
    const std::uint64_t begin = platform::clock_ms();
    action();
    return platform::clock_ms() - begin;
}
