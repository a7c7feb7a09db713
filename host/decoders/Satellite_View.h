// A GPS satellite as seen from a station: its direction, its distance, and the rate of the distance.
#pragma once

#include "kernel/records/comorb.h"
#include "kernel/time/Gps_Time.h"

#include <array>
#include <optional>

namespace host {

struct Satellite_View {
    double elevation = 0;   // [rad] above the horizon of the WGS-84 ellipsoid
    double azimuth = 0;     // [rad] from north over east, 0 to 2 pi
    double range = 0;       // [m] geometric
    double range_rate = 0;  // [m/s]
};

constexpr double oldest_ephemeris = 7500;  // [s] from toe, either way

// [s] from toe to `time`, with full weeks. The week of the elements may be adjacent to that of toe.
double Ephemeris_Age(const kernel::KeplerData &ephemeris, const kernel::Gps_Time &time);

// The view at the time `received` (receiver's clock) with that pseudorange [m], from `station` [m] ECEF. Time and
// pseudorange contain the error of the receiver's clock, which cancels in the time of transmission. None for elements
// that are too old or describe no orbit. Any thread may call it; it allocates nothing.
std::optional<Satellite_View> View_Of(const kernel::KeplerData &ephemeris, const kernel::Gps_Time &received,
                                      double pseudorange, const std::array<double, 3> &station);

}  // namespace host
