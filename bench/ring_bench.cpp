// Publishing an epoch of 2,280 bytes (a record and 12 blocks) against the zeroing and copying alone, done by hand in
// the same segment.
#include "bench/contest.h"
#include "host/station/Station_Segment.h"
#include "kernel/memory/Ring.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

namespace {

constexpr int steps = 2000;  // per turn
constexpr int blocks = 12;
constexpr std::uint32_t slots = 3600;

struct Epoch {
    kernel::REFDATA record;
    kernel::MEASBLOCK block[blocks];
};
static_assert(sizeof(kernel::REFDATA) + sizeof(Epoch::block) == 2280);

class Publishing {
public:
    explicit Publishing(int ring) : segment_(Made(ring)), ring_(kernel::Ring::Create(17, ring))
    {
        for (int i = 0; i < blocks; ++i) epoch_.block[i].number = static_cast<std::uint8_t>(i + 1);
    }
    ~Publishing() { kernel::Ring::Delete(ring_); }
    bool Is_Ready() const { return ring_ != nullptr; }

    void Through_Ring()
    {
        for (int i = 0; i < steps; ++i) {
            kernel::REFDATA *const record = ring_->ins_meas(time_ += 1, blocks);
            record->ant = epoch_.record.ant;
            std::memcpy(&record->spp, &epoch_.record.spp, sizeof epoch_.record - offsetof(kernel::REFDATA, spp) - 8);
            std::memcpy(ring_->get_blocks(record), epoch_.block, sizeof epoch_.block);
            ring_->ins_done_meas(record);
        }
    }
    // What the ring is described to do with memory: the evicted record and its blocks are zeroed, then the new ones,
    // then they are filled.
    void By_Hand()
    {
        auto *const record = static_cast<kernel::REFDATA *>(ring_->get_ptr(sizeof(kernel::Ring_Header)));
        auto *const pool = reinterpret_cast<kernel::MEASBLOCK *>(record + slots);
        for (int i = 0; i < steps; ++i, slot_ = (slot_ + 1) % slots) {
            for (int zeroed = 0; zeroed < 2; ++zeroed) {
                std::memset(static_cast<void *>(pool + slot_ * blocks), 0, sizeof epoch_.block);
                std::memset(static_cast<void *>(record + slot_), 0, sizeof epoch_.record);
                benchmark::ClobberMemory();
            }
            std::memcpy(record + slot_, &epoch_.record, sizeof epoch_.record);
            std::memcpy(pool + slot_ * blocks, epoch_.block, sizeof epoch_.block);
            std::atomic_ref(head_).store(slot_, std::memory_order_release);
        }
    }

private:
    static std::unique_ptr<host::Station_Segment> Made(int ring)
    {
        std::string error;
        host::Station_Segment::Options options;
        options.slots = slots;
        options.pool_size = slots * blocks;
        return host::Station_Segment::Create_Monitor(17, ring, options, error);
    }

    const std::unique_ptr<host::Station_Segment> segment_;
    kernel::Ring *ring_;
    Epoch epoch_{};
    double time_ = 1000;
    std::uint32_t slot_ = 0;
    std::uint32_t head_ = 0;
};

// The peer writes over slots of a ring, so it has one of its own.
void Publishing_Epochs(benchmark::State &state)
{
    Publishing unit(6), peer(7);
    if (!unit.Is_Ready() || !peer.Is_Ready()) return state.SkipWithError("no segment");
    bench::Contest contest;
    for (auto _ : state) state.SetIterationTime(contest.Turn([&] { unit.Through_Ring(); }, [&] { peer.By_Hand(); }));
    contest.Show(state, 1.3, steps);
}
BENCHMARK(Publishing_Epochs)->UseManualTime()->Iterations(201);

}  // namespace
