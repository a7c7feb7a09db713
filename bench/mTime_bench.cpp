// The calendar date of a time against the standard library's conversion of the same day and time of day.
#include "bench/contest.h"
#include "kernel/time/mTime.h"

#include <chrono>
#include <cstdint>
#include <random>
#include <vector>

namespace {

using kernel::mTime;
namespace chrono = std::chrono;

constexpr std::size_t steps = 4096;  // per turn

// The same times for both, from 1980 to 2099 and in no order; to the peer they are nanoseconds since the GPS epoch.
class Dates {
public:
    Dates()
    {
        std::mt19937_64 random(20241121);
        std::uniform_int_distribution<std::int64_t> second(0, 6260 * 604800LL), nanosecond(0, 990000000);
        for (std::size_t i = 0; i < steps; ++i) {
            const std::int64_t whole = second(random), part = nanosecond(random);
            times_.emplace_back(static_cast<int>(whole / 604800),
                                static_cast<double>(whole % 604800) + static_cast<double>(part) * 1e-9);
            nanoseconds_.push_back(whole * 1000000000 + part);
        }
    }

    void By_Unit()
    {
        int year, month, day, hour, min;
        double sec;
        for (const mTime &time : times_) {
            time.get_caldat(year, month, day, hour, min, sec);
            unit_sum_ += year + month + day + hour + min + static_cast<int>(sec);
        }
        benchmark::DoNotOptimize(unit_sum_);
    }
    void By_Peer()
    {
        const chrono::sys_days epoch = chrono::year(1980) / 1 / 6;
        for (const std::int64_t time : nanoseconds_) {
            const auto at = epoch + chrono::nanoseconds(time);
            const auto midnight = chrono::floor<chrono::days>(at);
            const chrono::year_month_day date(midnight);
            const chrono::hh_mm_ss of_day(at - midnight);
            peer_sum_ += int{date.year()} + static_cast<int>(unsigned{date.month()} + unsigned{date.day()}) +
                         static_cast<int>((of_day.hours().count() + of_day.minutes().count())) +
                         static_cast<int>(of_day.seconds().count());
        }
        benchmark::DoNotOptimize(peer_sum_);
    }
    bool Agree() const { return unit_sum_ == peer_sum_; }

private:
    std::vector<mTime> times_;
    std::vector<std::int64_t> nanoseconds_;
    std::int64_t unit_sum_ = 0, peer_sum_ = 0;
};

void Compare_Dates(benchmark::State &state)
{
    Dates dates;
    bench::Contest contest;
    for (auto _ : state) state.SetIterationTime(contest.Turn([&] { dates.By_Unit(); }, [&] { dates.By_Peer(); }));
    if (!dates.Agree()) state.SkipWithError("the dates differ");
    contest.Show(state, 2.5, steps);
    state.counters["limit_ns"] = 20;
}
BENCHMARK(Compare_Dates)->UseManualTime();

// The longer way of times just below a whole second.
void Carried_Dates(benchmark::State &state)
{
    std::vector<mTime> times;
    for (std::size_t i = 0; i < steps; ++i)
        times.emplace_back(static_cast<int>(i), 147.0 * static_cast<double>(i) + 0.9995);
    int year, month, day, hour, min;
    double sec;
    for (auto _ : state) {
        for (const mTime &time : times) {
            time.get_caldat(year, month, day, hour, min, sec);
            benchmark::DoNotOptimize(sec);
        }
    }
    state.counters["per_date"] = benchmark::Counter(
        static_cast<double>(steps), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(Carried_Dates);

}  // namespace
