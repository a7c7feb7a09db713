// One stream for many clients: the connector against the same rings fed by hand.
#include "bench/contest.h"
#include "kernel/base/Error_Handler.h"
#include "kernel/bytes/Byte_T_Connector.h"

#include <memory>
#include <random>
#include <vector>

namespace {

using namespace kernel;

constexpr unsigned int ring_size = 4096;
constexpr long block_size = 2000;

// Pulls all there is, in one block.
class Drain : public Byte_Client {
public:
    Drain() : Object("drain") { Dont_Delete_Me(); }
    bool Send(Byte_Server &server, CL_Mesg message) override
    {
        if (message == Mesg_Request_Invite) return server.Request(1), true;
        if (message != Mesg_Data_Ready) return Byte_Client::Send(server, message);
        const long got = server.GetNBytes(block_, block_size);
        benchmark::DoNotOptimize(block_[0]);
        pulled_ += got;
        return got > 0;
    }
    long long Pulled() const { return pulled_; }

private:
    unsigned char block_[block_size];
    long long pulled_ = 0;
};

using Ring = std::unique_ptr<String_Byte_Server>;

Ring Make_Ring(unsigned int size)
{
    return Ring(String_Byte_Server::Construct(static_cast<long>(size), &Trace_Handler));
}

// Both sides: n clients each, that of the connector and that of the rings which are fed by hand. Each block comes from
// a ring, as it does to a connector.
class Sides {
public:
    explicit Sides(std::size_t n) : clients_(n), peers_(n)
    {
        for (std::size_t i = 0; i < n; ++i) {
            connector_->Connect(&clients_[i]);
            rings_.push_back(Make_Ring(ring_size));
            rings_.back()->Connect(&peers_[i]);
        }
    }
    void By_Connector(int steps)
    {
        for (int i = 0; i < steps; ++i) {
            source_->PutBin(bytes_.data(), static_cast<unsigned int>(block_size));
            connector_->Send(*source_, Mesg_Data_Ready);
        }
    }
    void By_Hand(int steps)
    {
        for (int i = 0; i < steps; ++i) {
            source_->PutBin(bytes_.data(), static_cast<unsigned int>(block_size));
            unsigned char block[block_size];
            const auto got = static_cast<unsigned int>(source_->GetNBytes(block, block_size));
            for (const Ring &ring : rings_) {
                ring->PutBin(block, got);
                ring->Work();
            }
        }
    }
    bool Agree() const
    {
        for (std::size_t i = 0; i < clients_.size(); ++i)
            if (clients_[i].Pulled() == 0 || clients_[i].Pulled() != peers_[i].Pulled()) return false;
        return true;
    }

private:
    const std::vector<unsigned char> bytes_ = std::vector<unsigned char>(block_size, 0x55);
    std::vector<Drain> clients_, peers_;
    const Ring source_ = Make_Ring(ring_size);
    const std::unique_ptr<Byte_T_Connector> connector_{Byte_T_Connector::Construct(ring_size)};
    std::vector<Ring> rings_;
};

// Argument: additional clients. Each turn has new objects: where the allocator puts them, and what they then share in
// the caches, changes a turn by a quarter and more.
void Compare(benchmark::State &state)
{
    const auto n = static_cast<std::size_t>(state.range(0)) + 1;
    const int steps = static_cast<int>(4000 / n);
    std::mt19937 random(20121014);
    std::vector<std::vector<char>> paddings(64);
    bench::Contest contest;
    for (auto _ : state) {
        paddings[random() % paddings.size()] = std::vector<char>(random() % 8192);
        Sides sides(n);
        sides.By_Connector(steps / 8), sides.By_Hand(steps / 8);
        state.SetIterationTime(contest.Turn([&] { sides.By_Connector(steps); }, [&] { sides.By_Hand(steps); }));
        if (!sides.Agree()) state.SkipWithError("bytes were lost");
    }
    contest.Show(state, 1.1, steps);
}
BENCHMARK(Compare)->Arg(1)->Arg(10)->Arg(100)->UseManualTime();

}  // namespace
