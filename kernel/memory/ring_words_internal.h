// Words that two processes use at the same time, and blocks of bytes with a number that says whether they are being
// written. Not installed.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kernel {

template <class T>
T Load(T &word, std::memory_order order = std::memory_order_relaxed)
{
    return std::atomic_ref(word).load(order);
}

template <class T>
void Store(T &word, T value, std::memory_order order = std::memory_order_relaxed)
{
    std::atomic_ref(word).store(value, order);
}

// From here to Leave() the bytes are the writer's: the number is odd, and greater afterwards. What the writer stores
// cannot become visible before the odd number.
inline void Enter(std::uint32_t &sequence)
{
    std::atomic_ref(sequence).exchange(sequence | 1, std::memory_order_acq_rel);
}
inline void Leave(std::uint32_t &sequence) { Store(sequence, (sequence | 1) + 1, std::memory_order_release); }

// Copies what the writer may be changing; Copy_Whole finds that out. Whole words.
#if defined(__SANITIZE_THREAD__)
__attribute__((no_sanitize("thread")))
#endif
inline void
Copy_Words(const void *from, void *to, std::size_t bytes)
{
    const auto *source = static_cast<const volatile std::uint32_t *>(from);
    auto *target = static_cast<std::uint32_t *>(to);
    for (std::size_t i = 0; i < bytes / sizeof(std::uint32_t); ++i) target[i] = source[i];
}

// Runs `copy`, which may return false to give up. False when the writer was inside at the beginning, or came meanwhile.
// The read-modify-write keeps the second look at the number behind the copy.
template <class Copy>
bool Copy_Whole(std::uint32_t &sequence, Copy copy)
{
    const std::uint32_t before = Load(sequence, std::memory_order_acquire);
    return before % 2 == 0 && copy() && std::atomic_ref(sequence).fetch_add(0, std::memory_order_acq_rel) == before;
}

}  // namespace kernel
