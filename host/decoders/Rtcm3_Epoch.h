// Puts the observation messages of a stream together to epochs, and dates them.
#pragma once

#include "host/decoders/Rtcm3_Messages.h"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace host {

// All that was observed at one time; valid during the call of the sink only.
struct Rtcm3_Epoch {
    std::optional<int> week;  // GPS, in full; none while nothing in the stream has told it
    std::int32_t tow = 0;     // [ms] GPS time of week
    std::uint16_t station = 0;
    bool complete = false;   // its last message said that none follows; else the next epoch or the end closed it
    bool went_back = false;  // earlier than the epoch before
    std::span<const Rtcm3_Satellite>
        satellites;                     // each once; one without cells had none, or had them in an earlier part
    std::span<const Rtcm3_Cell> cells;  // their `satellite` counts in `satellites`
};

// What a stream does not tell, or tells wrong.
struct Rtcm3_Options {
    // A GPS week within 512 of the recording's: picks one of the weeks that end in the ten bits of 1019, nothing else.
    // The default serves from May 2012 to December 2031.
    int near_week = 2200;
    // The week of the first epoch, where it is known; else epochs before the first usable 1019 have none.
    std::optional<int> start_week = std::nullopt;
    // [s] GPS - UTC, for the times of GLONASS. Without it: from 1013, or from the known leap seconds when the week is
    // known, or from the epoch that a GLONASS message announced itself to belong to.
    std::optional<int> leap_seconds = std::nullopt;
    // BeiDou messages carry BeiDou time, 14 s behind GPS. Streams from before that was settled (2012) carry GPS time; read
    // strictly, their BeiDou satellites make epochs of their own, 14 s late.
    bool beidou_in_gps_time = false;
};

// An epoch ends with a message that says that none follows, with a message of another time or station, or with Finish. A
// signal that comes again in an epoch (a frame sent twice) is dropped, also right after the epoch's end; a new one then
// makes a further part of the same time.
//
// The week comes from 1019, if its ephemeris lies in the same half of the week as the epoch (around the change of week
// streams differ in which week they mean), and then runs on with the time of week: backwards by more than half a week is
// the next week, forwards by more than half the one before. Only three ephemerides in a row that agree on another week
// change it. A GLONASS time is dated by its day of week; a legacy one, which has none, by the epoch before it.
//
// Threads:   one at a time; the sink runs inside Take and Finish and must not call them.
// Ownership: keeps copies; allocates only while an epoch is larger than all before.
// Errors:    none; what is dropped is counted.
class Rtcm3_Epoch_Assembler {
public:
    using Sink = std::function<void(const Rtcm3_Epoch &)>;

    struct Counters {
        std::uint64_t epochs = 0;          // handed on
        std::uint64_t incomplete = 0;      // of these, closed by something else than their last message
        std::uint64_t repeated_cells = 0;  // dropped
        std::uint64_t undated = 0;         // GLONASS messages dropped, as there was nothing to date them by
        std::uint64_t went_back = 0;       // steps back in time
    };

    explicit Rtcm3_Epoch_Assembler(Sink sink, const Rtcm3_Options &options = {});
    Rtcm3_Epoch_Assembler(const Rtcm3_Epoch_Assembler &) = delete;
    Rtcm3_Epoch_Assembler &operator=(const Rtcm3_Epoch_Assembler &) = delete;

    // Messages of other kinds are ignored.
    void Take(const Rtcm3_Message &message);
    // The stream has ended: hands on what is open.
    void Finish() { Close(false); }

    const Counters &Count() const { return count_; }

private:
    void Add(const Rtcm3_Observations &observations);
    void Add(const Rtcm3_Gps_Ephemeris &ephemeris);
    void Add(const Rtcm3_Glonass_Ephemeris &ephemeris);
    void Add(const Rtcm3_System_Parameters &parameters) { announced_leap_seconds_ = parameters.leap_seconds; }
    template <class T>
    void Add(const T &)
    {
    }

    std::optional<std::int32_t> Time_Of_Week(const Rtcm3_Observations &observations) const;
    std::optional<std::int32_t> Glonass_Time_Of_Week(const Rtcm3_Observations &observations) const;
    std::optional<int> Leap_Seconds(std::uint32_t glonass_time) const;
    void Open(std::int32_t tow, std::uint16_t station);
    void Close(bool complete);
    void Use_Week_Hint();
    void Merge(const Rtcm3_Observations &observations);
    std::uint8_t Index_Of(Rtcm3_Satellite satellite);
    bool Is_There(const Rtcm3_Cell &cell) const;

    struct Week_Hint {
        int week;          // in full
        std::int32_t toe;  // [ms]
    };

    Sink sink_;
    const Rtcm3_Options options_;
    Counters count_;
    bool started_ = false;  // an epoch has been there; the next members describe the last one
    bool open_ = false;     // messages may follow
    bool went_back_ = false;
    std::int32_t tow_ = 0;  // [ms]
    std::uint16_t station_ = 0;
    std::optional<int> week_;
    std::vector<Rtcm3_Satellite> satellites_;
    std::vector<Rtcm3_Cell> cells_;
    std::size_t delivered_ = 0;  // cells handed on in earlier parts

    std::optional<Week_Hint> hint_;  // from an ephemeris before the first epoch, or the last one
    int contradicting_week_ = 0;
    int contradictions_ = 0;                                         // ephemerides in a row that say so
    std::optional<int> announced_leap_seconds_;                      // [s] 1013
    std::array<std::optional<std::int8_t>, 25> glonass_channels_{};  // by slot; for MSM4 and MSM6
};

}  // namespace host
