// Calendar time on the GPS scale: week and seconds to and from dates, Modified Julian Dates, local time and text.
//
// Every conversion counts days: there are no leap seconds. Week and seconds of a UTC date are those of a clock that
// started at the GPS epoch, 6 January 1980 00:00, and follows UTC.
#pragma once

#include "kernel/base/kernel_api.h"

#include <cstdint>

namespace kernel {

// A date and time of day with the fields of the Win32 structure of the same name. A program that also includes the
// system's structure writes kernel::SYSTEMTIME and copies the fields.
struct SYSTEMTIME {
    std::uint16_t wYear;
    std::uint16_t wMonth;      // 1 to 12
    std::uint16_t wDayOfWeek;  // 0 is Sunday; never read
    std::uint16_t wDay;        // 1 to 31
    std::uint16_t wHour, wMinute, wSecond;
    std::uint16_t wMilliseconds;
};
static_assert(sizeof(SYSTEMTIME) == 16);

// A GPS week and seconds of that week. All setters except Set(double) leave 0 <= seconds < Seconds_Per_Week.
//
// The destructor is not virtual: subclasses may add operations, but no members that need a destructor.
//
// Setters read dates by the Gregorian calendar. Getters return Julian dates before 15 October 1582; the year -1
// precedes the year 1. Getters take a tolerance, `tol` [s]: a time that is at most `tol` short of a whole second is
// shown as that second, so that 59.9999999 does not become ":60.0".
//
// Threads:   a value; one thread at a time. Any thread may call the static operations (see platform/calendar.h on TZ).
// Ownership: nothing.
// Errors:    a time that is not finite, or whose week does not fit into an int, becomes zero time: week 0, 0 s. Fields
//            beyond their range (month 13, hour 25) are carried over and not refused.
class KERNEL_API mTime {
public:
    enum InitTime {
        Zero_Time = 0,  // week 0, 0 s; values that are not listed give the same
        Local_Now = 1,  // local time
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
    // Before 15 October 1582 the date is Julian. If the tolerance carries there, the date jumps, because the carried
    // date is read as Gregorian.
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
    virtual void Set(double total);  // [s] since the epoch. Not normalised: -1 is week 0, -1 s
    // `day_of_period` is a day, 1 to 1461, of four years that begin with a leap year. Two such periods lie around
    // `year`: the one is taken in which the day's year is nearer to `year`, or the later one if both are equally near.
    // In this choice the last day of each of the first three years counts for the following year.
    virtual void Set(int year, int day_of_period, int hour, int min, double sec);
    virtual void Set(int year, int month, int day, int hour, int min, double sec);
    virtual void Set(int week, double sec);
    virtual mTime &operator+=(double sec);

    mTime operator+(double sec) const;
    double operator-(const mTime &b) const;  // [s] from b to this time

    static int MonthLen(int month, int year);  // [days]; 0 when there is no such month
    // Returns 1 when [a1, a2] and [b1, b2] have a time in common, ends included. With `widen` both ends of the first
    // are moved outwards by `margin` [s].
    static int Overlap(const mTime &a1, const mTime &a2, const mTime &b1, const mTime &b2, int widen, double margin);

    static double GetTimeZone();  // [s] to add to the current local time to get UTC; 0 when the system does not know it
    // In whole milliseconds. Returns a time that the system cannot convert unchanged.
    static mTime UTCToLocalTime(const mTime &utc);
    // Starts from the current zone and corrects once, which finds the daylight saving of other dates. In the hour that
    // local clocks show twice, the result is one of the two times. The result is off by up to half a millisecond.
    static mTime LocalTimeToUTC(const mTime &local);

    // The date, rounded to whole milliseconds; all zero when the year does not fit into 16 bits.
    SYSTEMTIME ConvertToSystemTime() const;
    // Sets the machine's clock to this time, which must be UTC. Returns false without the right to do so, and when the
    // system refuses the date.
    bool SetSystemTime() const;

private:
    void Store(double week, double sec);

    int week_ = 0;        // [weeks] since the epoch
    double seconds_ = 0;  // [s]
};

// Compare by the difference of the two, without tolerance.
inline bool operator==(const mTime &a, const mTime &b) { return a - b == 0.0; }
inline bool operator!=(const mTime &a, const mTime &b) { return a - b != 0.0; }
inline bool operator<(const mTime &a, const mTime &b) { return a - b < 0.0; }
inline bool operator<=(const mTime &a, const mTime &b) { return a - b <= 0.0; }
inline bool operator>(const mTime &a, const mTime &b) { return a - b > 0.0; }
inline bool operator>=(const mTime &a, const mTime &b) { return a - b >= 0.0; }

// Writes the time `t` [s] since the epoch as "dd.mm.yy / hh:mm:ss.s". The integer forms write whole seconds. 24 bytes
// are enough for any time. Returns buf, which may be null: then nothing is written.
KERNEL_API char *rtime2str(char *buf, double t);
KERNEL_API char *rtime2str(char *buf, long double t);
KERNEL_API char *rtime2str(char *buf, unsigned long t);
KERNEL_API char *rtime2str(char *buf, long t);

}  // namespace kernel
