#include "kernel/mTime.h"

#include "tests/support/csv.h"
#include "tests/support/no_clock_setting.h"
#include "tests/support/zone.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <ostream>
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

bool Same_Date(const Shown &a, const Shown &b)
{
    return std::tie(a.year, a.month, a.day, a.hour, a.min) == std::tie(b.year, b.month, b.day, b.hour, b.min);
}

Shown Of_Row(const Csv_Row &row, const std::string &prefix)
{
    return {row.Int(prefix + "year"), row.Int(prefix + "month"),  row.Int(prefix + "day"),
            row.Int(prefix + "hour"), row.Int(prefix + "minute"), row.Number(prefix + "sec")};
}

mTime Time_Of(const Shown &s) { return {s.year, s.month, s.day, s.hour, s.min, s.sec}; }

void Expect_Pair(const mTime &time, int week, double sec, double tolerance, const std::string &what)
{
    EXPECT_EQ(time.get_GPSweek(), week) << what;
    EXPECT_NEAR(time.get_GPSsecs(), sec, tolerance) << what;
}

// The conversions as they are defined, in floating point from beginning to end.
namespace literal {

double Mjd(int y, int m, int d, int h, int n, double s)
{
    const int month = m < 3 ? m + 13 : m + 1, year = m < 3 ? y - 1 : y;
    return 365 * year + year / 4 + 306 * month / 10 - 679004 - year / 100 + year / 400 + d + h / 24.0 + n / 1440.0 +
           s / 86400.0;
}

std::pair<int, double> Pair(const Shown &s)
{
    const double whole = std::floor(s.sec + 0.5);
    double weeks = 0;
    const double fraction = std::modf((Mjd(s.year, s.month, s.day, s.hour, s.min, whole) - 44244) / 7, &weeks);
    double sec = std::floor(fraction * 604800 + 0.5) + (s.sec - whole);
    int week = static_cast<int>(std::floor(weeks + 0.5));
    const int more = static_cast<int>(sec / 604800);
    week += more;
    sec -= more * 604800.0;
    if (sec < 0) {
        week -= 1;
        sec += 604800;
    }
    return {week, sec};
}

Shown Date(int week, double seconds)
{
    const double mjd = 7.0 * week + 44244 + seconds / 86400;
    const double day = std::floor(mjd), j = day + 2400001;
    double a = j;
    if (j >= 2299161) {
        const double alpha = std::floor((day + 532785 - 0.25) / 36524.25);
        a = j + 1 + alpha - std::floor(0.25 * alpha);
    }
    const double b = a + 1524, c = std::floor((a - 2438346 - 122.1) / 365.25 + 6680);
    const double d = 365 * c + std::floor(0.25 * c), e = std::floor((b - d) / 30.6001);
    const double month = e - 1 > 12 ? e - 13 : e - 1;
    double year = c - 4715 - (month > 2 ? 1 : 0);
    if (year < 1) year -= 1;
    const double hours = 24 * (mjd - day), hour = std::floor(hours);
    const double minutes = 60 * (hours - hour), min = std::floor(minutes);
    return {static_cast<int>(year), static_cast<int>(month), static_cast<int>(b - d - std::floor(30.6001 * e)),
            static_cast<int>(hour), static_cast<int>(min),   60 * (minutes - min)};
}

Shown Whole_Date(int week, double seconds)
{
    Shown s = Date(week, std::floor(seconds) + 0.5);
    s.sec = std::floor(s.sec);
    return s;
}

Shown Show(int week, double seconds, double tol)
{
    Shown s = Whole_Date(week, seconds);
    const double whole = s.sec;
    s.sec += seconds - std::floor(seconds);
    if (std::floor(s.sec + tol) <= whole) return s;
    s.sec += 0.5;
    const auto [next_week, next_seconds] = Pair(s);
    return Whole_Date(next_week, next_seconds);
}

}  // namespace literal

}  // namespace

TEST(mTime, agrees_with_the_table_in_both_directions)
{
    int rows = 0, carried = 0;
    for (const Csv_Row &row : Csv_Rows("time_truth.csv")) {
        const int week = row.Int("week");
        const double sow = row.Number("sow"), total = row.Number("total");
        const mTime from_date = Time_Of(Of_Row(row, "")), from_pair(week, sow), from_total(total);
        Expect_Pair(from_date, week, sow, 2e-9, row.Line());
        EXPECT_NEAR(from_total.get_roguetime(), total, 5e-7) << row.Line();
        if (week >= 0) Expect_Pair(from_total, week, sow, 5e-7, row.Line());
        const Shown expected = Of_Row(row, "disp_");
        for (const mTime &time : {from_date, from_pair, from_total}) {
            EXPECT_NEAR(time.get_roguetime(), total, 5e-7) << row.Line();
            EXPECT_NEAR(time.get_mjd(), row.Number("mjd"), 2e-11) << row.Line();
            EXPECT_TRUE(Same_Date(Show(time), expected)) << Show(time) << " for " << row.Line();
            EXPECT_NEAR(time.get_secs(), expected.sec, 5e-7) << row.Line();
            const Shown one_by_one = {time.get_year(), time.get_month(), time.get_day(),
                                      time.get_hour(), time.get_min(),   expected.sec};
            EXPECT_EQ(one_by_one, expected) << row.Line();
            EXPECT_EQ(time.get_day_of_year(), row.Int("doy")) << row.Line();
            EXPECT_EQ(time.get_day_of_week(), row.Int("dow")) << row.Line();
        }
        ++rows;
        carried += row.Int("carry");
    }
    EXPECT_GT(rows, 300);
    EXPECT_GT(carried, 20);
}

TEST(mTime, agrees_with_the_table_of_days_of_four_years)
{
    int rows = 0;
    for (const Csv_Row &row : Csv_Rows("time_dayofperiod_truth.csv")) {
        const int hour = row.Int("hour"), minute = row.Int("minute");
        const mTime time(row.Int("year_arg"), row.Int("day_of_period"), hour, minute, row.Number("sec"));
        Expect_Pair(time, row.Int("week"), row.Number("sow"), 0, row.Line());
        EXPECT_EQ(Show(time), (Shown{row.Int("true_year"), row.Int("true_month"), row.Int("true_day"), hour, minute,
                                     row.Number("sec")}))
            << row.Line();
        ++rows;
    }
    EXPECT_GT(rows, 60);
    // The thresholds come a day early: 31 December counts for the next year when the period is chosen.
    EXPECT_EQ(mTime(2010, 366, 0, 0, 0).get_year(), 2008);
    EXPECT_EQ(mTime(2010, 365, 0, 0, 0).get_year(), 2012);
    EXPECT_EQ(mTime(2011, 731, 0, 0, 0).get_year(), 2009);
    EXPECT_EQ(mTime(2011, 730, 0, 0, 0).get_year(), 2013);
}

TEST(mTime, writes_the_texts_of_the_table)
{
    int rows = 0;
    for (const Csv_Row &row : Csv_Rows("time_text_truth.csv")) {
        char text[24];
        const double t = row.Number("t"), whole = row.Number("t_integer");
        EXPECT_STREQ(rtime2str(text, t), row.Text("rtime2str_double").c_str());
        EXPECT_STREQ(rtime2str(text, static_cast<long double>(t)), row.Text("rtime2str_double").c_str());
        EXPECT_STREQ(rtime2str(text, static_cast<unsigned long>(whole)), row.Text("rtime2str_integer").c_str());
        if (whole <= static_cast<double>(std::numeric_limits<long>::max())) {
            EXPECT_STREQ(rtime2str(text, static_cast<long>(whole)), row.Text("rtime2str_integer").c_str());
        }
        ++rows;
    }
    EXPECT_EQ(rows, 40);
    EXPECT_EQ(rtime2str(nullptr, 1.0), nullptr);
    EXPECT_EQ(rtime2str(nullptr, 1.0L), nullptr);
    EXPECT_EQ(rtime2str(nullptr, 1L), nullptr);
    EXPECT_EQ(rtime2str(nullptr, 1UL), nullptr);
    char text[24];
    EXPECT_STREQ(rtime2str(text, -1L), "05.01.80 / 23:59:59");
    EXPECT_STREQ(rtime2str(text, 59.95), "06.01.80 / 00:01:00.0");
    EXPECT_STREQ(rtime2str(text, 59.89), "06.01.80 / 00:00:59.9");
    for (const double odd : {1e300, -1e300, 1e15, -1e15}) EXPECT_EQ(rtime2str(text, odd), text);  // they fit, too
}

TEST(mTime, is_exact_wherever_the_conversions_are_defined)
{
    const double of_day[] = {0, 0.25, 0.9985, 1.9991, 3599.9999999, 43199.5, 43200, 81724.95, 86399, 86399.9999};
    const int first = -28779, last = 43829;  // days from 1901 to 2099
    for (int day = first; day < last; ++day) {
        const int week = static_cast<int>(std::floor(day / 7.0));
        for (const double time_of_day : of_day) {
            const double seconds = (day - 7 * week) * 86400 + time_of_day;
            const mTime time(week, seconds);
            for (const double tol : {0.0, mTime::Tolerance, 0.1})
                ASSERT_EQ(Show(time, tol), literal::Show(week, seconds, tol)) << week << ' ' << seconds << ' ' << tol;
            const Shown exact = Show(time, 0);
            const mTime back = Time_Of(exact);
            ASSERT_EQ(std::pair(back.get_GPSweek(), back.get_GPSsecs()), literal::Pair(exact)) << exact;
        }
    }
}

TEST(mTime, keeps_the_two_calendars_of_the_definition)
{
    const auto expect_same = [](int day) {
        ASSERT_EQ(Show(mTime(0, day * 86400.0), 0), literal::Show(0, day * 86400.0, 0)) << day;
    };
    for (int day = -1500000; day < 900000; day += 11) expect_same(day);          // the years -2129 to 4444
    for (int day = -300000000; day < 300000000; day += 30011) expect_same(day);  // where 32 bits are too few
    EXPECT_EQ(Show(mTime(1582, 10, 15, 0, 0, 0)), (Shown{1582, 10, 15, 0, 0, 0}));
    EXPECT_EQ(Show(mTime(1582, 10, 15, 0, 0, 0) + -1), (Shown{1582, 10, 4, 23, 59, 59}));
}

TEST(mTime, knows_the_landmarks)
{
    const mTime epoch(1980, 1, 6, 0, 0, 0);
    Expect_Pair(epoch, 0, 0, 0, "epoch");
    EXPECT_EQ(epoch.get_mjd(), 44244);
    const mTime leap_day(2008, 2, 29, 12, 0, 0.4);
    EXPECT_EQ(Show(leap_day), (Shown{2008, 2, 29, 12, 0, leap_day.get_secs()}));
    EXPECT_NEAR(leap_day.get_secs(), 0.4, 2e-10);
    struct Month {
        int month, year, days;
    };
    for (const Month &m : {Month{1, 2023, 31},
                           {2, 2000, 29},
                           {2, 1900, 28},
                           {2, 2024, 29},
                           {2, 2023, 28},
                           {2, 2100, 28},
                           {4, 2024, 30},
                           {12, 2024, 31},
                           {0, 2024, 0},
                           {13, 2024, 0}})
        EXPECT_EQ(mTime::MonthLen(m.month, m.year), m.days) << m.month << '/' << m.year;
}

TEST(mTime, setters_answer_the_normal_form)
{
    struct Case {
        int week;
        double sec;
        int normal_week;
        double normal_sec;
    };
    for (const Case &c : {Case{1000, -1, 999, 604799},
                          {1000, 604800, 1001, 0},
                          {1000, 604799.75, 1000, 604799.75},
                          {1000, -604800, 999, 0},
                          {1000, 3 * 604800 + 0.5, 1003, 0.5},
                          {0, -1e-12, 0, 0},  // no number below 604800 is as near
                          {std::numeric_limits<int>::max(), 604800, 0, 0},
                          {5, std::numeric_limits<double>::infinity(), 0, 0},
                          {5, std::numeric_limits<double>::quiet_NaN(), 0, 0}}) {
        const std::string what = std::to_string(c.week) + ", " + std::to_string(c.sec);
        Expect_Pair(mTime(c.week, c.sec), c.normal_week, c.normal_sec, 0, what);
        mTime moved(c.week, 0);
        mTime &self = moved += c.sec;
        EXPECT_EQ(&self, &moved);
        Expect_Pair(moved, c.normal_week, c.normal_sec, 0, what);
        Expect_Pair(mTime(c.week, 0) + c.sec, c.normal_week, c.normal_sec, 0, what);
    }
    Expect_Pair(mTime(2023, 12, 31, 23, 59, 60), 2295, 86400, 0, "a leap second is the next day's first");
    Expect_Pair(mTime(2023, 12, 30, 47, 59, 60), 2295, 86400, 0, "hours are carried");
    Expect_Pair(mTime(mTime::Zero_Time), 0, 0, 0, "zero");
    Expect_Pair(mTime(static_cast<mTime::InitTime>(3)), 0, 0, 0, "no such start");
    for (const double odd : {1e300, -1e300, std::numeric_limits<double>::quiet_NaN()}) {
        Expect_Pair(mTime(odd), 0, 0, 0, "no week for it");
        Expect_Pair(mTime(2020, 1, 1, 0, 0, odd), 0, 0, 0, "no week for it");
        Expect_Pair(mTime(2020, 1, 0, 0, odd), 0, 0, 0, "no week for it");
    }
}

TEST(mTime, totals_keep_their_sign)
{
    struct Case {
        double total;
        int week;
        double sec;
        Shown shown;
    };
    for (const Case &c : {Case{-1, 0, -1, {1980, 1, 5, 23, 59, 59}},
                          {-604800.5, -1, -0.5, {1979, 12, 29, 23, 59, 59.5}},
                          {604800.0 * 1000 + 0.25, 1000, 0.25, {1999, 3, 7, 0, 0, 0.25}},
                          {-1e-17, 0, -1e-17, {1980, 1, 6, 0, 0, 0}}}) {
        Expect_Pair(mTime(c.total), c.week, c.sec, 0, std::to_string(c.total));
        EXPECT_EQ(Show(mTime(c.total)), c.shown);
        EXPECT_EQ(mTime(c.total).get_roguetime(), c.total);
    }
    EXPECT_EQ((mTime(-1.0) + 0).get_GPSweek(), -1);  // moving it brings the normal form
}

TEST(mTime, tolerance_decides_at_midnight)
{
    const mTime before(2023, 12, 31, 23, 59, 59.9995);
    EXPECT_EQ(before.get_year(0), 2023);
    EXPECT_EQ(before.get_day_of_year(0), 365);
    EXPECT_EQ(before.get_day_of_week(0), 0);
    EXPECT_EQ(before.get_year(), 2024);
    EXPECT_EQ(before.get_day_of_year(), 1);
    EXPECT_EQ(before.get_day_of_week(), 1);
    EXPECT_EQ(before.get_hour(), 0);
    // Mirrored before the reference Sunday: without tolerance a midnight belongs to the day before.
    for (int day = 1; day <= 31; ++day) {
        const mTime midnight(1995, 7, day, 0, 0, 0);
        const int expected = (day + 5) % 7;  // 2 July was a Sunday
        EXPECT_EQ(midnight.get_day_of_week(), expected) << day;
        EXPECT_EQ(midnight.get_day_of_week(0), day < 23 ? (expected + 6) % 7 : expected) << day;
        EXPECT_EQ((midnight + 43200).get_day_of_week(0), expected) << day;
    }
}

TEST(mTime, compares_and_overlaps)
{
    const mTime a(1000, 10.0), b(1001, 5.0);
    EXPECT_EQ(b - a, 604795);
    EXPECT_EQ(a - b, -604795);
    EXPECT_TRUE(a < b && a <= b && a != b && b > a && b >= a && !(a == b));
    EXPECT_TRUE(a == mTime(1000 * 604800.0 + 10) && a <= a && a >= a && !(a < a) && !(a > a) && !(a != a));
    EXPECT_EQ(mTime(60000, 1.0) - mTime(-60000, 0.0), 120000 * 604800.0 + 1);  // more seconds than an int holds

    struct Case {
        int a1, a2, b1, b2, widen;
        double margin;
        int overlap;
    };
    for (const Case &c : {Case{10, 20, 15, 30, 0, 0, 1},
                          {10, 20, 5, 15, 0, 0, 1},
                          {10, 20, 12, 15, 0, 0, 1},
                          {10, 20, 5, 30, 0, 0, 1},
                          {10, 20, 20, 30, 0, 0, 1},  // the ends count
                          {10, 20, 5, 10, 0, 0, 1},
                          {10, 20, 21, 30, 0, 5, 0},  // a margin that is not used
                          {10, 20, 21, 30, 1, 1, 1},
                          {10, 20, 5, 9, 1, 1, 1},
                          {10, 20, 5, 9, 1, 0.5, 0},
                          {10, 20, 15, 16, 1, -6, 1},  // narrowed to nothing, from 16 to 14, and inside
                          {10, 20, 30, 40, 0, 0, 0}})
        EXPECT_EQ(mTime::Overlap({1, c.a1 * 1.0}, {1, c.a2 * 1.0}, {1, c.b1 * 1.0}, {1, c.b2 * 1.0}, c.widen, c.margin),
                  c.overlap)
            << c.a1 << ' ' << c.a2 << ' ' << c.b1 << ' ' << c.b2;
}

TEST(mTime, now_is_what_clocks_show)
{
    const double since_1970 =
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    const mTime utc(mTime::UTC_Now), local(mTime::Local_Now);
    EXPECT_NEAR(utc - mTime(1970, 1, 1, 0, 0, 0), since_1970, 10);
    EXPECT_NEAR(utc - local, mTime::GetTimeZone(), 10);
    for (const char *rule : {zone_utc, zone_india, zone_berlin, zone_adelaide, zone_newfoundland}) {
        const Zone_Setting zone(rule);
        EXPECT_NEAR(mTime(mTime::UTC_Now) - mTime(mTime::Local_Now), mTime::GetTimeZone(), 10) << rule;
    }
}

TEST(mTime, converts_to_system_time_in_whole_milliseconds)
{
    struct Case {
        double sec;
        int minute, second, millisecond;
    };
    for (const Case &c : {Case{0, 34, 0, 0},
                          {30.25, 34, 30, 250},
                          {59.999, 34, 59, 999},
                          {59.99949, 34, 59, 999},
                          {59.9996, 35, 0, 0},
                          {12.9986, 34, 12, 999},
                          {12.0004, 34, 12, 0}}) {
        const kernel::SYSTEMTIME time = mTime(2024, 2, 29, 12, 34, c.sec).ConvertToSystemTime();
        EXPECT_EQ(std::tuple(time.wYear, time.wMonth, time.wDayOfWeek, time.wDay, time.wHour),
                  std::tuple(2024, 2, 4, 29, 12));
        EXPECT_EQ(std::tuple(time.wMinute, time.wSecond, time.wMilliseconds),
                  std::tuple(c.minute, c.second, c.millisecond))
            << c.sec;
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
    struct Change {
        const char *zone;
        mTime utc;
        double before, after;  // [s] east of Greenwich
    };
    const Change changes[] = {
        {zone_utc, {2025, 3, 30, 1, 0, 0}, 0, 0},
        {zone_india, {2025, 3, 30, 1, 0, 0}, 19800, 19800},
        {zone_berlin, {2025, 3, 30, 1, 0, 0}, 3600, 7200},
        {zone_berlin, {2025, 10, 26, 1, 0, 0}, 7200, 3600},
        {zone_adelaide, {2025, 10, 4, 16, 30, 0}, 34200, 37800},
        {zone_adelaide, {2025, 4, 5, 16, 30, 0}, 37800, 34200},
        {zone_newfoundland, {2025, 3, 9, 5, 30, 0}, -12600, -9000},
        {zone_newfoundland, {2025, 11, 2, 4, 30, 0}, -9000, -12600},
    };
    int tried = 0;
    for (const Change &c : changes) {
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
