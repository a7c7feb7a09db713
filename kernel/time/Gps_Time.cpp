#include "kernel/time/Gps_Time.h"

#include <cmath>

namespace kernel {

namespace {

// The low 16 bits of a whole number, whatever its size and sign: a cast from a double that does not fit is undefined.
std::uint16_t Wrapped(double whole)
{
    return static_cast<std::uint16_t>(static_cast<std::int32_t>(std::fmod(whole, 65536.0)));
}

}  // namespace

double Take_Whole_Weeks(double &seconds)
{
    // Nearly always so: no division then.
    if ((seconds >= 0 && seconds < Seconds_Per_Week) || !std::isfinite(seconds)) return 0;
    const double rest = std::fmod(seconds, Seconds_Per_Week);  // exact, where a product of a rounded quotient is not
    double weeks = std::round((seconds - rest) / Seconds_Per_Week);
    seconds = rest;
    if (seconds < 0) {
        seconds += Seconds_Per_Week;
        weeks -= 1;
    }
    if (seconds >= Seconds_Per_Week) {  // a hair below zero was rounded to a full week
        seconds = 0;
        weeks += 1;
    }
    return weeks;
}

// The week is rounded: an error in the last bit of the total does not drop one.
Gps_Time::Gps_Time(double total)
{
    sec = std::fmod(total, Seconds_Per_Week);
    if (std::isfinite(sec)) week = Wrapped(std::floor((total - sec) / Seconds_Per_Week + 0.5));
}

// The sum is a double's, so that it cannot wrap before it is to.
void Gps_Time::Norm() { week = Wrapped(week + Take_Whole_Weeks(sec)); }

Gps_Time &Gps_Time::operator+=(double seconds)
{
    sec += seconds;
    Norm();
    return *this;
}

}  // namespace kernel
