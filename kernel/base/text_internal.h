// Small operations on zero-terminated texts. Not installed.
#pragma once

#include <memory>

namespace kernel {

// A copy of a text; null when memory is short.
std::unique_ptr<char[]> Copy_Text(const char *text);

// As strcmp, but the case of ASCII letters does not count, whatever the locale.
int Compare_Ignoring_Case(const char *a, const char *b);

}  // namespace kernel
