#include "kernel/time/Gps_Time.h"

#include <cmath>

namespace kernel {

namespace {

constexpr double week_numbers = 65536.0;  // what 16 bits hold

// The low 16 bits of a whole number of any size and sign. A direct cast of a double that does not fit is undefined.
std::uint16_t Wrapped(double whole)
{
    return static_cast<std::uint16_t>(static_cast<std::int32_t>(std::fmod(whole, week_numbers)));
}

}  // namespace

double Take_Whole_Weeks(double &seconds)
{
    // The usual case needs no division.
    if ((seconds >= 0 && seconds < Seconds_Per_Week) || !std::isfinite(seconds)) return 0;
    const double rest = std::fmod(seconds, Seconds_Per_Week);  // exact; a rounded quotient times the week is not
    double weeks = std::round((seconds - rest) / Seconds_Per_Week);
    seconds = rest;
    if (seconds < 0) {
        seconds += Seconds_Per_Week;
        weeks -= 1;
    }
    if (seconds >= Seconds_Per_Week) {  // the sum above was rounded up to a full week
        seconds = 0;
        weeks += 1;
    }
    return weeks;
}

// The week is rounded, so that an error in the last bit of the total does not lose a week.
Gps_Time::Gps_Time(double total)
{
    sec = std::fmod(total, Seconds_Per_Week);
    if (std::isfinite(sec)) week = Wrapped(std::floor((total - sec) / Seconds_Per_Week + 0.5));
}

// The sum is a double: a sum of 16 bits would wrap before it is complete.
void Gps_Time::Norm() { week = Wrapped(week + Take_Whole_Weeks(sec)); }

Gps_Time &Gps_Time::operator+=(double seconds)
{
    sec += seconds;
    Norm();
    return *this;
}

}  // namespace kernel
