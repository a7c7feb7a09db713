// The machine's clock as calendar time: UTC, local time, and the zone between them.
#pragma once

#include <cstdint>

namespace platform {

constexpr int first_year = 1601, last_year = 30827;  // the limits of Win32

// A date and time of day of the Gregorian calendar, without leap seconds. It has the layout of Win32's SYSTEMTIME.
struct Calendar_Time {
    std::uint16_t year;
    std::uint16_t month;        // 1 to 12
    std::uint16_t day_of_week;  // 0 is Sunday; set in results, never read
    std::uint16_t day;          // 1 to 31
    std::uint16_t hour, minute, second;
    std::uint16_t millisecond;
};

// Whether all fields except the day of the week are within their ranges, and the day within its month.
bool is_date(const Calendar_Time &time);

// The current zone. UTC is local time plus `bias` plus the bias of the season that holds.
struct Time_Zone {
    enum class Holds { nothing_known, no_change, standard, daylight };  // no_change: a zone without daylight saving

    Holds holds;
    long bias;                          // [min]
    long standard_bias, daylight_bias;  // [min] on top of it
};

// Any thread may call these. A change of the machine's zone takes effect with the next call. On POSIX the zone is that
// of TZ; no thread may change TZ while another one is inside these functions.

Calendar_Time utc_now();
Calendar_Time local_now();
// Holds::nothing_known when the system does not know the zone.
Time_Zone zone_now();

// Converts UTC to local time, daylight saving of that date included. For past and future years Win32 applies the
// current rules of the zone; POSIX applies those of that year, as far as TZ has them. Returns false with
// error_invalid_parameter, and leaves `local` alone, if `utc` is not a date or the result is outside the years above.
bool utc_to_local(const Calendar_Time &utc, Calendar_Time &local);

// Sets the machine's clock. Returns false if `utc` is not a date (error_invalid_parameter), or without the right to do
// so (error_access_denied; on Win32 also 1314).
bool set_system_time(const Calendar_Time &utc);

}  // namespace platform
