// The GPS week and the leap seconds of an RTCM 3 stream, and the GPS time of its observations.
#pragma once

#include "host/decoders/Rtcm3_Messages.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace host {

// What the user knows about a stream that the stream itself does not contain, or contains wrongly.
struct Rtcm3_Options {
    // A GPS week within 512 of the recording's. It only selects one of the weeks that end in the ten bits of 1019.
    // Without it see Rtcm3_Clock.
    std::optional<int> near_week = std::nullopt;
    // The week of the first epoch, if known. Without it epochs before the first usable 1019 have no week.
    std::optional<int> start_week = std::nullopt;
    // [s] GPS - UTC, for the times of GLONASS. Without it see Rtcm3_Clock.
    std::optional<int> leap_seconds = std::nullopt;
    // BeiDou messages carry BeiDou time, 14 s behind GPS time. Streams from before 2012, when this was settled, carry
    // GPS time. Without this option their BeiDou satellites form separate epochs, 14 s late.
    bool beidou_in_gps_time = false;
};

// Contradictions in a stream.
enum class Rtcm3_Doubt : unsigned char {
    week_by_ephemerides,    // three 1019 in a row have another week than the user gave; the user's is kept
    week_corrected,         // the stream has shown that the week was wrong; it is corrected from now on
    week_by_leap_seconds,   // the leap seconds of the stream are not those of the week
    leap_seconds_by_times,  // GLONASS and GPS times differ by other leap seconds than the user or 1013 gives
};
constexpr std::size_t rtcm3_doubts = 4;

// Holds the current week and the leap seconds. For both it takes the user's value first, then what the stream shows,
// then a table.
//
// Week: the user's start week holds until a 1019 agrees with it; then the stream determines the week. The week advances
// with the time of week: a step back by more than half a week starts the next week, a step forward by more than half a
// week the previous one. Only three ephemerides in a row that agree on another week correct it. An ephemeris counts if
// its reference time (toe) is near the epoch's time of week; others are old, or mean an adjacent week (streams differ
// around the change of week). The message has ten bits of the week (IS-GPS-200, 20.3.3.3.1.1), so the possible weeks
// are 1024 apart. Taken is the one nearest to the user's week, else to the date in 1013 or in 1020 (N4 and NT), else
// the one whose leap seconds are those of the stream, else the one nearest to 2200, which is right from May 2012 to
// December 2031.
//
// Leap seconds, GPS - UTC: GLONASS times are UTC + 3 h (GLONASS ICD 5.1, 3.3.3), so two messages of one epoch show the
// leap seconds. Three equal comparisons in a row override 1013, which may be out of date. A single comparison is used
// only if nothing else is known, because a lost message can make two epochs look like one. After a leap second, at
// 03:00:00 of GLONASS time, one comparison with one more second is enough. With a date alone the table gives them; it
// is certain up to 2025 (IERS Bulletin C 70).
//
// Threads:   one at a time.
// Ownership: holds nothing but values.
// Errors:    none; contradictions are counted as doubts.
class Rtcm3_Clock {
public:
    struct Doubt {
        std::uint64_t count = 0;
        int had = 0, shown = 0;  // of the last one: [weeks], or [s] for leap seconds
    };
    enum class Source : unsigned char { none, user, user_confirmed, stream, announced, table };

    explicit Rtcm3_Clock(const Rtcm3_Options &options) : options_(options), week_(options.start_week) {}

    // Call for each message, in the order of the stream.
    void Hear(const Rtcm3_Observations &observations);
    void Hear(const Rtcm3_Gps_Ephemeris &ephemeris);
    void Hear(const Rtcm3_Glonass_Ephemeris &ephemeris);
    void Hear(const Rtcm3_System_Parameters &parameters);

    // [ms] GPS time of week of observations that were passed to Hear. None for GLONASS if the leap seconds, or for a
    // legacy message the day, are not known.
    std::optional<std::int32_t> Time_Of_Week(const Rtcm3_Observations &observations) const;
    // Begins an epoch at tow [ms] GPS. Returns the difference to the previous one [ms], negative for a step back; 0 for
    // the first.
    std::int32_t Start_Epoch(std::int32_t tow);

    bool Started() const { return started_; }
    std::optional<int> Week() const { return week_; }  // of the last epoch, in full
    int Full(unsigned int ten_bits) const;             // the week of an ephemeris, by the rules above
    std::optional<int> Leap_Seconds() const;           // [s] GPS - UTC, now
    const Doubt &Doubts(Rtcm3_Doubt kind) const { return doubts_[static_cast<std::size_t>(kind)]; }
    Source Week_Source() const;
    Source Leap_Seconds_Source() const;

private:
    struct Leap {
        std::optional<int> seconds;
        Source source = Source::none;
    };
    // The times of the open epoch in both scales.
    struct Pair {
        std::uint16_t station = 0;
        std::optional<std::uint32_t> gps;      // [ms] of week
        std::optional<std::uint32_t> glonass;  // [ms] of day, as sent
    };
    struct Week_Hint {
        unsigned int ten_bits;
        std::int32_t toe;    // [ms]
        std::int32_t reach;  // [ms] how far the time of week may be from toe
    };

    std::optional<std::int32_t> Glonass_Time_Of_Week(const Rtcm3_Observations &observations) const;
    Leap Leap_Now() const;
    void Compare(int seconds);
    bool Follows_Leap_Second() const;
    void Use_Week_Hint();
    void Contradict(int week);
    void Note_Date(std::int64_t day);
    void Settle();
    std::optional<int> Certain_Near() const;
    std::optional<int> Shown_Leap_Seconds() const;
    int Fitting(int week) const;
    void Count(Rtcm3_Doubt kind, int had, int shown);

    const Rtcm3_Options options_;
    bool started_ = false;  // an epoch has begun
    std::int32_t tow_ = 0;  // [ms] of the last epoch
    std::optional<int> week_;
    bool confirmed_ = false;         // an ephemeris agreed with the week
    std::optional<Week_Hint> hint_;  // from an ephemeris before the first epoch, or the last one
    int contradicting_week_ = 0;
    int contradictions_ = 0;         // ephemerides in a row with that week
    std::optional<int> dated_week_;  // by a date in the stream
    std::optional<int> announced_;   // [s] 1013
    Pair pair_;
    bool pair_ends_ = false;       // the last message was the last one of its epoch
    std::optional<int> compared_;  // [s] by the last comparison
    int comparisons_ = 0;          // in a row with that result
    std::optional<int> shown_;     // [s] by enough comparisons
    std::array<Doubt, rtcm3_doubts> doubts_{};
};

}  // namespace host
