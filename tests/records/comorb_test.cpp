#include "kernel/records/comorb.h"

#include "tests/support/csv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <utility>
#include <vector>

using namespace kernel;

namespace {

using Row = std::vector<double>;

// Values toe to af2 from twenty columns.
KeplerData Elements(const double *column)
{
    KeplerData data;
    std::copy(column, column + 20, &data[Kepler_toe]);
    return data;
}

struct State {
    double state[7] = {}, relativistic = 0;

    State() = default;
    State(const KeplerData *table, int sat, double t) { comorb(table, sat, t, state, relativistic); }
};

// The largest difference of n numbers; infinite where one is not a number.
double Difference(const double *a, const double *b, int n)
{
    double largest = 0;
    for (int i = 0; i < n; ++i) {
        const double d = std::fabs(a[i] - b[i]);
        largest = std::max(largest, std::isnan(d) ? std::numeric_limits<double>::infinity() : d);
    }
    return largest;
}

// Seven values and, of comorb, the relativistic correction.
void Expect_Near(const double *state, const double *truth)
{
    EXPECT_LE(Difference(state, truth, 3), 1e-6);
    EXPECT_LE(Difference(state + 3, truth + 3, 3), 1e-9);
    EXPECT_LE(Difference(state + 6, truth + 6, 1), 1e-18);
}

void Expect_Near(const State &got, const double *truth)
{
    Expect_Near(got.state, truth);
    EXPECT_LE(Difference(&got.relativistic, truth + 7, 1), 1e-20);
}

double Wrapped(double dt) { return dt < -302400 ? dt + 604800 : dt > 302400 ? dt - 604800 : dt; }

// The position as published, step by step, with a library call for every function.
void Literal_Position(const double *k, double t, double *xyz)
{
    const double earth = 7.2921151467e-5, A = k[5], e = k[6], tk = Wrapped(t - k[1]);
    const double M = k[7] + (std::sqrt(3.986005e14 / (A * A * A)) + k[10]) * tk;
    double E = M;
    for (int i = 0; i < 4; ++i) E = M + e * std::sin(E);
    const double phi = std::atan2(std::sqrt(1 - e * e) * std::sin(E), std::cos(E) - e) + k[4];
    const double s2 = std::sin(2 * phi), c2 = std::cos(2 * phi);
    const double u = phi + k[15] * s2 + k[16] * c2, r = A * (1 - e * std::cos(E)) + k[12] * c2 + k[11] * s2;
    const double i = k[3] + k[14] * c2 + k[13] * s2 + k[9] * tk, node = (k[8] - earth) * tk + k[2] - earth * k[1];
    const double xp = r * std::cos(u), yp = r * std::sin(u);
    xyz[0] = xp * std::cos(node) - yp * std::cos(i) * std::sin(node);
    xyz[1] = xp * std::sin(node) + yp * std::cos(i) * std::cos(node);
    xyz[2] = yp * std::sin(i);
}

class Random_Elements {
public:
    KeplerData Usual()
    {
        const double limits[][2] = {{0, 604800},   {-3.2, 3.2}, {0.9, 1},      {-3.2, 3.2},    {2.6e7, 2.7e7},
                                    {0, 0.03},     {-3.2, 3.2}, {-1e-8, 0},    {-1e-9, 1e-9},  {0, 6e-9},
                                    {-200, 200},   {-400, 400}, {-1e-6, 1e-6}, {-1e-6, 1e-6},  {-2e-5, 2e-5},
                                    {-2e-5, 2e-5}, {0, 604800}, {-1e-3, 1e-3}, {-1e-11, 1e-11}};
        KeplerData data;
        for (std::size_t i = 0; i < std::size(limits); ++i) data.value[i + 1] = Uniform(limits[i][0], limits[i][1]);
        return data;
    }
    // Each beyond what the fast way is made for, one at a time, and a little on this side.
    KeplerData Unusual()
    {
        const double e = Uniform(0.05, 0.6), node = Uniform(-1e10, 1e10), harmonic = Uniform(0.001, 0.3);
        KeplerData data = Usual();
        switch (++turn_ % 4) {
        case 0: data[Kepler_e] = e; break;
        case 1: data[Kepler_Omega0] = node; break;
        case 2: data[Kepler_Cus] = -harmonic; break;
        default: data[Kepler_Cic] = harmonic;
        }
        return data;
    }
    double Uniform(double low, double high) { return std::uniform_real_distribution<double>(low, high)(engine_); }

private:
    std::mt19937 engine_{20100701};
    int turn_ = 0;
};

}  // namespace

TEST(KeplerData, small_numbers_share_an_integer_without_touching_each_other)
{
    KeplerData data;
    const std::pair<KeplerBits, std::uint32_t> fields[] = {
        // and the integer with all fields full up to this one
        {Kepler_prn, 0xFF},        {Kepler_health, 0x3FFF},         {Kepler_accuracy, 0x3FFFF},
        {Kepler_L2_code, 0xFFFFF}, {Kepler_L2P_data_off, 0x1FFFFF}, {Kepler_fit_interval, 0x3FFFFF}};
    for (const auto &[bits, info] : fields) {
        data.Set(bits, 0xFFFFFFFF);  // too large: cut to the field
        EXPECT_EQ(data.info, info);
    }
    data.Set(Kepler_health, 5);
    EXPECT_EQ(data.Get(Kepler_health), 5u);
    EXPECT_EQ(data.info, 0x3FC5FFu);
}

TEST(comorb, agrees_with_the_algorithm_in_fifty_digits_and_with_measured_orbits)
{
    std::vector<KeplerData> table;
    for (const Csv_Row &row : Csv_Rows("orbit_elements.csv")) table.push_back(Elements(&row.Numbers()[1]));
    double sum3d = 0, sum_clock = 0;
    int orbits = 0, clocks = 0;
    for (const Csv_Row &fields : Csv_Rows("orbit_states.csv")) {
        const Row row = fields.Numbers();  // elements, t, 7 state, relativistic, 3 + 1 measured, mislabelled
        const State got(table.data(), static_cast<int>(row[0]), row[1]);
        Expect_Near(got, &row[2]);
        if (row[14] != 0) continue;  // another satellite's elements
        const double *state = got.state;
        const double d = std::hypot(state[0] - row[10], state[1] - row[11], state[2] - row[12]);
        EXPECT_LT(d, 8);
        sum3d += d * d;
        ++orbits;
        if (std::isnan(row[13])) continue;
        sum_clock += (state[6] - row[13]) * (state[6] - row[13]);
        ++clocks;
    }
    EXPECT_GT(orbits, 3800);
    EXPECT_LT(std::sqrt(sum3d / orbits), 2.5);
    EXPECT_LT(std::sqrt(sum_clock / clocks), 6e-9);
}

// Also the limits: half a week, changes of week, toc apart from toe, e = 0 and 0.2, one correction at a time, a
// receiver at the origin.
TEST(compra_t, agrees_with_the_algorithm_in_fifty_digits)
{
    for (const char *name : {"compra_truth.csv", "compra_edge.csv"}) {
        for (const Csv_Row &fields : Csv_Rows(name)) {
            const Row row = fields.Numbers();  // t, 20 elements, receiver, 7 + 1 as comorb, 7 turned, range and rate
            const KeplerData data = Elements(&row[1]);
            const State before(&data, 0, row[0]);
            double turned[7], range[2], relativistic;
            compra_t(&data, 0, row[0], &row[21], turned, range, relativistic);
            Expect_Near(before, &row[24]);
            Expect_Near(turned, &row[32]);
            EXPECT_LE(Difference(range, &row[39], 1), 1e-6);
            EXPECT_LE(Difference(range + 1, &row[40], 1), 1e-9);
            EXPECT_EQ(relativistic, before.relativistic);
            if (std::strcmp(name, "compra_truth.csv") != 0) continue;
            EXPECT_NEAR(range[0], row[41], 1.2e-4);  // light time iterated with an exact turn of the Earth
            EXPECT_NEAR(range[1], row[42], 4e-6);    // its derivative by the time of reception
        }
    }
}

TEST(comorb, answers_one_by_one_and_in_batches_what_a_plain_transcription_does)
{
    Random_Elements random;
    std::vector<KeplerData> table;
    for (int j = 0; j < 3000; ++j) table.push_back(j % 5 == 4 ? random.Unusual() : random.Usual());
    table[7] = KeplerData();  // no orbit: its neighbours do not suffer
    for (int count = 0, first = 0; first + count < 3000; first += count, count = (count + 1) % 31) {
        std::vector<int> sats;
        Row t;
        for (int j = 0; j < count; ++j) {
            sats.push_back(first + (j * 17) % count);
            t.push_back(random.Uniform(0, 604800));
        }
        double states[31][7] = {}, relativistic[31] = {};
        comorb_batch(table.data(), sats.data(), t.data(), count, states, relativistic);
        for (int j = 0; j < count; ++j) {
            const int sat = sats[static_cast<std::size_t>(j)];
            const double time = t[static_cast<std::size_t>(j)];
            const State one(table.data(), sat, time);
            double truth[3];
            Literal_Position(table[static_cast<std::size_t>(sat)].value, time, truth);
            if (sat == 7) {
                EXPECT_TRUE(std::isnan(one.state[0]) && std::isnan(states[j][0]));
                continue;
            }
            EXPECT_LE(Difference(one.state, truth, 3), 1e-6);
            Expect_Near(states[j], one.state);
            EXPECT_LT(std::fabs(one.relativistic - relativistic[j]), 1e-20);
        }
        EXPECT_TRUE(states[count][0] == 0 && relativistic[count] == 0);
    }
}

TEST(comorb, survives_what_is_no_orbit)
{
    Random_Elements random;
    KeplerData circle = random.Usual();
    circle[Kepler_e] = circle[Kepler_Crs] = circle[Kepler_Crc] = 0;
    const double centre[3] = {};
    double state[7], range[2], relativistic;
    compra_t(&circle, 0, 1000, centre, state, range, relativistic);
    EXPECT_EQ(relativistic, 0);
    EXPECT_NEAR(range[0], circle[Kepler_A], 1e-7);

    const double inf = std::numeric_limits<double>::infinity();
    for (const double wrong : {0.0, -1.0, inf, -inf, std::nan(""), 1e300}) {
        for (std::size_t i = 0; i < Kepler_values; ++i) {
            KeplerData data = random.Usual();
            data.value[i] = wrong;
            compra_t(&data, 0, 1000, centre, state, range, relativistic);
        }
        compra_t(&circle, 0, wrong, centre, state, range, relativistic);
    }
    const KeplerData empty;
    compra_t(&empty, 0, 1000, centre, state, range, relativistic);
    EXPECT_TRUE(std::isnan(state[0]) && state[6] == 0);
}
