#include "host/decoders/Rtcm3_Epoch.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <utility>

namespace host {

namespace {

constexpr std::int32_t beidou_offset = 14'000;       // [ms] GPS - BeiDou time, which began with 2006 (UTC)
constexpr std::int32_t glonass_offset = 10'800'000;  // [ms] GLONASS time - UTC
constexpr int contradictions_to_believe = 3;
constexpr int most_leap_seconds = 60;  // more between two clocks is no leap second

// Into 0 to modulus - 1.
std::int32_t Wrap(std::int64_t value, std::int32_t modulus)
{
    const std::int64_t rest = value % modulus;
    return static_cast<std::int32_t>(rest < 0 ? rest + modulus : rest);
}

// Into -modulus/2 to modulus/2 - 1.
std::int32_t Wrap_Around_Zero(std::int64_t value, std::int32_t modulus)
{
    return Wrap(value + modulus / 2, modulus) - modulus / 2;
}

// The days from which on GPS - UTC is 1, 2, 3, ... seconds. A new one has to be added here;
// until then streams with 1013 and the option have it right.
constexpr std::chrono::sys_days Day(int year, unsigned int month)
{
    return std::chrono::year{year} / std::chrono::month{month} / 1;
}
constexpr std::chrono::sys_days leap_days[] = {
    Day(1981, 7), Day(1982, 7), Day(1983, 7), Day(1985, 7), Day(1988, 1), Day(1990, 1),
    Day(1991, 1), Day(1992, 7), Day(1993, 7), Day(1994, 7), Day(1996, 1), Day(1997, 7),
    Day(1999, 1), Day(2006, 1), Day(2009, 1), Day(2012, 7), Day(2015, 7), Day(2017, 1),
};
constexpr std::chrono::sys_days gps_start = std::chrono::year{1980} / std::chrono::January / 6;

// [s] GPS - UTC at a GPS time.
int Known_Leap_Seconds(int week, std::int32_t tow)
{
    const std::int64_t now = std::int64_t{week} * 604800 + tow / 1000;
    int seconds = 0;
    for (const std::chrono::sys_days day : leap_days)
        // In GPS time, which has no leap seconds, that day begins later by all of them, the new one included.
        if (now >= std::int64_t{(day - gps_start).count()} * 86400 + seconds + 1) ++seconds;
    return seconds;
}

}  // namespace

Rtcm3_Epoch_Assembler::Rtcm3_Epoch_Assembler(Sink sink, const Rtcm3_Options &options)
    : sink_(std::move(sink)), options_(options), week_(options.start_week)
{
    satellites_.reserve(128);
    cells_.reserve(512);
}

void Rtcm3_Epoch_Assembler::Take(const Rtcm3_Message &message)
{
    std::visit([this](const auto &content) { Add(content); }, message);
}

void Rtcm3_Epoch_Assembler::Add(const Rtcm3_Observations &observations)
{
    const auto tow = Time_Of_Week(observations);
    if (!tow) {
        ++count_.undated;
        return;
    }
    if (!started_ || *tow != tow_ || observations.station != station_) Open(*tow, observations.station);
    open_ = true;
    Merge(observations);
    if (!observations.more_follows) Close(true);
}

std::optional<std::int32_t> Rtcm3_Epoch_Assembler::Time_Of_Week(const Rtcm3_Observations &observations) const
{
    const auto time = static_cast<std::int32_t>(observations.time);
    if (observations.gnss == Gnss::glonass) return Glonass_Time_Of_Week(observations);
    if (observations.gnss == Gnss::beidou && !options_.beidou_in_gps_time)
        return Wrap(time + beidou_offset, ms_per_week);
    return time;
}

std::optional<std::int32_t> Rtcm3_Epoch_Assembler::Glonass_Time_Of_Week(const Rtcm3_Observations &observations) const
{
    const auto leap_seconds = Leap_Seconds(observations.time);
    if (!leap_seconds) return {};
    const std::int64_t time = std::int64_t{observations.time} - glonass_offset + *leap_seconds * 1000;
    if (observations.glonass_day) return Wrap(time + std::int64_t{*observations.glonass_day} * ms_per_day, ms_per_week);
    // Legacy messages tell the time of day alone: the one within half a day of the epoch before.
    if (!started_) return {};
    return Wrap(std::int64_t{tow_} + Wrap_Around_Zero(time - tow_, ms_per_day), ms_per_week);
}

std::optional<int> Rtcm3_Epoch_Assembler::Leap_Seconds(std::uint32_t glonass_time) const
{
    // The most certain first. The user knows the recording; 1013 is the stream's word; a date is as good as the table
    // above.
    if (options_.leap_seconds) return options_.leap_seconds;
    if (announced_leap_seconds_) return announced_leap_seconds_;
    if (week_) return Known_Leap_Seconds(*week_, tow_);
    // An open epoch expects this message. So both times are the same instant, but for whole seconds that only the leap
    // seconds can be.
    if (!open_) return {};
    const std::int32_t difference = Wrap(std::int64_t{tow_} - glonass_time + glonass_offset, ms_per_day);
    if (difference % 1000 != 0 || difference > most_leap_seconds * 1000) return {};
    return difference / 1000;
}

void Rtcm3_Epoch_Assembler::Open(std::int32_t tow, std::uint16_t station)
{
    // Before anything changes: what is open goes out with its own time and week.
    Close(false);
    const std::int64_t step = started_ ? std::int64_t{tow} - tow_ : 0;
    if (week_ && step < -ms_per_week / 2) ++*week_;
    if (week_ && step > ms_per_week / 2) --*week_;
    // Over the change of the week a step is short, whatever its sign.
    went_back_ = Wrap_Around_Zero(step, ms_per_week) < 0;
    if (went_back_) ++count_.went_back;
    started_ = true;
    tow_ = tow;
    station_ = station;
    satellites_.clear();
    cells_.clear();
    delivered_ = 0;
    // An ephemeris that came before this epoch had no time to be judged by.
    Use_Week_Hint();
}

// Clears neither time nor cells: what comes again is known by them.
void Rtcm3_Epoch_Assembler::Close(bool complete)
{
    const bool was_open = std::exchange(open_, false);
    if (!was_open || delivered_ == cells_.size()) return;
    ++count_.epochs;
    if (!complete) ++count_.incomplete;
    const auto news = std::span<const Rtcm3_Cell>(cells_).subspan(delivered_);
    delivered_ = cells_.size();
    if (sink_) sink_({week_, tow_, station_, complete, went_back_, satellites_, news});
}

void Rtcm3_Epoch_Assembler::Add(const Rtcm3_Gps_Ephemeris &ephemeris)
{
    hint_ = {Full_Week(ephemeris.week, options_.near_week), static_cast<std::int32_t>(ephemeris.toe) * 1000};
    Use_Week_Hint();
}

void Rtcm3_Epoch_Assembler::Use_Week_Hint()
{
    if (!started_ || !hint_) return;
    // Used once, also where it is of no use: the next ephemeris is never far.
    const Week_Hint hint = *std::exchange(hint_, std::nullopt);
    // Times of week that far apart: the ephemeris may mean the week beside.
    if (std::abs(hint.toe - tow_) > ms_per_week / 2) return;
    if (week_ && hint.week == *week_) contradictions_ = 0;
    if (!week_) week_ = hint.week;
    if (hint.week == *week_) return;
    contradictions_ = hint.week == contradicting_week_ ? contradictions_ + 1 : 1;
    contradicting_week_ = hint.week;
    if (contradictions_ >= contradictions_to_believe) week_ = hint.week;
}

void Rtcm3_Epoch_Assembler::Add(const Rtcm3_Glonass_Ephemeris &ephemeris)
{
    glonass_channels_[ephemeris.slot] = ephemeris.channel;
}

void Rtcm3_Epoch_Assembler::Merge(const Rtcm3_Observations &observations)
{
    std::array<std::uint8_t, Rtcm3_Observations::most> indices;
    // Only satellites that were there before can have a cell again: the others are spared the search for it.
    std::array<bool, Rtcm3_Observations::most> known;
    for (std::size_t i = 0; i < observations.satellite_count; ++i) {
        const std::size_t before = satellites_.size();
        indices[i] = Index_Of(observations.satellite_table[i]);
        known[i] = indices[i] < before;
    }
    for (Rtcm3_Cell cell : observations.cells()) {
        const bool satellite_known = known[cell.satellite];
        cell.satellite = indices[cell.satellite];
        if (satellite_known && Is_There(cell)) {
            ++count_.repeated_cells;
            continue;
        }
        const Rtcm3_Satellite &satellite = satellites_[cell.satellite];
        // GLONASS in MSM4 and MSM6 comes without channels; another message may have told it.
        if (!Has_Value(cell.frequency))
            cell.frequency = Carrier_Frequency(satellite.gnss, cell.code, satellite.glonass_channel);
        cells_.push_back(cell);
    }
}

// Adds the satellite when it is new. Those of GLONASS whose slot is unknown (0) are told apart by their channel; so there
// can be no more satellites (221) than an index has room for.
std::uint8_t Rtcm3_Epoch_Assembler::Index_Of(Rtcm3_Satellite satellite)
{
    if (satellite.gnss == Gnss::glonass && satellite.number != 0) {
        auto &channel = glonass_channels_[satellite.number];
        // What was heard last is kept, across epochs, for messages that do not tell.
        if (satellite.glonass_channel) channel = satellite.glonass_channel;
        satellite.glonass_channel = channel;
    }
    const auto same = [&](const Rtcm3_Satellite &other) {
        return other.gnss == satellite.gnss && other.number == satellite.number &&
               (other.number != 0 || other.glonass_channel == satellite.glonass_channel);
    };
    const auto found = std::find_if(satellites_.begin(), satellites_.end(), same);
    const auto index = static_cast<std::uint8_t>(found - satellites_.begin());
    if (found == satellites_.end()) satellites_.push_back(satellite);
    return index;
}

// A signal is known by its code, whatever kind of message it comes in.
bool Rtcm3_Epoch_Assembler::Is_There(const Rtcm3_Cell &cell) const
{
    return std::any_of(cells_.begin(), cells_.end(), [&](const Rtcm3_Cell &other) {
        if (other.satellite != cell.satellite || other.code != cell.code) return false;
        return cell.code || other.msm_signal == cell.msm_signal;
    });
}

}  // namespace host
