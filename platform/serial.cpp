#include "platform/serial.h"

#include "platform/clock.h"
#include "platform/error.h"

#include <algorithm>

namespace platform {

namespace {

constexpr unsigned long look_again_ms = 100;
constexpr unsigned long drain_ms = 500, drain_look_ms = 10;

}  // namespace

// A cancelled transfer may have moved a part or even all of its bytes; its result says how many.
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

// The systems differ here: one delays the close for half a minute if the other end has stopped the flow; drivers of
// another drop the bytes that they hold.
void Serial_Port::drain() const
{
    for (unsigned long ms = 0; ms < drain_ms; ms += drain_look_ms) {
        if (!has_unsent()) return;
        sleep_ms(drain_look_ms);
    }
    drop_unsent();
}

}  // namespace platform
