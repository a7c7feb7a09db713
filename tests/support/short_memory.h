// Memory that runs out. Replaces the program's operator new: for one source of a test program.
#pragma once

#include <atomic>
#include <cstdlib>
#include <new>

namespace short_memory {

inline constinit thread_local long left = -1;  // allocations of this thread that still succeed; negative: all
inline constinit std::atomic<long> living{0};  // blocks of the whole program

}  // namespace short_memory

void *operator new(std::size_t size)
{
    using namespace short_memory;
    if (left == 0) throw std::bad_alloc();
    if (left > 0) --left;
    void *const block = std::malloc(size > 0 ? size : 1);
    if (!block) throw std::bad_alloc();
    ++living;
    return block;
}

void operator delete(void *block) noexcept
{
    if (block) --short_memory::living;
    std::free(block);
}

void operator delete(void *block, std::size_t) noexcept { operator delete(block); }

// From here to the end of the scope this thread gets `count` more blocks.
class Short_Memory {
public:
    explicit Short_Memory(long count) { short_memory::left = count; }
    ~Short_Memory() { short_memory::left = -1; }
    Short_Memory(const Short_Memory &) = delete;
    Short_Memory &operator=(const Short_Memory &) = delete;
};

// Does it with no memory, with one block, with two, until it answers true; how often it answered false.
template <class Attempt>
int Refused_Without_Memory(Attempt attempt)
{
    for (int count = 0;; ++count) {
        const Short_Memory memory(count);
        if (attempt()) return count;
    }
}
