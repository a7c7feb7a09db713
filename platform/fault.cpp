#include "platform/fault.h"

#include "platform/clock.h"
#include "platform/error.h"

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

namespace platform::fault {

namespace {

struct Plan {
    std::atomic<bool> set{false};
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<std::uint32_t> error{0};
};

Plan plans[2];
Socket_Library_Plan socket_plan;
std::atomic<bool> has_socket_plan{false};
std::atomic<std::uint32_t> serial_plan{0};
std::atomic<bool> opens_held{false};

struct Name_Plan {
    bool hangs = false;
    std::uint32_t error = 0;
    std::uint32_t host = 0;
};

// Never destroyed: a hanging look-up may still use it when the process ends.
struct Name_Plans {
    std::mutex lock;
    std::condition_variable changed;
    std::map<std::string, Name_Plan> by_name;

    void set(const char *name, const Name_Plan &plan)
    {
        const std::lock_guard guard(lock);
        by_name[name] = plan;
        changed.notify_all();
    }
    void clear()
    {
        const std::lock_guard guard(lock);
        by_name.clear();
        changed.notify_all();
    }
};

Name_Plans &name_plans()
{
    static Name_Plans *const plans_of_names = new Name_Plans;
    return *plans_of_names;
}

std::atomic<std::size_t> most{0};  // [bytes] per system call; 0: no limit

Plan &plan_of(Operation operation) { return plans[static_cast<int>(operation)]; }

}  // namespace

// Without a plan, data paths read only this flag.
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

void plan_socket_library(std::uint32_t error, std::uint16_t version)
{
    socket_plan = {error, version};
    has_socket_plan = true;
}

const Socket_Library_Plan *planned_socket_library() { return has_socket_plan ? &socket_plan : nullptr; }

void plan_name(const char *name, std::uint32_t error, std::uint32_t host)
{
    name_plans().set(name, {false, error, host});
}

void hang_name(const char *name) { name_plans().set(name, {true, 0, 0}); }

bool planned_name(const char *name, std::uint32_t &error, std::uint32_t &host)
{
    Name_Plans &all = name_plans();
    std::unique_lock guard(all.lock);
    auto plan = all.by_name.find(name);
    if (plan == all.by_name.end()) return false;
    while (plan != all.by_name.end() && plan->second.hangs) {
        all.changed.wait(guard);
        plan = all.by_name.find(name);
    }
    const Name_Plan found = plan == all.by_name.end() ? Name_Plan{false, error_host_not_found, 0} : plan->second;
    error = found.error;
    host = found.host;
    return true;
}

void hold_opens() { opens_held = true; }

void release_opens() { opens_held = false; }

// Sleeps and polls: a thread may be killed here, and it must not hold the lock of a condition variable then.
void wait_while_opens_are_held()
{
    while (opens_held.load(std::memory_order_relaxed)) sleep_ms(1);
}

void plan_serial_errors(std::uint32_t errors) { serial_plan = errors; }

std::uint32_t planned_serial_errors() { return serial_plan.exchange(0); }

std::size_t piece(std::size_t n)
{
    return armed.load(std::memory_order_relaxed) && most > 0 ? std::min<std::size_t>(n, most) : n;
}

void clear()
{
    armed = false;
    most = 0;
    has_socket_plan = false;
    serial_plan = 0;
    opens_held = false;
    name_plans().clear();
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

void returned(Operation operation, std::size_t n)
{
    if (plan_of(operation).set) plan_of(operation).bytes += n;
}

bool fail(Operation operation)
{
    set_last_error(plan_of(operation).error);
    return false;
}

}  // namespace platform::fault
