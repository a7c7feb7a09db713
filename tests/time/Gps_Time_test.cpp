#include "kernel/time/Gps_Time.h"

#include "tests/support/csv.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using kernel::Gps_Time;

namespace {

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

}  // namespace

TEST(Gps_Time, agrees_with_the_table_in_both_directions)
{
    int rows = 0;
    for (const Csv_Row &row : Csv_Rows("time_truth.csv")) {
        if (row.Int("week") < 0) continue;
        const double total = row.Number("total");
        const Gps_Time split(total);
        EXPECT_EQ(split.week, row.Int("week")) << row.Line();
        EXPECT_NEAR(split.sec, row.Number("sow"), 5e-7) << row.Line();  // the last bit of the total
        EXPECT_EQ(Gps_Time(split.week, row.Number("sow")).secondsSinceGPS(), total) << row.Line();
        ++rows;
    }
    EXPECT_GT(rows, 300);
}

TEST(Gps_Time, splits_totals)
{
    const double late = 604800.0 * 60000;  // its week has no bits to spare: one bit below is still the week before
    const double before = std::nextafter(late, 0);
    const double cases[][3] = {// the seconds keep the sign, and the week wraps
                               {604800, 1, 0},
                               {-1, 0, -1},
                               {-604801, 65535, -1},
                               {before, 59999, before - (late - 604800)}};
    for (const auto &[total, week, sec] : cases) {
        EXPECT_EQ(Gps_Time(total).week, week) << total;
        EXPECT_EQ(Gps_Time(total).sec, sec) << total;
    }
    EXPECT_EQ(Gps_Time(not_a_number).week, 0);
}

TEST(Gps_Time, moves_into_normal_form)
{
    const double cases[][5] = {// week, seconds, how many more, normal week and seconds
                               {1000, 604801, 0, 1001, 1},
                               {1000, 604799.5, 0.5, 1001, 0},
                               {1000, 0, -0.5, 999, 604799.5},
                               {1000, -1209600, 0, 998, 0},
                               {65535, 604799, 1, 0, 0},
                               {0, 0, -1, 65535, 604799},
                               {0, 0, 604800.0 * 65537 + 2, 1, 2},
                               {7, -1e-12, 0, 7, 0},
                               {7, 0, 2 * 604800 - 2e-10, 8, 604800 - 2.3283064365386963e-10}};
    for (const auto &[from_week, from_sec, by, week, sec] : cases) {
        const Gps_Time from(static_cast<unsigned short>(from_week), from_sec);
        Gps_Time normal = from;
        normal.sec += by;
        normal.Norm();
        for (const Gps_Time &moved : {normal, from + by, from - -by}) {
            EXPECT_EQ(moved.week, week) << from_sec << " + " << by;
            EXPECT_EQ(moved.sec, sec) << from_sec << " + " << by;
        }
    }
    for (const double odd : {not_a_number, infinity, -infinity, 1e300, -1e300}) {
        Gps_Time time(5, odd);
        time.Norm();
        EXPECT_EQ(std::isfinite(odd), time.sec >= 0 && time.sec < 604800);
        EXPECT_TRUE(std::isfinite(odd) || time.week == 5);
    }
}

TEST(Gps_Time, counts_any_number_of_weeks)
{
    for (double seconds = -1e13; seconds < 1e13; seconds += 1.23456789e9) {
        double rest = seconds;
        const double weeks = kernel::Take_Whole_Weeks(rest);
        ASSERT_TRUE(rest >= 0 && rest < 604800 && weeks == std::floor(weeks)) << seconds;
        ASSERT_NEAR(weeks * 604800 + rest, seconds, 1e-2);
    }
}

TEST(Gps_Time, compares_by_the_difference_without_tolerance)
{
    const struct {
        Gps_Time a, b;
        double difference;
    } cases[] = {{{1001, 0}, {1000, 604800}, 0},  // the same time in two forms
                 {{1000, 1}, {1000, 1 + 1e-9}, 1 - (1 + 1e-9)},
                 {{65535, 0}, {0, 0}, 65535 * 604800.0}};
    for (const auto &[a, b, difference] : cases) {
        EXPECT_EQ(a - b, difference);
        EXPECT_TRUE((a == b) == (difference == 0) && (a != b) == (difference != 0));
        EXPECT_TRUE((a < b) == (difference < 0) && (a >= b) == (difference >= 0));
        EXPECT_TRUE((a > b) == (difference > 0) && (a <= b) == (difference <= 0));
    }
    const Gps_Time none(0, not_a_number);
    EXPECT_TRUE(none != none && !(none == none) && !(none <= none) && !(none >= none));
}
