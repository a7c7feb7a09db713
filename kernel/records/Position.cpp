#include "kernel/records/Position.h"

#include "kernel/time/Gps_Time.h"

#include <cstddef>
#include <cstring>
#include <iterator>

namespace kernel {

namespace {

constexpr const char *solution_names[] = {
    "NO_SOLUTION", "UNKNOWN",   "SINGLE_POINT",   "CODE",      "CODE_SMOOTHED",  "TRIPLE_DIFF",
    "DGPS",        "FLOAT_SOL", "APPROX_FIX_SOL", "FIXED_SOL", "POSITION_KNOWN",
};
static_assert(std::size(solution_names) == Position::POSITION_KNOWN + 1);

}  // namespace

void Position::Set_WGS(double x, double y, double z)
{
    wgs_[0] = x;
    wgs_[1] = y;
    wgs_[2] = z;
    flags_ |= Has_WGS;
}

int Position::Read_WGS(double &x, double &y, double &z) const
{
    if ((flags_ & Has_WGS) == 0) return 0;
    x = wgs_[0];
    y = wgs_[1];
    z = wgs_[2];
    return 1;
}

// The comparison is false for not-a-number, which is thus refused.
void Position::Set_Time(double t)
{
    if (t > 0) Set(time_, t, Has_Time);
}

// The product wraps in 32 bits, which is part of the interface. It is also stored when it is negative, because only the
// arguments are checked. It is computed unsigned: a signed overflow is undefined.
void Position::Set_Time(int week, double second)
{
    constexpr auto whole_week = static_cast<std::uint32_t>(Seconds_Per_Week);
    if (week > 0 && second >= 0)
        Set(time_, static_cast<std::int32_t>(static_cast<std::uint32_t>(week) * whole_week) + second, Has_Time);
}

int Position::Read_Solution(Solution_Type &solution) const
{
    return solution_ == UNKNOWN ? 0 : Read(solution_, solution, Has_Solution);
}

const char *Position::Get_Solution_Name(Solution_Type solution)
{
    // A negative value becomes a large index, which the check below refuses.
    const auto index = static_cast<std::size_t>(solution);
    return index < std::size(solution_names) ? solution_names[index] : solution_names[UNKNOWN];
}

void Position::Set_Point_Number(const char *number)
{
    if (!number) return;
    std::strncpy(point_number_, number, Point_Number_Size - 1);
    point_number_[Point_Number_Size - 1] = '\0';
    flags_ |= Has_Point_Number;
}

int Position::Read_Point_Number(char *number) const
{
    if ((flags_ & Has_Point_Number) == 0) return 0;
    std::strcpy(number, point_number_);
    return 1;
}

}  // namespace kernel
