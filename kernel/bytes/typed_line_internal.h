// A typed line as a printf format that has no arguments.
#pragma once

#include <cstddef>
#include <string_view>

namespace kernel {

// Writes to `out`, which has room for `size` characters, what printf makes of `line` when every number is 0 and every
// text is empty, and answers how many these are; the rest is cut. There is no terminator, and zero bytes are characters
// like others. A '*' is 0; "%c" and "%n" are empty; "%p" is a number. What printf does not know stays as it is.
// Independent of the locale.
std::size_t Format_Without_Arguments(std::string_view line, char *out, std::size_t size);

}  // namespace kernel
