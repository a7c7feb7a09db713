#include "host/gnss_stream/Timetag_Schedule.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

namespace host {

namespace {

using kernel::Error_Handler;

const char unit[] = "host/Timetag_Schedule";
constexpr std::size_t longest_row = 400;  // [bytes], far more than three numbers have
constexpr double latest = 1e10;           // [s] since 1980: the year 2296; anything later is a damaged number

// A number and the character behind it; 0 stands for the end of the text.
template <class Number>
bool Take(std::string_view &text, Number &number, char behind)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    if (behind == 0) return text.empty();
    if (!text.starts_with(behind)) return false;
    text.remove_prefix(1);
    return true;
}

}  // namespace

Timetag_Schedule::Timetag_Schedule(std::istream &rows, std::uint64_t size, Error_Handler &handler)
    : rows_(rows), size_(size), handler_(handler)
{
}

void Timetag_Schedule::Leave_Out(Fault fault, std::uint64_t line)
{
    static constexpr std::array<const char *, faults> what = {"is no row", "is cut",
                                                              "is beyond the end of the recording", "is out of order"};
    ++left_out_;
    if (std::exchange(told_[fault], true)) return;
    ++reports_;
    handler_.Set(unit, __LINE__)
        ->Print_Out(Error_Handler::ES_Warning, "Time tags, line %s %s: its bytes follow at once behind those before.",
                    std::to_string(line).c_str(), what[fault]);
}

void Timetag_Schedule::Sum_Up()
{
    if (std::exchange(summed_up_, true)) return;
    if (rows_.bad())
        handler_.Set(unit, __LINE__)
            ->Print_Out(Error_Handler::ES_Warning,
                        "The time tags cannot be read behind line %s: the rest of the recording follows at once.",
                        std::to_string(line_).c_str());
    if (left_out_ > reports_)
        handler_.Set(unit, __LINE__)
            ->Print_Out(Error_Handler::ES_Warning, "Time tags: %s lines in all could not be used.",
                        std::to_string(left_out_).c_str());
    if (!zero_)
        handler_.Set(unit, __LINE__)
            ->Print_Out(Error_Handler::ES_Warning,
                        "The time tags have no row that could be used: the recording is replayed without pauses.");
}

// The next line that is a row in itself, wherever its block may lie.
std::optional<Timetag_Schedule::Row> Timetag_Schedule::Read_Row()
{
    for (char line[longest_row]; rows_.getline(line, sizeof line) || rows_.gcount() > 0;) {
        if (rows_.bad()) return {};
        ++line_;
        const bool has_end = !rows_.fail() && !rows_.eof();
        const bool is_too_long = rows_.fail();
        std::string_view text(line, static_cast<std::size_t>(rows_.gcount()) - (has_end ? 1 : 0));
        if (is_too_long) {
            rows_.clear();
            rows_.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
        }
        if (text.ends_with('\r')) text.remove_suffix(1);
        if (text == "#Data") in_header_ = false;
        if (text.empty() || text.starts_with('#')) continue;

        Row row{0, 0, 0, line_};
        std::uint64_t length = 0;
        const bool is_row = Take(text, row.time, ';') && Take(text, row.end, ';') && Take(text, length, 0) &&
                            std::abs(row.time) <= latest && length <= row.end && !is_too_long;
        if (is_row) in_header_ = false;
        if (in_header_) continue;
        if (rows_.eof())
            Leave_Out(cut, line_);
        else if (!is_row)
            Leave_Out(no_row, line_);
        else
            return row.begin = row.end - length, row;
    }
    return {};
}

// Whether the row behind one with a gap above shows that it is the wrong one.
bool Timetag_Schedule::Is_Contradicted(const Row &row)
{
    read_ahead_ = Read_Row();
    return read_ahead_ && read_ahead_->begin >= end_ && read_ahead_->end < row.end;
}

std::optional<Timetag_Schedule::Row> Timetag_Schedule::Next_Good_Row()
{
    for (;;) {
        const std::optional<Row> row = read_ahead_ ? std::exchange(read_ahead_, std::nullopt) : Read_Row();
        if (!row) return {};
        if (row->end > size_)
            Leave_Out(beyond_the_end, row->line);
        else if (row->begin < end_ || (row->begin > end_ && Is_Contradicted(*row)))
            Leave_Out(out_of_order, row->line);
        else
            return row;
    }
}

void Timetag_Schedule::Advance_To(double time)
{
    if (!zero_) zero_ = time;
    if (time - *zero_ < now_) zero_ = time - now_;  // the clock was set back
    now_ = time - *zero_;
}

std::optional<Timetag_Schedule::Step> Timetag_Schedule::Next()
{
    if (held_) return std::exchange(held_, std::nullopt);
    while (const std::optional<Row> row = Next_Good_Row()) {
        const Step before{row->begin, now_};
        const bool has_gap = row->begin > end_;
        Advance_To(row->time);
        end_ = row->end;
        if (row->end > row->begin) held_ = Step{row->end, now_};
        if (has_gap) return before;
        if (held_) return std::exchange(held_, std::nullopt);
    }
    Sum_Up();
    return {};
}

}  // namespace host
