// Rows of a time-tag file: whatever they are, the steps of the replay go forward through the recording and through
// time, and rows without a fault are all used. The first byte is the size of the recording (times 16); the rest are the
// rows.
#include "fuzz/Require.h"
#include "host/gnss_stream/Timetag_Schedule.h"
#include "kernel/files/timetag_row_internal.h"

#include <cmath>
#include <sstream>
#include <string>

namespace {

// Steps of rows that the library writes for these steps: the same.
void Check_Again(const std::string &rows, std::uint64_t size, std::size_t steps)
{
    kernel::NULL_Error_Handler handler;
    std::istringstream text(rows);
    host::Timetag_Schedule schedule(text, size, handler);
    for (; steps > 0; --steps) Require(schedule.Next().has_value(), "a good row was left out");
    Require(!schedule.Next(), "more steps than rows");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0) return 0;
    const std::uint64_t recording = std::uint64_t{data[0]} * 16;
    std::istringstream rows(std::string(reinterpret_cast<const char *>(data + 1), size - 1));
    kernel::NULL_Error_Handler handler;
    host::Timetag_Schedule schedule(rows, recording, handler);
    host::Timetag_Schedule::Step last;
    std::string again = kernel::Timetag_Header("recording");
    std::size_t steps = 0;
    while (const auto step = schedule.Next()) {
        Require(step->end > last.end && step->end <= recording, "a step that does not go forward in the recording");
        Require(std::isfinite(step->time) && step->time >= last.time, "a step back in time");
        Require(schedule.Last_Time() >= step->time, "a step later than the last row");
        char row[kernel::timetag_row_size];
        const auto length = static_cast<std::uint32_t>(step->end - last.end);
        again.append(row, kernel::Format_Timetag_Row(row, step->time, static_cast<std::int64_t>(step->end), length));
        last = *step;
        ++steps;
    }
    if (last.time < 1e10) Check_Again(again, recording, steps);  // no row has a later time
    return 0;
}
