#include "kernel/settings/arithmetic.h"

#include <algorithm>

namespace kernel {

void swap_function(void *value, std::size_t size)
{
    auto *const bytes = static_cast<unsigned char *>(value);
    std::reverse(bytes, bytes + size);
}

}  // namespace kernel
