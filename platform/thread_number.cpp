#include "platform/thread_number.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

namespace platform {

namespace {

std::atomic<Thread_Number> last_number{0};
thread_local Thread_Number own_number = 0;

// Kills are rare, so the list stays short.
struct Killed {
    std::mutex lock;
    std::vector<Thread_Number> numbers;
};

// Never destroyed: threads may outlive the statics.
Killed &killed()
{
    static Killed &list = *new Killed;
    return list;
}

}  // namespace

Thread_Number reserve_thread_number() { return last_number.fetch_add(1, std::memory_order_relaxed) + 1; }

void set_thread_number(Thread_Number number) { own_number = number; }

Thread_Number thread_number()
{
    if (own_number == 0) own_number = reserve_thread_number();
    return own_number;
}

void note_killed(Thread_Number number)
{
    const std::lock_guard guard(killed().lock);
    killed().numbers.push_back(number);
}

bool was_killed(Thread_Number number)
{
    const std::lock_guard guard(killed().lock);
    const auto &numbers = killed().numbers;
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

}  // namespace platform
