#include "kernel/base/text_internal.h"

#include <cstring>
#include <new>

namespace kernel {

std::unique_ptr<char[]> Copy_Text(const char *text)
{
    const std::size_t size = std::strlen(text) + 1;
    std::unique_ptr<char[]> copy(new (std::nothrow) char[size]);
    if (copy) std::memcpy(copy.get(), text, size);
    return copy;
}

int Compare_Ignoring_Case(const char *a, const char *b)
{
    const auto lower = [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= 'A' && byte <= 'Z' ? byte + ('a' - 'A') : int{byte};
    };
    while (*a != '\0' && lower(*a) == lower(*b)) ++a, ++b;
    return lower(*a) - lower(*b);
}

}  // namespace kernel
