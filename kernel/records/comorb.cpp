#include "kernel/records/comorb.h"

#include <cmath>

namespace kernel {

namespace {

// An angle as sine and cosine: adding and doubling need no trigonometric function.
struct Angle {
    double sine, cosine;
};

inline Angle operator+(Angle a, Angle b)
{
    return {a.sine * b.cosine + a.cosine * b.sine, a.cosine * b.cosine - a.sine * b.sine};
}

inline Angle Twice(Angle a) { return {2 * a.sine * a.cosine, 1 - 2 * a.sine * a.sine}; }

constexpr double Factorial(int n) { return n < 2 ? 1.0 : n * Factorial(n - 1); }

// The terms of sine and cosine by power of x: sign / n!.
template <int n>
constexpr double Term = (n / 2 % 2 ? -1.0 : 1.0) / Factorial(n);

// Three even or odd terms of a series, from order n on; y = x^2.
template <int n>
inline double Terms(double y)
{
    return Term<n> + y * Term<n + 2> + y * y * Term<n + 4>;
}

// The series end where further terms no longer matter in a double: at the limits the first omitted term is at most
// 4e-16, some 10 nm on a GPS orbit. They are not nested (Horner), because nested forms make long chains of dependent
// operations.
struct By_Series {
    static constexpr double Tiny_Limit = 0.005;  // [rad]
    static constexpr double Small_Limit = 0.08;  // [rad]
    static constexpr double Any_Limit = 1e6;     // [rad]; the number of half turns has at most 20 bits

    // Evaluates a cos d + b sin d for many d, as one series.
    class Wave {
    public:
        Wave(double a, double b)
            : c_{a, b, Term<2> * a, Term<3> * b, Term<4> * a, Term<5> * b, Term<6> * a, Term<7> * b, Term<8> * a}
        {
        }
        double operator()(double d) const
        {
            const double d2 = d * d, d4 = d2 * d2;
            return (c_[0] + c_[1] * d) + d2 * (c_[2] + c_[3] * d) +
                   d4 * ((c_[4] + c_[5] * d) + d2 * (c_[6] + c_[7] * d) + d4 * c_[8]);
        }

    private:
        double c_[9];
    };

    static Angle Tiny(double x) { return {x * Terms<1>(x * x), Terms<0>(x * x)}; }
    static Angle Small(double x)
    {
        const double y = x * x, y3 = y * y * y;
        return {x * (Terms<1>(y) + y3 * Term<7>), Terms<0>(y) + y3 * (Term<6> + y * Term<8>)};
    }
    // Takes off the nearest number of half turns in two steps (Cody and Waite). Up to Any_Limit the first product is
    // exact, since the number has 20 bits and the factor 33. The series compute half of the remaining angle, which
    // needs fewer terms, and Twice doubles it. A cast rounds, because vector instructions have it.
    static Angle Any(double x)
    {
        constexpr double half_turn = 0x1.921fb544p+1, rest = 0x1.0b4611a626331p-33;  // pi, 33 bits and the following
        const double sign = x < 0 ? -0.5 : 0.5;
        const int turns = static_cast<int>(x * (1 / (half_turn + rest)) + sign);
        const double h = 0.5 * ((x - turns * half_turn) - turns * rest);  // to pi/4
        const double y = h * h, y3 = y * y * y, y6 = y3 * y3;
        const Angle half{h * (Terms<1>(y) + y3 * Terms<7>(y) + y6 * (Term<13> + y * Term<15>)),
                         Terms<0>(y) + y3 * Terms<6>(y) + y6 * Terms<12>(y)};
        const Angle whole = Twice(half);
        const double turned = 1 - 2 * (turns & 1);
        return {turned * whole.sine, turned * whole.cosine};
    }
};

// For elements that no satellite sends. It has the same operations as By_Series, so that one Orbit serves both.
struct By_Library {
    struct Wave {
        double a, b;
        double operator()(double d) const { return a * std::cos(d) + b * std::sin(d); }
    };
    static Angle Any(double x) { return {std::sin(x), std::cos(x)}; }
    static Angle Small(double x) { return Any(x); }
    static Angle Tiny(double x) { return Any(x); }
};

// Adds or subtracts one week at most. A difference of exactly half a week is not changed.
double Across_Weeks(double difference)
{
    if (difference < -orbit::Half_Week) return difference + orbit::Week;
    return difference > orbit::Half_Week ? difference - orbit::Week : difference;
}

// Whether the series are accurate; false for values that are not numbers. The sum of two amplitudes bounds their
// harmonic for any angle.
bool Usual(const KeplerData &k, const KeplerParam &p)
{
    const auto within = [](double limit, double a, double b) { return std::fabs(a) + std::fabs(b) <= limit; };
    return within(By_Series::Small_Limit, p.e, 0) && within(By_Series::Tiny_Limit, k[Kepler_Cus], k[Kepler_Cuc]) &&
           within(By_Series::Tiny_Limit, k[Kepler_Cis], k[Kepler_Cic]) && within(By_Series::Any_Limit, p.M, p.omega) &&
           within(By_Series::Any_Limit, p.i, p.Omega);
}

// E = M + d with the iteration d = e sin(M + d) from d = 0; the first step needs no series. The number of steps is part
// of the interface, and so is the remaining error: at most e^5, 8 cm on the orbit for e = 0.02.
template <class Trig>
inline Angle Eccentric_Anomaly(Angle M, double e)
{
    const typename Trig::Wave step{e * M.sine, e * M.cosine};
    double d = e * M.sine;
    for (int iteration = 1; iteration < orbit::Kepler_Iterations; ++iteration) d = step(d);
    return M + Trig::Small(d);
}

// The satellite in the plane of its orbit, x towards the ascending node, and the inclination of the plane.
struct In_Plane {
    double x, y, vx, vy;  // [m], [m/s]
    Angle i;              // inclination
    double i_rate;        // [rad/s]
};

// W satellites, each quantity in an array of W lanes. The loops contain no branch and no call, so that the compiler can
// vectorise them. Load each lane, solve, store each lane. A lane that was not loaded is computed and not stored.
//
// Threads:   one.
// Ownership: holds nothing.
// Errors:    none; without an orbit the results are not numbers.
template <int W>
class Lanes {
public:
    void Load(int lane, const KeplerData &k, const KeplerParam &p)
    {
        for (std::size_t i = Kepler_OmegaDot; i <= Kepler_Cuc; ++i) value_[i][lane] = k.value[i];
        A_[lane] = p.A;
        e_[lane] = p.e;
        n_[lane] = p.n;
        axes_[lane] = std::sqrt(1 - p.e * p.e);
        root_A_[lane] = std::sqrt(p.A);
        angle_[M * W + lane] = p.M;
        angle_[omega * W + lane] = p.omega;
        angle_[inclination * W + lane] = p.i;
        angle_[Omega * W + lane] = p.Omega;
    }

    template <class Trig>
    void Solve()
    {
        for (int a = 0; a < angles * W; ++a) {
            const Angle angle = Trig::Any(angle_[a]);
            sine_[a] = angle.sine;
            cosine_[a] = angle.cosine;
        }
        for (int lane = 0; lane < W; ++lane) To_Earth(lane, Orbit<Trig>(lane));
    }

    void Store(int lane, const KeplerData &k, double t, double *state, double &relativistic) const
    {
        for (int i = 0; i < 6; ++i) state[i] = state_[i][lane];
        const double tc = Across_Weeks(t - k[Kepler_toc]);
        state[6] = (k[Kepler_af2] * tc + k[Kepler_af1]) * tc + k[Kepler_af0];
        relativistic = orbit::Relativistic_F * e_[lane] * root_A_[lane] * sine_E_[lane];
    }

private:
    enum { M, omega, inclination, Omega, angles };
    Angle Of(int angle, int lane) const { return {sine_[angle * W + lane], cosine_[angle * W + lane]}; }

    template <class Trig>
    In_Plane Orbit(int lane)
    {
        const auto k = [this, lane](KeplerIndex index) { return value_[index][lane]; };
        const double e = e_[lane], A = A_[lane];
        const Angle E = Eccentric_Anomaly<Trig>(Of(M, lane), e);
        const double q = 1 - e * E.cosine, by_q = 1 / q;
        // Sine and cosine of the true anomaly follow from those of E, so that the arc tangent of the published
        // algorithm (IS-GPS-200, table 20-IV) is not needed. Rates are its derivatives by time.
        const Angle phi = Angle{axes_[lane] * E.sine * by_q, (E.cosine - e) * by_q} + Of(omega, lane);
        const Angle two = Twice(phi);
        const auto harmonic = [two](double s, double c) { return s * two.sine + c * two.cosine; };
        const auto harmonic_rate = [two](double s, double c) { return s * two.cosine - c * two.sine; };  // by 2 phi

        const Angle u = phi + Trig::Tiny(harmonic(k(Kepler_Cus), k(Kepler_Cuc)));
        const double r = A * q + harmonic(k(Kepler_Crs), k(Kepler_Crc));
        // phi_rate: Kepler's second law. A harmonic in 2 phi changes by twice that, times harmonic_rate.
        const double E_rate = n_[lane] * by_q, phi_rate = axes_[lane] * E_rate * by_q, two_rate = 2 * phi_rate;
        const double u_rate = phi_rate + two_rate * harmonic_rate(k(Kepler_Cus), k(Kepler_Cuc));
        const double r_rate = e * A * E.sine * E_rate + two_rate * harmonic_rate(k(Kepler_Crs), k(Kepler_Crc));
        // The relativistic term uses the E of the iterations.
        sine_E_[lane] = E.sine;
        const double x = r * u.cosine, y = r * u.sine;
        return {x,
                y,
                r_rate * u.cosine - y * u_rate,
                r_rate * u.sine + x * u_rate,
                Of(inclination, lane) + Trig::Tiny(harmonic(k(Kepler_Cis), k(Kepler_Cic))),
                two_rate * harmonic_rate(k(Kepler_Cis), k(Kepler_Cic)) + k(Kepler_IDot)};
    }

    void To_Earth(int lane, const In_Plane &p)
    {
        const Angle node = Of(Omega, lane);
        // The rate of the node relative to the rotating Earth.
        const double node_rate = value_[Kepler_OmegaDot][lane] - orbit::Earth_Rate;
        const double level = p.y * p.i.cosine, level_rate = p.vy * p.i.cosine;  // along the equator, across the node
        const double x = p.x * node.cosine - level * node.sine;
        const double y = p.x * node.sine + level * node.cosine;
        const double z = p.y * p.i.sine;
        state_[0][lane] = x;
        state_[1][lane] = y;
        state_[2][lane] = z;
        state_[3][lane] = p.vx * node.cosine - level_rate * node.sine - node_rate * y + z * node.sine * p.i_rate;
        state_[4][lane] = p.vx * node.sine + level_rate * node.cosine + node_rate * x - z * node.cosine * p.i_rate;
        state_[5][lane] = p.vy * p.i.sine + level * p.i_rate;
    }

    // Not initialised; Load and Solve fill each lane.
    double value_[Kepler_Cuc + 1][W];  // as in KeplerData, from Kepler_OmegaDot on
    double A_[W], e_[W], n_[W];
    double root_A_[W];  // [sqrt(m)]
    double axes_[W];    // [1] minor by major axis
    double angle_[angles * W], sine_[angles * W], cosine_[angles * W];
    double state_[6][W], sine_E_[W];
};

// Omega0 is given at the start of the week. The last term of Omega takes off the Earth's rotation from there to toe.
// IS-GPS-200, table 20-IV.
KeplerParam Carried(const KeplerData &k, double t)
{
    KeplerParam p;
    p.tk = Across_Weeks(t - k[Kepler_toe]);
    p.A = k[Kepler_A];
    p.e = k[Kepler_e];
    p.n = std::sqrt(orbit::GM / (p.A * p.A * p.A)) + k[Kepler_DeltaN];
    p.M = k[Kepler_M0] + p.n * p.tk;
    p.omega = k[Kepler_omega];
    p.i = k[Kepler_i0] + k[Kepler_IDot] * p.tk;
    p.Omega = (k[Kepler_OmegaDot] - orbit::Earth_Rate) * p.tk + k[Kepler_Omega0] - orbit::Earth_Rate * k[Kepler_toe];
    return p;
}

inline void Evaluate(const KeplerData &k, double t, double *state, double &relativistic)
{
    const KeplerParam param = Carried(k, t);
    Lanes<1> lane;
    lane.Load(0, k, param);
    if (Usual(k, param))
        lane.Solve<By_Series>();
    else
        lane.Solve<By_Library>();
    lane.Store(0, k, t, state, relativistic);
}

}  // namespace

KeplerParam::KeplerParam(const KeplerData &data, double t) { *this = Carried(data, t); }

void comorb(const KeplerData *table, int sat, double t, double *state, double &relativistic)
{
    Evaluate(table[sat], t, state, relativistic);
}

void comorb_batch(const KeplerData *table, const int *sats, const double *t, int count, double (*states)[7],
                  double *relativistic)
{
    // Satellites for which the series are accurate go in groups of eight. Any other is computed at once and alone.
    constexpr int width = 8;
    Lanes<width> lanes{};         // zero, because some lanes of the last group are not loaded
    int loaded = 0, from[width];  // where in the batch a lane's satellite stands
    for (int j = 0; j < count; ++j) {
        const KeplerData &k = table[sats[j]];
        const KeplerParam param = Carried(k, t[j]);
        if (Usual(k, param)) {
            lanes.Load(loaded, k, param);
            from[loaded++] = j;
        } else {
            Evaluate(k, t[j], states[j], relativistic[j]);
        }
        // The last satellite ends the last, smaller group, even if that satellite itself was computed alone.
        if (loaded < width && (j + 1 < count || loaded == 0)) continue;
        lanes.Solve<By_Series>();
        for (int lane = 0; lane < loaded; ++lane) {
            const int to = from[lane];
            lanes.Store(lane, table[sats[to]], t[to], states[to], relativistic[to]);
        }
        loaded = 0;
    }
}

void compra_t(const KeplerData *table, int sat, double t, const double *receiver, double *state, double *range,
              double &relativistic)
{
    Evaluate(table[sat], t, state, relativistic);
    constexpr double turn = orbit::Earth_Rate_By_Light, by_light = 1 / orbit::Light_Speed;
    double &x = state[0], &y = state[1], &vx = state[3], &vy = state[4], &vz = state[5];
    const double rx = receiver[0], ry = receiver[1], dz = state[2] - receiver[2];

    // During the travel time the Earth turns by distance * turn. To first order in that angle the distance D solves
    // D^2 = rho^2 - 2 D s, so that no iteration is needed. The omitted part is about a tenth of a millimetre.
    const double s = (rx * y - ry * x) * turn;
    const double distance = std::sqrt((x - rx) * (x - rx) + (y - ry) * (y - ry) + dz * dz + s * s) - s;
    const double by_distance = 1 / distance;
    const double alpha = distance * turn;
    const double x0 = x, vx0 = vx;  // each new value comes from the old ones
    x += alpha * y;
    y -= alpha * x0;
    vx += alpha * vy;
    vy -= alpha * vx0;

    const double dx = x - rx, dy = y - ry;
    // k1, k2 [1]: derivatives of the rotated position by the distance, which determines the angle.
    const double k1 = (alpha * x + y) * turn, k2 = (alpha * y - x) * turn;
    double rate = (dx * vx + dy * vy + dz * vz) * by_distance;
    // So far rates are per second of transmission. A second of reception is 1 - rate / c seconds of transmission. The
    // rate appears on both sides; this is the solution.
    rate /= 1 + rate * by_light - (dx * k1 + dy * k2) * by_distance;
    const double q = 1 - rate * by_light;
    vx = q * vx + k1 * rate;
    vy = q * vy + k2 * rate;
    vz = q * vz;
    range[0] = distance;
    range[1] = rate;
}

}  // namespace kernel
