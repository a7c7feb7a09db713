#include "platform/serial.h"

#include "platform/error.h"

namespace platform {

// Cancelled, a transfer has moved a part, or even all: the result says how much, and that counts.
bool Serial_Port::finish(Transfer &transfer, bool done, unsigned long ms, std::size_t &moved, Event *stop)
{
    bool over = false;
    if (!done && last_error() == error_io_pending) {
        Waitable *const waited_for[] = {&transfer, stop};
        const int index = wait_any({waited_for, stop ? 2U : 1U}, ms);
        over = index == wait_timeout;
        if (index != 0) transfer.cancel();
    }
    return transfer.result(moved) || over;
}

}  // namespace platform
