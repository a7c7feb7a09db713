// The machine's clock by the calendar: UTC, local time, and the zone between them.
#pragma once

#include <cstdint>

namespace platform {

constexpr int first_year = 1601, last_year = 30827;  // Win32's

// A date and time of day of the Gregorian calendar, without leap seconds; laid out as Win32's SYSTEMTIME.
struct Calendar_Time {
    std::uint16_t year;
    std::uint16_t month;        // 1 to 12
    std::uint16_t day_of_week;  // 0 is Sunday; answered, never read
    std::uint16_t day;          // 1 to 31
    std::uint16_t hour, minute, second;
    std::uint16_t millisecond;
};

// Whether all fields but the day of the week are within their ranges, the day within its month.
bool is_date(const Calendar_Time &time);

// The zone as it is now. UTC is local time plus `bias` plus the bias of what holds.
struct Time_Zone {
    enum class Holds { nothing_known, no_change, standard, daylight };  // no_change: a zone without daylight saving

    Holds holds;
    long bias;                          // [min]
    long standard_bias, daylight_bias;  // [min] on top of it
};

// All of these may be called from any thread. A change of the machine's zone is seen by the next call; on POSIX the zone is
// that of TZ, which nobody may change while another thread is in here.

Calendar_Time utc_now();
Calendar_Time local_now();
// Holds::nothing_known when the system cannot tell.
Time_Zone zone_now();

// What local clocks show at a time given in UTC, daylight saving of that date included. The system's rules for years other
// than this one differ: Win32 applies those of today, POSIX those of the time, as far as TZ tells them. False for what is
// no date, or when the result is in none of the years above: error_invalid_parameter; `local` is as it was.
bool utc_to_local(const Calendar_Time &utc, Calendar_Time &local);

// Sets the machine's clock. False for what is no date (error_invalid_parameter), or without the right to do so
// (error_access_denied; Win32 has 1314 for it, too).
bool set_system_time(const Calendar_Time &utc);

}  // namespace platform
