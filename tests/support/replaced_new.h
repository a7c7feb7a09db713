// Replaces the program's operator new by one that a test can make fail. For one source of a test program. All forms are
// replaced: a sanitizer would otherwise see memory that comes from one allocator and goes to another.
#pragma once

#include <atomic>
#include <cstdlib>
#include <new>

namespace replaced_new {

inline constinit std::atomic<bool (*)(std::size_t)> admits{nullptr};  // null: every block is to be had
inline constinit std::atomic<long> living{0};                         // blocks of the whole program

[[gnu::noinline]] inline void *get(std::size_t size) noexcept
{
    const auto admitted = admits.load(std::memory_order_relaxed);
    void *const block = admitted && !admitted(size) ? nullptr : std::malloc(size > 0 ? size : 1);
    if (block) ++living;
    return block;
}

inline void *get_or_throw(std::size_t size)
{
    void *const block = get(size);
    if (!block) throw std::bad_alloc();
    return block;
}

// Not inlined: the compiler would take the pairs for mismatched ones.
[[gnu::noinline]] inline void put_back(void *block) noexcept
{
    if (block) --living;
    std::free(block);
}

}  // namespace replaced_new

void *operator new(std::size_t size) { return replaced_new::get_or_throw(size); }
void *operator new[](std::size_t size) { return replaced_new::get_or_throw(size); }
void *operator new(std::size_t size, const std::nothrow_t &) noexcept { return replaced_new::get(size); }
void *operator new[](std::size_t size, const std::nothrow_t &) noexcept { return replaced_new::get(size); }
void operator delete(void *block) noexcept { replaced_new::put_back(block); }
void operator delete[](void *block) noexcept { replaced_new::put_back(block); }
void operator delete(void *block, std::size_t) noexcept { replaced_new::put_back(block); }
void operator delete[](void *block, std::size_t) noexcept { replaced_new::put_back(block); }
