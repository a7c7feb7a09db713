#include "host/decoders/Rtcm3_Epoch_Record.h"

#include <algorithm>
#include <string_view>

namespace host {

namespace {

using namespace kernel;

constexpr ObsDataTypes Of_Set(ObsDataTypes of_a, std::size_t set)
{
    return static_cast<ObsDataTypes>(static_cast<std::size_t>(of_a) + set);
}

// Signals by preference, two letters each, in the sets A, B and C.
struct Carrier_Sets {
    Gnss gnss;
    std::array<std::string_view, 3> signals;
};
constexpr Carrier_Sets carrier_sets[] = {
    {Gnss::gps, {"1C1X1L1S1W1P", "5X5Q5I1W1P", "2W2P2X2L2S2C2D"}},
    {Gnss::glonass, {"1C1P", "3X3Q3I1P", "2C2P"}},
    {Gnss::galileo, {"1X1C1B1A1Z", "5X5Q5I", "7X7Q7I"}},
    {Gnss::sbas, {"1C", "5X5Q5I", ""}},
    {Gnss::qzss, {"1C1X1L1S1Z", "5X5Q5I", "2X2L2S"}},
    {Gnss::beidou, {"2I2X2Q", "6I6X6Q", "7I7X7Q"}},
};
constexpr std::size_t filling_order[] = {0, 2, 1};          // A, C, B: B may take a signal on L1 that A does not use
constexpr unsigned char no_signal = 255;                    // OBS_SIGNAL of a signal that is not known in full
constexpr std::size_t most_entries = 255;                   // a count of satellites is a byte
constexpr int divergence_free_bit = 8, steering_shift = 4;  // of EPO_SMOOTHING
constexpr int issue_shift = 4;                              // of EPO_STATION_HIGH
constexpr int qzss_base = 192;                              // PRN of QZSS less the number in a record
constexpr int channel_base = 7;                             // OBS_GLO_CHANNEL of channel 0

// A smaller rank is preferred; npos: the signal is not in this set.
std::size_t Rank(Gnss gnss, std::size_t set, Signal_Code code)
{
    if (!code) return std::string_view::npos;
    const char name[] = {code.band, code.attribute};
    for (const Carrier_Sets &system : carrier_sets)
        // find() can match only at the start of a name, because a band is a digit and an attribute a letter.
        if (system.gnss == gnss) return system.signals[set].find({name, sizeof name});
    return std::string_view::npos;
}

// A record has phases in cycles, so a phase without a known frequency cannot be stored.
bool Has_Range(const Rtcm3_Cell &cell) { return Has_Value(cell.pseudorange) || Has_Value(cell.Phase_Cycles()); }

// The place in the MSM signal mask of a signal from a legacy message.
unsigned char Legacy_Place(const Signal_Code &code)
{
    // GPS and GLONASS have the same places for the codes that both have.
    static constexpr struct {
        Signal_Code code;
        unsigned char place;
    } places[] = {{{'1', 'C'}, 2}, {{'1', 'P'}, 3}, {{'1', 'W'}, 4},
                  {{'2', 'C'}, 8}, {{'2', 'P'}, 9}, {{'2', 'W'}, 10}};
    for (const auto &row : places)
        if (row.code == code) return row.place;
    return no_signal;
}

void Store_Double(EPO_DATA &record, ObsDataTypes type, double value, unsigned char sat)
{
    if (Has_Value(value)) record.StoreDoubleObs(type, value, sat);
}

// The bits of EPO_SMOOTHING.
unsigned char Smoothing_And_Steering(const Rtcm3_Epoch &epoch)
{
    return static_cast<unsigned char>(epoch.smoothing_interval | (epoch.divergence_free ? divergence_free_bit : 0) |
                                      epoch.clock_steering << steering_shift);
}

// [ms] The time from a week and time of week to the epoch; 0 for a step back. If a week is missing, the shorter way
// around the week.
std::int64_t Time_Gone(std::optional<int> week, std::int32_t tow, const Rtcm3_Epoch &epoch)
{
    const std::int64_t step = std::int64_t{epoch.tow} - tow;
    int weeks = 0;
    if (week && epoch.week)  // modulo 1024, so that a correction of the week by roll-overs does not count as time
        weeks = Full_Week(static_cast<unsigned int>(*epoch.week), *week) - *week;
    else
        weeks = step < -ms_per_week / 2 ? 1 : step > ms_per_week / 2 ? -1 : 0;
    return std::max<std::int64_t>(weeks * std::int64_t{ms_per_week} + step, 0);
}

void Store_Cell(const Rtcm3_Cell &cell, std::size_t set, EPO_DATA &record, unsigned char sat)
{
    Store_Double(record, Of_Set(OBS_CODE_A, set), cell.pseudorange, sat);
    Store_Double(record, Of_Set(OBS_PHASE_A, set), cell.Phase_Cycles(), sat);
    Store_Double(record, Of_Set(OBS_DOPPLER_A, set), cell.Doppler(), sat);
    if (Has_Value(cell.cn0)) record.StoreFloatObs(Of_Set(OBS_CN0_A, set), static_cast<float>(cell.cn0), sat);
    record.StoreFloatObs(Of_Set(OBS_LOCK_TIME_A, set), static_cast<float>(cell.lock_time) / 1000.0F, sat);
    // Byte arrays are initialised to 255, so that a missing code is unusable without a store.
    if (Has_Value(cell.pseudorange)) record.StoreUint8Obs(Of_Set(OBS_VALID_A, set), 0, sat);
    const unsigned char place = cell.msm_signal != 0 ? cell.msm_signal : Legacy_Place(cell.code);
    record.StoreUint8Obs(Of_Set(OBS_SIGNAL_A, set), place, sat);
}

}  // namespace

int Rtcm3_Epoch_Record::Select(const Rtcm3_Epoch &epoch)
{
    entries_.assign(epoch.satellites.size(), {});
    for (std::size_t i = 0; i < entries_.size(); ++i) entries_[i].satellite = &epoch.satellites[i];
    for (const std::size_t set : filling_order) {
        for (const Rtcm3_Cell &cell : epoch.cells) {
            Entry &entry = entries_[cell.satellite];
            const Rtcm3_Cell *&chosen = entry.cells[set];
            const std::size_t rank = Rank(entry.satellite->gnss, set, cell.code);
            // B does not take a cell that A has taken.
            if (rank == std::string_view::npos || !Has_Range(cell) || entry.cells[0] == &cell) continue;
            if (!chosen || rank < Rank(entry.satellite->gnss, set, chosen->code)) chosen = &cell;
        }
    }
    std::erase_if(entries_, [](const Entry &entry) { return entry.cells == decltype(entry.cells){}; });
    entries_.resize(std::min(entries_.size(), most_entries));
    return static_cast<int>(entries_.size());
}

void Rtcm3_Epoch_Record::Store(const Rtcm3_Epoch &epoch, EPO_DATA &record)
{
    const double seconds = epoch.tow / 1000.0;
    if (epoch.week)
        record.StoreGPSTime(Gps_Time(static_cast<unsigned short>(*epoch.week), seconds));
    else
        record.StoreDoubleEpo(EPO_SECONDS, seconds);
    record.StoreUint8Epo(EPO_SATELLITES, static_cast<unsigned char>(entries_.size()));
    record.StoreUint8Epo(EPO_STATION_LOW, static_cast<unsigned char>(epoch.station & 255));
    record.StoreUint8Epo(EPO_STATION_HIGH,
                         static_cast<unsigned char>(epoch.station >> 8 | epoch.issue_of_station << issue_shift));
    record.StoreUint8Epo(EPO_SMOOTHING, Smoothing_And_Steering(epoch));
    unsigned char sat = 0;
    for (const Entry &entry : entries_) {
        Store_Satellite(*entry.satellite, record, sat);
        Store_Flags(epoch, entry, record, sat);
        for (std::size_t set = 0; set < sets; ++set)
            if (entry.cells[set]) Store_Cell(*entry.cells[set], set, record, sat);
        ++sat;
    }
}

void Rtcm3_Epoch_Record::Store_Satellite(const Rtcm3_Satellite &satellite, EPO_DATA &record, unsigned char sat)
{
    // Messages number QZSS satellites by PRN, a record from 1.
    const int number = satellite.number - (satellite.gnss == Gnss::qzss ? qzss_base : 0);
    record.StoreUint8Obs(OBS_SYSTEM, static_cast<unsigned char>(satellite.gnss), sat);
    record.StoreUint8Obs(OBS_SATELLITE, static_cast<unsigned char>(number), sat);
    if (satellite.glonass_channel)
        record.StoreUint8Obs(OBS_GLO_CHANNEL, static_cast<unsigned char>(*satellite.glonass_channel + channel_base),
                             sat);
}

void Rtcm3_Epoch_Record::Store_Flags(const Rtcm3_Epoch &epoch, const Entry &entry, EPO_DATA &record, unsigned char sat)
{
    unsigned int tracked = 0, half_cycle = 0, lost = 0;
    for (std::size_t set = 0; set < sets; ++set) {
        const Rtcm3_Cell *cell = entry.cells[set];
        if (!cell) continue;
        const unsigned int bit = 1U << set;
        tracked |= bit;
        if (cell->half_cycle) half_cycle |= bit;
        if (Lock_Lost(epoch, *entry.satellite, set, *cell)) lost |= bit;
    }
    record.StoreUint8Obs(TRACKING_FLAG, static_cast<unsigned char>(tracked), sat);
    record.StoreUint8Obs(OBS_HALF_CYCLE, static_cast<unsigned char>(half_cycle), sat);
    record.StoreUint8Obs(OBS_LOSS_OF_LOCK, static_cast<unsigned char>(lost), sat);
}

// GLONASS satellites of unknown slot all have the number 0 and cannot be distinguished.
bool Rtcm3_Epoch_Record::Lock_Lost(const Rtcm3_Epoch &epoch, const Rtcm3_Satellite &satellite, std::size_t set,
                                   const Rtcm3_Cell &cell)
{
    if (satellite.number == 0) return false;
    // Allocates only when a satellite is seen for the first time.
    Lock &last = locks_[{satellite.gnss, satellite.number}][set];
    const std::int64_t gone = Time_Gone(last.week, last.tow, epoch);
    const bool lost = last.code && (last.code != cell.code || cell.lock_below <= last.least + gone);
    last = {cell.code, cell.lock_time, epoch.week, epoch.tow};
    return lost;
}

}  // namespace host
