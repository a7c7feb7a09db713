// History loggers against two standard multimaps, by event and over all, that hold the same texts.
#include "bench/contest.h"
#include "kernel/tables/EventTabelle.h"

#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace kernel;

constexpr int steps = 36000;  // per turn
constexpr std::array names = {"connected", "crc", "gap", "lost"};

struct Deleter {
    void operator()(EventTabelle *table) const { EventTabelle::Delete(table); }
};
using Table = std::unique_ptr<EventTabelle, Deleter>;
using Rows = std::multimap<double, std::string>;

std::string Text(int number) { return "tcp://caster.example:2101/MOUNT " + std::to_string(number); }

struct Sides {
    explicit Sides(double interval) : interval_(interval)
    {
        table_->SetInterval(interval);
        for (const char *name : names) table_->AddEvent(name);
        for (int i = 0; i < steps; ++i) texts_.push_back(Text(i));
    }
    void To_Table(double first)
    {
        for (int i = 0; i < steps; ++i) {
            const auto n = static_cast<std::size_t>(i);
            table_->Add(first + i, names[n % names.size()], texts_[n].c_str(), 0);
        }
    }
    void To_Maps(double first)
    {
        for (int i = 0; i < steps; ++i) {
            const auto n = static_cast<std::size_t>(i);
            const double time = first + i;
            if (interval_ > 0) {
                for (auto &[name, rows] : events_) rows.erase(rows.begin(), rows.lower_bound(time - interval_));
                master_.erase(master_.begin(), master_.lower_bound(time - interval_));
            }
            events_[names[n % names.size()]].emplace(time, texts_[n]);
            master_.emplace(time, texts_[n]);
        }
    }
    bool Agree() const
    {
        return table_->GetMin() == master_.begin()->first && table_->GetMax() == master_.rbegin()->first;
    }

    const double interval_;  // [s]
    const Table table_{EventTabelle::Create("all", nullptr)};
    std::map<std::string, Rows> events_;
    Rows master_;
    std::vector<std::string> texts_;
};

// One entry per second, into a window of 36,000 that is full.
void Add(benchmark::State &state)
{
    Sides sides(steps - 1);
    double first = 1;
    sides.To_Table(first), sides.To_Maps(first);
    bench::Contest contest;
    for (auto _ : state) {
        first += steps;
        state.SetIterationTime(contest.Turn([&] { sides.To_Table(first); }, [&] { sides.To_Maps(first); }));
        if (!sides.Agree()) state.SkipWithError("the two hold other entries");
    }
    contest.Show(state, 1.3, steps);
}
BENCHMARK(Add)->UseManualTime();

// Random times of a million entries, each copied with its text.
void Find(benchmark::State &state)
{
    constexpr int most = 1000000 / steps * steps + steps;
    Sides sides(0);
    for (int first = 1; first < most; first += steps) sides.To_Table(first), sides.To_Maps(first);
    std::mt19937 random(20121014);
    std::vector<double> times;
    for (int i = 0; i < steps; ++i) times.push_back(static_cast<double>(1 + random() % most));
    char text[256];
    double time = 0, sum = 0, peer_sum = 0;
    int marked = 0;
    const auto in_table = [&] {
        for (const double t : times) {
            if (sides.table_->Find(t, 0, time, nullptr, text, marked)) sum += time;
            benchmark::DoNotOptimize(text[0]);
        }
    };
    const auto in_map = [&] {
        for (const double t : times) {
            const auto at = sides.master_.find(t);
            if (at == sides.master_.end()) continue;
            std::strcpy(text, at->second.c_str());
            peer_sum += at->first;
            benchmark::DoNotOptimize(text[0]);
        }
    };
    bench::Contest contest;
    for (auto _ : state) {
        state.SetIterationTime(contest.Turn(in_table, in_map));
        if (sum != peer_sum || sum == 0) state.SkipWithError("the two found other entries");
    }
    contest.Show(state, 1.3, steps);
}
BENCHMARK(Find)->UseManualTime();

}  // namespace
