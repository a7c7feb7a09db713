// A recording through the shortest chain (File_Server, File_Client) against a bare loop of read(2) and write(2), 4096
// bytes at a time; cat stands beside it. KERNEL_BENCH_MIB: the size of the recording (default 1024). Files go to
// $TMPDIR.
#include "bench/contest.h"
#include "kernel/files/file_client.h"
#include "kernel/files/file_server.h"

#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr std::size_t block_size = 4096;
constexpr std::size_t slice_size = 8 << 20;  // bytes per turn
constexpr double mib = 1 << 20;

std::size_t Slices()
{
    const char *text = std::getenv("KERNEL_BENCH_MIB");
    const std::size_t size = (text ? std::strtoul(text, nullptr, 10) : 1024) << 20;
    return size < slice_size ? 1 : size / slice_size;
}

// A folder of its own, with a recording in it; gone at the end.
class Folder {
public:
    explicit Folder(std::size_t slices)
    {
        std::string path = (fs::temp_directory_path() / "kernel_bench.XXXXXX").string();
        if (!mkdtemp(path.data())) std::abort();
        path_ = path;
        std::string slice(slice_size, '\0');
        std::uint32_t state = 1;
        for (char &byte : slice) byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
        std::ofstream recording(Name("recording"), std::ios::binary);
        for (std::size_t i = 0; i < slices; ++i) recording.write(slice.data(), slice_size);
        if (!recording.flush()) std::abort();
    }
    ~Folder() { fs::remove_all(path_); }
    std::string Name(const char *file) const { return (path_ / file).string(); }

private:
    fs::path path_;
};

class Bare_Loop {
public:
    Bare_Loop(const std::string &in, const std::string &out)
        : in_(open(in.c_str(), O_RDONLY)), out_(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666))
    {
    }
    ~Bare_Loop()
    {
        close(in_);
        close(out_);
    }
    void Move(std::size_t n)
    {
        unsigned char block[block_size];
        for (; n > 0; n -= block_size) {
            if (read(in_, block, block_size) != block_size || write(out_, block, block_size) != block_size)
                std::abort();
        }
    }

private:
    const int in_, out_;
};

double Cat(const std::string &in, const std::string &out)
{
    const std::string command = "cat '" + in + "' > '" + out + "'";
    return bench::Seconds([&] {
        if (std::system(command.c_str()) != 0) std::abort();
    });
}

// Both go through the recording side by side, slice by slice, so that they find the same caches and the same disk.
void Chain_Against_Bare_Loop(benchmark::State &state)
{
    const Folder folder(Slices());
    Bare_Loop bare(folder.Name("recording"), folder.Name("bare"));
    const std::unique_ptr<kernel::File_Server, void (*)(kernel::File_Server *)> server(
        kernel::File_Server::Construct("replay", false), kernel::File_Server::Destruct);
    if (!server->Connect(kernel::File_Client::Construct(folder.Name("chain").c_str())) ||
        !server->Create(folder.Name("recording").c_str(), 0)) {
        state.SkipWithError("no chain");
        return;
    }

    bench::Contest contest;
    for (auto _ : state) {
        state.SetIterationTime(contest.Turn([&] { server->Work(slice_size); }, [&] { bare.Move(slice_size); }));
    }
    const std::uintmax_t size = fs::file_size(folder.Name("recording"));
    if (!fs::exists(folder.Name("chain")) || fs::file_size(folder.Name("chain")) != size) {
        state.SkipWithError("bytes were lost");
        return;
    }
    contest.Show(state, 1 / 0.95, slice_size / block_size);
    state.counters["chain_MiB/s"] = slice_size / mib / contest.Unit();
    state.counters["bare_MiB/s"] = slice_size / mib / contest.Peer();
    fs::remove(folder.Name("chain"));
    fs::remove(folder.Name("bare"));
    state.counters["cat_MiB/s"] = static_cast<double>(size) / mib / Cat(folder.Name("recording"), folder.Name("cat"));
}
BENCHMARK(Chain_Against_Bare_Loop)->UseManualTime()->Iterations(static_cast<benchmark::IterationCount>(Slices()));

}  // namespace
