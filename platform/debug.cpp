#include "platform/debug.h"

#include "platform/system_output.h"

#include <atomic>

namespace platform {

namespace {

std::atomic<Debug_Output> replaced{nullptr};

}  // namespace

void debug_output(const char *text)
{
    if (const Debug_Output output = replaced.load(std::memory_order_acquire))
        output(text);
    else
        system_debug_output(text);
}

Debug_Output set_debug_output(Debug_Output output) { return replaced.exchange(output, std::memory_order_acq_rel); }

}  // namespace platform
