// The least common multiple.
#pragma once

#include <limits>
#include <numeric>

namespace kernel {

// The least common multiple of a and b; 0 when one of them is 0. A result that does not fit is the greatest value.
constexpr unsigned long kgv(unsigned long a, unsigned long b)
{
    if (a == 0 || b == 0) return 0;
    const unsigned long factor = b / std::gcd(a, b);
    constexpr unsigned long most = std::numeric_limits<unsigned long>::max();
    return a > most / factor ? most : a * factor;
}

}  // namespace kernel
