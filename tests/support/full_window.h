// A window whose queue takes no more.
#pragma once

#include "platform/window.h"

#include <cstdint>

constexpr std::uint32_t filling_message = 0x400;

// Posts (filling_message, 0, 0), (.., 1, 0), ... until the queue is full: their number, or 0 where queues have no limit
// (Wine).
inline std::uint32_t Fill(void *window)
{
    constexpr std::uint32_t most = 20000;
    std::uint32_t posted = 0;
    while (posted < most && platform::post_message(window, {filling_message, posted, 0})) ++posted;
    return posted < most ? posted : 0;
}
