#include "platform/calendar.h"

#include <windows.h>

#include <bit>

namespace platform {

namespace {

bool refuse(const Calendar_Time &time)
{
    if (is_date(time)) return false;
    SetLastError(ERROR_INVALID_PARAMETER);
    return true;
}

}  // namespace

Calendar_Time utc_now()
{
    SYSTEMTIME time;
    GetSystemTime(&time);
    return std::bit_cast<Calendar_Time>(time);
}

Calendar_Time local_now()
{
    SYSTEMTIME time;
    GetLocalTime(&time);
    return std::bit_cast<Calendar_Time>(time);
}

Time_Zone zone_now()
{
    TIME_ZONE_INFORMATION zone{};
    Time_Zone::Holds holds = Time_Zone::Holds::nothing_known;
    switch (GetTimeZoneInformation(&zone)) {
    case TIME_ZONE_ID_UNKNOWN: holds = Time_Zone::Holds::no_change; break;
    case TIME_ZONE_ID_STANDARD: holds = Time_Zone::Holds::standard; break;
    case TIME_ZONE_ID_DAYLIGHT: holds = Time_Zone::Holds::daylight; break;
    default: break;
    }
    return {holds, zone.Bias, zone.StandardBias, zone.DaylightBias};
}

bool utc_to_local(const Calendar_Time &utc, Calendar_Time &local)
{
    if (refuse(utc)) return false;
    const SYSTEMTIME from = std::bit_cast<SYSTEMTIME>(utc);
    SYSTEMTIME to;
    if (!SystemTimeToTzSpecificLocalTime(nullptr, &from, &to)) return false;
    local = std::bit_cast<Calendar_Time>(to);
    return true;
}

bool set_system_time(const Calendar_Time &utc)
{
    if (refuse(utc)) return false;
    const SYSTEMTIME time = std::bit_cast<SYSTEMTIME>(utc);
    return SetSystemTime(&time) != 0;
}

}  // namespace platform
