// A ring as its bytes say, for tests that look behind its interface.
#pragma once

#include "kernel/memory/Ring.h"

#include <string>
#include <vector>

using Ring_Owner = std::unique_ptr<kernel::Ring, void (*)(kernel::Ring *)>;
inline Ring_Owner Opened(kernel::Ring *ring)
{
    return {ring, [](kernel::Ring *old) { kernel::Ring::Delete(old); }};
}

inline kernel::Ring_Header &Header_Of(const kernel::Ring &ring)
{
    return *static_cast<kernel::Ring_Header *>(ring.get_ptr(0));
}
inline kernel::REFDATA *Records_Of(const kernel::Ring &ring)
{
    return static_cast<kernel::REFDATA *>(ring.get_ptr(sizeof(kernel::Ring_Header)));
}

// What is wrong in the accounts of slots and blocks; empty when all is well. `unpublished`: records that are being
// written.
inline std::string Faults_Of(const kernel::Ring &ring, std::uint32_t unpublished = 0)
{
    const kernel::Ring_Header &header = Header_Of(ring);
    const std::uint32_t held = (header.head + header.slots - header.tail) % header.slots + 1 + unpublished;
    std::vector<bool> used(header.pool_size);
    std::uint32_t owned = 0;
    std::string faults =
        header.count == held ? "" : "count " + std::to_string(header.count) + " of " + std::to_string(held);
    for (std::uint32_t i = 0; i < held; ++i) {
        const kernel::REFDATA &record = Records_Of(ring)[(header.tail + i) % header.slots];
        const auto blocks = static_cast<std::uint32_t>(kernel::Ring::get_block_count(&record));
        owned += blocks > 0 ? blocks + record.skipped : 0;
        for (std::uint32_t block = 0; block < blocks; ++block) {
            const std::uint32_t at = record.first_block + block;
            if (at >= header.pool_size || used[at]) return "block " + std::to_string(at) + " twice or beyond the pool";
            used[at] = true;
        }
    }
    if (header.free_blocks + owned != header.pool_size)
        faults += " free " + std::to_string(header.free_blocks) + " owned " + std::to_string(owned);
    return faults;
}

// Publishes an epoch whose every value follows from its time.
inline bool Publish(kernel::Ring &ring, double at, int blocks)
{
    kernel::REFDATA *const record = ring.ins_meas(at, blocks);
    if (!record) return false;
    const double time = record->time;  // of an epoch that is filled again: as before
    record->clk_error = record->spp_error = time;
    if (kernel::MEASBLOCK *const first = ring.get_blocks(record))
        for (int i = 0; i < kernel::Ring::get_block_count(record); ++i) {
            first[i].number = static_cast<std::uint8_t>(i + 1);
            first[i].code = {time, time + i, time};
            first[i].range_rate = time;
        }
    ring.ins_done_meas(record);
    return true;
}

// Whether a copy is an epoch as Publish makes it.
inline bool Is_Whole(const kernel::Ring_Epoch &epoch)
{
    const double time = epoch.record.time;
    if (time <= 0 || epoch.record.clk_error != time || epoch.record.spp_error != time) return false;
    for (int i = 0; i < epoch.count; ++i) {
        const kernel::MEASBLOCK &block = epoch.blocks[static_cast<std::size_t>(i)];
        if (block.number != i + 1 || block.code[0] != time || block.code[1] != time + i || block.range_rate != time)
            return false;
    }
    return true;
}
