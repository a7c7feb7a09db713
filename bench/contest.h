// A unit and its peer, timed in turns, so that a noisy machine disturbs both alike.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

namespace bench {

template <class Work>
double Seconds(Work work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double Median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// The times of both; each turn's two stand next to each other, and who comes first changes.
//
// Threads:   one.
// Ownership: nothing.
// Errors:    none.
class Contest {
public:
    // Seconds that the unit took in this turn.
    template <class Unit, class Peer>
    double Turn(Unit unit, Peer peer)
    {
        const bool unit_first = unit_.size() % 2 == 0;
        if (unit_first) unit_.push_back(Seconds(unit));
        peer_.push_back(Seconds(peer));
        if (!unit_first) unit_.push_back(Seconds(unit));
        return unit_.back();
    }

    double Unit() const { return Median(unit_); }  // [s] per turn
    double Peer() const { return Median(peer_); }
    // Both times for one of `steps` steps, the ratios, and the limit that the ratio is to stay below.
    void Show(benchmark::State &state, double limit, double steps) const
    {
        state.counters["unit_ns"] = Unit() / steps * 1e9;
        state.counters["peer_ns"] = Peer() / steps * 1e9;
        state.counters["ratio"] = Ratio();
        state.counters["best_ratio"] = Best_Ratio();
        state.counters["limit"] = limit;
    }

private:
    // Unit by peer: the median over the turns, and the best of one by the best of the other.
    double Ratio() const
    {
        std::vector<double> ratios;
        for (std::size_t i = 0; i < unit_.size(); ++i) ratios.push_back(unit_[i] / peer_[i]);
        return Median(ratios);
    }
    double Best_Ratio() const
    {
        return *std::min_element(unit_.begin(), unit_.end()) / *std::min_element(peer_.begin(), peer_.end());
    }

    std::vector<double> unit_, peer_;  // [s]
};

}  // namespace bench
