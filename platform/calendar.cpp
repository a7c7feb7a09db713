#include "platform/calendar.h"

#include <chrono>

namespace platform {

// Win32 refuses the same dates. The check is needed there as well: some implementations accept 29 February in any year.
bool is_date(const Calendar_Time &time)
{
    namespace chrono = std::chrono;
    const chrono::year_month_day date{chrono::year(time.year), chrono::month(time.month), chrono::day(time.day)};
    return time.year >= first_year && time.year <= last_year && date.ok() && time.hour < 24 && time.minute < 60 &&
           time.second < 60 && time.millisecond < 1000;
}

}  // namespace platform
