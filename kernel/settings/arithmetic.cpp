#include "kernel/settings/arithmetic.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace kernel {

namespace {

unsigned long Size(long number)
{
    return number < 0 ? 0UL - static_cast<unsigned long>(number) : static_cast<unsigned long>(number);
}

constexpr auto most = static_cast<unsigned long>(std::numeric_limits<long>::max());

}  // namespace

long ggt(long a, long b)
{
    return static_cast<long>(std::min(std::gcd(Size(a), Size(b)), most));  // the size of the least long is no long
}

long kgv(long a, long b)
{
    if (a == 0 || b == 0) return 0;
    const unsigned long part = Size(a) / std::gcd(Size(a), Size(b));
    return part > most / Size(b) ? 0 : static_cast<long>(part * Size(b));
}

void swap_function(void *value, std::size_t size)
{
    auto *const bytes = static_cast<unsigned char *>(value);
    std::reverse(bytes, bytes + size);
}

}  // namespace kernel
