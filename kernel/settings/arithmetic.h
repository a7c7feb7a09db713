// Small arithmetic.
#pragma once

#include "kernel/base/kernel_api.h"

#include <cstddef>
#include <limits>
#include <numeric>

namespace kernel {

// The greatest common divisor; ggt(a, 0) is a.
constexpr unsigned long ggt(unsigned long a, unsigned long b) { return std::gcd(a, b); }

// The least common multiple of a and b; 0 when one of them is 0. A result that does not fit is the greatest value.
constexpr unsigned long kgv(unsigned long a, unsigned long b)
{
    if (a == 0 || b == 0) return 0;
    const unsigned long factor = b / ggt(a, b);
    constexpr unsigned long most = std::numeric_limits<unsigned long>::max();
    return a > most / factor ? most : a * factor;
}

// Turns the bytes of a value round, between little-endian and big-endian: swap_function(&x, sizeof x) for whole and
// floating-point numbers of any size.
//
// Threads:   those of the value.
// Ownership: the value stays the caller's.
// Errors:    none.
KERNEL_API void swap_function(void *value, std::size_t size);

}  // namespace kernel
