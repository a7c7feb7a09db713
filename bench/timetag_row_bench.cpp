// Rows of a time-tag file against the bare conversions of their three numbers.
#include "bench/contest.h"
#include "kernel/files/timetag_row_internal.h"

#include <charconv>
#include <cstdint>
#include <string_view>

namespace {

using namespace kernel;

constexpr int steps = 2000;

double Time(int i) { return 1.4e9 + 0.0371 * i; }                // [s]
std::int64_t Offset(int i) { return 5'000'000'000 + 612L * i; }  // [bytes]

std::size_t Row(int i, char (&row)[timetag_row_size]) { return Format_Timetag_Row(row, Time(i), Offset(i), 612); }

std::size_t Bare(int i, char (&row)[timetag_row_size])
{
    char *at = std::to_chars(row, row + sizeof row, Time(i), std::chars_format::fixed, 5).ptr;
    *at++ = ';';
    at = std::to_chars(at, row + sizeof row, Offset(i)).ptr;
    *at++ = ';';
    at = std::to_chars(at, row + sizeof row, std::uint32_t{612}).ptr;
    *at++ = '\n';
    return static_cast<std::size_t>(at - row);
}

template <class Format>
void All(Format format)
{
    for (int i = 0; i < steps; ++i) {
        char row[timetag_row_size];
        benchmark::DoNotOptimize(format(i, row));
        benchmark::DoNotOptimize(row[0]);
    }
}

void Row_Against_Bare(benchmark::State &state)
{
    char row[timetag_row_size], bare[timetag_row_size];
    if (std::string_view(row, Row(7, row)) != std::string_view(bare, Bare(7, bare)))
        state.SkipWithError("the rows differ");
    bench::Contest contest;
    for (auto _ : state) state.SetIterationTime(contest.Turn([] { All(Row); }, [] { All(Bare); }));
    contest.Show(state, 1.3, steps);
}
BENCHMARK(Row_Against_Bare)->UseManualTime();

}  // namespace
