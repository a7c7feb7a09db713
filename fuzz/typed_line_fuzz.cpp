// A typed line as a format: whatever is typed, the buffer is kept, text without directives stays as it is, and short
// fields of whole numbers are what printf makes of zeros.
#include "fuzz/Require.h"
#include "kernel/bytes/typed_line_internal.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace {

std::string Formatted(std::string_view line, std::size_t size)
{
    const std::unique_ptr<char[]> exact(new char[size]);  // a character too far is found
    const std::size_t length = kernel::Format_Without_Arguments(line, exact.get(), size);
    Require(length <= size, "more was written than there is room for");
    return {exact.get(), length};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string_view line(reinterpret_cast<const char *>(data), size);
    Formatted(line, 5051);
    Formatted(line, 16);
    std::string plain(line.substr(0, 5051));
    plain.erase(std::remove(plain.begin(), plain.end(), '%'), plain.end());
    Require(Formatted(plain, 5051) == plain, "a text without directives has changed");
#ifndef _WIN32  // the old C library of Windows does not write all of these as the C standard has them
    const std::size_t flags = std::min(line.find_first_not_of("-+ #0123456789."), line.size());
    std::string directive("%");
    directive += line.substr(0, std::min<std::size_t>(flags, 4));
    for (const char conversion : {'d', 'u', 'x', 'o'}) {
        std::string one = directive;
        one += conversion;
        // "%5" and then a flag is no directive.
        const std::size_t digits = one.find_first_of("123456789.");
        if (digits != one.npos && one.find_first_of("-+ #", digits) != one.npos) continue;
        if (std::count(one.begin(), one.end(), '.') > 1) continue;
        char expected[5052];
        const int length = std::snprintf(expected, sizeof expected, one.c_str(), 0);
        Require(length >= 0 && Formatted(one, 5051) ==
                                   std::string(expected, std::min<std::size_t>(5051, static_cast<std::size_t>(length))),
                "a directive is not what printf makes of a zero");
    }
#endif
    return 0;
}
