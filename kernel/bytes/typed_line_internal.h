// A typed line as a printf format that has no arguments.
#pragma once

#include <cstddef>
#include <string_view>

namespace kernel {

// Writes to `out` what printf makes of `line` when every number is 0 and every text is empty. Returns the number of
// characters written. `out` has room for `size` characters; the rest is cut. No terminator is written, and zero bytes
// are characters like any other. A '*' counts as 0; "%c" and "%n" are empty; "%p" is a number. A directive that printf
// does not know stays as it is. The result does not depend on the locale.
std::size_t Format_Without_Arguments(std::string_view line, char *out, std::size_t size);

}  // namespace kernel
