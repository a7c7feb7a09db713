// A GPS satellite as it is seen from a station: where it stands in the sky, how far it is and how fast that changes.
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

// [s] from toe to the time, both in full weeks; the week of the elements may be the one beside that of toe.
double Ephemeris_Age(const kernel::KeplerData &ephemeris, const kernel::Gps_Time &time);

// As seen at the time `received` (receiver's clock) with that pseudorange [m], from `station` [m] ECEF. Both hold the
// receiver clock's error, so that it falls out of the time of transmission. None for elements that are too old or describe
// no orbit. Any thread; nothing is allocated.
std::optional<Satellite_View> View_Of(const kernel::KeplerData &ephemeris, const kernel::Gps_Time &received,
                                      double pseudorange, const std::array<double, 3> &station);

}  // namespace host
