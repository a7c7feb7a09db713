// From the bytes of a recording to its messages and epochs.
//
// KERNEL_BENCH_RTCM3: the recording; without it the one among the test data, a small one.
// KERNEL_BENCH_RTCM3_MINUTES: a table of what a legacy recording holds in each minute, to be checked:
// minute, first second of week, epochs, then for GPS L1, GPS L2, GLONASS L1 and GLONASS L2 the number of pseudoranges
// and their sum in units of 2 mm.
#include "host/decoders/Rtcm3_Epoch.h"
#include "host/decoders/Rtcm3_Scanner.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace host;

const std::vector<unsigned char> &Recording()
{
    static const std::vector<unsigned char> bytes = [] {
        const char *name = std::getenv("KERNEL_BENCH_RTCM3");
        std::ifstream file(name ? name : KERNEL_TEST_DATA "/GMSD7_20121014.rtcm3", std::ios::binary);
        return std::vector<unsigned char>{std::istreambuf_iterator<char>(file), {}};
    }();
    return bytes;
}

// How far down the chain the bytes go.
enum class Stage { frames, messages, epochs };

struct Result {
    std::uint64_t frames = 0, messages = 0, epochs = 0, cells = 0;
};

template <class Sink>
Result Decode_All(Stage stage, Sink sink)
{
    Result result;
    Rtcm3_Options options;
    options.beidou_in_gps_time = true;
    Rtcm3_Epoch_Assembler assembler(
        [&](const Rtcm3_Epoch &epoch) {
            ++result.epochs;
            result.cells += epoch.cells.size();
            sink(epoch);
        },
        options);
    Rtcm3_Message_Decoder decoder;
    Rtcm3_Scanner scanner([&](const Rtcm3_Frame &frame) {
        ++result.frames;
        if (stage == Stage::frames) return;
        const Rtcm3_Message *message = decoder.Decode(frame.payload());
        if (message && stage == Stage::epochs) assembler.Take(*message);
    });
    scanner.Feed(Recording());
    scanner.Finish();
    assembler.Finish();
    result.messages = decoder.Count(Rtcm3_Fault::none);
    return result;
}

void Decode(benchmark::State &state, Stage stage)
{
    Result result;
    for (auto _ : state) result = Decode_All(stage, [](const Rtcm3_Epoch &epoch) { benchmark::DoNotOptimize(&epoch); });
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * Recording().size()));
    state.counters["frames"] = static_cast<double>(result.frames);
    state.counters["messages"] = static_cast<double>(result.messages);
    state.counters["epochs"] = static_cast<double>(result.epochs);
    state.counters["cells"] = static_cast<double>(result.cells);
    if (result.frames == 0) state.SkipWithError("no frames in the recording");
}
BENCHMARK_CAPTURE(Decode, frames, Stage::frames)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Decode, messages, Stage::messages)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Decode, epochs, Stage::epochs)->Unit(benchmark::kMillisecond);

// The columns of the table from the epochs on.
using Minute = std::array<std::int64_t, 9>;

std::map<std::int64_t, Minute> Table(const char *name)
{
    std::map<std::int64_t, Minute> minutes;
    std::ifstream file(name);
    std::string line;
    std::getline(file, line);
    while (std::getline(file, line)) {
        std::replace(line.begin(), line.end(), ',', ' ');
        std::istringstream fields(line);
        std::int64_t minute = 0, second = 0;
        fields >> minute >> second;
        for (std::int64_t &value : minutes[second / 60]) fields >> value;
    }
    return minutes;
}

std::map<std::int64_t, Minute> Sums()
{
    std::map<std::int64_t, Minute> minutes;
    Decode_All(Stage::epochs, [&](const Rtcm3_Epoch &epoch) {
        Minute &minute = minutes[epoch.tow / 60'000];
        ++minute[0];
        for (const Rtcm3_Cell &cell : epoch.cells) {
            if (!Has_Value(cell.pseudorange)) continue;
            const bool glonass = epoch.satellites[cell.satellite].gnss == Gnss::glonass;
            const std::size_t column = (glonass ? 5u : 1u) + (cell.code.band == '2' ? 2u : 0u);
            ++minute[column];
            minute[column + 1] += std::llround(cell.pseudorange / 0.002);
        }
    });
    return minutes;
}

// Minutes that the table does not have are behind its end.
void Check_Minutes(benchmark::State &state)
{
    const char *name = std::getenv("KERNEL_BENCH_RTCM3_MINUTES");
    std::size_t agreeing = 0;
    std::size_t minutes = 0;
    for (auto _ : state) {
        if (!name) continue;
        const auto table = Table(name);
        const auto sums = Sums();
        minutes = table.size();
        agreeing = static_cast<std::size_t>(std::count_if(table.begin(), table.end(), [&](const auto &row) {
            const auto found = sums.find(row.first);
            return found != sums.end() && found->second == row.second;
        }));
    }
    state.counters["minutes"] = static_cast<double>(minutes);
    state.counters["agreeing"] = static_cast<double>(agreeing);
    if (name && (minutes == 0 || agreeing != minutes)) state.SkipWithError("sums that are not the table's");
}
BENCHMARK(Check_Minutes)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
