#include "platform/calendar.h"

#include "platform/error.h"

#include "tests/support/no_clock_setting.h"
#include "tests/support/zone.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

using namespace platform;

namespace {

Calendar_Time At(const std::string &text)
{
    Calendar_Time t{};
    const int read = std::sscanf(text.c_str(), "%hu-%hu-%hu %hu:%hu:%hu.%hu", &t.year, &t.month, &t.day, &t.hour,
                                 &t.minute, &t.second, &t.millisecond);
    EXPECT_EQ(read, 7) << text;
    return t;
}

std::string Text(const Calendar_Time &t)
{
    char text[64];
    std::snprintf(text, sizeof text, "%hu-%02hu-%02hu %02hu:%02hu:%02hu.%03hu", t.year, t.month, t.day, t.hour,
                  t.minute, t.second, t.millisecond);
    return text;
}

std::string Local(const std::string &utc)
{
    Calendar_Time local{};
    return utc_to_local(At(utc), local) ? Text(local) : "none";
}

std::int64_t Seconds(const Calendar_Time &t)  // since 1970, of any scale
{
    namespace chrono = std::chrono;
    const chrono::sys_days day =
        chrono::year_month_day{chrono::year(t.year), chrono::month(t.month), chrono::day(t.day)};
    return chrono::sys_seconds(day).time_since_epoch().count() + t.hour * 3600 + t.minute * 60 + t.second;
}

unsigned int Week_Day(const Calendar_Time &t)
{
    return std::chrono::weekday(std::chrono::sys_days(std::chrono::days(Seconds(t) / 86400))).c_encoding();
}

std::int64_t Minutes_To_Utc(const Time_Zone &zone)
{
    using Holds = Time_Zone::Holds;
    return zone.bias + (zone.holds == Holds::standard   ? zone.standard_bias
                        : zone.holds == Holds::daylight ? zone.daylight_bias
                                                        : 0);
}

}  // namespace

TEST(calendar, utc_local_time_and_zone_of_now_agree)
{
    Calendar_Time utc{}, local{};
    do {  // both in one second
        utc = utc_now();
        local = local_now();
    } while (Seconds(utc) != Seconds(utc_now()));
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    EXPECT_NEAR(static_cast<double>(Seconds(utc)), std::chrono::duration<double>(now).count(), 5);
    EXPECT_EQ(utc.day_of_week, Week_Day(utc));
    EXPECT_EQ(local.day_of_week, Week_Day(local));
    ASSERT_NE(zone_now().holds, Time_Zone::Holds::nothing_known);
    EXPECT_EQ(Seconds(utc) - Seconds(local), Minutes_To_Utc(zone_now()) * 60);

    Calendar_Time converted{};
    ASSERT_TRUE(utc_to_local(utc, converted));
    EXPECT_EQ(Seconds(converted), Seconds(local));
}

// On Windows only the rows of the zone that the process was started with (see Zone_Setting). Windows applies the rules
// of today to all years, so that the table keeps to years with those rules.
TEST(calendar, shows_the_local_time_of_any_date)
{
    const struct {
        const char *zone, *utc, *local;
    } cases[] = {
        {zone_utc, "2024-02-29 12:34:56.789", "2024-02-29 12:34:56.789"},
        {zone_india, "2023-12-31 18:30:00.000", "2024-01-01 00:00:00.000"},
        {zone_berlin, "2025-03-30 00:59:59.999", "2025-03-30 01:59:59.999"},
        {zone_berlin, "2025-03-30 01:00:00.000", "2025-03-30 03:00:00.000"},
        {zone_berlin, "2025-10-26 00:59:59.999", "2025-10-26 02:59:59.999"},
        {zone_berlin, "2025-10-26 01:00:00.000", "2025-10-26 02:00:00.000"},
        {zone_adelaide, "2025-04-05 16:29:59.000", "2025-04-06 02:59:59.000"},
        {zone_adelaide, "2025-04-05 16:30:00.000", "2025-04-06 02:00:00.000"},
        {zone_newfoundland, "2025-11-02 04:29:59.000", "2025-11-02 01:59:59.000"},
        {zone_newfoundland, "2025-11-02 04:30:00.000", "2025-11-02 01:00:00.000"},
        {zone_newfoundland, "2025-01-01 03:29:59.999", "2024-12-31 23:59:59.999"},
    };
    int tried = 0;
    for (const auto &c : cases) {
        const Zone_Setting zone(c.zone);
        if (!zone) continue;
        EXPECT_EQ(Local(c.utc), c.local) << c.zone << ' ' << c.utc;
        Calendar_Time local{};
        utc_to_local(At(c.utc), local);
        EXPECT_EQ(local.day_of_week, Week_Day(At(c.local))) << c.utc;
        ++tried;
    }
    if (tried == 0) GTEST_SKIP() << "started without one of the zones";
}

TEST(calendar, sets_the_clock_and_refuses_what_is_no_date)
{
    no_clock_setting::refuse = false;
    no_clock_setting::last_ms.reset();
    for (const char *date : {"2025-13-01 00:00:00.000", "2025-00-01 00:00:00.000", "2025-02-29 00:00:00.000",
                             "1900-02-29 00:00:00.000", "2025-04-31 00:00:00.000", "2025-01-00 00:00:00.000",
                             "2025-01-01 24:00:00.000", "2025-01-01 00:60:00.000", "2025-01-01 00:00:60.000",
                             "2025-01-01 00:00:00.1000", "1600-12-31 23:59:59.999", "30828-01-01 00:00:00.000"}) {
        Calendar_Time local = At("2001-02-03 04:05:06.007");
        set_last_error(0);
        EXPECT_FALSE(utc_to_local(At(date), local)) << date;
        EXPECT_EQ(last_error(), static_cast<std::uint32_t>(error_invalid_parameter)) << date;
        EXPECT_EQ(Text(local), "2001-02-03 04:05:06.007");
        EXPECT_FALSE(set_system_time(At(date))) << date;
    }
    EXPECT_FALSE(no_clock_setting::last_ms);
    EXPECT_TRUE(set_system_time(At("2024-02-29 12:34:56.789")));
    EXPECT_EQ(no_clock_setting::last_ms, 1709210096789);
    no_clock_setting::refuse = true;
    EXPECT_FALSE(set_system_time(At("2024-02-29 12:34:56.789")));
    EXPECT_EQ(last_error(), static_cast<std::uint32_t>(error_access_denied));
#ifndef _WIN32
    const Zone_Setting west(zone_newfoundland);
    EXPECT_EQ(Local("1601-01-01 03:29:59.000"), "none");
    EXPECT_EQ(Local("1601-01-01 03:30:00.000"), "1601-01-01 00:00:00.000");
    const Zone_Setting east(zone_india);
    EXPECT_EQ(Local("30827-12-31 18:29:59.000"), "30827-12-31 23:59:59.000");
    EXPECT_EQ(Local("30827-12-31 18:30:00.000"), "none");
#endif
}

#ifndef _WIN32
// The rules put the changes 40 days before and after now, so that now is in standard time or in daylight time.
TEST(calendar, tells_standard_from_daylight_time)
{
    const time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    tm fields{};
    gmtime_r(&now, &fields);
    const std::string before = std::to_string((fields.tm_yday + 365 - 40) % 365);
    const std::string after = std::to_string((fields.tm_yday + 40) % 365);
    using Holds = Time_Zone::Holds;
    const struct {
        std::string rule;
        Holds holds;
        long bias, daylight_bias, to_utc;  // [min]
    } cases[] = {
        {"STD9:30DST8," + before + "," + after, Holds::daylight, 570, -90, 480},
        {"STD-9:30DST," + after + "," + before, Holds::standard, -570, -60, -570},
        {zone_india, Holds::no_change, -330, 0, -330},
    };
    for (const auto &c : cases) {
        const Zone_Setting set(c.rule);
        const Time_Zone zone = zone_now();
        EXPECT_EQ(zone.holds, c.holds) << c.rule;
        EXPECT_EQ(zone.bias, c.bias) << c.rule;
        EXPECT_EQ(zone.daylight_bias, c.daylight_bias) << c.rule;
        EXPECT_EQ(Minutes_To_Utc(zone), c.to_utc) << c.rule;
    }
}
#endif

TEST(calendar, serves_several_threads)
{
    const Zone_Setting zone(zone_berlin);
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (const char *utc : {"2010-01-15 12:00:00.000", "2015-07-15 12:00:00.000", "2020-03-15 12:00:00.000"}) {
        threads.emplace_back([&, utc, expected = Local(utc)] {
            for (int n = 0; n < 50000; ++n) wrong += Local(utc) != expected;
        });
    }
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}
