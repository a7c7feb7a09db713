// Memory that runs out. For one source of a test program (see replaced_new.h).
#pragma once

#include "tests/support/replaced_new.h"

// From here to the end of the scope this thread gets `count` more blocks. One per thread at a time.
class Short_Memory {
public:
    explicit Short_Memory(long count)
    {
        left_ = count;
        replaced_new::admits = [](std::size_t) { return left_ < 0 || (left_ > 0 && left_-- > 0); };
    }
    ~Short_Memory() { left_ = -1; }
    Short_Memory(const Short_Memory &) = delete;
    Short_Memory &operator=(const Short_Memory &) = delete;

private:
    static inline constinit thread_local long left_ = -1;  // blocks that this thread still gets; negative: all
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
