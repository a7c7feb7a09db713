// Numbered texts: CST against a std::map's find, and the loading of a large file.
#include "bench/contest.h"
#include "kernel/services/resource_strings.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int entries = 100000;
constexpr std::size_t steps = 100000;  // per turn

std::string Text_Of(int number) { return "text " + std::to_string(number); }

// The table holds the entries as long as this lives.
class Loaded_Table {
public:
    Loaded_Table()
        : path_(std::filesystem::temp_directory_path() / ("resource_bench_" + std::to_string(std::random_device()())))
    {
        std::ofstream file(path_);
        file << "bench texts {\n";
        for (int i = 0; i < entries; ++i) file << 10 * i << ", \"" << Text_Of(10 * i) << "\";\n";
        file.close();
        CSTFREE();
        seconds_ = bench::Seconds([this] { CSTINIT(path_.string().c_str(), nullptr); });
    }
    ~Loaded_Table()
    {
        CSTFREE();
        std::filesystem::remove(path_);
    }
    Loaded_Table(const Loaded_Table &) = delete;
    Loaded_Table &operator=(const Loaded_Table &) = delete;

    double Seconds() const { return seconds_; }  // of loading

private:
    const std::filesystem::path path_;
    double seconds_ = 0;
};

void Find_Texts(benchmark::State &state)
{
    const Loaded_Table table;
    std::map<int, std::string> peer;
    for (int i = 0; i < entries; ++i) peer[10 * i] = Text_Of(10 * i);
    std::mt19937 random(20261122);
    std::uniform_int_distribution<int> number(0, entries - 1);
    std::vector<int> asked;
    for (std::size_t i = 0; i < steps; ++i) asked.push_back(10 * number(random));

    std::size_t unit_sum = 0, peer_sum = 0;
    bench::Contest contest;
    for (auto _ : state) {
        state.SetIterationTime(contest.Turn(
            [&] {
                for (const int n : asked) unit_sum += static_cast<unsigned char>(CST(n)[5]);
            },
            [&] {
                for (const int n : asked) peer_sum += static_cast<unsigned char>(peer.find(n)->second.c_str()[5]);
            }));
    }
    if (unit_sum != peer_sum) state.SkipWithError("the texts differ");
    contest.Show(state, 1.2, steps);
}
BENCHMARK(Find_Texts)->UseManualTime();

void Load_Texts(benchmark::State &state)
{
    for (auto _ : state) state.SetIterationTime(Loaded_Table().Seconds());
    state.counters["limit_ms"] = 100;
}
BENCHMARK(Load_Texts)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
