// Small arithmetic.
#pragma once

#include "kernel/base/kernel_api.h"

#include <cstddef>

namespace kernel {

// The greatest common divisor of the numbers' sizes. ggt(a, 0) is the size of a; ggt(0, 0) is 0.
//
// Threads:   any.
// Ownership: values.
// Errors:    none.
KERNEL_API long ggt(long a, long b);

// The least common multiple of the numbers' sizes; 0 when one of them is 0, or when a long does not hold it.
//
// Threads:   any.
// Ownership: values.
// Errors:    0.
KERNEL_API long kgv(long a, long b);

// Turns the bytes of a value round, between little-endian and big-endian: swap_function(&x, sizeof x) for whole and
// floating-point numbers of any size.
//
// Threads:   those of the value.
// Ownership: the value stays the caller's.
// Errors:    none.
KERNEL_API void swap_function(void *value, std::size_t size);

}  // namespace kernel
