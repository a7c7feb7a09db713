// The time stamp of data records: a GPS week number and seconds of that week.
#pragma once

#include "kernel/base/kernel_api.h"

#include <cstdint>

namespace kernel {

// [s] All other constants for the length of a week derive from this one.
constexpr double Seconds_Per_Week = 604800.0;
constexpr double Seconds_Per_Day = 86400.0;

// Takes whole weeks off `seconds`, so that 0 <= seconds < Seconds_Per_Week, and answers how many (below zero for a time
// before the week). A number that is not finite stays as it is and holds no weeks.
KERNEL_API double Take_Whole_Weeks(double &seconds);

// A time on the GPS scale, without leap seconds, counted from 6 January 1980 00:00. Nothing but the operations that say so
// brings the pair into its normal form, 0 <= sec < Seconds_Per_Week. The week has 16 bits and wraps: what lies before the
// epoch or after week 65535 (in the year 3236) comes back at the other end.
//
// Threads:   a plain value.
// Ownership: nothing.
// Errors:    none; seconds that are not finite stay so and leave the week alone.
class KERNEL_API Gps_Time {
public:
    double sec = 0;          // [s] of the week
    std::uint16_t week = 0;  // [weeks] since the epoch, without 1024-week roll-overs

    Gps_Time() = default;
    Gps_Time(unsigned short week_number, double seconds) : sec(seconds), week(week_number) {}  // kept as they are
    // [s] since the epoch, the other way round than secondsSinceGPS. Below zero the seconds are, too: -1 is week 0, -1 s.
    Gps_Time(double total);

    double secondsSinceGPS() const { return week * Seconds_Per_Week + sec; }  // [s]
    void Norm();

    // A number of seconds further or back, in normal form.
    Gps_Time &operator+=(double seconds);
    Gps_Time &operator-=(double seconds) { return *this += -seconds; }
    Gps_Time operator+(double seconds) const { return Gps_Time(*this) += seconds; }
    Gps_Time operator-(double seconds) const { return Gps_Time(*this) -= seconds; }

    // [s] from b to this time.
    double operator-(const Gps_Time &b) const { return (week - b.week) * Seconds_Per_Week + (sec - b.sec); }

    // By that difference, without tolerance: 0 or 1.
    int operator<(const Gps_Time &b) const { return *this - b < 0.0; }
    int operator<=(const Gps_Time &b) const { return *this - b <= 0.0; }
    int operator>(const Gps_Time &b) const { return *this - b > 0.0; }
    int operator>=(const Gps_Time &b) const { return *this - b >= 0.0; }
    int operator==(const Gps_Time &b) const { return *this - b == 0.0; }
    int operator!=(const Gps_Time &b) const { return *this - b != 0.0; }
};

}  // namespace kernel
