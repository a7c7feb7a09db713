// A replay by time tags: how late each block comes. The limit of 5 ms at the 99th percentile is meant for an idle
// machine. KERNEL_BENCH_SECONDS: the length of the recording (default 3). Files go to $TMPDIR.
#include "bench/contest.h"
#include "host/gnss_stream/Tagged_Replay.h"
#include "kernel/files/file_timetag_client.h"
#include "kernel/files/timetag_row_internal.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace kernel;
using Clock = std::chrono::steady_clock;

// When each byte count came.
class Watch : public Byte_Client {
public:
    Watch() : Object("watch") { Dont_Delete_Me(); }
    bool Send(Byte_Server &server, CL_Mesg message) override
    {
        if (message == Mesg_Request_Invite) return server.Request(1), true;
        if (message != Mesg_Data_Ready) return Byte_Client::Send(server, message);
        unsigned char block[4096];
        bytes_ += static_cast<std::uint64_t>(Bytes_Moved(server.GetNBytes(block, sizeof block), sizeof block));
        came.emplace_back(bytes_, Clock::now());
        return true;
    }
    std::vector<std::pair<std::uint64_t, Clock::time_point>> came;

private:
    std::uint64_t bytes_ = 0;
};

// A recording whose blocks came every 2 to 40 ms by its own clock, and its tags.
struct Recording {
    explicit Recording(double speed)
        : data((fs::temp_directory_path() / ("gnss_kernel_bench." + std::to_string(std::random_device{}()))).string() +
               ".bin"),
          tags(File_TimeTag_Client::Tag_File_Name(data.c_str()))
    {
        const char *text = std::getenv("KERNEL_BENCH_SECONDS");
        const double seconds = speed * (text ? std::strtod(text, nullptr) : 3);
        std::ofstream bytes(data, std::ios::binary), rows(tags, std::ios::binary);
        std::mt19937 random(20121014);
        const auto dice = [&](unsigned int n) { return static_cast<std::uint32_t>(random() % n); };
        std::int64_t end = 0;
        for (double time = 0; time < seconds; time += speed * (2 + dice(39)) / 1000) {
            const std::uint32_t length = 1 + dice(3000);
            char row[timetag_row_size];
            bytes << std::string(length, 'x');
            rows.write(row, static_cast<std::streamsize>(Format_Timetag_Row(row, 1e9 + time, end += length, length)));
            due.push_back(time / speed);
        }
    }
    ~Recording()
    {
        std::error_code ignored;
        fs::remove(data, ignored);
        fs::remove(tags, ignored);
    }
    const std::string data, tags;
    std::vector<double> due;  // [s] since the first
};

// Argument: the speed.
void Lateness(benchmark::State &state)
{
    const auto speed = static_cast<double>(state.range(0));
    std::vector<double> late_ms;
    for (auto _ : state) {
        const Recording recording(speed);
        NULL_Error_Handler handler;
        Watch watch;
        const std::unique_ptr<File_Server> server(File_Server::Construct(nullptr, false));
        server->Set_Error_Handler(handler);
        host::Tagged_Replay replay(*server, {speed, 0}, handler);
        if (!server->Create(recording.data.c_str(), 0) || !server->Connect(&watch) || !replay.Open(recording.data))
            return state.SkipWithError("no replay");
        const auto begin = Clock::now();
        state.SetIterationTime(bench::Seconds([&] { replay.Run(); }));
        if (watch.came.size() != recording.due.size()) return state.SkipWithError("blocks are missing");
        for (std::size_t i = 0; i < recording.due.size(); ++i) {
            const std::chrono::duration<double> after = watch.came[i].second - begin;
            late_ms.push_back((after.count() - recording.due[i]) * 1000);
        }
    }
    std::sort(late_ms.begin(), late_ms.end());
    state.counters["blocks"] = static_cast<double>(late_ms.size());
    state.counters["early_ms"] = -std::min(0.0, late_ms.front());
    state.counters["median_ms"] = late_ms[late_ms.size() / 2];
    state.counters["p99_ms"] = late_ms[late_ms.size() * 99 / 100];
    state.counters["most_ms"] = late_ms.back();
    state.counters["limit"] = 5;
}
BENCHMARK(Lateness)->Arg(1)->Arg(10)->Iterations(1)->UseManualTime();

}  // namespace
