// The GPS week and the leap seconds of an RTCM 3 stream, and what time its observations therefore have.
#pragma once

#include "host/decoders/Rtcm3_Messages.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace host {

// What a stream does not tell, or tells wrong.
struct Rtcm3_Options {
    // A GPS week within 512 of the recording's: picks one of the weeks that end in the ten bits of 1019, nothing else.
    // Without it: see Rtcm3_Clock.
    std::optional<int> near_week = std::nullopt;
    // The week of the first epoch, where it is known; else epochs before the first usable 1019 have none.
    std::optional<int> start_week = std::nullopt;
    // [s] GPS - UTC, for the times of GLONASS. Without it: see Rtcm3_Clock.
    std::optional<int> leap_seconds = std::nullopt;
    // BeiDou messages carry BeiDou time, 14 s behind GPS. Streams from before that was settled (2012) carry GPS time; read
    // strictly, their BeiDou satellites make epochs of their own, 14 s late.
    bool beidou_in_gps_time = false;
};

// What contradicts what.
enum class Rtcm3_Doubt : unsigned char {
    week_by_ephemerides,    // three 1019 in a row say another week than the user; the user's is kept
    week_corrected,         // the stream has shown that the week was another one; it is that one from now on
    week_by_leap_seconds,   // the leap seconds of the stream are not those of the week
    leap_seconds_by_times,  // GLONASS and GPS times differ by other leap seconds than the user or 1013 says
};
constexpr std::size_t rtcm3_doubts = 4;

// The one owner of "week now" and of the leap seconds. For both the user's word comes first, then what the stream shows,
// then a table.
//
// Week: the user's start week holds until a 1019 agrees with it; from then on the week is the stream's. It runs on with
// the time of week: backwards by more than half a week is the next week, forwards by more than half the one before. Only
// three ephemerides in a row that agree on another week correct it. An ephemeris counts if its reference time (toe) is
// near the epoch's time of week: others are old, or mean the week beside, in which streams differ around the change of
// week. IS-GPS-200, 20.3.3.3.1.1: the message has ten bits of the week. Which of the weeks with these bits it is (they
// are 1024 apart): the one nearest to the user's, else to the date in 1013 or in 1020 (N4 and NT), else the one whose
// leap seconds are those of the stream, else the one nearest to 2200, which is right from May 2012 to December 2031.
//
// Leap seconds, GPS - UTC: GLONASS times are UTC + 3 h (GLONASS ICD 5.1, 3.3.3), so that two messages of one epoch show
// the leap seconds. Three such comparisons in a row are believed more than 1013, which may be out of date; one is
// believed where nothing else is known, as a lost message can make two epochs look like one. After a leap second, at
// 03:00:00 of GLONASS time, one comparison with a second more is enough. A date alone tells them by the table, which is
// certain up to 2025 (IERS Bulletin C 70).
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

    // Each message, in the order of the stream.
    void Hear(const Rtcm3_Observations &observations);
    void Hear(const Rtcm3_Gps_Ephemeris &ephemeris);
    void Hear(const Rtcm3_Glonass_Ephemeris &ephemeris);
    void Hear(const Rtcm3_System_Parameters &parameters);

    // [ms] GPS time of week of observations that were heard. None: of GLONASS, and nothing tells the leap seconds or, for
    // a legacy message, the day.
    std::optional<std::int32_t> Time_Of_Week(const Rtcm3_Observations &observations) const;
    // An epoch begins; tow [ms] GPS. The difference to the one before [ms], negative for a step back; 0 for the first.
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
    bool started_ = false;  // an epoch has been there
    std::int32_t tow_ = 0;  // [ms] of the last one
    std::optional<int> week_;
    bool confirmed_ = false;         // an ephemeris agreed with the week
    std::optional<Week_Hint> hint_;  // from an ephemeris before the first epoch, or the last one
    int contradicting_week_ = 0;
    int contradictions_ = 0;         // ephemerides in a row that say so
    std::optional<int> dated_week_;  // by a date in the stream
    std::optional<int> announced_;   // [s] 1013
    Pair pair_;
    bool pair_ends_ = false;       // the last message said that none follows
    std::optional<int> compared_;  // [s] by the last comparison
    int comparisons_ = 0;          // in a row that say so
    std::optional<int> shown_;     // [s] by enough of them
    std::array<Doubt, rtcm3_doubts> doubts_{};
};

}  // namespace host
