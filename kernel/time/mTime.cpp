#include "kernel/time/mTime.h"

#include "kernel/time/Gps_Time.h"
#include "platform/calendar.h"

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace kernel {

namespace {

// 64 bits: the seconds of an int of years or weeks exceed 32 bits.
constexpr std::int64_t week_seconds = static_cast<std::int64_t>(Seconds_Per_Week);
constexpr std::int64_t day_seconds = static_cast<std::int64_t>(Seconds_Per_Day);
constexpr double most_seconds = 1e15;  // [s] of a date given by its fields; sums with them fit into 64 bits
constexpr std::int64_t epoch_mjd = 44244;
constexpr std::int64_t epoch_day = epoch_mjd + 2400001;  // the Julian day that begins at noon
constexpr std::uint32_t gregorian_day = 2299161;         // 15 October 1582
constexpr double noted_sunday_mjd = 49921;               // 23 July 1995
constexpr std::size_t text_size = 24;                    // [bytes] of the buffers of rtime2str
// [s] of the texts of rtime2str. Part of the interface: a time from about .9 s on is shown as the next second.
constexpr double text_tolerance = 0.1;
constexpr double milliseconds_tolerance = 0.0005;  // [s] half a millisecond: rounding never yields 1000 of them

// The Modified Julian Date at 00:00, by the Gregorian calendar for any year. A year begins with March here, so that the
// leap day is its last day. A month takes 30.6 days; the sum is cut to whole days. The divisions cut towards 0, which
// differs from the calendar for years below 0.
std::int64_t Day_Number(std::int64_t year, std::int64_t month, std::int64_t day)
{
    if (month < 3) {
        month += 12;
        year -= 1;
    }
    return 365 * year + year / 4 + 306 * (month + 1) / 10 - 679004 - year / 100 + year / 400 + day;
}

struct Date {
    int year, month, day;
};

// The classical conversion of a Julian day at noon (Meeus, Astronomical Algorithms, chapter 7; a, c and e are his A, C
// and E). Its decimal numbers are written as fractions: 36524.25 = 146097 / 4, 365.25 = 7305 / 20, 30.6001 =
// 306001 / 10000. Date_Of_Day passes days for which nothing exceeds 32 bits.
Date Date_Of_Small_Day(std::uint32_t julian_day)
{
    std::uint32_t a = julian_day;
    if (julian_day >= gregorian_day) {
        const std::uint32_t centuries = (4 * (julian_day - 1867216) - 1) / 146097;
        a += 1 + centuries - centuries / 4;
    }
    const std::uint32_t c = (20 * a + 28038) / 7305;
    const std::uint32_t in_year = a + 1524 - (365 * c + c / 4);  // 122 to 489: March comes first
    const std::uint32_t e = in_year * 10000 / 306001;
    const std::uint32_t month = e > 13 ? e - 13 : e - 1;
    const std::uint32_t day = in_year - 306001 * e / 10000;
    return {static_cast<int>(c) - 4715 - (month > 2), static_cast<int>(month), static_cast<int>(day)};
}

// Moves days outside the range of Date_Of_Small_Day into it, by whole cycles of 4 or 400 years. There is no year 0.
Date Date_Of_Day(std::int64_t julian_day)
{
    constexpr std::int64_t end = 100000000;
    std::int64_t years = 0;
    if (julian_day < 0) {
        // Long before 1582: the Julian calendar, which repeats after 4 years of 1461 days.
        const std::int64_t cycles = 1 - julian_day / 1461;
        julian_day += cycles * 1461;
        years = cycles * -4;
    } else if (julian_day > end) {
        // The Gregorian calendar repeats after 400 years of 146097 days.
        const std::int64_t cycles = 1 + (julian_day - end) / 146097;
        julian_day -= cycles * 146097;
        years = cycles * 400;
    }
    Date date = Date_Of_Small_Day(static_cast<std::uint32_t>(julian_day));
    // Fits: an int of weeks is some 41 million years.
    date.year += static_cast<int>(years);
    if (date.year < 1) --date.year;
    return date;
}

struct Date_Time {
    Date date;
    int hour, min, sec;
};

Date_Time Date_Time_Of(std::int64_t week, int seconds)
{
    // Only Set(double) leaves seconds below 0, by at most a week.
    if (seconds < 0) {
        week -= 1;
        seconds += static_cast<int>(week_seconds);
    }
    const auto of_week = static_cast<std::uint32_t>(seconds);
    constexpr auto per_day = static_cast<std::uint32_t>(day_seconds);
    const std::uint32_t days = of_week / per_day, of_day = of_week % per_day, minutes = of_day / 60;
    return {Date_Of_Day(7 * week + epoch_day + days), static_cast<int>(minutes / 60), static_cast<int>(minutes % 60),
            static_cast<int>(of_day % 60)};
}

// Both structures have the layout of Win32's.
SYSTEMTIME From_Platform(const platform::Calendar_Time &time) { return std::bit_cast<SYSTEMTIME>(time); }
platform::Calendar_Time To_Platform(const SYSTEMTIME &time) { return std::bit_cast<platform::Calendar_Time>(time); }

}  // namespace

// A constructor cannot reach an override of Set in a subclass; mTime::Set says which one it calls.
mTime::mTime(InitTime init) { mTime::Set(init); }
mTime::mTime(double total) { mTime::Set(total); }
mTime::mTime(int week, double sec) { mTime::Set(week, sec); }
mTime::mTime(int year, int day_of_period, int hour, int min, double sec)
{
    mTime::Set(year, day_of_period, hour, min, sec);
}
mTime::mTime(int year, int month, int day, int hour, int min, double sec)
{
    mTime::Set(year, month, day, hour, min, sec);
}

void mTime::Store(double week, double sec)
{
    // The sum is a double, which does not overflow.
    week += Take_Whole_Weeks(sec);
    const bool fits = std::isfinite(sec) && std::fabs(week) <= std::numeric_limits<int>::max();
    week_ = fits ? static_cast<int>(week) : 0;
    seconds_ = fits ? sec : 0;
}

void mTime::Set(const SYSTEMTIME &time)
{
    Set(time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond + 0.001 * time.wMilliseconds);
}

void mTime::Set(InitTime init)
{
    switch (init) {
    case Local_Now: return Set(From_Platform(platform::local_now()));
    case UTC_Now: return Set(From_Platform(platform::utc_now()));
    default: return Store(0, 0);
    }
}

void mTime::Set(double total)
{
    const double weeks = std::trunc(total / Seconds_Per_Week);
    Store(weeks, 0);
    // If week_ differs, Store has refused the week, and the time stays week 0, 0 s.
    if (week_ == weeks) seconds_ = total - weeks * Seconds_Per_Week;
}

void mTime::Set(int week, double sec) { Store(week, sec); }

// Whole seconds are counted in integers. The rest, at most half a second either way, keeps all its digits.
void mTime::Set(int year, int month, int day, int hour, int min, double sec)
{
    const double whole = std::floor(sec + 0.5);
    if (!(std::fabs(whole) < most_seconds)) return Store(0, 0);  // also for not-a-number
    const std::int64_t total = (Day_Number(year, month, day) - epoch_mjd) * day_seconds + std::int64_t{hour} * 3600 +
                               std::int64_t{min} * 60 + static_cast<std::int64_t>(whole);
    // The remainder is negative before the epoch; Store normalises it.
    Store(static_cast<double>(total / week_seconds), static_cast<double>(total % week_seconds) + (sec - whole));
}

void mTime::Set(int year, int day_of_period, int hour, int min, double sec)
{
    // The remainder is cut towards 0, for negative years as well.
    std::int64_t start = year - year % 4;
    const std::int64_t in_period = (day_of_period >= 366) + (day_of_period >= 731) + (day_of_period >= 1096);
    // By how many years `year` is ahead of the day's year in the period from `start`. In the next period it is 4 less.
    const std::int64_t ahead = year - (start + in_period);
    if (std::abs(ahead - 4) <= std::abs(ahead)) start += 4;
    const std::int64_t days = Day_Number(start, 1, 1) - 1 + day_of_period - epoch_mjd;
    const std::int64_t of_week = days % 7 * day_seconds + std::int64_t{hour} * 3600 + std::int64_t{min} * 60;
    Store(static_cast<double>(days / 7), static_cast<double>(of_week) + sec);
}

double mTime::get_roguetime() const { return week_ * Seconds_Per_Week + seconds_; }

double mTime::get_mjd() const { return 7.0 * week_ + epoch_mjd + seconds_ / Seconds_Per_Day; }

void mTime::get_caldat(int &year, int &month, int &day, int &hour, int &min, double &sec, double tol) const
{
    // The date is computed from whole seconds in integers. The fraction is added unchanged, with all its digits.
    int whole = static_cast<int>(seconds_);
    if (whole > seconds_) --whole;
    Date_Time shown = Date_Time_Of(week_, whole);
    sec = shown.sec + (seconds_ - whole);
    // Half a second is added and then cut, so that rounding errors cannot fall back below the whole second. The new
    // date carries up to the year.
    if (sec + tol >= shown.sec + 1) {
        const mTime next(shown.date.year, shown.date.month, shown.date.day, shown.hour, shown.min, sec + 0.5);
        shown = Date_Time_Of(next.week_, static_cast<int>(next.seconds_));
        sec = shown.sec;
    }
    year = shown.date.year;
    month = shown.date.month;
    day = shown.date.day;
    hour = shown.hour;
    min = shown.min;
}

namespace {

struct Calendar {
    // get_caldat is virtual: a subclass that overrides it changes get_year and the other single fields, too.
    Calendar(const mTime &time, double tol) { time.get_caldat(year, month, day, hour, min, sec, tol); }
    int year, month, day, hour, min;
    double sec;
};

}  // namespace

int mTime::get_year(double tol) const { return Calendar(*this, tol).year; }
int mTime::get_month(double tol) const { return Calendar(*this, tol).month; }
int mTime::get_day(double tol) const { return Calendar(*this, tol).day; }
int mTime::get_hour(double tol) const { return Calendar(*this, tol).hour; }
int mTime::get_min(double tol) const { return Calendar(*this, tol).min; }
double mTime::get_secs(double tol) const { return Calendar(*this, tol).sec; }

int mTime::get_day_of_year(double tol) const
{
    // Year and day use the same tolerance, so that both change together at midnight.
    const mTime new_year(get_year(tol), 1, 1, 0, 0, 0.0);
    return 1 + static_cast<int>(get_mjd() - new_year.get_mjd() + tol / Seconds_Per_Day);
}

int mTime::get_day_of_week(double tol) const
{
    const double days = get_mjd() - noted_sunday_mjd + tol / Seconds_Per_Day;
    const int rest = static_cast<int>(static_cast<std::int64_t>(std::fabs(days)) % 7);
    // Days are cut towards the reference on both sides. Before it, a midnight therefore counts for the day before,
    // which is part of the interface (see the header).
    return days < 0 ? 6 - rest : rest;
}

mTime &mTime::operator+=(double sec)
{
    Store(week_, seconds_ + sec);
    return *this;
}

mTime mTime::operator+(double sec) const
{
    mTime moved(*this);
    moved += sec;
    return moved;
}

double mTime::operator-(const mTime &b) const
{
    // In double: the difference of two ints may not fit into an int.
    return (static_cast<double>(week_) - b.week_) * Seconds_Per_Week + seconds_ - b.seconds_;
}

int mTime::MonthLen(int month, int year)
{
    static constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12) return 0;
    // Asks get_day_of_year, so that leap years agree with the dates shown. At noon rounding cannot change the day.
    const bool leap_day = month == 2 && mTime(year, 3, 1, 12, 0, 0.0).get_day_of_year(Tolerance) > 60;
    return days[month - 1] + (leap_day ? 1 : 0);
}

int mTime::Overlap(const mTime &a1, const mTime &a2, const mTime &b1, const mTime &b2, int widen, double margin)
{
    const mTime from = widen ? a1 + -margin : a1;  // there is no operator-(double)
    const mTime to = widen ? a2 + margin : a2;
    return (from <= b1 && b1 <= to) || (from <= b2 && b2 <= to) || (b1 <= from && to <= b2);
}

double mTime::GetTimeZone()
{
    const platform::Time_Zone zone = platform::zone_now();
    // The rule of Win32: in a zone without daylight saving only `bias` counts.
    switch (zone.holds) {
    case platform::Time_Zone::Holds::no_change: return 60.0 * static_cast<double>(zone.bias);
    case platform::Time_Zone::Holds::standard: return 60.0 * static_cast<double>(zone.bias + zone.standard_bias);
    case platform::Time_Zone::Holds::daylight: return 60.0 * static_cast<double>(zone.bias + zone.daylight_bias);
    default: return 0;
    }
}

mTime mTime::UTCToLocalTime(const mTime &utc)
{
    platform::Calendar_Time local;
    if (!platform::utc_to_local(To_Platform(utc.ConvertToSystemTime()), local)) return utc;
    mTime shown(Zero_Time);
    shown.Set(From_Platform(local));
    return shown;
}

mTime mTime::LocalTimeToUTC(const mTime &local)
{
    mTime estimate = local + GetTimeZone();
    const mTime check = UTCToLocalTime(estimate);
    // `check` is in whole milliseconds, so a finer time is corrected by its fraction, too: the half millisecond that
    // the header names.
    if (check != local) estimate += local - check;
    return estimate;
}

SYSTEMTIME mTime::ConvertToSystemTime() const
{
    const Calendar date(*this, milliseconds_tolerance);
    // An all-zero date has the month 0, so SetSystemTime and the conversions of the system refuse it.
    if (date.year < 0 || date.year > std::numeric_limits<std::uint16_t>::max()) return {};
    const auto small = [](double value) { return static_cast<std::uint16_t>(value); };
    const double whole = std::floor(date.sec);
    return {small(date.year),
            small(date.month),
            small(get_day_of_week(milliseconds_tolerance)),
            small(date.day),
            small(date.hour),
            small(date.min),
            small(whole),
            small(std::floor((date.sec - whole) * 1000 + 0.5))};
}

bool mTime::SetSystemTime() const { return platform::set_system_time(To_Platform(ConvertToSystemTime())); }

char *rtime2str(char *buf, double t)
{
    if (!buf) return nullptr;
    const Calendar date(mTime(t), text_tolerance);
    std::snprintf(buf, text_size, "%02d.%02d.%02d / %02d:%02d:%04.1f", date.day, date.month, date.year % 100, date.hour,
                  date.min, date.sec);
    return buf;
}

char *rtime2str(char *buf, long double t) { return rtime2str(buf, static_cast<double>(t)); }

namespace {

// Does not carry the day into the month.
char *Write_Whole_Seconds(char *buf, double t)
{
    if (!buf) return nullptr;
    Calendar date(mTime(t), text_tolerance);
    // Both callers pass whole seconds, for which this loop never runs.
    while (date.sec >= 59.5) {
        date.sec -= 60;
        date.min += 1;
        if (date.min >= 60) {
            date.min -= 60;
            date.hour += 1;
        }
        if (date.hour >= 24) {
            date.hour -= 24;
            date.day += 1;
        }
    }
    std::snprintf(buf, text_size, "%02d.%02d.%02d / %02d:%02d:%02d", date.day, date.month, date.year % 100, date.hour,
                  date.min, static_cast<int>(date.sec));
    return buf;
}

}  // namespace

char *rtime2str(char *buf, unsigned long t) { return Write_Whole_Seconds(buf, static_cast<double>(t)); }
char *rtime2str(char *buf, long t) { return Write_Whole_Seconds(buf, static_cast<double>(t)); }

}  // namespace kernel
