// Images of a ring's segment, as another program may leave them: reading, searching and writing stay inside of them.
#include "kernel/memory/Ring.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>

namespace {

constexpr unsigned long segment_size = 60000;  // [bytes], enough for 40 slots and 200 blocks

double Time_In(const kernel::REFDATA *record) { return record ? record->time : 1000; }

void Read_All(kernel::Ring &ring)
{
    kernel::Ring_Epoch epoch;
    int left = 100;  // a walk may go round
    for (kernel::REFDATA *record = ring.get_tail(); record && left-- > 0; record = ring.walk_succ(record)) {
        ring.Copy_Epoch(record, epoch);
        for (const kernel::DATA_TYPE type : {kernel::DATA_GPS, kernel::DATA_ALL})
            if (const kernel::MEASBLOCK *block = ring.get_meas_index(record, 30, type)) epoch.blocks[0] = *block;
        ring.get_meas_sat(record, 5);
    }
    for (const kernel::REFDATA *record : {ring.find_head(), ring.find_tail(), ring.Record_At(20)})
        for (const double step : {-1.0, 0.0, 0.5}) {
            const double time = Time_In(record) + step;
            for (const kernel::REFDATA *found :
                 {ring.find_greater(time), ring.find_less(time), ring.find_equal(time, 0.7)})
                ring.Copy_Epoch(found, epoch);
        }
    ring.get_n();
    ring.get_minn();
}

void Write_Some(kernel::Ring &ring)
{
    for (int i = 1; i <= 50; ++i) {
        kernel::REFDATA *const record = ring.ins_meas(Time_In(ring.find_head()) + i, i % 26);
        if (!record) continue;
        if (kernel::MEASBLOCK *const blocks = ring.get_blocks(record))
            std::fill_n(blocks, kernel::Ring::get_block_count(record), kernel::MEASBLOCK{});
        ring.ins_done_meas(record);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const int station = static_cast<int>(std::random_device{}() % 2047);  // other processes have others
    const std::string name = kernel::Ring::Get_Monitor_Ring_Name(station, 5);
    kernel::sharemem segment(name.c_str(), segment_size, kernel::sharemem::flag_create);
    if (!segment.valid() || size > segment_size) return 0;
    std::memcpy(segment.get_ptr(0), data, size);
    for (const auto action : {Read_All, Write_Some, Read_All})
        if (kernel::Ring *ring = kernel::Ring::Create(station, 5)) {
            action(*ring);
            kernel::Ring::Delete(ring);
        }
    return 0;
}
