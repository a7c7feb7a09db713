#include "kernel/records/Position.h"

#include "kernel/records/Mdouble.h"
#include "kernel/records/SymMat.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

using namespace kernel;

namespace {

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();

// What a position has, a letter each.
std::string There(const Position &position)
{
    double xyz[3], value = 0;
    char number[Position::Point_Number_Size];
    Position::Solution_Type solution;
    std::string letters;
    if (position.Read_WGS(xyz)) letters += 'W';
    if (position.Read_Clock_Err(value)) letters += 'E';
    if (position.Read_Clock_Drift(value)) letters += 'D';
    if (position.Read_Time(value)) letters += 'T';
    if (position.Read_Solution(solution)) letters += 'S';
    if (position.Read_Point_Number(number)) letters += 'N';
    if (position.Read_Antenna_Height(value)) letters += 'H';
    if (position.IsKinematic()) letters += 'K';
    return letters;
}

}  // namespace

TEST(Position, reads_only_what_was_set)
{
    Position position;
    double x = 1, y = 2, z = 3, value = 7;
    EXPECT_EQ(There(position), "");
    EXPECT_EQ(position.Read_WGS(x, y, z) + position.Read_Clock_Err(value) + position.Read_Time(value), 0);
    EXPECT_TRUE(x == 1 && y == 2 && z == 3 && value == 7 && position.IsStatic());
    position.Set_Clock_Err(-1e-3);
    EXPECT_EQ(There(position), "E");
    position.Set_Clock_Drift(2e-9);
    EXPECT_EQ(There(position), "ED");
    EXPECT_TRUE(position.Read_Clock_Err(value) && value == -1e-3);
    EXPECT_TRUE(position.Read_Clock_Drift(value) && value == 2e-9);
    position.SetKinematic();
    const double xyz[] = {-1, -2, -3};
    position.Set_WGS(xyz);
    EXPECT_EQ(There(position), "WEDK");
    EXPECT_TRUE(position.Read_WGS(x, y, z) && x == -1 && y == -2 && z == -3);
    position.SetStatic();
    EXPECT_EQ(There(position), "WED");
    position.Set_Antenna_Height(0.0125);
    EXPECT_EQ(There(position), "WEDH");
    EXPECT_TRUE(position.Read_Antenna_Height(value) && value == 0.0125);
}

TEST(Position, takes_times_after_the_epoch_only)
{
    const double cases[][3] = {
        // week, or -1 for seconds alone; seconds; time, or 0 for refused
        {-1, 1e-9, 1e-9},       {-1, 0, 0}, {-1, nan_value, 0}, {1, 0, 604800},   {2200, 604799.5, 1331164799.5},
        {3551, 0, -2147322496}, {0, 1, 0},  {1, -0.5, 0},       {1, nan_value, 0}};  // 3551: 32 bits are full
    for (const auto &[week, second, wanted] : cases) {
        Position position;
        double time = 0;
        week == -1 ? position.Set_Time(second) : position.Set_Time(static_cast<int>(week), second);
        EXPECT_EQ(position.Read_Time(time), wanted != 0) << week << ' ' << second;
        EXPECT_EQ(time, wanted) << week << ' ' << second;
        position.Set_Time(5.0);
        position.Set_Time(0.0);  // refused: the former stays
        EXPECT_TRUE(position.Read_Time(time) && time == 5.0);
    }
}

TEST(Position, names_its_solution)
{
    const char *const names[] = {"NO_SOLUTION",    "UNKNOWN",     "SINGLE_POINT",  "CODE",
                                 "CODE_SMOOTHED",  "TRIPLE_DIFF", "DGPS",          "FLOAT_SOL",
                                 "APPROX_FIX_SOL", "FIXED_SOL",   "POSITION_KNOWN"};
    for (int value = 0; value <= 10; ++value) {
        const auto type = static_cast<Position::Solution_Type>(value);
        EXPECT_STREQ(Position::Get_Solution_Name(type), names[value]);
        EXPECT_EQ(Position(type).Get_Solution(), type);
        EXPECT_EQ(There(Position(type)), type == Position::UNKNOWN ? "" : "S");
    }
}

TEST(Position, keeps_eight_characters_of_a_point_number)
{
    Position position;
    char number[Position::Point_Number_Size] = {};
    position.Set_Point_Number(nullptr);
    EXPECT_EQ(There(position), "");
    for (const char *given : {"1234567890", "B7", ""}) {
        position.Set_Point_Number(given);
        position.Set_Point_Number(nullptr);
        EXPECT_EQ(position.Read_Point_Number(number), 1);
        EXPECT_EQ(number, std::string(given).substr(0, 8));
    }
}

TEST(Mdouble, tells_zero_from_missing)
{
    Mdouble value;
    EXPECT_EQ(value.Value_Or(-1), -1);
    value = 0;
    EXPECT_EQ(value.Value_Or(-1), 0);
    EXPECT_FALSE(value == Mdouble());
    value = nan_value;
    EXPECT_TRUE(value == Mdouble());
}

TEST(SymMat, agrees_with_a_full_matrix)
{
    constexpr std::size_t n = 4;
    SymMat<n> packed;
    const double a[2][n] = {{1, -2, 3, 5}, {7, 11, -13, 17}}, b[n] = {2, -3, 19, 4};
    double form = 0;
    for (int round = 0; round < 2; ++round) packed.Add_Outer_Product(a[round], round + 1);
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j) {
            const double full = a[0][i] * a[0][j] + 2 * a[1][i] * a[1][j];
            EXPECT_EQ(packed(i, j), full);
            form += b[i] * full * b[j];
        }
    }
    EXPECT_EQ(packed.Quadratic_Form(b), form);
    packed(0, 3) = 7;
    EXPECT_EQ(packed(3, 0), 7);
    EXPECT_EQ(packed.Packed()[6], 7);  // row 3 begins after 1 + 2 + 3 elements
}
