// How an RTCM 3 epoch becomes an EPO_DATA record.
#pragma once

#include "host/decoders/Rtcm3_Epoch.h"
#include "kernel/records/EPO_DATA.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace host {

// Sorts the signals of each satellite into the three carrier sets of EPO_DATA and stores them.
//
// Of several signals on one carrier one is taken, by kind and not by strength, so that a satellite keeps its signal: C/A
// before the others on L1, P(Y) before L2C on L2, pilot and data together before one of them. What a set does not take is
// dropped, as is a satellite of which nothing is left. OBS_SIGNAL says which it was; one that a legacy message does not
// name in full (L2C, cross-correlated P(Y)) has none.
//
// An epoch without a week has its seconds, and no week. Smoothing, clock steering and issue of data station are those of its
// first message.
//
// Loss of lock: the signal is another one than when the satellite was seen last on that carrier, or its lock time cannot
// have grown by the time gone by since then. An indicator stands for a range of lock times (DF013, DF043, DF402, DF407), so
// the lock is lost if the upper end of the range now is not above the lower end of the range then, plus the time gone by.
//
// Threads:   one at a time.
// Ownership: Select keeps pointers into the epoch until Store.
// Errors:    none; a value that is absent is not stored.
class Rtcm3_Epoch_Record {
public:
    // The satellites that have a place in a record, which is how many entries it needs: 0 to 255.
    int Select(const Rtcm3_Epoch &epoch);
    // Fills an empty record with what Select chose.
    void Store(const Rtcm3_Epoch &epoch, kernel::EPO_DATA &record);

private:
    static constexpr std::size_t sets = 3;  // A, B, C

    struct Entry {
        const Rtcm3_Satellite *satellite = nullptr;
        std::array<const Rtcm3_Cell *, sets> cells{};
    };
    struct Lock {
        Signal_Code code;
        std::int32_t least = 0;   // [ms] lock time
        std::optional<int> week;  // when that was
        std::int32_t tow = 0;     // [ms]
    };

    void Store_Satellite(const Rtcm3_Satellite &satellite, kernel::EPO_DATA &record, unsigned char sat);
    void Store_Flags(const Rtcm3_Epoch &epoch, const Entry &entry, kernel::EPO_DATA &record, unsigned char sat);
    bool Lock_Lost(const Rtcm3_Epoch &epoch, const Rtcm3_Satellite &satellite, std::size_t set, const Rtcm3_Cell &cell);

    std::vector<Entry> entries_;
    std::map<std::pair<Gnss, std::uint8_t>, std::array<Lock, sets>> locks_;
};

}  // namespace host
