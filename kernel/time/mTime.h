// Calendar time on the GPS scale: week and seconds to and from dates, Modified Julian Dates, local time and text.
//
// Every conversion counts days: there are no leap seconds. A date of UTC gives the week and seconds that a clock would show
// which started with the GPS epoch, 6 January 1980 00:00, and was set with UTC ever since.
#pragma once

#include "kernel/base/kernel_api.h"

#include <cstdint>

namespace kernel {

// A date and time of day with the fields of Win32's structure of this name. A program that includes the system's as well
// says kernel::SYSTEMTIME and copies the fields.
struct SYSTEMTIME {
    std::uint16_t wYear;
    std::uint16_t wMonth;      // 1 to 12
    std::uint16_t wDayOfWeek;  // 0 is Sunday; never read
    std::uint16_t wDay;        // 1 to 31
    std::uint16_t wHour, wMinute, wSecond;
    std::uint16_t wMilliseconds;
};
static_assert(sizeof(SYSTEMTIME) == 16);

// A GPS week and seconds of that week. All setters but Set(double) leave 0 <= seconds < 604800.
//
// The destructor is not virtual: subclasses add answers, and nothing that would have to be released.
//
// Dates are those of the Gregorian calendar; answers before 15 October 1582 are those of the Julian one, and before the
// year 1 comes the year -1. Answered dates take a tolerance, `tol` [s]: a time that is short of a whole second by no more
// is shown as that second, so that 59.9999999 does not become ":60.0".
//
// Threads:   a value; one thread at a time. The static operations may be called from any (see platform/calendar.h on TZ).
// Ownership: nothing.
// Errors:    a time that is not finite, or that no week of an int can hold, becomes zero time: week 0, 0 s. Fields beyond
//            their range (month 13, hour 25) are carried by the arithmetic and not refused.
class KERNEL_API mTime {
public:
    enum InitTime {
        Zero_Time = 0,  // week 0, 0 s; so is every other value
        Local_Now = 1,  // what clocks show here
        UTC_Now = 2
    };
    static constexpr double Tolerance = 0.001;  // [s]

    mTime(InitTime init);
    mTime(double total);
    mTime(int week, double sec);
    mTime(int year, int day_of_period, int hour, int min, double sec);
    mTime(int year, int month, int day, int hour, int min, double sec);
    mTime(const mTime &) = default;
    mTime &operator=(const mTime &) = default;

    virtual int get_GPSweek() const { return week_; }
    virtual double get_GPSsecs() const { return seconds_; }  // [s] of the week
    virtual double get_roguetime() const;                    // [s] since the GPS epoch
    // Before 15 October 1582 the date is Julian; a carry by the tolerance reads it as Gregorian there, and the date jumps.
    virtual void get_caldat(int &year, int &month, int &day, int &hour, int &min, double &sec,
                            double tol = Tolerance) const;
    virtual int get_year(double tol = Tolerance) const;
    virtual int get_month(double tol = Tolerance) const;
    virtual int get_day(double tol = Tolerance) const;
    virtual int get_hour(double tol = Tolerance) const;
    virtual int get_min(double tol = Tolerance) const;
    virtual double get_secs(double tol = Tolerance) const;      // [s] of the minute
    virtual int get_day_of_year(double tol = Tolerance) const;  // 1 to 366
    // 0 is Sunday. Before 23 July 1995 a midnight without tolerance still belongs to the day before.
    virtual int get_day_of_week(double tol = Tolerance) const;
    virtual double get_mjd() const;  // [days], Modified Julian Date; the epoch is 44244

    virtual void Set(const SYSTEMTIME &time);
    virtual void Set(InitTime init);
    virtual void Set(double total);  // [s] since the epoch. Not brought into normal form: -1 is week 0, -1 s
    // A day, 1 to 1461, of the four years that begin with a leap year; of the periods around `year` the one that brings the
    // day's year nearer to it, the later when both are as near. The last day of each of the first three years counts for
    // the next one in that choice.
    virtual void Set(int year, int day_of_period, int hour, int min, double sec);
    virtual void Set(int year, int month, int day, int hour, int min, double sec);
    virtual void Set(int week, double sec);
    virtual mTime &operator+=(double sec);

    mTime operator+(double sec) const;
    double operator-(const mTime &b) const;  // [s] from b to this time

    static int MonthLen(int month, int year);  // [days]; 0 when there is no such month
    // Whether [a1, a2] and [b1, b2] have a time in common, ends included; `widen` moves the ends of the first apart by
    // `margin` [s] each.
    static int Overlap(const mTime &a1, const mTime &a2, const mTime &b1, const mTime &b2, int widen, double margin);

    static double GetTimeZone();  // [s] to add to local time now to get UTC; 0 when the system cannot tell
    // In whole milliseconds. A time that the system cannot convert comes back as it was.
    static mTime UTCToLocalTime(const mTime &utc);
    // Starts from the zone of now and corrects once, which finds the daylight saving of other dates. The hour that is shown
    // twice is one of its two. The parts of a
    // millisecond are off by up to half of one.
    static mTime LocalTimeToUTC(const mTime &local);

    // The date in whole milliseconds, rounded; all zero when the year has no place in 16 bits.
    SYSTEMTIME ConvertToSystemTime() const;
    // Sets the machine's clock, for a time in UTC. False without the right, or when this is no time for a clock.
    bool SetSystemTime() const;

private:
    void Store(double week, double sec);

    int week_ = 0;        // [weeks] since the epoch
    double seconds_ = 0;  // [s]
};

// By the difference of the two, without tolerance.
inline bool operator==(const mTime &a, const mTime &b) { return a - b == 0.0; }
inline bool operator!=(const mTime &a, const mTime &b) { return a - b != 0.0; }
inline bool operator<(const mTime &a, const mTime &b) { return a - b < 0.0; }
inline bool operator<=(const mTime &a, const mTime &b) { return a - b <= 0.0; }
inline bool operator>(const mTime &a, const mTime &b) { return a - b > 0.0; }
inline bool operator>=(const mTime &a, const mTime &b) { return a - b >= 0.0; }

// A time `t` [s] since the epoch as "dd.mm.yy / hh:mm:ss.s", or with whole seconds (cut off) for whole numbers. 24 bytes
// are enough for any time. Returns buf; null for null.
KERNEL_API char *rtime2str(char *buf, double t);
KERNEL_API char *rtime2str(char *buf, long double t);
KERNEL_API char *rtime2str(char *buf, unsigned long t);
KERNEL_API char *rtime2str(char *buf, long t);

}  // namespace kernel
