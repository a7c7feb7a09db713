#include "kernel/time/mTime.h"

#include "tests/support/csv.h"
#include "tests/support/no_clock_setting.h"
#include "tests/support/zone.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <ostream>
#include <string>
#include <tuple>

using kernel::mTime;
using kernel::rtime2str;

namespace {

struct Shown {
    int year, month, day, hour, min;
    double sec;

    bool operator==(const Shown &) const = default;
    friend std::ostream &operator<<(std::ostream &out, const Shown &s)
    {
        out.precision(17);
        return out << s.year << '-' << s.month << '-' << s.day << ' ' << s.hour << ':' << s.min << ':' << s.sec;
    }
};

Shown Show(const mTime &time, double tol = mTime::Tolerance)
{
    Shown s{};
    time.get_caldat(s.year, s.month, s.day, s.hour, s.min, s.sec, tol);
    return s;
}

mTime Time_Of(const Shown &s) { return {s.year, s.month, s.day, s.hour, s.min, s.sec}; }

void Expect_Pair(const mTime &time, int week, double sec, double tolerance, const std::string &what)
{
    EXPECT_EQ(time.get_GPSweek(), week) << what;
    EXPECT_NEAR(time.get_GPSsecs(), sec, tolerance) << what;
}

// Counts the days of a calendar: the Julian one until 4 October 1582, then the Gregorian; no year 0.
struct Calendar_Day {
    int year, month, day;

    void Next()
    {
        static constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
        const int counted = year < 0 ? year + 1 : year;
        const bool leap = year < 1583 ? counted % 4 == 0 : year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
        if (year == 1582 && month == 10 && day == 4) day = 14;
        if (++day <= days[month - 1] + (month == 2 && leap)) return;
        day = 1;
        if (++month <= 12) return;
        month = 1;
        if (++year == 0) ++year;
    }
};

}  // namespace

TEST(mTime, agrees_with_the_table_in_both_directions)
{
    int rows = 0, carried = 0;
    for (const Csv_Row &row : Csv_Rows("time_truth.csv")) {
        const auto shown = [&](const std::string &prefix) {
            return Shown{row.Int(prefix + "year"), row.Int(prefix + "month"),  row.Int(prefix + "day"),
                         row.Int(prefix + "hour"), row.Int(prefix + "minute"), row.Number(prefix + "sec")};
        };
        const int week = row.Int("week");
        const double sow = row.Number("sow"), total = row.Number("total");
        const mTime from_date = Time_Of(shown("")), from_pair(week, sow), from_total(total);
        Expect_Pair(from_date, week, sow, 2e-9, row.Line());
        if (week >= 0) Expect_Pair(from_total, week, sow, 5e-7, row.Line());
        Shown expected = shown("disp_");
        for (const mTime &time : {from_date, from_pair, from_total}) {
            EXPECT_NEAR(time.get_roguetime(), total, 5e-7) << row.Line();
            EXPECT_NEAR(time.get_mjd(), row.Number("mjd"), 2e-11) << row.Line();
            EXPECT_NEAR(time.get_secs(), expected.sec, 5e-7) << row.Line();
            expected.sec = time.get_secs();
            EXPECT_EQ(Show(time), expected) << row.Line();
            const Shown one_by_one = {time.get_year(), time.get_month(), time.get_day(),
                                      time.get_hour(), time.get_min(),   expected.sec};
            EXPECT_EQ(one_by_one, expected) << row.Line();
            EXPECT_EQ(time.get_day_of_year(), row.Int("doy")) << row.Line();
            EXPECT_EQ(time.get_day_of_week(), row.Int("dow")) << row.Line();
        }
        ++rows;
        carried += row.Int("carry");
    }
    EXPECT_TRUE(rows > 300 && carried > 20);
}

TEST(mTime, agrees_with_the_table_of_days_of_four_years)
{
    int rows = 0;
    for (const Csv_Row &row : Csv_Rows("time_dayofperiod_truth.csv")) {
        const int hour = row.Int("hour"), minute = row.Int("minute");
        const mTime time(row.Int("year_arg"), row.Int("day_of_period"), hour, minute, row.Number("sec"));
        Expect_Pair(time, row.Int("week"), row.Number("sow"), 0, row.Line());
        const Shown expected = {row.Int("true_year"), row.Int("true_month"), row.Int("true_day"), hour, minute,
                                row.Number("sec")};
        EXPECT_EQ(Show(time), expected) << row.Line();
        ++rows;
    }
    EXPECT_GT(rows, 60);
    // The thresholds come a day early: 31 December counts for the next year when the period is chosen.
    const auto year = [](int argument, int day) { return mTime(argument, day, 0, 0, 0).get_year(); };
    EXPECT_TRUE(year(2010, 366) == 2008 && year(2010, 365) == 2012 && year(2011, 731) == 2009 &&
                year(2011, 730) == 2013);
}

TEST(mTime, writes_the_texts_of_the_table)
{
    char text[24];
    int rows = 0;
    for (const Csv_Row &row : Csv_Rows("time_text_truth.csv")) {
        const double t = row.Number("t"), whole = row.Number("t_integer");
        EXPECT_EQ(rtime2str(text, t), row.Text("rtime2str_double"));
        EXPECT_EQ(rtime2str(text, static_cast<unsigned long>(whole)), row.Text("rtime2str_integer"));
        if (whole > static_cast<double>(std::numeric_limits<long>::max())) continue;
        EXPECT_EQ(rtime2str(text, static_cast<long>(whole)), row.Text("rtime2str_integer"));
        ++rows;
    }
    EXPECT_GT(rows, 30);
    EXPECT_TRUE(!rtime2str(nullptr, 1.0) && !rtime2str(nullptr, 1.0L) && !rtime2str(nullptr, 1L));
    EXPECT_STREQ(rtime2str(text, -1L), "05.01.80 / 23:59:59");
    EXPECT_STREQ(rtime2str(text, 59.95L), "06.01.80 / 00:01:00.0");
    for (const double odd : {1e300, -1e300, 1e15, -1e15}) EXPECT_EQ(rtime2str(text, odd), text);  // they fit, too
}

TEST(mTime, keeps_both_calendars_day_by_day)
{
    constexpr int first = -1459676, last = 900000;  // days from the epoch: the years -2018 to 4444
    Calendar_Day date = {-2018, 8, 9};
    for (int day = first; day < last; ++day, date.Next()) {
        const int week = static_cast<int>(std::floor(day / 7.0));
        const int minutes = (day & 0xFFFF) * 7919 % 1440;
        const double seconds = (day - 7 * week) * 86400 + minutes * 60 + 59.75;
        const Shown shown = {date.year, date.month, date.day, minutes / 60, minutes % 60, 59.75};
        ASSERT_EQ(Show(mTime(week, seconds)), shown);
        if (date.year < 1583) continue;
        ASSERT_EQ(Time_Of(shown).get_GPSweek(), week) << shown;
        ASSERT_EQ(Time_Of(shown).get_GPSsecs(), seconds) << shown;
    }
    // Where 32 bits are too few.
    EXPECT_EQ(Show(mTime(0, 2000 * 146097 * 86400.0)), (Shown{801980, 1, 6, 0, 0, 0}));
    EXPECT_EQ(Show(mTime(0, (first - 200000 * 1461.0) * 86400)), (Shown{-802018, 8, 9, 0, 0, 0}));
}

TEST(mTime, knows_the_lengths_of_months)
{
    const int cases[][3] = {{1, 2023, 31}, {2, 2000, 29}, {2, 1900, 28},  {2, 2024, 29}, {2, 2023, 28},
                            {2, 2100, 28}, {4, 2024, 30}, {12, 2024, 31}, {0, 2024, 0},  {13, 2024, 0}};
    for (const auto &[month, year, days] : cases) EXPECT_EQ(mTime::MonthLen(month, year), days) << month << '/' << year;
}

TEST(mTime, setters_answer_the_normal_form)
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double most = std::numeric_limits<int>::max();
    const double cases[][4] = {{1000, -1, 999, 604799}, {1000, 604800, 1001, 0}, {1000, 3 * 604800 + 0.5, 1003, 0.5},
                               {0, -1e-12, 0, 0},       {most, 604800, 0, 0},    {5, HUGE_VAL, 0, 0},
                               {5, nan, 0, 0}};
    for (const auto &[week, sec, normal_week, normal_sec] : cases) {
        const std::string what = std::to_string(week) + ", " + std::to_string(sec);
        const int whole = static_cast<int>(week), normal = static_cast<int>(normal_week);
        Expect_Pair(mTime(whole, sec), normal, normal_sec, 0, what);
        Expect_Pair(mTime(whole, 0) + sec, normal, normal_sec, 0, what);
    }
    Expect_Pair(mTime(2023, 12, 30, 47, 59, 60), 2295, 86400, 0, "hours are carried");
    Expect_Pair(mTime(static_cast<mTime::InitTime>(3)), 0, 0, 0, "no such start");
    for (const double odd : {1e300, -1e300, nan}) {
        Expect_Pair(mTime(odd), 0, 0, 0, "no week for it");
        Expect_Pair(mTime(2020, 1, 1, 0, 0, odd), 0, 0, 0, "no week for it");
        Expect_Pair(mTime(2020, 1, 0, 0, odd), 0, 0, 0, "no week for it");
    }
}

TEST(mTime, totals_keep_their_sign)
{
    const mTime before(-604800.5);
    Expect_Pair(before, -1, -0.5, 0, "a week and a half second before the epoch");
    EXPECT_EQ(Show(before), (Shown{1979, 12, 29, 23, 59, 59.5}));
    EXPECT_EQ(before.get_roguetime(), -604800.5);
    EXPECT_EQ(Show(mTime(-1e-17)), (Shown{1980, 1, 6, 0, 0, 0}));
    Expect_Pair(before + 0, -2, 604799.5, 0, "moving it brings the normal form");
}

TEST(mTime, tolerance_decides_at_midnight)
{
    const mTime before(2023, 12, 31, 23, 59, 59.9995);
    EXPECT_TRUE(before.get_year(0) == 2023 && before.get_day_of_year(0) == 365 && before.get_day_of_week(0) == 0);
    EXPECT_TRUE(before.get_year() == 2024 && before.get_day_of_year() == 1 && before.get_day_of_week() == 1);
    // Mirrored before the reference Sunday: without tolerance a midnight belongs to the day before.
    for (int day = 1; day <= 31; ++day) {
        const mTime midnight(1995, 7, day, 0, 0, 0);
        const int expected = (day + 5) % 7;  // 2 July was a Sunday
        EXPECT_EQ(midnight.get_day_of_week(), expected) << day;
        EXPECT_EQ(midnight.get_day_of_week(0), day < 23 ? (expected + 6) % 7 : expected) << day;
    }
}

TEST(mTime, compares_and_overlaps)
{
    const mTime a(1000, 10.0), b(1001, 5.0);
    EXPECT_EQ(a - b, -604795);
    EXPECT_TRUE(a < b && a <= b && a != b && b > a && b >= a && !(a == b));
    EXPECT_TRUE(a == mTime(1000 * 604800.0 + 10) && a <= a && a >= a && !(a < a) && !(a > a) && !(a != a));
    EXPECT_EQ(mTime(60000, 1.0) - mTime(-60000, 0.0), 120000 * 604800.0 + 1);  // more seconds than an int holds

    const double cases[][5] = {// from and to, against 10 to 20; widen by a margin; result
                               {15, 30, 0, 0, 1}, {5, 15, 0, 0, 1},  {12, 15, 0, 0, 1}, {5, 30, 0, 0, 1},
                               {20, 30, 0, 0, 1}, {5, 10, 0, 0, 1},  {21, 30, 0, 5, 0}, {21, 30, 1, 1, 1},
                               {5, 9, 1, 1, 1},   {5, 9, 1, 0.5, 0}, {15, 16, 1, -6, 1}};
    for (const auto &[from, to, widen, margin, overlap] : cases)
        EXPECT_EQ(mTime::Overlap({1, 10.0}, {1, 20.0}, {1, from}, {1, to}, widen != 0, margin), overlap)
            << from << ' ' << to;
}

TEST(mTime, now_is_what_clocks_show)
{
    const double since_1970 =
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    EXPECT_NEAR(mTime(mTime::UTC_Now) - mTime(1970, 1, 1, 0, 0, 0), since_1970, 10);
    for (const char *rule : {zone_utc, zone_india, zone_berlin, zone_adelaide, zone_newfoundland}) {
        const Zone_Setting zone(rule);
        EXPECT_NEAR(mTime(mTime::UTC_Now) - mTime(mTime::Local_Now), mTime::GetTimeZone(), 10) << rule;
    }
}

TEST(mTime, converts_to_system_time_in_whole_milliseconds)
{
    const struct {
        double sec;
        int minute, second, millisecond;
    } cases[] = {{59.999, 34, 59, 999}, {59.99949, 34, 59, 999}, {59.9996, 35, 0, 0}, {12.9986, 34, 12, 999}};
    for (const auto &c : cases) {
        const kernel::SYSTEMTIME time = mTime(2024, 2, 29, 12, 34, c.sec).ConvertToSystemTime();
        EXPECT_EQ(std::tuple(time.wYear, time.wMonth, time.wDayOfWeek, time.wDay, time.wHour, time.wMinute,
                             time.wSecond, time.wMilliseconds),
                  std::tuple(2024, 2, 4, 29, 12, c.minute, c.second, c.millisecond));
    }
    EXPECT_EQ(mTime(2024, 2, 29, 23, 59, 59.9996).ConvertToSystemTime().wDayOfWeek, 5);
    for (int ms = 0; ms < 1000; ++ms) {  // there and back at the end of a week, where seconds have the fewest bits
        mTime time(mTime::Zero_Time);
        time.Set(kernel::SYSTEMTIME{2022, 3, 6, 5, 23, 59, 59, static_cast<std::uint16_t>(ms)});
        ASSERT_EQ(time.ConvertToSystemTime().wMilliseconds, ms);
        ASSERT_EQ(time.ConvertToSystemTime().wSecond, 59);
    }
    EXPECT_EQ(mTime(70000, 1, 1, 0, 0, 0).ConvertToSystemTime().wMonth, 0);  // no year for 16 bits
    EXPECT_EQ(mTime(-5, 1, 1, 0, 0, 0).ConvertToSystemTime().wMonth, 0);
}

TEST(mTime, sets_the_clock)
{
    EXPECT_TRUE(mTime(1970, 1, 2, 0, 0, 0.5).SetSystemTime());
    EXPECT_EQ(no_clock_setting::last_ms, 86400500);
    no_clock_setting::refuse = true;
    EXPECT_FALSE(mTime(1970, 1, 2, 0, 0, 1).SetSystemTime());
    no_clock_setting::refuse = false;
    no_clock_setting::last_ms.reset();
    EXPECT_FALSE(mTime(70000, 1, 1, 0, 0, 0).SetSystemTime());
    EXPECT_FALSE(mTime(1500, 1, 1, 0, 0, 0).SetSystemTime());
    EXPECT_FALSE(no_clock_setting::last_ms);
}

// From a day before a change of the clocks to a day after it, in quarters of an hour.
TEST(mTime, goes_to_local_time_and_back)
{
    const struct {
        const char *zone;
        mTime utc;
        double before, after;  // [s] east of Greenwich
    } changes[] = {
        {zone_india, {2025, 3, 30, 1, 0, 0}, 19800, 19800},
        {zone_berlin, {2025, 3, 30, 1, 0, 0}, 3600, 7200},
        {zone_berlin, {2025, 10, 26, 1, 0, 0}, 7200, 3600},
        {zone_adelaide, {2025, 10, 4, 16, 30, 0}, 34200, 37800},
        {zone_newfoundland, {2025, 11, 2, 4, 30, 0}, -9000, -12600},
    };
    int tried = 0;
    for (const auto &c : changes) {
        const Zone_Setting zone(c.zone);
        if (!zone) continue;
        ++tried;
        for (double from_change = -86400; from_change <= 86400; from_change += 900) {
            const mTime utc = c.utc + from_change;
            const mTime local = mTime::UTCToLocalTime(utc);
            ASSERT_EQ(local - utc, from_change < 0 ? c.before : c.after) << c.zone << ' ' << from_change;
            const mTime back = mTime::LocalTimeToUTC(local);
            const bool shown_twice = c.after < c.before && std::fabs(from_change + 450) <= 3600;
            ASSERT_EQ(mTime::UTCToLocalTime(back), local) << c.zone << ' ' << from_change;
            ASSERT_TRUE(shown_twice || back == utc) << c.zone << ' ' << from_change;
        }
    }
    if (tried == 0) GTEST_SKIP() << "started without one of the zones";
}

TEST(mTime, goes_to_local_time_in_whole_milliseconds_and_leaves_what_it_cannot_convert)
{
    const mTime fine(2025, 1, 15, 12, 0, 0.1234);
    const double offset = mTime::UTCToLocalTime(mTime(2025, 1, 15, 12, 0, 0)) - mTime(2025, 1, 15, 12, 0, 0);
    EXPECT_NEAR(mTime::UTCToLocalTime(fine) - fine, offset - 0.0004, 1e-9);
    for (const mTime &odd : {mTime(1500, 1, 1, 0, 0, 0.1234), mTime(70000, 1, 1, 0, 0, 0.1234)})
        EXPECT_EQ(mTime::UTCToLocalTime(odd), odd);
}
