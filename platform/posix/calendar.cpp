#include "platform/calendar.h"

#include "platform/error.h"
#include "platform/posix/errno_table.h"

#include <chrono>
#include <optional>
#include <time.h>

namespace platform {

namespace {

timespec now()
{
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return time;
}

// tzset first: localtime_r is not required to read TZ again.
tm local_of(time_t time)
{
    tm fields{};
    tzset();
    localtime_r(&time, &fields);
    return fields;
}

Calendar_Time calendar(const tm &fields, long nanosecond)
{
    const auto small = [](long value) { return static_cast<std::uint16_t>(value); };
    return {small(fields.tm_year + 1900), small(fields.tm_mon + 1), small(fields.tm_wday), small(fields.tm_mday),
            small(fields.tm_hour),        small(fields.tm_min),     small(fields.tm_sec),  small(nanosecond / 1000000)};
}

// Returns nothing, and sets the error, if `utc` is not a date.
std::optional<time_t> seconds_of(const Calendar_Time &utc)
{
    namespace chrono = std::chrono;
    if (!is_date(utc)) {
        set_last_error(error_invalid_parameter);
        return {};
    }
    const chrono::sys_days date = chrono::year(utc.year) / utc.month / utc.day;
    return static_cast<time_t>(chrono::sys_seconds(date).time_since_epoch().count()) + utc.hour * 3600 +
           utc.minute * 60 + utc.second;
}

// [min] east of Greenwich in the season whose daylight-saving flag is not `daylight`.
std::optional<long> offset_when_not(bool daylight, time_t time)
{
    constexpr time_t day = 86400;      // [s]
    constexpr time_t step = 10 * day;  // no season of any zone is shorter
    for (time_t at = time; at < time + 366 * day; at += step) {
        const tm fields = local_of(at);
        if ((fields.tm_isdst > 0) != daylight) return fields.tm_gmtoff / 60;
    }
    return {};
}

}  // namespace

Calendar_Time utc_now()
{
    const timespec time = now();
    tm fields{};
    gmtime_r(&time.tv_sec, &fields);
    return calendar(fields, time.tv_nsec);
}

Calendar_Time local_now()
{
    const timespec time = now();
    return calendar(local_of(time.tv_sec), time.tv_nsec);
}

Time_Zone zone_now()
{
    const time_t time = now().tv_sec;
    const tm fields = local_of(time);
    const long offset = fields.tm_gmtoff / 60;
    const bool daylight = fields.tm_isdst > 0;
    const std::optional<long> other = offset_when_not(daylight, time);
    if (!other) return {Time_Zone::Holds::no_change, -offset, 0, 0};
    const long standard = daylight ? *other : offset;
    const long summer = daylight ? offset : *other;
    return {daylight ? Time_Zone::Holds::daylight : Time_Zone::Holds::standard, -standard, 0, standard - summer};
}

bool utc_to_local(const Calendar_Time &utc, Calendar_Time &local)
{
    const std::optional<time_t> time = seconds_of(utc);
    if (!time) return false;
    const tm fields = local_of(*time);
    if (fields.tm_year + 1900 < first_year || fields.tm_year + 1900 > last_year) {
        set_last_error(error_invalid_parameter);
        return false;
    }
    local = calendar(fields, utc.millisecond * 1000000L);
    return true;
}

bool set_system_time(const Calendar_Time &utc)
{
    const std::optional<time_t> time = seconds_of(utc);
    if (!time) return false;
    const timespec setting{*time, utc.millisecond * 1000000L};
    return clock_settime(CLOCK_REALTIME, &setting) == 0 || posix::fail();
}

}  // namespace platform
