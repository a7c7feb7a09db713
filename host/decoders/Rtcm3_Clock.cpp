#include "host/decoders/Rtcm3_Clock.h"

#include <chrono>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace host {

namespace {

constexpr std::int32_t beidou_offset = 14'000;       // [ms] GPS - BeiDou time, which began in 2006 (UTC)
constexpr std::int32_t glonass_offset = 10'800'000;  // [ms] GLONASS time - UTC
constexpr std::int32_t hour = 3'600'000;             // [ms]
constexpr int enough = 3;                            // equal contradictions or comparisons in a row that are accepted
constexpr int most_leap_seconds = 30;                // a larger difference between two clocks is no leap second
constexpr int default_near_week = 2200;
constexpr int week_cycle = 1024;

// Wraps into 0 to modulus - 1.
std::int32_t Wrap(std::int64_t value, std::int32_t modulus)
{
    const std::int64_t rest = value % modulus;
    return static_cast<std::int32_t>(rest < 0 ? rest + modulus : rest);
}

// Wraps into -modulus/2 to modulus/2 - 1.
std::int32_t Wrap_Around_Zero(std::int64_t value, std::int32_t modulus)
{
    return Wrap(value + modulus / 2, modulus) - modulus / 2;
}

// --- The table

// The days from which GPS - UTC is 1, 2, 3, ... seconds (IERS Bulletin C). Add a new one here and move `table_end`.
// Without the entry a new leap second is known only from GPS and GLONASS epochs, from 1013 or from the option.
constexpr std::chrono::sys_days Day(int year, unsigned int month)
{
    return std::chrono::year{year} / std::chrono::month{month} / 1;
}
constexpr std::chrono::sys_days leap_days[] = {
    Day(1981, 7), Day(1982, 7), Day(1983, 7), Day(1985, 7), Day(1988, 1), Day(1990, 1),
    Day(1991, 1), Day(1992, 7), Day(1993, 7), Day(1994, 7), Day(1996, 1), Day(1997, 7),
    Day(1999, 1), Day(2006, 1), Day(2009, 1), Day(2012, 7), Day(2015, 7), Day(2017, 1),
};
constexpr int last_leap_seconds = static_cast<int>(std::size(leap_days));
constexpr std::chrono::sys_days gps_start = std::chrono::year{1980} / std::chrono::January / 6;
constexpr std::int64_t Gps_Day(std::chrono::sys_days day) { return (day - gps_start).count(); }
constexpr int table_end = static_cast<int>(Gps_Day(Day(2026, 1)) / 7);  // [weeks] from here on the table may lack some

// [s] GPS - UTC at a GPS time.
int Known_Leap_Seconds(int week, std::int32_t tow)
{
    const std::int64_t now = (std::int64_t{week} * ms_per_week + tow) / 1000;
    int seconds = 0;
    for (const std::chrono::sys_days day : leap_days)
        // GPS time has no leap seconds: there the day begins later by all leap seconds, the new one included.
        if (now >= Gps_Day(day) * (ms_per_day / 1000) + seconds + 1) ++seconds;
    return seconds;
}

// Whether a stream of that week may show these leap seconds; a stream may adopt a new one late.
bool Fits(int week, int leap_seconds)
{
    if (week >= table_end) return leap_seconds >= last_leap_seconds;
    return leap_seconds >= Known_Leap_Seconds(week - 1, 0) && leap_seconds <= Known_Leap_Seconds(week + 1, 0);
}

}  // namespace

// --- Times

std::optional<std::int32_t> Rtcm3_Clock::Time_Of_Week(const Rtcm3_Observations &observations) const
{
    const auto time = static_cast<std::int32_t>(observations.time);
    if (observations.gnss == Gnss::glonass) return Glonass_Time_Of_Week(observations);
    if (observations.gnss == Gnss::beidou && !options_.beidou_in_gps_time)
        return Wrap(time + beidou_offset, ms_per_week);
    return time;
}

std::optional<std::int32_t> Rtcm3_Clock::Glonass_Time_Of_Week(const Rtcm3_Observations &observations) const
{
    const auto leap_seconds = Leap_Seconds();
    if (!leap_seconds) return {};
    const std::int64_t time = std::int64_t{observations.time} - glonass_offset + *leap_seconds * 1000;
    if (observations.glonass_day) return Wrap(time + std::int64_t{*observations.glonass_day} * ms_per_day, ms_per_week);
    // Legacy messages have the time of day only: take the day that is within half a day of the previous epoch.
    if (!started_) return {};
    return Wrap(std::int64_t{tow_} + Wrap_Around_Zero(time - tow_, ms_per_day), ms_per_week);
}

std::int32_t Rtcm3_Clock::Start_Epoch(std::int32_t tow)
{
    const std::int64_t step = started_ ? std::int64_t{tow} - tow_ : 0;
    if (week_ && step < -ms_per_week / 2) ++*week_;
    if (week_ && step > ms_per_week / 2) --*week_;
    started_ = true;
    tow_ = tow;
    // An ephemeris from before the first epoch can be compared with a time only now.
    Use_Week_Hint();
    // Across the change of week a step is short in either direction.
    return Wrap_Around_Zero(step, ms_per_week);
}

// --- Leap seconds

std::optional<int> Rtcm3_Clock::Leap_Seconds() const { return Leap_Now().seconds; }
Rtcm3_Clock::Source Rtcm3_Clock::Leap_Seconds_Source() const { return Leap_Now().source; }

Rtcm3_Clock::Leap Rtcm3_Clock::Leap_Now() const
{
    if (options_.leap_seconds) return {options_.leap_seconds, Source::user};
    if (shown_) return {Follows_Leap_Second() ? compared_ : shown_, Source::stream};
    if (announced_) return {announced_, Source::announced};
    const std::optional<int> by_table = week_ ? std::optional(Known_Leap_Seconds(*week_, tow_)) : std::nullopt;
    // With a certain date the table is more reliable than a single comparison.
    if (week_ && *week_ < table_end && Certain_Near()) return {by_table, Source::table};
    if (compared_) return {compared_, Source::stream};
    if (by_table) return {by_table, Source::table};
    return {};
}

// True in the hour after a leap second, for the epoch whose times show it. At any other time a difference of one more
// second comes from a late message.
bool Rtcm3_Clock::Follows_Leap_Second() const
{
    return pair_.gps && pair_.glonass && compared_ == *shown_ + 1 && *pair_.glonass >= glonass_offset &&
           *pair_.glonass < glonass_offset + hour;
}

void Rtcm3_Clock::Hear(const Rtcm3_Observations &observations)
{
    if (std::exchange(pair_ends_, !observations.more_follows) || observations.station != pair_.station)
        pair_ = {observations.station, {}, {}};
    // BeiDou is not used: its time scale is uncertain (see Rtcm3_Options).
    if (observations.gnss == Gnss::beidou) return;
    std::optional<std::uint32_t> &time = observations.gnss == Gnss::glonass ? pair_.glonass : pair_.gps;
    if (time == observations.time) return;
    // Another time in the same scale belongs to another epoch.
    if (time) pair_ = {observations.station, {}, {}};
    time = observations.time;
    if (!pair_.gps || !pair_.glonass) return;
    // Both messages belong to the open epoch, so their times are the same instant. The difference is whole seconds,
    // which can only be the leap seconds.
    const std::int32_t difference = Wrap(std::int64_t{*pair_.gps} - *pair_.glonass + glonass_offset, ms_per_day);
    if (difference % 1000 == 0 && difference <= most_leap_seconds * 1000) Compare(difference / 1000);
}

void Rtcm3_Clock::Compare(int seconds)
{
    comparisons_ = compared_ == seconds ? comparisons_ + 1 : 1;
    compared_ = seconds;
    if (comparisons_ < enough) return;
    const std::optional<int> told = options_.leap_seconds ? options_.leap_seconds : announced_;
    if (told && *told != seconds) Count(Rtcm3_Doubt::leap_seconds_by_times, *told, seconds);
    if (shown_ == seconds) return;
    shown_ = seconds;
    Settle();
}

void Rtcm3_Clock::Hear(const Rtcm3_System_Parameters &parameters)
{
    announced_ = parameters.leap_seconds;
    constexpr std::int64_t gps_start_mjd = 44244;
    Note_Date(std::int64_t{parameters.mjd} - gps_start_mjd);
}

// --- Week

// N4 and NT: GLONASS ICD 5.1, 4.4 (table 4.5); both are 0 when the satellite or the encoder does not send them.
void Rtcm3_Clock::Hear(const Rtcm3_Glonass_Ephemeris &ephemeris)
{
    constexpr int four_years = 1461;  // [days]
    if (!ephemeris.additional || ephemeris.n4 < 1 || ephemeris.nt < 1 || ephemeris.nt > four_years) return;
    Note_Date(Gps_Day(Day(1996, 1)) + std::int64_t{ephemeris.n4 - 1} * four_years + ephemeris.nt - 1);
}

// day: [days] since the GPS epoch.
void Rtcm3_Clock::Note_Date(std::int64_t day)
{
    if (day < 0) return;
    dated_week_ = static_cast<int>(day / 7);
    Settle();
}

void Rtcm3_Clock::Hear(const Rtcm3_Gps_Ephemeris &ephemeris)
{
    // A fit interval of 4 hours has toe in its middle, and the ephemeris is sent in advance. A longer interval has up
    // to 146 hours. IS-GPS-200, 20.3.4.4 and 20.3.4.5.
    hint_ = {ephemeris.week, static_cast<std::int32_t>(ephemeris.toe) * 1000,
             ephemeris.long_fit ? ms_per_week / 2 : 4 * hour};
    Use_Week_Hint();
}

void Rtcm3_Clock::Use_Week_Hint()
{
    if (!started_ || !hint_) return;
    // Each hint is tried once; the next ephemeris comes soon.
    const Week_Hint hint = *std::exchange(hint_, std::nullopt);
    // Not across the change of week, where the ephemeris may mean the adjacent week.
    if (std::abs(hint.toe - tow_) > hint.reach) return;
    const int week = Full(hint.ten_bits);
    if (week_ && *week_ != week) return Contradict(week);
    confirmed_ = true;
    contradictions_ = 0;
    if (week_) return;
    week_ = week;
    Settle();
}

void Rtcm3_Clock::Contradict(int week)
{
    contradictions_ = week == contradicting_week_ ? contradictions_ + 1 : 1;
    contradicting_week_ = week;
    if (contradictions_ < enough) return;
    // An unconfirmed week of the user is kept, because the user may know more than the stream shows.
    if (!confirmed_) return Count(Rtcm3_Doubt::week_by_ephemerides, *week_, week);
    Count(Rtcm3_Doubt::week_corrected, *week_, week);
    week_ = week;
    contradictions_ = 0;
}

Rtcm3_Clock::Source Rtcm3_Clock::Week_Source() const
{
    if (!week_) return Source::none;
    if (!options_.start_week) return Source::stream;
    return confirmed_ ? Source::user_confirmed : Source::user;
}

// A week within 512 of the true one, if the user or a date in the stream gives one.
std::optional<int> Rtcm3_Clock::Certain_Near() const
{
    if (options_.start_week) return options_.start_week;
    return options_.near_week ? options_.near_week : dated_week_;
}

std::optional<int> Rtcm3_Clock::Shown_Leap_Seconds() const { return shown_ ? shown_ : options_.leap_seconds; }

int Rtcm3_Clock::Full(unsigned int ten_bits) const
{
    if (week_) return Full_Week(ten_bits, *week_);
    if (const auto near = Certain_Near()) return Full_Week(ten_bits, *near);
    return Fitting(Full_Week(ten_bits, default_near_week));
}

// Returns, of the weeks with the same ten bits, the one whose leap seconds agree with the stream; else `week` itself.
int Rtcm3_Clock::Fitting(int week) const
{
    const auto leap_seconds = Shown_Leap_Seconds();
    if (!leap_seconds) return week;
    for (const int other : {week, week - week_cycle, week + week_cycle})
        if (other >= 0 && Fits(other, *leap_seconds)) return other;
    return week;
}

// Checks the week again with what the stream has shown since the week was chosen.
void Rtcm3_Clock::Settle()
{
    if (!week_) return;
    if (!options_.start_week && !options_.near_week) {
        const int week = dated_week_ ? Full_Week(static_cast<unsigned int>(*week_), *dated_week_) : Fitting(*week_);
        if (week != *week_) Count(Rtcm3_Doubt::week_corrected, *week_, week);
        week_ = week;
    }
    const auto leap_seconds = Shown_Leap_Seconds();
    if (leap_seconds && !Fits(*week_, *leap_seconds))
        Count(Rtcm3_Doubt::week_by_leap_seconds, Known_Leap_Seconds(*week_, tow_), *leap_seconds);
}

void Rtcm3_Clock::Count(Rtcm3_Doubt kind, int had, int shown)
{
    Doubt &doubt = doubts_[static_cast<std::size_t>(kind)];
    doubt = {doubt.count + 1, had, shown};
}

}  // namespace host
