// When the bytes of a recording came: the rows of its time-tag file as the steps of a replay.
#pragma once

#include "kernel/base/Error_Handler.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <optional>

namespace host {

// docs/formats.md describes the rows. Time zero is that of the first good row, also when its block is empty. A row
// whose time is before that of the row above comes from a clock that was set back: it follows at once, and time goes on
// from there.
//
// A row that cannot be used is left out. Its bytes, like all bytes that no row names, follow at once behind the bytes
// before them. Such a row
//   - is no row: not three numbers, or a time that is no time;
//   - is cut: the last one, without its line end;
//   - is beyond the end of the recording;
//   - is out of order: its block begins before the end of the block above. When blocks are missing above a row, and the
//     next row ends before it, the upper row is the wrong one.
// The header, comments (#) and empty lines are passed over. Line ends are LF or CR LF.
//
// Threads:   one.
// Ownership: the caller keeps the rows and the handler, which outlive the object. Memory does not grow with the rows.
// Errors:    warnings. Each kind of unusable row is reported once, with the line of the first. When the rows end, the
//            number of all of them is reported if there were more; and rows that cannot be read any further.
class Timetag_Schedule {
public:
    struct Step {
        std::uint64_t end = 0;  // [bytes] from the start of the recording; greater than in the step before
        double time = 0;        // [s] since time zero, when the bytes up to `end` came; never less than before
    };

    // size: of the recording [bytes].
    Timetag_Schedule(std::istream &rows, std::uint64_t size, kernel::Error_Handler &handler);

    // Nothing: there are no more rows. The recording may go on behind the last step.
    std::optional<Step> Next();
    double Last_Time() const { return now_; }  // [s] since time zero, of the last row used

private:
    enum Fault { no_row, cut, beyond_the_end, out_of_order, faults };
    struct Row {
        double time;        // [s]
        std::uint64_t end;  // [bytes] from the start of the recording
        std::uint64_t begin;
        std::uint64_t line;  // its number in the file
    };

    std::optional<Row> Read_Row();
    std::optional<Row> Next_Good_Row();
    bool Is_Contradicted(const Row &row);
    void Advance_To(double time);
    void Leave_Out(Fault fault, std::uint64_t line);
    void Sum_Up();

    std::istream &rows_;
    const std::uint64_t size_;  // [bytes]
    kernel::Error_Handler &handler_;

    std::uint64_t line_ = 0;         // of the rows, read so far
    bool in_header_ = true;          // no row and no #Data yet
    std::optional<Row> read_ahead_;  // to judge the row above
    std::optional<Step> held_;       // a step behind the one that was given last
    std::uint64_t end_ = 0;          // [bytes] of the last row used
    std::optional<double> zero_;     // [s] the time of a row at which now_ would be 0
    double now_ = 0;                 // [s] since time zero

    std::array<bool, faults> told_{};
    std::uint64_t left_out_ = 0, reports_ = 0;
    bool summed_up_ = false;
};

}  // namespace host
