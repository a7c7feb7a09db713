// The ring in memory: a block through it against bare copies, a byte from it against a bare virtual call,
// and the dialogue with a client against locked calls.
#include "bench/bare_call.h"
#include "bench/contest.h"
#include "kernel/base/Error_Handler.h"
#include "kernel/bytes/String_Byte_Server.h"

#include <cstring>
#include <future>
#include <memory>
#include <vector>

namespace {

using kernel::String_Byte_Server;

constexpr std::size_t ring_size = 65536;
constexpr std::size_t block_size = 4096;
constexpr int steps = 256;  // per turn

struct Destructor {
    void operator()(String_Byte_Server *server) const { String_Byte_Server::Destruct(server); }
};

// A size that the compiler does not know, as in the ring.
std::size_t Hidden(std::size_t n)
{
    benchmark::DoNotOptimize(n);
    return n;
}

class Blocks {
public:
    // Put and get; with `rewind` as the dialogue with a client does it, which asks for what is there before each block.
    void Through_Ring(bool rewind)
    {
        for (int i = 0; i < steps; ++i) {
            if (rewind) benchmark::DoNotOptimize(server_->MinAvail(0));
            server_->PutBin(in_.data(), static_cast<unsigned int>(size_));
            server_->GetNBytes(out_.data(), static_cast<long>(size_));
            benchmark::ClobberMemory();
        }
    }
    // Two copies, by way of a buffer that is walked through in a circle; as small as a block, it stays where it is.
    void By_Memcpy(std::size_t buffer_size)
    {
        std::size_t at = 0;
        for (int i = 0; i < steps; ++i) {
            std::memcpy(&buffer_[at], in_.data(), size_);
            benchmark::ClobberMemory();
            std::memcpy(out_.data(), &buffer_[at], size_);
            benchmark::ClobberMemory();
            at = (at + size_) % buffer_size;
        }
    }

private:
    const std::size_t size_ = Hidden(block_size);
    std::vector<unsigned char> in_ = std::vector<unsigned char>(block_size, 0x55), out_ = in_;
    std::vector<unsigned char> buffer_ = std::vector<unsigned char>(ring_size);
    std::unique_ptr<String_Byte_Server, Destructor> server_{
        String_Byte_Server::Construct(ring_size, &kernel::Trace_Handler)};
};

void Compare_Blocks(benchmark::State &state, bool rewind, std::size_t buffer_size)
{
    Blocks blocks;
    bench::Contest contest;
    for (auto _ : state)
        state.SetIterationTime(
            contest.Turn([&] { blocks.Through_Ring(rewind); }, [&] { blocks.By_Memcpy(buffer_size); }));
    contest.Show(state, 1.15, steps);
}
BENCHMARK_CAPTURE(Compare_Blocks, walking_against_64_KiB, false, ring_size)->UseManualTime();
BENCHMARK_CAPTURE(Compare_Blocks, walking_against_4_KiB, false, block_size)->UseManualTime();
BENCHMARK_CAPTURE(Compare_Blocks, rewound_against_4_KiB, true, block_size)->UseManualTime();

// All bytes of a full ring; filling it again is not timed.
void Compare_Bytes(benchmark::State &state, std::unique_ptr<bench::Byte_Source> (*make_peer)())
{
    const std::unique_ptr<String_Byte_Server, Destructor> ring(
        String_Byte_Server::Construct(ring_size, &kernel::Trace_Handler));
    kernel::Byte_Server *server = ring.get();
    benchmark::DoNotOptimize(server);
    const auto peer = make_peer();
    const std::vector<unsigned char> bytes(ring_size - 1, 0x55);
    unsigned int sum = 0;
    const auto read_all = [&](auto &source) {
        for (std::size_t i = 0; i < bytes.size(); ++i) sum += source.GetByte();
        benchmark::DoNotOptimize(sum);
    };

    bench::Contest contest;
    for (auto _ : state) {
        ring->PutBin(bytes.data(), static_cast<unsigned int>(bytes.size()));
        state.SetIterationTime(contest.Turn([&] { read_all(*server); }, [&] { read_all(*peer); }));
        if (ring->MinAvail(0) != 0) state.SkipWithError("bytes were left");
    }
    contest.Show(state, 1.5, static_cast<double>(bytes.size()));
}
BENCHMARK_CAPTURE(Compare_Bytes, against_constant, bench::Make_Constant_Source)->UseManualTime();
BENCHMARK_CAPTURE(Compare_Bytes, against_counting, bench::Make_Counting_Source)->UseManualTime();

// A round of the dialogue: put a piece, invite, let pull. Two messages, against two virtual calls that each hold a
// lock.
class Locked_Source {
public:
    unsigned short GetByte()
    {
        const kernel::Semaphore_Guard guard(lock_);
        return source_->GetByte();
    }

private:
    kernel::Semaphore lock_;
    std::unique_ptr<bench::Byte_Source> source_ = bench::Make_Constant_Source();
};

void Compare_Dialogue(benchmark::State &state)
{
    const std::unique_ptr<String_Byte_Server, Destructor> server(
        String_Byte_Server::Construct(ring_size, &kernel::Trace_Handler));
    auto *client = kernel::Byte_Client_NULL::Construct(16);
    if (!server->Connect(client)) state.SkipWithError("not connected");
    Locked_Source peer;
    // With a second thread, because the C library's locks cost nothing in a process of one thread.
    std::promise<void> end;
    const auto second_thread = std::async(std::launch::async, [&] { end.get_future().wait(); });
    const unsigned char piece[16] = {};
    unsigned int sum = 0;
    bench::Contest contest;
    for (auto _ : state) {
        const auto through_server = [&] {
            for (int i = 0; i < steps; ++i) {
                server->PutBin(piece, sizeof piece);
                server->Work();
            }
        };
        const auto locked_calls = [&] {
            for (int i = 0; i < 2 * steps; ++i) sum += peer.GetByte();
            benchmark::DoNotOptimize(sum);
        };
        state.SetIterationTime(contest.Turn(through_server, locked_calls));
        if (server->MinAvail(0) != 0) state.SkipWithError("bytes were left");
    }
    end.set_value();
    contest.Show(state, 5, steps);
}
BENCHMARK(Compare_Dialogue)->UseManualTime();

}  // namespace
