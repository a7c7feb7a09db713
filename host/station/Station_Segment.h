// The segments of a station: a ring of epochs, or a ring of RTCM epochs. Rings are opened by kernel::Ring and
// kernel::RTCM_Ring; somebody has to make their segments, and that is this unit.
#pragma once

#include "kernel/memory/Ring_Layout.h"
#include "kernel/memory/sharemem.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace host {

// Holds a segment that has its layout. Two programs may hold the same one; the first lays it out.
//
// Threads:   one.
// Ownership: the segment exists while this object, or any other holder in any process, exists.
// Errors:    null with `error` set to a sentence for people: sizes that cannot be, no room in the system, or an
//            existing segment of this name that is laid out in another way.
class Station_Segment {
public:
    struct Options {
        std::uint32_t slots = 3600;            // 33 and more: the guard zone takes 16
        std::uint32_t pool_size = 0;           // [blocks]; 0: blocks_per_record for each slot
        std::uint32_t blocks_per_record = 24;  // expected satellites in an epoch
        double interval = 1;                   // [s] between two epochs
        std::uint16_t station = 0;             // reference station number, DF003
    };
    static constexpr std::uint32_t Fewest_Slots = 33;
    static constexpr std::uint64_t Largest_Size = 0x7FFFFFFF;  // [bytes] of a segment

    static std::unique_ptr<Station_Segment> Create(int ring, const Options &options, std::string &error);
    static std::unique_ptr<Station_Segment> Create_Monitor(int station, int ring, const Options &options,
                                                           std::string &error);
    static std::unique_ptr<Station_Segment> Create_Rtcm(int ring, std::string &error);

    const std::string &Name() const { return name_; }
    bool Is_Fresh() const { return fresh_; }  // whether this object laid it out

private:
    using Deleter = void (*)(kernel::sharemem *);
    Station_Segment(std::string name, std::uint64_t size);
    static std::unique_ptr<Station_Segment> Laid_Out(const char *name, std::uint64_t size, std::string &error,
                                                     const std::function<bool(kernel::sharemem &, bool &)> &lay_out);

    const std::string name_;
    const std::unique_ptr<kernel::sharemem, Deleter> segment_;
    bool fresh_ = false;
};

}  // namespace host
