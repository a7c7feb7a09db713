#include "host/decoders/Satellite_View.h"

#include <cmath>
#include <numbers>

namespace host {

namespace {

using namespace kernel;

// WGS-84
constexpr double semi_major_axis = 6378137.0;                           // [m]
constexpr double flattening = 1 / 298.257223563;                        // [1]
constexpr double e2 = flattening * (2 - flattening);                    // [1] first eccentricity, squared
constexpr double semi_minor_axis = (1 - flattening) * semi_major_axis;  // [m]

// [rad] Geodetic latitude, by Bowring's formula; near the ground its error is far below a milliarcsecond.
double Latitude(const std::array<double, 3> &xyz)
{
    const double p = std::hypot(xyz[0], xyz[1]);
    const double u = std::atan2(xyz[2] * semi_major_axis, p * semi_minor_axis);
    const double second_e2 = e2 / (1 - e2);
    return std::atan2(xyz[2] + second_e2 * semi_minor_axis * std::pow(std::sin(u), 3),
                      p - e2 * semi_major_axis * std::pow(std::cos(u), 3));
}

}  // namespace

// The week of the elements may be an adjacent one only if toe is near an end of the week. Otherwise the ephemeris is a
// week old.
double Ephemeris_Age(const KeplerData &ephemeris, const Gps_Time &time)
{
    constexpr double margin = Seconds_Per_Day;
    const double toe = ephemeris[Kepler_toe];
    const double age = time.secondsSinceGPS() - (ephemeris[Kepler_week] * orbit::Week + toe);
    if (toe < margin && age > orbit::Half_Week) return age - orbit::Week;
    if (toe > orbit::Week - margin && age < -orbit::Half_Week) return age + orbit::Week;
    return age;
}

std::optional<Satellite_View> View_Of(const KeplerData &ephemeris, const Gps_Time &received, double pseudorange,
                                      const std::array<double, 3> &station)
{
    // Negated, so that an age that is not a number counts as too old.
    if (!(std::abs(Ephemeris_Age(ephemeris, received)) <= oldest_ephemeris)) return {};
    double state[7], range[2], relativistic = 0;
    // IS-GPS-200, 20.3.3.3.3.1. The clock offset is computed for the time of the satellite's own clock; that clock is
    // off by less than a millisecond, which does not change the offset. The group delay of some nanoseconds can be
    // neglected.
    const double by_satellite_clock = received.sec - pseudorange / orbit::Light_Speed;
    comorb(&ephemeris, 0, by_satellite_clock, state, relativistic);
    const double transmitted = by_satellite_clock - state[6] - relativistic;
    compra_t(&ephemeris, 0, transmitted, station.data(), state, range, relativistic);

    const double dx = state[0] - station[0], dy = state[1] - station[1], dz = state[2] - station[2];
    const double latitude = Latitude(station), longitude = std::atan2(station[1], station[0]);
    // Rotates into the horizon of the station. `outwards` is the part in the plane of the meridian, away from the axis.
    const double outwards = std::cos(longitude) * dx + std::sin(longitude) * dy;
    const double east = std::cos(longitude) * dy - std::sin(longitude) * dx;
    const double north = std::cos(latitude) * dz - std::sin(latitude) * outwards;
    const double up = std::cos(latitude) * outwards + std::sin(latitude) * dz;
    double azimuth = std::atan2(east, north);
    if (azimuth < 0) azimuth += 2 * std::numbers::pi;
    const Satellite_View view{std::atan2(up, std::hypot(east, north)), azimuth, range[0], range[1]};
    if (!std::isfinite(view.elevation + view.range_rate)) return {};
    return view;
}

}  // namespace host
