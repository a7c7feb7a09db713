#include "platform/fault.h"

#include "platform/error.h"

#include <algorithm>

namespace platform::fault {

namespace {

struct Plan {
    std::atomic<bool> set{false};
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<std::uint32_t> error{0};
};

Plan plans[2];
std::atomic<std::size_t> most{0};  // bytes per call of the system; 0: no limit

Plan &plan_of(Operation operation) { return plans[static_cast<int>(operation)]; }

}  // namespace

std::atomic<bool> armed{false};

void fail_after(Operation operation, std::uint64_t bytes, std::uint32_t error)
{
    Plan &plan = plan_of(operation);
    plan.bytes = bytes;
    plan.error = error;
    plan.set = true;
    armed = true;
}

void move_at_most(std::size_t bytes)
{
    most = bytes;
    armed = true;
}

std::size_t piece(std::size_t n)
{
    return armed.load(std::memory_order_relaxed) && most > 0 ? std::min<std::size_t>(n, most) : n;
}

void clear()
{
    armed = false;
    most = 0;
    for (Plan &plan : plans) plan.set = false;
}

std::size_t planned(Operation operation, std::size_t n)
{
    Plan &plan = plan_of(operation);
    if (!plan.set) return n;
    const std::uint64_t admitted = std::min<std::uint64_t>(n, plan.bytes);
    plan.bytes -= admitted;
    return static_cast<std::size_t>(admitted);
}

bool fail(Operation operation)
{
    set_last_error(plan_of(operation).error);
    return false;
}

}  // namespace platform::fault
