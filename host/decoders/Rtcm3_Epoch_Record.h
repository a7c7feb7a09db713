// Conversion of an RTCM 3 epoch into an EPO_DATA record.
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
// Of several signals on one carrier it takes one, by kind and not by strength, so that a satellite keeps its signal:
// C/A before the others on L1, P(Y) before L2C on L2, pilot and data together before one of them. Other signals are
// dropped, and so is a satellite without any signal left. OBS_SIGNAL says which signal it is; a signal that a legacy
// message does not identify in full (L2C, cross-correlated P(Y)) has no OBS_SIGNAL.
//
// An epoch without a week has its seconds and no week. Smoothing, clock steering and issue of data station come from
// its first message.
//
// The lock counts as lost if the signal differs from the last one of the satellite on that carrier, or if its lock time
// has grown by less than the elapsed time. An indicator stands for a range of lock times (DF013, DF043, DF402, DF407).
// So the lock is lost if the upper end of the present range is not above the lower end of the former range plus the
// elapsed time.
//
// Threads:   one at a time.
// Ownership: Select keeps pointers into the epoch until Store.
// Errors:    none; an absent value is not stored.
class Rtcm3_Epoch_Record {
public:
    // Returns the number of satellites that the record will have: 0 to 255.
    int Select(const Rtcm3_Epoch &epoch);
    // Fills an empty record with the selected satellites.
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
        std::optional<int> week;  // of the observation
        std::int32_t tow = 0;     // [ms] of the observation
    };

    void Store_Satellite(const Rtcm3_Satellite &satellite, kernel::EPO_DATA &record, unsigned char sat);
    void Store_Flags(const Rtcm3_Epoch &epoch, const Entry &entry, kernel::EPO_DATA &record, unsigned char sat);
    bool Lock_Lost(const Rtcm3_Epoch &epoch, const Rtcm3_Satellite &satellite, std::size_t set, const Rtcm3_Cell &cell);

    std::vector<Entry> entries_;
    std::map<std::pair<Gnss, std::uint8_t>, std::array<Lock, sets>> locks_;
};

}  // namespace host
