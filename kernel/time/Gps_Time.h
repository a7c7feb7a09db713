// The time stamp of data records: a GPS week number and seconds of that week.
#pragma once

#include "kernel/base/kernel_api.h"

#include <cstdint>

namespace kernel {

// [s]. All other constants for the length of a week derive from this one.
constexpr double Seconds_Per_Week = 604800.0;
constexpr double Seconds_Per_Day = 86400.0;

// Takes whole weeks off `seconds`, so that 0 <= seconds < Seconds_Per_Week, and returns their number (negative for a
// time before the week). Leaves a number that is not finite unchanged and returns 0.
KERNEL_API double Take_Whole_Weeks(double &seconds);

// A time on the GPS scale, without leap seconds, counted from 6 January 1980 00:00. The normal form of the pair is
// 0 <= sec < Seconds_Per_Week; only the operations that say so produce it. The week has 16 bits and wraps: a time
// before the epoch gets a high week number, a time after week 65535 (in the year 3236) a low one.
//
// Threads:   a plain value.
// Ownership: nothing.
// Errors:    none; seconds that are not finite stay so and do not change the week.
class KERNEL_API Gps_Time {
public:
    double sec = 0;          // [s] of the week
    std::uint16_t week = 0;  // [weeks] since the epoch, without 1024-week roll-overs

    Gps_Time() = default;
    Gps_Time(unsigned short week_number, double seconds) : sec(seconds), week(week_number) {}  // not normalised
    // `total` is in [s] since the epoch: the inverse of secondsSinceGPS. A negative total gives negative seconds: -1 is
    // week 0, -1 s.
    Gps_Time(double total);

    double secondsSinceGPS() const { return week * Seconds_Per_Week + sec; }  // [s]
    void Norm();                                                              // brings the pair into its normal form

    // Moves the time by `seconds` and brings it into its normal form.
    Gps_Time &operator+=(double seconds);
    Gps_Time &operator-=(double seconds) { return *this += -seconds; }
    Gps_Time operator+(double seconds) const { return Gps_Time(*this) += seconds; }
    Gps_Time operator-(double seconds) const { return Gps_Time(*this) -= seconds; }

    // [s] from b to this time.
    double operator-(const Gps_Time &b) const { return (week - b.week) * Seconds_Per_Week + (sec - b.sec); }

    // Compare by that difference, without tolerance. Return 0 or 1.
    int operator<(const Gps_Time &b) const { return *this - b < 0.0; }
    int operator<=(const Gps_Time &b) const { return *this - b <= 0.0; }
    int operator>(const Gps_Time &b) const { return *this - b > 0.0; }
    int operator>=(const Gps_Time &b) const { return *this - b >= 0.0; }
    int operator==(const Gps_Time &b) const { return *this - b == 0.0; }
    int operator!=(const Gps_Time &b) const { return *this - b != 0.0; }
};

}  // namespace kernel
