// What a fuzz target requires of the code under test.
#pragma once

#include <cstdio>
#include <cstdlib>

// Ends the program with a message, which is how a fuzzer learns of a fault.
inline void Require(bool holds, const char *what)
{
    if (holds) return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}
