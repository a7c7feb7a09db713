#include "kernel/connections/delivery_internal.h"

#include <algorithm>
#include <chrono>
#include <new>

namespace kernel {

namespace {

// The kill of a thread wakes no waiting thread: the list is looked at again after this time.
constexpr std::chrono::milliseconds look_again{100};

}  // namespace

// Release, so that the delivering thread sees the client as it was built.
Byte_Client *Deliveries::Exchange(Byte_Client *client)
{
    const std::lock_guard guard(lock_);
    return client_.exchange(client, std::memory_order_acq_rel);
}

bool Deliveries::Replace(Byte_Client *old, Byte_Client *client)
{
    const std::lock_guard guard(lock_);
    return client_.compare_exchange_strong(old, client, std::memory_order_acq_rel, std::memory_order_acquire);
}

bool Deliveries::Is_Awaited(const Entry &entry, const Byte_Client *former, platform::Thread_Number self) const
{
    const bool concerned = former ? entry.client == former : entry.client != Client();
    return concerned && entry.thread != self && !platform::was_killed(entry.thread);
}

void Deliveries::Wait_For_Others(const Byte_Client *former)
{
    const platform::Thread_Number self = platform::thread_number();
    std::unique_lock guard(lock_);
    const auto is_own = [=](const Entry &entry) { return entry.thread == self; };
    if (!former && std::any_of(entries_.begin(), entries_.end(), is_own)) return;
    const auto is_awaited = [=, this](const Entry &entry) { return Is_Awaited(entry, former, self); };
    ++waiting_;
    while (std::any_of(entries_.begin(), entries_.end(), is_awaited)) left_.wait_for(guard, look_again);
    --waiting_;
}

Deliveries::Visit::Visit(Deliveries &deliveries, const Byte_Client *client) : deliveries_(deliveries)
{
    const std::lock_guard guard(deliveries_.lock_);
    Byte_Client *const current = deliveries_.Client();
    if (!current || (client && client != current)) return;
    try {
        deliveries_.entries_.push_back({platform::thread_number(), current});
        client_ = current;
    } catch (const std::bad_alloc &) {
    }
}

// Of several equal entries it does not matter which one goes.
Deliveries::Visit::~Visit()
{
    if (!client_) return;
    const platform::Thread_Number self = platform::thread_number();
    const std::lock_guard guard(deliveries_.lock_);
    auto &entries = deliveries_.entries_;
    const auto own = std::find_if(entries.begin(), entries.end(), [=, this](const Entry &entry) {
        return entry.thread == self && entry.client == client_;
    });
    *own = entries.back();
    entries.pop_back();
    if (deliveries_.waiting_ > 0) deliveries_.left_.notify_all();
}

}  // namespace kernel
