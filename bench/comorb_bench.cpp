// A satellite's orbit against the trigonometric calls alone that its formulas, written down as they stand, would make.
#include "bench/contest.h"
#include "kernel/records/comorb.h"

#include <cmath>
#include <memory>
#include <random>
#include <vector>

namespace {

using namespace kernel;

constexpr int satellites = 512;  // per turn; all in the second-level cache

// Elements like the broadcast ones, and what the formulas hand to the library for them.
class Sky {
public:
    Sky()
    {
        for (int sat = 0; sat < satellites; ++sat) {
            KeplerData data;
            data[Kepler_toe] = data[Kepler_toc] = 345600;
            data[Kepler_A] = 26560000;
            data[Kepler_e] = Uniform(0, 0.03);
            data[Kepler_i0] = Uniform(0.93, 0.99);
            for (const KeplerIndex angle : {Kepler_Omega0, Kepler_omega, Kepler_M0}) data[angle] = Uniform(-3.14, 3.14);
            data[Kepler_OmegaDot] = -8e-9;
            data[Kepler_Crc] = 240;
            data[Kepler_Crs] = -40;
            for (const KeplerIndex small : {Kepler_Cis, Kepler_Cic, Kepler_Cus, Kepler_Cuc}) data[small] = 3e-6;
            table_.push_back(data);
            sats_.push_back(sat);
            times_.push_back(Uniform(338400, 352800));
            const KeplerParam param(data, times_.back());
            calls_.push_back({param.M, param.e, Uniform(-1, 1), Uniform(-1, 1), Uniform(-6, 6), Uniform(-6, 6), param.i,
                              param.Omega});
        }
    }
    void By_Library()
    {
        double sum = 0;
        for (const Arguments &a : calls_) {
            double E = a.M;
            for (int i = 0; i < orbit::Kepler_Iterations; ++i) E = a.M + a.e * std::sin(E);
            sum += std::sin(E) + std::cos(E) + std::atan2(a.y, a.x);
            for (const double angle : {2 * a.phi, a.u, a.i, a.Omega}) sum += std::sin(angle) + std::cos(angle);
        }
        benchmark::DoNotOptimize(sum);
    }
    void One_By_One()
    {
        for (std::size_t j = 0; j < satellites; ++j)
            comorb(table_.data(), sats_[j], times_[j], states_[j], relativistic_[j]);
        benchmark::ClobberMemory();
    }
    void In_A_Batch()
    {
        comorb_batch(table_.data(), sats_.data(), times_.data(), satellites, states_, relativistic_);
        benchmark::ClobberMemory();
    }
    void With_Range()
    {
        const double receiver[3] = {-3607665.5, 4147867.9, 3223716.9};
        double range[2];
        for (std::size_t j = 0; j < satellites; ++j) {
            compra_t(table_.data(), sats_[j], times_[j], receiver, states_[j], range, relativistic_[j]);
            benchmark::DoNotOptimize(range);
        }
        benchmark::ClobberMemory();
    }

private:
    struct Arguments {
        double M, e, y, x, phi, u, i, Omega;
    };
    double Uniform(double low, double high) { return std::uniform_real_distribution<double>(low, high)(engine_); }

    std::mt19937 engine_{1};
    std::vector<KeplerData> table_;
    std::vector<int> sats_;
    std::vector<double> times_;
    std::vector<Arguments> calls_;
    double states_[satellites][7], relativistic_[satellites];
};

void Compare(benchmark::State &state, void (Sky::*unit)(), double limit)
{
    const auto sky = std::make_unique<Sky>();
    bench::Contest contest;
    for (auto _ : state) state.SetIterationTime(contest.Turn([&] { (*sky.*unit)(); }, [&] { sky->By_Library(); }));
    contest.Show(state, limit, satellites);
}
BENCHMARK_CAPTURE(Compare, comorb, &Sky::One_By_One, 0.8)->UseManualTime();
BENCHMARK_CAPTURE(Compare, comorb_batch, &Sky::In_A_Batch, 0.8)->UseManualTime();
BENCHMARK_CAPTURE(Compare, compra_t, &Sky::With_Range, 1.0)->UseManualTime();

}  // namespace
