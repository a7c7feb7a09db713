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

void clear()
{
    armed = false;
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
