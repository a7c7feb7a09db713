// From an epoch to a record: what each field of EPO_DATA is given.
#include "host/decoders/Rtcm3_Epoch_Record.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace host;
using namespace kernel;

namespace {

// Cells of one satellite each, stored as the epochs of one stream.
class Recorder {
public:
    Rtcm3_Epoch epoch;

    EPO_DATA Store(const std::vector<Rtcm3_Satellite> &satellites, const std::vector<Rtcm3_Cell> &cells)
    {
        epoch.satellites = satellites;
        epoch.cells = cells;
        EPO_DATA record(record_.Select(epoch));
        record_.Store(epoch, record);
        return record;
    }
    // Whether the lock on carrier A, of a GPS satellite, counts as lost at a time [ms].
    bool Lost(std::int32_t tow, const Rtcm3_Cell &cell, std::optional<int> week = 1709)
    {
        epoch.week = week;
        epoch.tow = tow;
        return (Store({{Gnss::gps, 5, {}}}, {cell}).ReadUint8Obs(OBS_LOSS_OF_LOCK, 0) & 1) != 0;
    }

private:
    Rtcm3_Epoch_Record record_;
};

Rtcm3_Cell Cell(const std::string &code, std::uint8_t satellite = 0)
{
    Rtcm3_Cell cell;
    cell.satellite = satellite;
    cell.code = {code[0], code[1]};
    cell.pseudorange = 2.2e7;
    return cell;
}

Rtcm3_Cell Locked(std::int32_t least, std::int32_t below, const std::string &code = "1C")
{
    Rtcm3_Cell cell = Cell(code);
    cell.lock_time = least;
    cell.lock_below = below;
    return cell;
}

constexpr std::int32_t hour = 3'600'000;  // [ms]

}  // namespace

TEST(Rtcm3_Epoch_Record, calls_a_lock_lost_that_did_not_grow_by_the_time_gone_by)
{
    struct Seen {
        std::int32_t tow;           // [ms]
        std::int32_t least, below;  // [ms]
    };
    const Seen first = {hour, 10'000, 11'000};
    const struct {
        Seen then, now;
        bool lost;
    } cases[] = {
        {first, {hour + 1000, 11'000, 12'000}, false},
        {first, {hour + 500, 10'000, 11'000}, false},  // the same indicator, within its resolution
        {first, {hour + 1000, 10'000, 11'000}, true},  // and without: 10.0 s have become 11.0 s at least
        {first, {hour + 1000, 9'000, 10'000}, true},   // shorter
        {first, {2 * hour, 744'000, 776'000}, true},   // longer, but not by an hour
        {first, {hour + 765'999, 744'000, 776'000}, false},
        {first, {hour + 766'000, 744'000, 776'000}, true},
        {first, {2 * hour, 937'000, no_lock_limit}, false},  // the last indicator stands for any time above
        {{hour, 0, 32}, {hour + 1000, 0, 32}, true},         // locked anew each time
        {{hour, 0, no_lock_limit}, {hour + 1000, 0, no_lock_limit}, false},  // reserved indicators say nothing
        {first, {hour - 1000, 10'000, 11'000}, false},                       // a step back in time
        {first, {hour - 1000, 9'000, 10'000}, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        for (const std::optional<int> week : {std::optional<int>(1709), std::optional<int>()}) {
            Recorder recorder;
            EXPECT_FALSE(recorder.Lost(c.then.tow, Locked(c.then.least, c.then.below), week));
            EXPECT_EQ(recorder.Lost(c.now.tow, Locked(c.now.least, c.now.below), week), c.lost);
        }
    }
}

TEST(Rtcm3_Epoch_Record, counts_the_time_gone_by_over_weeks)
{
    const struct {
        std::optional<int> then, now;
        std::int32_t before, after, least;  // [ms]; the lock was 10 s before
        bool lost;
    } cases[] = {
        {1709, 1710, ms_per_week - 1000, 0, 11'000, false},    {1709, 1710, ms_per_week - 1000, 0, 10'000, true},
        {{}, {}, ms_per_week - 1000, 0, 11'000, false},        {{}, {}, ms_per_week - 1000, 0, 10'000, true},
        {{}, {}, 0, ms_per_week - 1000, 10'000, false},         // a step back
        {1709, 1710, hour, hour + 1000, 11'000, true},          // a week and a second
        {1709, 1709 - 1024, hour, hour + 1000, 11'000, false},  // the week was corrected meanwhile
        {1709 - 1024, 1709, hour, hour + 1000, 11'000, false}, {{}, 1709, hour, hour + 1000, 11'000, false},
    };
    for (const auto &c : cases) {
        Recorder recorder;
        recorder.Lost(c.before, Locked(10'000, 11'000), c.then);
        EXPECT_EQ(recorder.Lost(c.after, Locked(c.least, c.least + 1000), c.now), c.lost) << &c - cases;
    }
}

TEST(Rtcm3_Epoch_Record, calls_another_signal_a_loss_of_lock)
{
    Recorder recorder;
    EXPECT_FALSE(recorder.Lost(0, Locked(10'000, 11'000, "1C")));
    EXPECT_TRUE(recorder.Lost(1000, Locked(11'000, 12'000, "1X")));
    EXPECT_FALSE(recorder.Lost(2000, Locked(12'000, 13'000, "1X")));
    // Each carrier, each satellite and each system for itself.
    recorder.epoch.tow = 3000;
    const EPO_DATA record = recorder.Store({{Gnss::gps, 5, {}}, {Gnss::gps, 6, {}}, {Gnss::galileo, 5, {}}},
                                           {Cell("1L"), Cell("2W"), Cell("1C", 1), Cell("1C", 2)});
    EXPECT_EQ(record.ReadUint8Obs(OBS_LOSS_OF_LOCK, 0), 0b001);
    EXPECT_EQ(record.ReadUint8Obs(OBS_LOSS_OF_LOCK, 1), 0);
    EXPECT_EQ(record.ReadUint8Obs(OBS_LOSS_OF_LOCK, 2), 0);
}

TEST(Rtcm3_Epoch_Record, keeps_the_half_cycle_of_each_carrier_and_the_channel_of_glonass)
{
    Recorder recorder;
    std::vector<Rtcm3_Cell> cells = {Cell("1C"), Cell("2W"), Cell("5X"), Cell("1C", 1), Cell("1C", 2), Cell("2C", 2)};
    for (const std::size_t half : {1u, 3u}) cells[half].half_cycle = true;
    const EPO_DATA record = recorder.Store({{Gnss::gps, 1, {}}, {Gnss::glonass, 1, {}}, {Gnss::glonass, 2, -7}}, cells);
    EXPECT_EQ(record.ReadUint8Obs(TRACKING_FLAG, 0), 0b111);
    EXPECT_EQ(record.ReadUint8Obs(OBS_HALF_CYCLE, 0), 0b100);  // C is L2
    EXPECT_EQ(record.ReadUint8Obs(OBS_HALF_CYCLE, 1), 0b001);
    EXPECT_EQ(record.ReadUint8Obs(OBS_HALF_CYCLE, 2), 0);
    EXPECT_EQ(record.ReadUint8Obs(OBS_GLO_CHANNEL, 0), 255);
    EXPECT_EQ(record.ReadUint8Obs(OBS_GLO_CHANNEL, 1), 255);
    EXPECT_EQ(record.ReadUint8Obs(OBS_GLO_CHANNEL, 2), 0);
}

TEST(Rtcm3_Epoch_Record, tells_station_smoothing_and_clock_steering)
{
    Recorder recorder;
    recorder.epoch.station = 0xABC;
    recorder.epoch.issue_of_station = 5;
    recorder.epoch.smoothing_interval = 6;
    recorder.epoch.clock_steering = 1;
    for (const bool divergence_free : {true, false}) {
        recorder.epoch.divergence_free = divergence_free;
        const EPO_DATA record = recorder.Store({{Gnss::gps, 1, {}}}, {Cell("1C")});
        EXPECT_EQ(record.ReadUint8Epo(EPO_STATION_LOW), 0xBC);
        EXPECT_EQ(record.ReadUint8Epo(EPO_STATION_HIGH), 0x5A);
        EXPECT_EQ(record.ReadUint8Epo(EPO_SMOOTHING), divergence_free ? 0b01'1'110 : 0b01'0'110);
    }
}
