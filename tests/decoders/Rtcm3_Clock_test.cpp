// Week and leap seconds, seen through the epochs that they date: GPS and GLONASS of one time are one epoch.
#include "host/decoders/Rtcm3_Clock.h"

#include "host/decoders/Rtcm3_Epoch.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <vector>

using namespace host;

namespace {

enum class Order { gps_first, glonass_first };

// A station that sends an epoch of GPS and GLONASS on command, and the epochs that are assembled from it.
class Station {
public:
    explicit Station(const Rtcm3_Options &options = {})
        : assembler_([this](const Rtcm3_Epoch &epoch) { Hear(epoch); }, options)
    {
    }

    // [s] of week, [s] GPS - UTC
    Station &Epoch(int tow, int leap_seconds, Order order = Order::gps_first)
    {
        const bool gps_first = order == Order::gps_first;
        return gps_first ? Gps(tow, true).Glonass(tow, leap_seconds, false)
                         : Glonass(tow, leap_seconds, true).Gps(tow, false);
    }
    Station &Epochs(int count, int tow, int leap_seconds)
    {
        for (int i = 0; i < count; ++i) Epoch(tow + i, leap_seconds);
        return *this;
    }
    Station &Gps(int tow, bool more) { return Observe(Gnss::gps, static_cast<std::uint32_t>(tow) * 1000, more); }
    // Legacy: a time of day, UTC + 3 h.
    Station &Glonass(int tow, int leap_seconds, bool more)
    {
        const int of_day = (tow - leap_seconds + 10'800 + 7 * 86'400) % 86'400;
        return Observe(Gnss::glonass, static_cast<std::uint32_t>(of_day) * 1000, more);
    }
    Station &Observe(Gnss gnss, std::uint32_t time, bool more)
    {
        Rtcm3_Observations observations;
        observations.station = station_;
        observations.gnss = gnss;
        observations.time = time;
        observations.more_follows = more;
        observations.satellite_count = observations.cell_count = 1;
        observations.satellite_table[0] = {gnss, 1, {}};
        observations.cell_table[0].code = {'1', 'C'};
        assembler_.Take(observations);
        return *this;
    }
    Station &Of_Station(int number)
    {
        station_ = static_cast<std::uint16_t>(number);
        return *this;
    }
    Station &Ephemerides(int count, int week, int toe, bool long_fit = false)
    {
        Rtcm3_Gps_Ephemeris ephemeris;
        ephemeris.week = static_cast<std::uint16_t>(week % 1024);
        ephemeris.toe = toe;
        ephemeris.long_fit = long_fit;
        for (int i = 0; i < count; ++i) assembler_.Take(ephemeris);
        return *this;
    }
    Station &Parameters(int leap_seconds, int mjd)
    {
        Rtcm3_System_Parameters parameters;
        parameters.leap_seconds = static_cast<std::uint8_t>(leap_seconds);
        parameters.mjd = static_cast<std::uint16_t>(mjd);
        assembler_.Take(parameters);
        return *this;
    }
    Station &Glonass_Date(int n4, int nt, bool additional = true)
    {
        Rtcm3_Glonass_Ephemeris ephemeris;
        ephemeris.slot = 1;
        ephemeris.n4 = static_cast<std::uint8_t>(n4);
        ephemeris.nt = static_cast<std::uint16_t>(nt);
        ephemeris.additional = additional;
        assembler_.Take(ephemeris);
        return *this;
    }

    const Rtcm3_Clock &Clock() const { return assembler_.Clock(); }
    std::uint64_t Doubts(Rtcm3_Doubt kind) const { return Clock().Doubts(kind).count; }
    std::uint64_t All_Doubts() const
    {
        std::uint64_t all = 0;
        for (std::size_t kind = 0; kind < rtcm3_doubts; ++kind) all += Doubts(static_cast<Rtcm3_Doubt>(kind));
        return all;
    }
    // Epochs that are not whole: GPS or GLONASS alone.
    std::size_t Split() const
    {
        std::size_t split = 0;
        for (const Seen &epoch : epochs) split += epoch.satellites != 2;
        return split;
    }

    struct Seen {
        std::optional<int> week;
        std::int32_t tow;  // [ms]
        std::size_t satellites;
    };
    std::vector<Seen> epochs;

private:
    void Hear(const Rtcm3_Epoch &epoch) { epochs.push_back({epoch.week, epoch.tow, epoch.satellites.size()}); }
    std::uint16_t station_ = 7;
    Rtcm3_Epoch_Assembler assembler_;
};

constexpr int noon = 43'200;  // [s] Sunday

}  // namespace

TEST(Rtcm3_Clock, keeps_a_recording_of_2009_in_its_week_when_told)
{
    Station told({.start_week = 1562}), near({.near_week = 1500});
    for (Station *station : {&told, &near}) {
        station->Ephemerides(1, 1562, noon);
        for (int i = 0; i < 30; ++i) station->Epoch(noon + i, 15).Ephemerides(1, 1562, noon);
        EXPECT_EQ(station->epochs.size(), 30u);
        for (const auto &epoch : station->epochs) EXPECT_EQ(epoch.week, 1562);
        EXPECT_EQ(station->Clock().Full(1562 % 1024), 1562);
        EXPECT_EQ(station->Split() + station->All_Doubts(), 0u);
    }
    EXPECT_EQ(told.Clock().Week_Source(), Rtcm3_Clock::Source::user_confirmed);
}

TEST(Rtcm3_Clock, derives_the_leap_seconds_from_the_epochs)
{
    // No option is set. Of the weeks with the same ten bits, the one with the stream's leap seconds is found.
    const struct {
        int week, leap_seconds, found;
        std::uint64_t corrections;
    } cases[] = {{1562, 15, 1562, 1}, {1709, 16, 1709, 0}, {2360, 18, 2360, 0}, {2500, 19, 2500, 0}, {800, 10, 800, 1}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.week);
        Station first, late;
        first.Ephemerides(1, c.week, noon).Epochs(10, noon, c.leap_seconds);
        late.Epochs(10, noon, c.leap_seconds).Ephemerides(1, c.week, noon).Epoch(noon + 10, c.leap_seconds);
        EXPECT_EQ(first.Split() + late.Split(), 0u);
        EXPECT_EQ(first.epochs.size() + late.epochs.size(), 21u);
        EXPECT_EQ(first.epochs.back().week, c.found);
        EXPECT_EQ(late.epochs.back().week, c.found);
        EXPECT_EQ(first.Doubts(Rtcm3_Doubt::week_corrected), c.corrections);
        EXPECT_EQ(late.All_Doubts(), 0u);
        EXPECT_EQ(first.Clock().Leap_Seconds(), c.leap_seconds);
        EXPECT_EQ(first.Clock().Leap_Seconds_Source(), Rtcm3_Clock::Source::stream);
    }
}

TEST(Rtcm3_Clock, takes_the_date_from_the_stream)
{
    // 20 December 2009 is MJD 55185, in week 1563; GLONASS counts it as day 719 of the four years from 2008, the
    // fourth.
    Station by_1013, by_1020, without;
    by_1013.Parameters(15, 55185);
    by_1020.Glonass_Date(4, 719);
    without.Glonass_Date(0, 719).Glonass_Date(4, 0).Glonass_Date(4, 719, false);
    for (Station *station : {&by_1013, &by_1020, &without}) station->Ephemerides(1, 1563, noon).Epoch(noon, 15);
    EXPECT_EQ(by_1013.epochs.back().week, 1563);
    EXPECT_EQ(by_1020.epochs.back().week, 1563);
    EXPECT_EQ(without.epochs.back().week, 1563 + 1024);
    // It comes after the ephemeris as well.
    without.Glonass_Date(4, 719).Epoch(noon + 1, 15);
    EXPECT_EQ(without.epochs.back().week, 1563);
    EXPECT_EQ(without.Doubts(Rtcm3_Doubt::week_corrected), 1u);
    // The first day of the first four years.
    Station first;
    first.Glonass_Date(1, 1).Ephemerides(1, 834, noon).Epoch(noon, 11);
    EXPECT_EQ(first.epochs.back().week, 834);
}

TEST(Rtcm3_Clock, follows_a_leap_second_that_no_table_has)
{
    // Monday 00:00:00 UTC, which is 03:00:00 of GLONASS; 18 seconds before it, 19 after.
    const int after = 86'400 + 19;
    for (const Rtcm3_Options &options : {Rtcm3_Options{}, Rtcm3_Options{.start_week = 2500}}) {
        Station station(options);
        station.Ephemerides(1, 2500, noon).Epochs(10, after - 11, 18).Epochs(10, after, 19);
        EXPECT_EQ(station.Split() + station.All_Doubts(), 0u);
        EXPECT_EQ(station.epochs.size(), 20u);
        EXPECT_EQ(station.Clock().Leap_Seconds(), 19);
    }
}

TEST(Rtcm3_Clock, does_not_take_lost_messages_for_leap_seconds)
{
    const int early = 86'400 + 200;  // [s] in the hour that a leap second may have begun
    Station station;
    station.Epochs(5, early, 18);
    for (int t = early + 10; t < early + 500; t += 100)  // GPS of one second, GLONASS of the next
        station.Gps(t, true).Glonass(t + 1, 18, false).Epoch(t + 2, 18);
    for (int t = early + 4000; t < early + 4002; ++t) station.Gps(t, true).Glonass(t - 1, 18, false);  // a late message
    EXPECT_EQ(station.Clock().Leap_Seconds(), 18);
    EXPECT_EQ(station.Split(), 2u * 5 + 2u * 2);
    EXPECT_EQ(station.epochs.size(), station.Split() + 5 + 5);

    // Without an end of epochs, each message belongs to the one that came before.
    Station endless;
    endless.Parameters(17, 60'000);
    for (int i = 0; i < 5; ++i) endless.Gps(noon + i, true).Glonass(noon + i, 18, true);
    EXPECT_EQ(endless.Clock().Leap_Seconds(), 18);
    // Several messages of one epoch are one comparison.
    Station single;
    single.Parameters(17, 60'000).Gps(noon, true);
    for (int i = 0; i < 5; ++i) single.Glonass(noon, 18, true);
    EXPECT_EQ(single.Clock().Leap_Seconds(), 17);
}

TEST(Rtcm3_Clock, compares_what_is_of_one_epoch_only)
{
    const auto compares = [](const Station &station) { return station.Clock().Leap_Seconds().has_value(); };
    EXPECT_TRUE(compares(Station().Gps(noon, true).Glonass(noon, 18, false)));
    EXPECT_FALSE(compares(Station().Gps(noon, false).Glonass(noon, 18, false)));      // the epoch has ended
    EXPECT_FALSE(compares(Station().Gps(noon, true).Glonass(noon - 30, 18, false)));  // 48 leap seconds
    EXPECT_FALSE(compares(Station().Observe(Gnss::beidou, (noon - 14) * 1000, true).Glonass(noon, 18, false)));
    EXPECT_FALSE(compares(Station().Gps(noon, true).Of_Station(8).Glonass(noon, 18, false)));
}

TEST(Rtcm3_Clock, believes_the_times_more_than_what_was_announced)
{
    Station station;
    station.Parameters(17, 60'000).Epochs(10, noon, 18);
    EXPECT_EQ(station.Split(), 2u * 2);  // the first two; the third comparison is believed
    EXPECT_EQ(station.Clock().Leap_Seconds(), 18);
    EXPECT_GT(station.Doubts(Rtcm3_Doubt::leap_seconds_by_times), 0u);
    // The user's word stands, and is doubted.
    Station told({.leap_seconds = 17});
    told.Epochs(10, noon, 18);
    EXPECT_EQ(told.Clock().Leap_Seconds(), 17);
    EXPECT_EQ(told.Split(), 20u);
    EXPECT_EQ(told.Clock().Doubts(Rtcm3_Doubt::leap_seconds_by_times).had, 17);
    EXPECT_EQ(told.Clock().Doubts(Rtcm3_Doubt::leap_seconds_by_times).shown, 18);
    // A certain date is better than one comparison, which may be of two epochs; enough of them are better than it.
    Station dated({.start_week = 1712});
    dated.Gps(noon, true).Glonass(noon + 1, 16, false);
    EXPECT_EQ(dated.Split(), 2u);
    EXPECT_EQ(dated.Epochs(10, noon + 100, 16).Split(), 2u);
}

TEST(Rtcm3_Clock, learns_from_epochs_that_begin_with_glonass)
{
    Station station;
    for (int i = 0; i < 10; ++i) station.Epoch(noon + i, 19, Order::glonass_first);
    EXPECT_EQ(station.Clock().Leap_Seconds(), 19);
    EXPECT_EQ(station.Split(), 1u);  // the first, whose GLONASS message nothing could date
}

TEST(Rtcm3_Clock, says_where_the_week_is_in_doubt)
{
    Station told({.start_week = 1711});  // the user's week is kept
    told.Epoch(noon, 16).Ephemerides(2, 1712, noon).Ephemerides(2, 1713, noon).Ephemerides(2, 1712, noon);
    EXPECT_EQ(told.All_Doubts(), 0u);
    told.Ephemerides(1, 1712, noon).Epoch(noon + 1, 16);
    EXPECT_EQ(told.epochs.back().week, 1711);
    EXPECT_EQ(told.Doubts(Rtcm3_Doubt::week_by_ephemerides), 1u);
    EXPECT_EQ(told.Clock().Doubts(Rtcm3_Doubt::week_by_ephemerides).shown, 1712);

    Station confirmed({.start_week = 1711});  // then the stream was away for a week
    confirmed.Epoch(noon, 16).Ephemerides(1, 1711, noon).Epoch(noon + 1, 16).Ephemerides(3, 1712, noon);
    confirmed.Epoch(noon + 2, 16);
    EXPECT_EQ(confirmed.epochs.back().week, 1712);
    EXPECT_EQ(confirmed.Doubts(Rtcm3_Doubt::week_corrected), 1u);

    Station era({.start_week = 1562 + 1024});
    era.Epochs(5, noon, 15).Ephemerides(5, 1562, noon);
    EXPECT_EQ(era.epochs.back().week, 1562 + 1024);
    EXPECT_EQ(era.Doubts(Rtcm3_Doubt::week_by_leap_seconds), 1u);
}

TEST(Rtcm3_Clock, is_not_led_by_old_ephemerides)
{
    const struct {
        int toe;
        bool long_fit, counts;
    } cases[] = {{noon + 4 * 3600, false, true},
                 {noon + 4 * 3600 + 16, false, false},
                 {noon + 86'400, false, false},
                 {noon + 73 * 3600, true, true},
                 {604'784, true, false}};
    for (const auto &c : cases) {
        Station station;
        station.Gps(noon, false).Ephemerides(1, 2360, c.toe, c.long_fit).Gps(noon + 1, false);
        EXPECT_EQ(station.epochs.back().week.has_value(), c.counts) << c.toe;
    }
}
