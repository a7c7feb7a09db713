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

// 64 bits: an int of years, or of weeks, has more seconds than 32 bits hold.
constexpr std::int64_t week_seconds = static_cast<std::int64_t>(Seconds_Per_Week);
constexpr std::int64_t day_seconds = static_cast<std::int64_t>(Seconds_Per_Day);
constexpr std::int64_t epoch_mjd = 44244;
constexpr std::int64_t epoch_day = epoch_mjd + 2400001;  // the Julian day that begins at noon
constexpr std::uint32_t gregorian_day = 2299161;         // 15 October 1582
constexpr double noted_sunday_mjd = 49921;               // 23 July 1995
constexpr std::size_t text_size = 24;

// The Modified Julian Date at 00:00, of the Gregorian calendar for any year. A year begins with March here: the leap
// day then is its last, and each month takes 30.6 days, cut to whole ones as they add up. The divisions cut towards 0,
// which for years below 0 is not the calendar's count.
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
// and E), with its fractions as fractions of whole numbers: 36524.25 = 146097 / 4, 365.25 = 7305 / 20, 30.6001 =
// 306001 / 10000. Nothing exceeds 32 bits for the days that are let in here.
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

// Days for which 32 bits are too few are moved there by whole cycles of 4 and 400 years. There is no year 0.
Date Date_Of_Day(std::int64_t julian_day)
{
    constexpr std::int64_t end = 100000000;
    std::int64_t years = 0;
    if (julian_day < 0) {
        // Long before 1582: the calendar is the Julian one, which repeats itself after four years.
        const std::int64_t cycles = 1 - julian_day / 1461;
        julian_day += cycles * 1461;
        years = cycles * -4;
    } else if (julian_day > end) {
        // The Gregorian one repeats itself after 400.
        const std::int64_t cycles = 1 + (julian_day - end) / 146097;
        julian_day -= cycles * 146097;
        years = cycles * 400;
    }
    Date date = Date_Of_Small_Day(static_cast<std::uint32_t>(julian_day));
    // An int's weeks are some 41 million years.
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
    // Set(double) alone leaves seconds below 0, and by a week at most.
    if (seconds < 0) {
        week -= 1;
        seconds += static_cast<int>(week_seconds);
    }
    const auto of_week = static_cast<std::uint32_t>(seconds);
    const std::uint32_t days = of_week / 86400, of_day = of_week % 86400, minutes = of_day / 60;
    return {Date_Of_Day(7 * week + epoch_day + days), static_cast<int>(minutes / 60), static_cast<int>(minutes % 60),
            static_cast<int>(of_day % 60)};
}

// Both structures have the layout of Win32's.
SYSTEMTIME From_Platform(const platform::Calendar_Time &time) { return std::bit_cast<SYSTEMTIME>(time); }
platform::Calendar_Time To_Platform(const SYSTEMTIME &time) { return std::bit_cast<platform::Calendar_Time>(time); }

}  // namespace

// Each names its own Set: an override would not be reached from a constructor, whatever it looks like.
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
    // In double, where no sum of weeks overflows.
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
    // Another week means that Store has refused this one: then it is zero time as a whole.
    if (week_ == weeks) seconds_ = total - weeks * Seconds_Per_Week;
}

void mTime::Set(int week, double sec) { Store(week, sec); }

// Whole seconds are counted in integers; what is left of them, up to half a second either way, keeps all its digits.
void mTime::Set(int year, int month, int day, int hour, int min, double sec)
{
    const double whole = std::floor(sec + 0.5);
    if (!(std::fabs(whole) < 1e15)) return Store(0, 0);  // no count of seconds; so is not-a-number
    const std::int64_t total = (Day_Number(year, month, day) - epoch_mjd) * day_seconds + std::int64_t{hour} * 3600 +
                               std::int64_t{min} * 60 + static_cast<std::int64_t>(whole);
    // Before the epoch the rest is negative: Store brings it into normal form.
    Store(static_cast<double>(total / week_seconds), static_cast<double>(total % week_seconds) + (sec - whole));
}

void mTime::Set(int year, int day_of_period, int hour, int min, double sec)
{
    // Cut towards 0, for negative years as well.
    std::int64_t start = year - year % 4;
    const std::int64_t in_period = (day_of_period >= 366) + (day_of_period >= 731) + (day_of_period >= 1096);
    // How far `year` is ahead of the day's year in the period from `start`; in the next period it is 4 less.
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
    // Dates are made of whole seconds, in integers; the part of a second is added untouched, with all its digits.
    int whole = static_cast<int>(seconds_);
    if (whole > seconds_) --whole;
    Date_Time shown = Date_Time_Of(week_, whole);
    sec = shown.sec + (seconds_ - whole);
    // Half a second beyond the next whole one, and cut: no rounding on the way can fall back, and the carry goes
    // through to the year.
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
    // The virtual operation: a subclass that shows other dates changes all single answers with it.
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
    // The same tolerance for the year as for the day: at midnight both turn together.
    const mTime new_year(get_year(tol), 1, 1, 0, 0, 0.0);
    return 1 + static_cast<int>(get_mjd() - new_year.get_mjd() + tol / Seconds_Per_Day);
}

int mTime::get_day_of_week(double tol) const
{
    const double days = get_mjd() - noted_sunday_mjd + tol / Seconds_Per_Day;
    const int rest = static_cast<int>(static_cast<std::int64_t>(std::fabs(days)) % 7);
    // Both sides of the reference are cut towards it, so that the count before it is the mirrored one; hence the
    // midnights of the header, which are kept.
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
    // In double: two ints may be further apart than an int can say.
    return (static_cast<double>(week_) - b.week_) * Seconds_Per_Week + seconds_ - b.seconds_;
}

int mTime::MonthLen(int month, int year)
{
    static constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12) return 0;
    // By the dates themselves, so that leap years are those that are shown; noon is far from any rounding.
    const bool leap_day = month == 2 && mTime(year, 3, 1, 12, 0, 0.0).get_day_of_year(Tolerance) > 60;
    return days[month - 1] + (leap_day ? 1 : 0);
}

int mTime::Overlap(const mTime &a1, const mTime &a2, const mTime &b1, const mTime &b2, int widen, double margin)
{
    const mTime from = widen ? a1 + -margin : a1;  // the minus is a sign: there is no operator-(double)
    const mTime to = widen ? a2 + margin : a2;
    return (from <= b1 && b1 <= to) || (from <= b2 && b2 <= to) || (b1 <= from && to <= b2);
}

double mTime::GetTimeZone()
{
    const platform::Time_Zone zone = platform::zone_now();
    // As Win32 tells it: without daylight saving the biases of both seasons are not to be counted.
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
    // Also true for any time finer than a millisecond, which the check does not show: hence the half millisecond of the
    // header.
    if (check != local) estimate += local - check;
    return estimate;
}

SYSTEMTIME mTime::ConvertToSystemTime() const
{
    const Calendar date(*this, 0.0005);  // half a millisecond: rounding never makes 1000 of them
    // A month of 0 is no date to the system: SetSystemTime and the conversions refuse it.
    if (date.year < 0 || date.year > std::numeric_limits<std::uint16_t>::max()) return {};
    const auto small = [](double value) { return static_cast<std::uint16_t>(value); };
    const double whole = std::floor(date.sec);
    return {small(date.year),
            small(date.month),
            small(get_day_of_week(0.0005)),
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
    // A tenth, though rounding to the text's one digit asks for half of it: from about .9 s on a time is shown as the
    // next second. So it is meant.
    const Calendar date(mTime(t), 0.1);
    std::snprintf(buf, text_size, "%02d.%02d.%02d / %02d:%02d:%04.1f", date.day, date.month, date.year % 100, date.hour,
                  date.min, date.sec);
    return buf;
}

char *rtime2str(char *buf, long double t) { return rtime2str(buf, static_cast<double>(t)); }

namespace {

// The day is not carried into the month.
char *Write_Whole_Seconds(char *buf, double t)
{
    if (!buf) return nullptr;
    Calendar date(mTime(t), 0.1);
    // Never for whole seconds, which is what both callers hand in; it is part of the form.
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
