// The record of a position solution.
#pragma once

#include "kernel/base/kernel_api.h"

#include <cstdint>

namespace kernel {

// Each optional quantity has a flag. Its setter stores the value and sets the flag. Its reader copies the value and
// returns 1 if the flag is set; otherwise it returns 0 and does not touch its arguments. A new Position is all zero and
// UNKNOWN.
//
// Threads:   a value.
// Ownership: holds nothing; texts are copied in and out.
// Errors:    none reported; a setter that does not accept its argument changes neither value nor flag.
class KERNEL_API Position {
public:
    enum Solution_Type : int {
        NO_SOLUTION,
        UNKNOWN,
        SINGLE_POINT,
        CODE,
        CODE_SMOOTHED,
        TRIPLE_DIFF,
        DGPS,
        FLOAT_SOL,
        APPROX_FIX_SOL,
        FIXED_SOL,
        POSITION_KNOWN,
    };
    static constexpr int Point_Number_Size = 9;  // 8 characters and the terminator

    Position() = default;  // UNKNOWN, without its flag
    explicit Position(Solution_Type solution) { Set_Solution(solution); }

    // WGS-84, Cartesian [m] ECEF.
    void Set_WGS(const double *xyz) { Set_WGS(xyz[0], xyz[1], xyz[2]); }
    void Set_WGS(double x, double y, double z);
    int Read_WGS(double *xyz) const { return Read_WGS(xyz[0], xyz[1], xyz[2]); }
    int Read_WGS(double &x, double &y, double &z) const;

    void Set_Clock_Err(double error) { Set(clock_error_, error, Has_Clock_Err); }  // [s] receiver clock
    int Read_Clock_Err(double &error) const { return Read(clock_error_, error, Has_Clock_Err); }
    void Set_Clock_Drift(double drift) { Set(clock_drift_, drift, Has_Clock_Drift); }  // [s/s]
    int Read_Clock_Drift(double &drift) const { return Read(clock_drift_, drift, Has_Clock_Drift); }

    // [m]. Height of the WGS-84 point, the antenna's reference point, above the marker.
    void Set_Antenna_Height(double height) { Set(antenna_height_, height, Has_Antenna_Height); }
    int Read_Antenna_Height(double &height) const { return Read(antenna_height_, height, Has_Antenna_Height); }

    void SetHdop(double hdop) { hdop_ = hdop; }  // [1]; has no flag: 0 when never set
    double GetHdop() const { return hdop_; }
    void SetNSat(int satellites) { satellites_ = satellites; }  // used in the solution; has no flag: 0 when never set
    int GetNSat() const { return satellites_; }

    // [s]. GPS time since 1980-01-06 00:00. Only times after that are accepted.
    void Set_Time(double t);
    // Only week > 0 and second >= 0 are accepted. The seconds of the weeks wrap around in 32 bits after week 3550.
    void Set_Time(int week, double second);
    int Read_Time(double &t) const { return Read(time_, t, Has_Time); }

    void SetKinematic() { flags_ |= Kinematic; }
    void SetStatic() { flags_ &= ~Kinematic; }
    bool IsKinematic() const { return (flags_ & Kinematic) != 0; }
    bool IsStatic() const { return !IsKinematic(); }

    void Set_Solution(Solution_Type solution) { Set(solution_, solution, Has_Solution); }
    Solution_Type Get_Solution() const { return solution_; }  // ignores the flag
    int Read_Solution(Solution_Type &solution) const;         // 0 also for UNKNOWN
    // "NO_SOLUTION" to "POSITION_KNOWN", a constant text. Returns "UNKNOWN" for a value outside the enumeration.
    static const char *Get_Solution_Name(Solution_Type solution);

    void Set_Point_Number(const char *number);  // copies at most 8 characters; null is ignored
    int Read_Point_Number(char *number) const;  // writes up to Point_Number_Size characters, terminator included

private:
    enum Flag : std::uint32_t {
        Kinematic = 0x01,
        Has_WGS = 0x02,
        Has_Clock_Err = 0x08,
        Has_Clock_Drift = 0x10,
        Has_Point_Number = 0x40,
        Has_Solution = 0x80,
        Has_Time = 0x100,
        Has_Antenna_Height = 0x200,
    };
    template <class T>
    void Set(T &field, T value, Flag flag)
    {
        field = value;
        flags_ |= flag;
    }
    template <class T>
    int Read(const T &field, T &value, Flag flag) const
    {
        if ((flags_ & flag) == 0) return 0;
        value = field;
        return 1;
    }

    double wgs_[3] = {};      // [m] ECEF, WGS-84
    double clock_error_ = 0;  // [s]
    double clock_drift_ = 0;  // [s/s]
    double hdop_ = 0;         // [1]
    int satellites_ = 0;
    double time_ = 0;  // [s] GPS, since 1980-01-06
    std::uint32_t flags_ = 0;
    Solution_Type solution_ = UNKNOWN;
    char point_number_[Point_Number_Size] = {};
    double antenna_height_ = 0;  // [m]
};

}  // namespace kernel
