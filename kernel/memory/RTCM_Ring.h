// A ring of eight RTCM epochs in shared memory, with a message to all windows for each.
#pragma once

#include "kernel/memory/sharemem.h"
#include "kernel/records/Records.h"

#include <cstdint>

namespace kernel {

// An open ring; it never makes the segment (see Ring). The segment's data, little-endian:
//
//   offset      bytes
//        0          4  not used
//        4          4  head: 0 to 7, the newest published slot
//   8 + 2380 i   2380  slot i, an rtcm_epo_data; a zeroed one has time 0
//
// Threads:   one process and thread writes, any others read. The head is published with release order. A slot is filled
//            again after eight epochs, or at once for the same epoch: a reader compares the time after copying.
// Ownership: as sharemem. Pointers point into the segment.
// Errors:    none reported: null. A segment that is too small is not opened.
class KERNEL_API RTCM_Ring : public sharemem {
public:
    static constexpr int Rings = 4, Slots = 8;
    static constexpr unsigned long Size = 8 + Slots * sizeof(rtcm_epo_data);  // [bytes] of data
    static constexpr int global_message = 27003, message_published = 8;       // wParam; lParam is the ring's number
    static constexpr double Same_Epoch = 0.01, Near_Epoch = 0.21;             // [s]

    static RTCM_Ring *Create(int ring);  // 0..3; null when there is none to open
    static void Delete(RTCM_Ring *&ring);
    static const char *Get_Name(int ring);  // "RTCM_0".."RTCM_3", or null

    int valid() const { return slots_ && sharemem::valid(); }
    int get_ring() const { return ring_; }
    rtcm_epo_data *get_head() const;
    // The first slot within 0.01 s of the time, otherwise the first within 0.21 s, otherwise null.
    rtcm_epo_data *get_epo(double time) const;
    // The slot to fill: the one within 0.01 s of the time as it is, otherwise the one behind the head, zeroed, with
    // time and value set.
    rtcm_epo_data *ins_epo(double time, int value);
    // Moves the head one slot on and tells all windows. Sleeps for 1 ms. Do not call it when ins_epo gave a slot that
    // was published before: the head would go to an old epoch.
    void ins_done();

private:
    explicit RTCM_Ring(int ring);
    rtcm_epo_data *Near(double time, double tolerance) const;
    std::uint32_t Head() const;

    const int ring_;
    rtcm_epo_data *slots_ = nullptr;
    std::uint32_t *head_ = nullptr;
};

}  // namespace kernel
