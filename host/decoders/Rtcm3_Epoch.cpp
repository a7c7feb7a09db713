#include "host/decoders/Rtcm3_Epoch.h"

#include <algorithm>
#include <utility>

namespace host {

Rtcm3_Epoch_Assembler::Rtcm3_Epoch_Assembler(Sink sink, const Rtcm3_Options &options)
    : sink_(std::move(sink)), clock_(options)
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
    clock_.Hear(observations);
    const auto tow = clock_.Time_Of_Week(observations);
    if (!tow) {
        ++count_.undated;
        return;
    }
    if (!clock_.Started() || *tow != epoch_.tow || observations.station != epoch_.station) Open(*tow, observations);
    open_ = true;
    Merge(observations);
    if (!observations.more_follows) Close(Ending::last_message);
}

void Rtcm3_Epoch_Assembler::Open(std::int32_t tow, const Rtcm3_Observations &first)
{
    // Close the open epoch first: it is handed on with its own time and week.
    Close(Ending::early);
    epoch_ = {};
    epoch_.tow = tow;
    epoch_.station = first.station;
    epoch_.went_back = clock_.Start_Epoch(tow) < 0;
    epoch_.issue_of_station = first.issue_of_station;
    epoch_.clock_steering = first.clock_steering;
    epoch_.smoothing_interval = first.smoothing_interval;
    epoch_.divergence_free = first.divergence_free;
    if (epoch_.went_back) ++count_.went_back;
    satellites_.clear();
    cells_.clear();
    delivered_ = 0;
}

// Keeps the time and the cells, by which repeated signals are recognised.
void Rtcm3_Epoch_Assembler::Close(Ending ending)
{
    const bool was_open = std::exchange(open_, false);
    if (!was_open || delivered_ == cells_.size()) return;
    const bool complete = ending == Ending::last_message;
    ++count_.epochs;
    if (!complete) ++count_.incomplete;
    epoch_.week = clock_.Week();
    epoch_.complete = complete;
    epoch_.satellites = satellites_;
    epoch_.cells = std::span<const Rtcm3_Cell>(cells_).subspan(delivered_);
    delivered_ = cells_.size();
    if (sink_) sink_(epoch_);
}

void Rtcm3_Epoch_Assembler::Add(const Rtcm3_Glonass_Ephemeris &ephemeris)
{
    clock_.Hear(ephemeris);
    glonass_channels_[ephemeris.slot] = ephemeris.channel;
}

void Rtcm3_Epoch_Assembler::Merge(const Rtcm3_Observations &observations)
{
    std::array<std::uint8_t, Rtcm3_Observations::most> indices;
    // Only a satellite of an earlier message can have a repeated cell, so only those are searched.
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
        // GLONASS in MSM4 and MSM6 has no channels; another message may have given them.
        if (!Has_Value(cell.frequency))
            cell.frequency = Carrier_Frequency(satellite.gnss, cell.code, satellite.glonass_channel);
        cells_.push_back(cell);
    }
}

// Adds the satellite if it is new. GLONASS satellites of unknown slot (0) are distinguished by their channel. At most
// 221 satellites are possible, which fits into the index.
std::uint8_t Rtcm3_Epoch_Assembler::Index_Of(Rtcm3_Satellite satellite)
{
    if (satellite.gnss == Gnss::glonass && satellite.number != 0) {
        auto &channel = glonass_channels_[satellite.number];
        // The last channel is kept across epochs, for messages without channels.
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

// A signal is identified by its code in every kind of message.
bool Rtcm3_Epoch_Assembler::Is_There(const Rtcm3_Cell &cell) const
{
    return std::any_of(cells_.begin(), cells_.end(), [&](const Rtcm3_Cell &other) {
        if (other.satellite != cell.satellite || other.code != cell.code) return false;
        return cell.code || other.msm_signal == cell.msm_signal;
    });
}

}  // namespace host
