#include "platform/serial.h"

#include "platform/error.h"

#include <algorithm>

namespace platform {

namespace {

constexpr unsigned long look_again_ms = 100;

}  // namespace

// Cancelled, a transfer has moved a part, or even all: the result says how much, and that counts.
bool Serial_Port::finish(Transfer &transfer, bool done, unsigned long ms, std::size_t &moved, Event *stop)
{
    bool over = false;
    if (!done && last_error() == error_io_pending) {
        Waitable *const waited_for[] = {&transfer, stop};
        int index = wait_timeout;
        for (unsigned long left = ms; index == wait_timeout && left > 0 && transfer.pending();) {
            const unsigned long slice = std::min(left, look_again_ms);
            index = wait_any({waited_for, stop ? 2U : 1U}, slice);
            if (ms < wait_forever) left -= slice;
        }
        over = index == wait_timeout && transfer.pending();
        if (index != 0) transfer.cancel();
    }
    return transfer.result(moved) || over;
}

}  // namespace platform
