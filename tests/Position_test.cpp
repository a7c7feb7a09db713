#include "kernel/Position.h"

#include "kernel/Mdouble.h"
#include "kernel/SymMat.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

using namespace kernel;

namespace {

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();

}  // namespace

TEST(Position, reads_only_what_was_set)
{
    Position position;
    double x = 1, y = 2, z = 3, xyz[] = {4, 5, 6}, value = 7;
    char number[Position::Point_Number_Size] = "before";
    auto solution = Position::DGPS;
    EXPECT_EQ(position.Read_WGS(x, y, z) + position.Read_WGS(xyz) + position.Read_Clock_Err(value) +
                  position.Read_Clock_Drift(value) + position.Read_Time(value) + position.Read_Solution(solution) +
                  position.Read_Point_Number(number),
              0);
    EXPECT_EQ(x + y + z + xyz[0] + xyz[1] + xyz[2] + value, 28);
    EXPECT_STREQ(number, "before");
    EXPECT_EQ(solution, Position::DGPS);
    EXPECT_EQ(position.GetHdop() + position.GetNSat(), 0);
    EXPECT_TRUE(position.IsStatic());

    // One at a time: no flag stands for another quantity.
    position.Set_Clock_Err(-1e-3);
    EXPECT_EQ(position.Read_Clock_Drift(value) + position.Read_WGS(xyz) + position.Read_Time(value), 0);
    EXPECT_TRUE(position.Read_Clock_Err(value) && value == -1e-3);
    position.Set_Clock_Drift(2e-9);
    EXPECT_TRUE(position.Read_Clock_Drift(value) && value == 2e-9);
    EXPECT_EQ(position.Read_WGS(xyz), 0);
    position.Set_WGS(10, 20, 30);
    EXPECT_TRUE(position.Read_WGS(xyz) && xyz[0] == 10 && xyz[1] == 20 && xyz[2] == 30);
    const double other[] = {-1, -2, -3};
    position.Set_WGS(other);
    EXPECT_TRUE(position.Read_WGS(x, y, z) && x == -1 && y == -2 && z == -3);
    position.SetKinematic();
    EXPECT_TRUE(position.IsKinematic() && !position.IsStatic() && position.Read_WGS(xyz));
    position.SetStatic();
    EXPECT_TRUE(position.IsStatic() && position.Read_WGS(xyz));
    EXPECT_EQ(position.Read_Time(value) + position.Read_Solution(solution) + position.Read_Point_Number(number), 0);
}

TEST(Position, takes_times_after_the_epoch_only)
{
    struct Case {
        int week;  // negative one: seconds alone
        double second;
        int accepted;
        double time;
    };
    for (const Case &c : {Case{-1, 1e-9, 1, 1e-9},
                          {-1, 0.0, 0, 0},
                          {-1, -1.0, 0, 0},
                          {-1, nan_value, 0, 0},
                          {1, 0.0, 1, 604800},
                          {2200, 604799.5, 1, 1331164799.5},
                          {3550, 0.0, 1, 2147040000},
                          {3551, 0.0, 1, -2147322496},  // 32 bits are full
                          {0, 1.0, 0, 0},
                          {-5, 1.0, 0, 0},
                          {1, -0.5, 0, 0},
                          {1, nan_value, 0, 0}}) {
        Position position;
        double time = 0;
        c.week == -1 ? position.Set_Time(c.second) : position.Set_Time(c.week, c.second);
        EXPECT_EQ(position.Read_Time(time), c.accepted) << c.week << ' ' << c.second;
        EXPECT_EQ(time, c.time) << c.week << ' ' << c.second;
    }
    Position position;
    double time = 0;
    position.Set_Time(5.0);
    position.Set_Time(0.0);  // refused: the former stays
    EXPECT_TRUE(position.Read_Time(time) && time == 5.0);
}

TEST(Position, names_its_solution)
{
    const char *const names[] = {"NO_SOLUTION",    "UNKNOWN",     "SINGLE_POINT",  "CODE",
                                 "CODE_SMOOTHED",  "TRIPLE_DIFF", "DGPS",          "FLOAT_SOL",
                                 "APPROX_FIX_SOL", "FIXED_SOL",   "POSITION_KNOWN"};
    for (int value = 0; value <= 10; ++value) {
        const auto type = static_cast<Position::Solution_Type>(value);
        EXPECT_STREQ(Position::Get_Solution_Name(type), names[value]);
        const Position position(type);
        auto read = Position::DGPS;
        EXPECT_EQ(position.Get_Solution(), type);
        EXPECT_EQ(position.Read_Solution(read), type != Position::UNKNOWN);
        EXPECT_EQ(read, type == Position::UNKNOWN ? Position::DGPS : type);
    }
    EXPECT_EQ(Position().Get_Solution(), Position::UNKNOWN);
}

TEST(Position, keeps_eight_characters_of_a_point_number)
{
    Position position;
    char number[Position::Point_Number_Size] = {};
    position.Set_Point_Number(nullptr);
    EXPECT_EQ(position.Read_Point_Number(number), 0);
    for (const char *given : {"1234567890", "12345678", "B7", ""}) {
        position.Set_Point_Number(given);
        position.Set_Point_Number(nullptr);
        EXPECT_EQ(position.Read_Point_Number(number), 1);
        EXPECT_EQ(number, std::string(given).substr(0, 8));
    }
}

TEST(Mdouble, tells_zero_from_missing)
{
    Mdouble value;
    EXPECT_FALSE(value);
    EXPECT_EQ(value.Value_Or(-1), -1);
    value = 0;
    EXPECT_TRUE(value.IsValid());
    EXPECT_EQ(value.Value_Or(-1), 0);
    EXPECT_FALSE(value == Mdouble());
    value = nan_value;
    EXPECT_TRUE(value == Mdouble());
    value = 2.5;
    EXPECT_EQ(value.Value(), 2.5);
    value.Clear();
    EXPECT_FALSE(value);
}

TEST(SymMat, agrees_with_a_full_matrix)
{
    constexpr std::size_t n = 4;
    SymMat<n> packed;
    double full[n][n] = {};
    unsigned seed = 1;
    const auto next = [&] { return static_cast<double>((seed = seed * 1664525u + 1013904223u) >> 20) - 2048; };
    const auto fill = [&](double(&a)[n]) {
        for (double &element : a) element = next();
    };
    double a[n], b[n];
    for (int round = 0; round < 20; ++round) {
        fill(a);
        packed.Add_Outer_Product(a, round + 1);
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t j = 0; j < n; ++j) full[i][j] += (round + 1) * a[i] * a[j];
        }
        fill(b);
        double form = 0;
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t j = 0; j < n; ++j) {
                EXPECT_EQ(packed(i, j), full[i][j]);
                form += b[i] * full[i][j] * b[j];
            }
        }
        EXPECT_DOUBLE_EQ(packed.Quadratic_Form(b), form);
    }
    packed(0, 3) = 7;
    EXPECT_EQ(packed(3, 0), 7);
    EXPECT_EQ(packed.Packed()[6], 7);  // row 3 begins after 1 + 2 + 3 elements
    EXPECT_EQ(SymMat<n>::Packed_Size, 10u);
}
