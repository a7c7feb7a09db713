// The text of a time-tag file. Not installed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kernel {

// The name of the tag file that belongs to a data file; empty when it would have 260 bytes or more.
std::string Timetag_Name(const char *data_name);

std::string Timetag_Header(const char *data_name);

inline constexpr std::size_t timetag_row_size = 400;  // bytes; enough for any double

// "%.5f;%lld;%u\n" with a decimal point in any locale: [s] of reception, [bytes] end of the block in the data file,
// [bytes] its length. Returns the number of characters; no terminating zero.
std::size_t Format_Timetag_Row(char (&row)[timetag_row_size], double time, std::int64_t offset, std::uint32_t length);

}  // namespace kernel
