// Words that two processes use at the same time. Not installed.
#pragma once

#include <atomic>

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

}  // namespace kernel
