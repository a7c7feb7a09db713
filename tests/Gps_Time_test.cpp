#include "kernel/Gps_Time.h"

#include "tests/support/csv.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <type_traits>

using kernel::Gps_Time;

namespace {

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

}  // namespace

static_assert(std::is_trivially_copyable_v<Gps_Time>);

TEST(Gps_Time, agrees_with_the_table_in_both_directions)
{
    int rows = 0;
    for (const Csv_Row &row : Csv_Rows("time_truth.csv")) {
        if (row.Int("week") < 0) continue;
        const double total = row.Number("total");
        const Gps_Time split(total);
        EXPECT_EQ(split.week, row.Int("week")) << row.Line();
        EXPECT_NEAR(split.sec, row.Number("sow"), 5e-7) << row.Line();  // the last bit of the total
        const auto week = static_cast<unsigned short>(row.Int("week"));
        EXPECT_EQ(Gps_Time(week, row.Number("sow")).secondsSinceGPS(), total) << row.Line();
        ++rows;
    }
    EXPECT_GT(rows, 300);
}

TEST(Gps_Time, splits_totals)
{
    struct Case {
        double total;
        int week;
        double sec;
    };
    for (const Case &c : {Case{0, 0, 0},
                          {604800.0 * 1000 + 0.25, 1000, 0.25},
                          {604799.75, 0, 604799.75},
                          {604800, 1, 0},
                          {-1, 0, -1},            // the seconds keep the sign
                          {-604801, 65535, -1}})  // and the week wraps
    {
        const Gps_Time time(c.total);
        EXPECT_EQ(time.week, c.week) << c.total;
        EXPECT_EQ(time.sec, c.sec) << c.total;
    }
    // A total whose week has no bits to spare: one bit below a week's start is still the week before.
    const double start = 604800.0 * 60000;
    EXPECT_EQ(Gps_Time(start).week, 60000);
    EXPECT_EQ(Gps_Time(std::nextafter(start, 0)).week, 59999);
}

TEST(Gps_Time, moves_into_normal_form)
{
    struct Case {
        Gps_Time from;
        double by;
        int week;
        double sec;
    };
    for (const Case &c : {Case{{1000, 604801}, 0, 1001, 1},
                          {{1000, 604799.5}, 0.5, 1001, 0},
                          {{1000, 0}, -0.5, 999, 604799.5},
                          {{1000, -1209600}, 0, 998, 0},
                          {{65535, 604799}, 1, 0, 0},
                          {{0, 0}, -1, 65535, 604799},
                          {{0, 0}, 604800.0 * 65537 + 2, 1, 2},
                          {{7, -1e-12}, 0, 7, 0},  // no number below 604800 is as near
                          {{7, 0}, 2 * 604800 - 2e-10, 8, 604800 - 2.3283064365386963e-10}}) {
        Gps_Time normal = c.from;
        normal.sec += c.by;
        normal.Norm();
        const Gps_Time more = c.from + c.by, less = c.from - -c.by;
        for (const Gps_Time &moved : {normal, more, less}) {
            EXPECT_EQ(moved.week, c.week) << c.from.sec << " + " << c.by;
            EXPECT_EQ(moved.sec, c.sec) << c.from.sec << " + " << c.by;
        }
    }
    EXPECT_EQ(Gps_Time(1000, 604801).sec, 604801);  // the constructor does not
}

TEST(Gps_Time, counts_any_number_of_weeks)
{
    for (double seconds = -1e13; seconds < 1e13; seconds += 1.23456789e9) {
        double rest = seconds;
        const double weeks = kernel::Take_Whole_Weeks(rest);
        ASSERT_TRUE(rest >= 0 && rest < 604800 && weeks == std::floor(weeks)) << seconds;
        ASSERT_NEAR(weeks * 604800 + rest, seconds, 1e-2);
    }
    for (const double odd : {not_a_number, infinity, -infinity, 1e300, -1e300}) {
        Gps_Time time(5, odd);
        time.Norm();
        EXPECT_EQ(std::isfinite(odd), std::isfinite(time.sec) && time.sec >= 0 && time.sec < 604800);
        if (!std::isfinite(odd)) {
            EXPECT_EQ(time.week, 5);
        }
    }
    EXPECT_EQ(Gps_Time(not_a_number).week, 0);
}

TEST(Gps_Time, compares_by_the_difference_without_tolerance)
{
    struct Case {
        Gps_Time a, b;
        double difference;
    };
    for (const Case &c : {Case{{1001, 0}, {1000, 604800}, 0},  // the same time in two forms
                          {{1000, 1}, {1000, 1 + 1e-9}, 1 - (1 + 1e-9)},
                          {{0, 1}, {3, 0}, 1 - 3 * 604800.0},
                          {{65535, 0}, {0, 0}, 65535 * 604800.0}}) {
        EXPECT_EQ(c.a - c.b, c.difference);
        EXPECT_EQ(c.b - c.a, -c.difference);
        EXPECT_EQ(c.a == c.b, c.difference == 0);
        EXPECT_EQ(c.a != c.b, c.difference != 0);
        EXPECT_EQ(c.a < c.b, c.difference < 0);
        EXPECT_EQ(c.a <= c.b, c.difference <= 0);
        EXPECT_EQ(c.a > c.b, c.difference > 0);
        EXPECT_EQ(c.a >= c.b, c.difference >= 0);
    }
    const Gps_Time none(0, not_a_number);
    EXPECT_TRUE(none != none);
    EXPECT_FALSE(none == none || none <= none || none >= none);
}
