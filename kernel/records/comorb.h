// GPS orbits from broadcast Kepler elements: the record of one satellite, its position, velocity and clock at a time,
// and the range to a receiver.
//
// Sections and tables named here are those of IS-GPS-200. Positions and velocities are Earth-fixed (ECEF, WGS-84).
// Times are GPS seconds of week. A difference of two times is corrected for the change of week, to within half a week.
#pragma once

#include "kernel/base/kernel_api.h"
#include "kernel/time/Gps_Time.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kernel {

// Part of the interface between satellite and user: do not replace them by more accurate values. Relativistic_F was
// derived from an older GM than the one listed.
namespace orbit {
constexpr double GM = 3.986005e14;                              // [m^3/s^2]
constexpr double Earth_Rate = 7.2921151467e-5;                  // [rad/s]
constexpr double Relativistic_F = -4.442809305e-10;             // [s/sqrt(m)]
constexpr double Light_Speed = 299792458.0;                     // [m/s]
constexpr double Earth_Rate_By_Light = 2.4323877909897254e-13;  // [rad/m]
constexpr double Half_Week = Seconds_Per_Week / 2;              // [s]
constexpr double Week = Seconds_Per_Week;                       // [s]
static_assert(Earth_Rate_By_Light == Earth_Rate / Light_Speed);
constexpr int Kepler_Iterations = 4;  // of E = M + e sin E; a fixed number, not until convergence
}  // namespace orbit

// Places in KeplerData. Angles are in radians (the satellite sends semicircles; pi = 3.1415926535898) and refer to the
// equator and, for the node, to the Greenwich meridian. An unknown value is 0.
enum KeplerIndex : std::size_t {
    Kepler_week = 0,      // [weeks] since 1980-01-06, rollovers resolved: the week of transmission, 20.3.3.3.1.1
    Kepler_toe = 1,       // [s] of week, reference time of the ephemeris, table 20-II
    Kepler_Omega0 = 2,    // [rad] longitude of the ascending node at the start of the week, table 20-II
    Kepler_i0 = 3,        // [rad] inclination at toe, table 20-II
    Kepler_omega = 4,     // [rad] argument of perigee, table 20-II
    Kepler_A = 5,         // [m] semi-major axis; the satellite sends its root, table 20-II
    Kepler_e = 6,         // [1] eccentricity, table 20-II
    Kepler_M0 = 7,        // [rad] mean anomaly at toe, table 20-II
    Kepler_OmegaDot = 8,  // [rad/s] rate of right ascension, table 20-II
    Kepler_IDot = 9,      // [rad/s] rate of inclination, table 20-II
    Kepler_DeltaN = 10,   // [rad/s] mean motion less the one computed from A, table 20-II
    Kepler_Crs = 11,      // [m] corrections in 2 phi, table 20-II: sine before cosine, unlike in RINEX
    Kepler_Crc = 12,      // [m]
    Kepler_Cis = 13,      // [rad]
    Kepler_Cic = 14,      // [rad]
    Kepler_Cus = 15,      // [rad]
    Kepler_Cuc = 16,      // [rad]
    Kepler_toc = 17,      // [s] of week, reference time of the clock, 20.3.3.3.1.8
    Kepler_af0 = 18,      // [s] clock offset at toc, 20.3.3.3.1.8
    Kepler_af1 = 19,      // [s/s]
    Kepler_af2 = 20,      // [s/s^2]
    Kepler_TGD = 21,      // [s] group delay of L1, 20.3.3.3.1.7; not in the clock that comorb returns
    Kepler_IODE = 22,     // [1] issue of data, ephemeris, 0..255, 20.3.3.4.1
    Kepler_IODC = 23,     // [1] issue of data, clock, 0..1023, 20.3.3.3.1.5
    Kepler_sent = 24,     // [s] of week, start of transmission, from the hand-over word, 20.3.3.2
    Kepler_values = 25
};

// Small integers that share KeplerData::info.
struct KeplerBits {
    unsigned shift, width;  // [bits]
    constexpr std::uint32_t Mask() const { return ((std::uint32_t{1} << width) - 1) << shift; }
};
constexpr KeplerBits Kepler_prn{0, 8};            // satellite number, from 1; 0: the block is empty
constexpr KeplerBits Kepler_health{8, 6};         // 0: healthy, 20.3.3.3.1.4
constexpr KeplerBits Kepler_accuracy{14, 4};      // index of the user range accuracy, 15: none given, 20.3.3.3.1.3
constexpr KeplerBits Kepler_L2_code{18, 2};       // 1: P, 2: C/A, 20.3.3.3.1.2
constexpr KeplerBits Kepler_L2P_data_off{20, 1};  // 1: L2 P carries no navigation data, 20.3.3.3.1.6
constexpr KeplerBits Kepler_fit_interval{21, 1};  // 0: 4 hours, 1: more, see IODC, 20.3.4.4; bits 22..31 are zero

// One satellite's ephemeris and clock, as broadcast.
//
// Threads:   a value.
// Ownership: holds nothing; copied whole.
// Errors:    none; nothing is checked. A new one is all zero.
struct KeplerData {
    // Offset of value i: 8 i bytes; of info: 200; 4 bytes of padding follow.
    double value[Kepler_values] = {};  // [see KeplerIndex]
    std::uint32_t info = 0;            // see KeplerBits

    double &operator[](KeplerIndex index) { return value[index]; }
    double operator[](KeplerIndex index) const { return value[index]; }
    std::uint32_t Get(KeplerBits bits) const { return (info & bits.Mask()) >> bits.shift; }
    // Drops the bits of `number` that do not fit into the field.
    void Set(KeplerBits bits, std::uint32_t number)
    {
        info = (info & ~bits.Mask()) | ((number << bits.shift) & bits.Mask());
    }
};
static_assert(sizeof(double) == 8 && offsetof(KeplerData, value) == 0 && offsetof(KeplerData, info) == 200);
static_assert(sizeof(KeplerData) == 208 && std::is_trivially_copyable_v<KeplerData>);

// A satellite's elements at one instant, before the corrections in 2 phi.
//
// Threads:   a value.
// Ownership: holds nothing; copied whole.
// Errors:    none. A new one is all zero; without a semi-major axis n and M are not numbers.
struct KERNEL_API KeplerParam {
    double tk = 0;     // [s] since toe
    double A = 0;      // [m]
    double e = 0;      // [1]
    double n = 0;      // [rad/s] mean motion
    double M = 0;      // [rad] mean anomaly
    double omega = 0;  // [rad] argument of perigee
    double i = 0;      // [rad] inclination
    double Omega = 0;  // [rad] longitude of the ascending node, Earth-fixed at that instant

    KeplerParam() = default;
    KeplerParam(const KeplerData &data, double t);  // t [s] of week
};
static_assert(sizeof(KeplerParam) == 64 && std::is_trivially_copyable_v<KeplerParam>);

// The satellite table[sat] at t, the time of transmission [s of week]. state[0..2]: position [m], state[3..5]: velocity
// [m/s], both ECEF; state[6]: clock offset [s], without `relativistic` [s] and without the group delay. Any thread may
// call it. It allocates nothing and checks nothing: elements that describe no orbit give values that are not numbers.
KERNEL_API void comorb(const KeplerData *table, int sat, double t, double *state, double &relativistic);

// The same for `count` satellites: sats[j] at t[j] goes to states[j] and relativistic[j]. Faster than single calls.
KERNEL_API void comorb_batch(const KeplerData *table, const int *sats, const double *t, int count, double (*states)[7],
                             double *relativistic);

// Range and range rate to a receiver [m] ECEF. t is the time of transmission. `state` is rotated by the Earth's
// rotation during the travel time: it is ECEF at reception. Its velocity is per second of reception, like range[1].
// range[0]: [m], range[1]: [m/s]; not a number where satellite and receiver coincide.
KERNEL_API void compra_t(const KeplerData *table, int sat, double t, const double *receiver, double *state,
                         double *range, double &relativistic);

}  // namespace kernel
