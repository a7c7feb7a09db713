// The table of socket errors: Winsock's numbers, names and titles, and what each means. Not installed.
#pragma once

#include "kernel/base/Error_Handler.h"

#include <cstddef>
#include <string>

namespace kernel {

// A text padded with blanks to the width of a column. A longer text keeps its length.
template <std::size_t width>
struct Padded {
    char text[width + 16] = {};

    constexpr Padded(const char *words)
    {
        std::size_t n = 0;
        for (; words[n] != '\0'; ++n) text[n] = words[n];
        for (; n < width; ++n) text[n] = ' ';
    }
};

// A row of the table; all of it is constant.
struct Socket_Error {
    int code;
    const char *name;         // "WSAECONNREFUSED"
    Padded<35> title;         // "Connection refused"
    const char *description;  // a sentence or two
};

// Returns the first row with this number, or null when there is none.
const Socket_Error *Find_Socket_Error(int code);

// Reports prefix, text and the system's words for the error; where the system has none, those of the table.
void Report_Socket_Error(Error_Handler &report, const std::string &prefix, unsigned long error, const char *text,
                         Err_Code code, Error_Handler::Enum_Status status);

}  // namespace kernel
