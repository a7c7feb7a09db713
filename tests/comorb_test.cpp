#include "kernel/comorb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using namespace kernel;

namespace {

using Row = std::vector<double>;

// The lines after the heading; what is no number reads as not-a-number.
std::vector<Row> Table(const std::string &name)
{
    std::ifstream file(std::string(KERNEL_TEST_DATA "/") + name);
    std::vector<Row> rows;
    std::string line, field;
    std::getline(file, line);
    while (std::getline(file, line)) {
        Row row;
        for (std::istringstream fields(line); std::getline(fields, field, ',');) {
            char *end = nullptr;
            const double number = std::strtod(field.c_str(), &end);
            row.push_back(end == field.c_str() ? std::nan("") : number);
        }
        rows.push_back(row);
    }
    EXPECT_FALSE(rows.empty()) << name;
    return rows;
}

// Values toe to af2 from twenty columns.
KeplerData Elements(const double *column)
{
    KeplerData data;
    std::copy(column, column + 20, &data[Kepler_toe]);
    return data;
}

double Difference(const double *a, const double *b, int n)
{
    double largest = 0;
    for (int i = 0; i < n; ++i) {
        const double difference = std::fabs(a[i] - b[i]);
        if (!(difference <= largest)) largest = difference;  // keeps what is not a number
    }
    return largest;
}

// The largest differences from the truth so far.
struct Worst {
    double position = 0, velocity = 0, clock = 0, relativistic = 0, range = 0, rate = 0;

    static void Raise(double &largest, double difference)
    {
        if (!(difference <= largest)) largest = difference;
    }
    void State(const double *state, const double *truth)  // seven values
    {
        Raise(position, Difference(state, truth, 3));
        Raise(velocity, Difference(state + 3, truth + 3, 3));
        Raise(clock, Difference(state + 6, truth + 6, 1));
    }
    void Range(const double *answer, const double *truth)
    {
        Raise(range, Difference(answer, truth, 1));
        Raise(rate, Difference(answer + 1, truth + 1, 1));
    }
    void Expect_Small(const char *what) const
    {
        std::printf("%s: %.1e m, %.1e m/s, %.1e s, %.1e s, range %.1e m, %.1e m/s\n", what, position, velocity, clock,
                    relativistic, range, rate);
        EXPECT_LE(position, 1e-6) << what;
        EXPECT_LE(velocity, 1e-9) << what;
        EXPECT_LE(clock, 1e-18) << what;
        EXPECT_LE(relativistic, 1e-20) << what;
        EXPECT_LE(range, 1e-6) << what;
        EXPECT_LE(rate, 1e-9) << what;
    }
};

double Wrapped(double dt) { return dt < -302400 ? dt + 604800 : dt > 302400 ? dt - 604800 : dt; }

// The algorithm as published, step by step, with a library call for every function.
void Literal_comorb(const double *k, double t, double *state, double &relativistic)
{
    const double earth = 7.2921151467e-5, A = k[5], e = k[6];
    const double n = std::sqrt(3.986005e14 / (A * A * A)) + k[10];
    const double tk = Wrapped(t - k[1]), M = k[7] + n * tk;
    double E = M;
    for (int i = 0; i < 4; ++i) E = M + e * std::sin(E);
    const double phi = std::atan2(std::sqrt(1 - e * e) * std::sin(E), std::cos(E) - e) + k[4];
    const double s2 = std::sin(2 * phi), c2 = std::cos(2 * phi);
    const double u = phi + k[15] * s2 + k[16] * c2, r = A * (1 - e * std::cos(E)) + k[12] * c2 + k[11] * s2;
    const double i = k[3] + k[14] * c2 + k[13] * s2 + k[9] * tk, node = (k[8] - earth) * tk + k[2] - earth * k[1];
    const double xp = r * std::cos(u), yp = r * std::sin(u);
    const double x = xp * std::cos(node) - yp * std::cos(i) * std::sin(node);
    const double y = xp * std::sin(node) + yp * std::cos(i) * std::cos(node), z = yp * std::sin(i);

    const double q = 1 - e * std::cos(E), E_dot = n / q, u0_dot = std::sqrt(1 - e * e) * n / (q * q);
    const double u_dot = u0_dot + 2 * u0_dot * (k[15] * c2 - k[16] * s2);
    const double r_dot = e * A * std::sin(E) * E_dot + 2 * u0_dot * (k[11] * c2 - k[12] * s2);
    const double i_dot = 2 * u0_dot * (k[13] * c2 - k[14] * s2) + k[9];
    const double xp_dot = r_dot * std::cos(u) - r * std::sin(u) * u_dot;
    const double yp_dot = r_dot * std::sin(u) + r * std::cos(u) * u_dot;
    const double vx = xp_dot * std::cos(node) - yp_dot * std::cos(i) * std::sin(node) - (k[8] - earth) * y +
                      z * std::sin(node) * i_dot;
    const double vy = xp_dot * std::sin(node) + yp_dot * std::cos(i) * std::cos(node) + (k[8] - earth) * x -
                      z * std::cos(node) * i_dot;
    const double vz = yp_dot * std::sin(i) + yp * std::cos(i) * i_dot;
    const double tc = Wrapped(t - k[17]);
    const double values[] = {x, y, z, vx, vy, vz, (k[20] * tc + k[19]) * tc + k[18]};
    std::copy(values, values + 7, state);
    relativistic = -4.442809305e-10 * e * std::sqrt(A) * std::sin(E);
}

class Random_Elements {
public:
    KeplerData Usual()
    {
        return Made({Uniform(0, 604800), Uniform(-3.2, 3.2), Uniform(0.9, 1), Uniform(-3.2, 3.2), Uniform(2.6e7, 2.7e7),
                     Uniform(0, 0.03), Uniform(-3.2, 3.2), Uniform(-1e-8, 0), Uniform(-1e-9, 1e-9), Uniform(0, 6e-9),
                     Uniform(-200, 200), Uniform(-400, 400), Uniform(-1e-6, 1e-6), Uniform(-1e-6, 1e-6),
                     Uniform(-2e-5, 2e-5), Uniform(-2e-5, 2e-5)});
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
    KeplerData Made(const Row &orbit)
    {
        KeplerData data;
        std::copy(orbit.begin(), orbit.end(), &data[Kepler_toe]);
        data[Kepler_toc] = Uniform(0, 604800);
        data[Kepler_af0] = Uniform(-1e-3, 1e-3);
        data[Kepler_af1] = Uniform(-1e-11, 1e-11);
        data[Kepler_af2] = Uniform(-1e-18, 1e-18);
        return data;
    }

    std::mt19937 engine_{20100701};
    int turn_ = 0;
};

// All of `table` at the times t, in one call.
void Batch(const std::vector<KeplerData> &table, const Row &t, std::vector<Row> &states, Row &relativistic)
{
    const int count = static_cast<int>(table.size());
    std::vector<int> sats;
    for (int sat = 0; sat < count; ++sat) sats.push_back(sat);
    const std::unique_ptr<double[][7]> answer(new double[table.size()][7]);
    relativistic.assign(table.size(), 0);
    comorb_batch(table.data(), sats.data(), t.data(), count, answer.get(), relativistic.data());
    for (std::size_t j = 0; j < table.size(); ++j) states.emplace_back(answer[j], answer[j] + 7);
}

}  // namespace

TEST(KeplerData, is_a_block_of_bytes_that_starts_as_zero)
{
    alignas(KeplerData) unsigned char bytes[sizeof(KeplerData)];
    std::memset(bytes, 0xFF, sizeof bytes);
    KeplerData &data = *new (bytes) KeplerData;
    EXPECT_EQ(std::count(bytes, bytes + 204, 0), 204);

    for (std::size_t i = 0; i < Kepler_values; ++i) data.value[i] = static_cast<double>(i) + 1;
    data.info = 0x01020304;
    const KeplerData copy = data;
    EXPECT_EQ(std::memcmp(&copy, bytes, 204), 0);
    double sixth;
    std::memcpy(&sixth, bytes + 6 * 8, sizeof sixth);
    EXPECT_EQ(sixth, 7);
    EXPECT_EQ(bytes[200], 0x04);
    EXPECT_EQ(bytes[203], 0x01);
}

TEST(KeplerData, small_numbers_share_the_integer_without_touching_each_other)
{
    struct Field {
        KeplerBits bits;
        std::uint32_t largest;
        std::uint32_t alone;  // the integer with nothing but the largest number in this field
    };
    const Field fields[] = {
        {Kepler_prn, 255, 0xFF},      {Kepler_health, 63, 0x3F00},        {Kepler_accuracy, 15, 0x3C000},
        {Kepler_L2_code, 3, 0xC0000}, {Kepler_L2P_data_off, 1, 1u << 20}, {Kepler_fit_interval, 1, 1u << 21}};
    KeplerData all;
    for (const Field &f : fields) {
        KeplerData one;
        one.Set(f.bits, f.largest);
        EXPECT_EQ(one.info, f.alone);
        all.Set(f.bits, 0xFFFFFFFF);  // too large: cut to the field
        EXPECT_EQ(all.Get(f.bits), f.largest);
    }
    EXPECT_EQ(all.info, 0x3FFFFFu);
    all.Set(Kepler_health, 5);
    EXPECT_EQ(all.Get(Kepler_health), 5u);
    EXPECT_EQ(all.info, 0x3FC5FFu);
}

TEST(comorb, agrees_with_the_algorithm_in_fifty_digits_and_with_measured_orbits)
{
    std::vector<KeplerData> table;
    for (const Row &row : Table("orbit_elements.csv")) table.push_back(Elements(&row[1]));
    Worst worst;
    double sum3d = 0, sum_clock = 0, largest = 0;
    int orbits = 0, clocks = 0;
    for (const Row &row :
         Table("orbit_states.csv")) {  // elements t, 7 state, relativistic, 3 + 1 measured, mislabelled
        double state[7], relativistic;
        comorb(table.data(), static_cast<int>(row[0]), row[1], state, relativistic);
        worst.State(state, &row[2]);
        worst.Raise(worst.relativistic, std::fabs(relativistic - row[9]));
        if (row[14] != 0) continue;  // another satellite's elements
        const double d = std::hypot(state[0] - row[10], state[1] - row[11], state[2] - row[12]);
        sum3d += d * d;
        largest = std::max(largest, d);
        ++orbits;
        if (std::isnan(row[13])) continue;
        sum_clock += (state[6] - row[13]) * (state[6] - row[13]);
        ++clocks;
    }
    worst.Expect_Small("comorb");
    const double rms3d = std::sqrt(sum3d / orbits), rms_clock = std::sqrt(sum_clock / clocks);
    std::printf("broadcast - measured: %d orbits, 3D RMS %.2f m, largest %.2f m; %d clocks, RMS %.1f ns\n", orbits,
                rms3d, largest, clocks, rms_clock * 1e9);
    EXPECT_GT(orbits, 3800);
    EXPECT_LT(rms3d, 2.5);
    EXPECT_LT(largest, 8);
    EXPECT_LT(rms_clock, 6e-9);
}

// Also the limits: half a week, changes of week, toc apart from toe, e = 0 and 0.2, one correction at a time, a
// receiver at the origin.
TEST(compra_t, agrees_with_the_algorithm_in_fifty_digits)
{
    for (const char *name : {"compra_truth.csv", "compra_edge.csv"}) {
        Worst before, after;
        for (const Row &row : Table(name)) {  // t, 20 elements, receiver, 7 + 1 as comorb, 7 turned, range and rate
            const KeplerData data = Elements(&row[1]);
            double state[7], turned[7], range[2], relativistic, again;
            comorb(&data, 0, row[0], state, relativistic);
            compra_t(&data, 0, row[0], &row[21], turned, range, again);
            before.State(state, &row[24]);
            before.Raise(before.relativistic, std::fabs(relativistic - row[31]));
            after.State(turned, &row[32]);
            after.Range(range, &row[39]);
            EXPECT_EQ(relativistic, again);
        }
        before.Expect_Small(name);
        after.Expect_Small(name);
    }
}

// Light time iterated with an exact turn of the Earth, and its derivative by the time of reception.
TEST(compra_t, agrees_with_an_independent_light_time)
{
    for (const Row &row : Table("compra_truth.csv")) {
        const KeplerData data = Elements(&row[1]);
        double state[7], range[2], relativistic;
        compra_t(&data, 0, row[0], &row[21], state, range, relativistic);
        EXPECT_NEAR(range[0], row[41], 1.2e-4);
        EXPECT_NEAR(range[1], row[42], 4e-6);
    }
}

TEST(comorb, agrees_with_a_plain_transcription)
{
    Random_Elements random;
    std::vector<KeplerData> table;
    Row t;
    for (int j = 0; j < 3000; ++j) {
        table.push_back(j % 3 ? random.Usual() : random.Unusual());
        t.push_back(random.Uniform(0, 604800));
    }
    std::vector<Row> states;
    Row relativistic;
    Batch(table, t, states, relativistic);
    Worst one, many;
    for (std::size_t j = 0; j < table.size(); ++j) {
        double state[7], truth[7], rel, true_rel;
        comorb(table.data(), static_cast<int>(j), t[j], state, rel);
        Literal_comorb(table[j].value, t[j], truth, true_rel);
        one.State(state, truth);
        one.Raise(one.relativistic, std::fabs(rel - true_rel));
        many.State(states[j].data(), truth);
        many.Raise(many.relativistic, std::fabs(relativistic[j] - true_rel));
    }
    one.Expect_Small("one by one");
    many.Expect_Small("in a batch");
}

TEST(comorb_batch, answers_each_satellite_in_its_place_and_no_other)
{
    Random_Elements random;
    std::vector<KeplerData> table;
    for (int j = 0; j < 40; ++j) table.push_back(j % 5 == 4 ? random.Unusual() : random.Usual());
    table[7] = KeplerData();  // no orbit: its neighbours do not suffer
    for (int count = 0; count <= 30; ++count) {
        std::vector<int> sats;
        for (int j = 0; j < count; ++j) sats.push_back((j * 17 + count) % 40);
        const Row t(31, 1000.0 * count);
        double states[31][7], relativistic[31];
        std::fill(states[0], states[0] + 31 * 7, -1);
        std::fill(relativistic, relativistic + 31, -1);
        comorb_batch(table.data(), sats.data(), t.data(), count, states, relativistic);
        for (int j = 0; j < count; ++j) {
            const int sat = sats[static_cast<std::size_t>(j)];
            double state[7], rel;
            comorb(table.data(), sat, t[0], state, rel);
            if (sat == 7) {
                EXPECT_TRUE(std::isnan(states[j][0]));
                continue;
            }
            EXPECT_LT(Difference(states[j], state, 3), 1e-7) << count << " " << j;
            EXPECT_LT(std::fabs(rel - relativistic[j]), 1e-20);
        }
        EXPECT_EQ(states[count][0], -1);
        EXPECT_EQ(relativistic[count], -1);
    }
}

TEST(comorb, survives_what_is_no_orbit)
{
    Random_Elements random;
    KeplerData circle = random.Usual();
    circle[Kepler_e] = 0;
    circle[Kepler_Crs] = circle[Kepler_Crc] = 0;
    const double centre[3] = {};
    double state[7], range[2], relativistic;
    compra_t(&circle, 0, 1000, centre, state, range, relativistic);
    EXPECT_EQ(relativistic, 0);
    EXPECT_NEAR(range[0], circle[Kepler_A], 1e-7);

    comorb(&circle, 0, 1000, state, relativistic);
    const double here[3] = {state[0], state[1], state[2]};
    compra_t(&circle, 0, 1000, here, state, range, relativistic);  // receiver and satellite in one place
    EXPECT_NEAR(range[0], 0, 1e-7);

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
    EXPECT_TRUE(std::isnan(state[0]));
    EXPECT_EQ(state[6], 0);
}

TEST(KeplerParam, carries_the_elements_to_the_instant)
{
    const KeplerParam none;
    EXPECT_EQ(none.n, 0);
    KeplerData data;
    data[Kepler_toe] = 604000;
    data[Kepler_A] = 26560000;
    data[Kepler_DeltaN] = 1e-6;
    data[Kepler_M0] = 1;
    data[Kepler_i0] = 0.9;
    data[Kepler_IDot] = 1e-6;
    data[Kepler_Omega0] = 2;
    data[Kepler_OmegaDot] = -1e-6;
    const KeplerParam param(data, 200);
    EXPECT_EQ(param.tk, 1000);
    EXPECT_NEAR(param.n, 1.458564e-4 + 1e-6, 1e-9);  // two turns in a sidereal day
    EXPECT_EQ(param.M, 1 + param.n * 1000);
    EXPECT_DOUBLE_EQ(param.i, 0.901);
    EXPECT_DOUBLE_EQ(param.Omega, 2 - 0.001 - 7.2921151467e-5 * 605000);
}
