#include "host/decoders/Bit_Reader.h"
#include "host/decoders/Rtcm3_Epoch.h"
#include "host/decoders/Rtcm3_Messages.h"
#include "host/decoders/Rtcm3_Scanner.h"
#include "tests/support/Bit_Writer.h"
#include "tests/support/Rtcm3_Cells.h"

#include <gtest/gtest.h>

#include <bit>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

using namespace host;

namespace {

using Bytes = std::vector<unsigned char>;
using Texts = std::vector<std::string>;

// --- Messages made here

// `ids` go into the satellite fields.
Bytes Legacy(unsigned int number, std::uint32_t time, bool more, const std::vector<int> &ids, int channel = 7,
             int station = 7, int smoothing = 0)
{
    const bool glonass = number > 1008;
    Bit_Writer bits;
    bits.Put(12, number).Put(12, station).Put(glonass ? 27 : 30, time).Put(1, more);
    bits.Put(5, static_cast<std::int64_t>(ids.size())).Put(4, smoothing);
    for (const int id : ids) {
        bits.Put(6, id).Put(1, 0);
        if (glonass) bits.Put(5, channel);
        bits.Put(glonass ? 25 : 24, 5'000'000).Put(20, -100'000).Put(7, 60).Put(glonass ? 7 : 8, 70).Put(8, 180);
        if (number % 4 == 0) bits.Put(2, 3).Put(14, -8191).Put(20, 524'287).Put(7, 127).Put(8, 0);
    }
    return bits.Done();
}

// Satellites and signals of an MSM, the highest bit for number 1.
struct Masks {
    std::int64_t satellites_1_to_32 = std::int64_t{1} << 31, satellites_33_to_64 = 0, signals = std::int64_t{1} << 30;
};

// Of each first satellite and cell, in the units of MSM4 and MSM5; the next ones have one more.
struct Values {
    std::int64_t rough = 70, extended = 8, rough_rate = 100, code = 1, phase = 1, cn0 = 40, rate = 1;
};

// Any MSM4 to MSM7; the finer ones say the same in their units. `flags`: DF409 to DF418, 18 bits.
Bytes Msm(unsigned int number, std::uint32_t time, bool more, const Masks &masks = {}, const Values &first = {},
          std::int64_t flags = 0)
{
    const bool fine = number % 10 >= 6, rates = number % 2 == 1, glonass = number / 10 == 108;
    const auto ones = [](std::int64_t mask) { return std::popcount(static_cast<std::uint32_t>(mask)); };
    const int satellites = ones(masks.satellites_1_to_32) + ones(masks.satellites_33_to_64);
    const int cells = satellites * ones(masks.signals);
    Bit_Writer bits;
    const auto each = [&](int count, unsigned int n, std::int64_t value, std::int64_t step) {
        for (int i = 0; i < count; ++i) bits.Put(n, value + i * step);
    };
    bits.Put(12, number).Put(12, 7);
    if (glonass) bits.Put(3, time / 86'400'000);
    bits.Put(glonass ? 27 : 30, glonass ? time % 86'400'000 : time).Put(1, more).Put(18, flags);
    bits.Put(32, masks.satellites_1_to_32).Put(32, masks.satellites_33_to_64).Put(32, masks.signals);
    each(cells, 1, 1, 0);
    each(satellites, 8, first.rough, 1);
    if (rates) each(satellites, 4, first.extended, 0);
    each(satellites, 10, 512, 0);
    if (rates) each(satellites, 14, first.rough_rate, 1);
    each(cells, fine ? 20 : 15, first.code * (fine ? 32 : 1), fine ? 32 : 1);
    each(cells, fine ? 24 : 22, first.phase * (fine ? 4 : 1), fine ? 4 : 1);
    each(cells, fine ? 10 : 4, fine ? 64 : 2, fine ? 32 : 1);
    each(cells, 1, 0, 1);
    each(cells, fine ? 10 : 6, first.cn0 * (fine ? 16 : 1), fine ? 16 : 1);
    if (rates) each(cells, 15, first.rate, 1);
    return bits.Done();
}

Rtcm3_Observations Decoded(const Bytes &payload)
{
    Rtcm3_Observations observations;
    EXPECT_EQ(Decode(payload, observations), Rtcm3_Fault::none);
    return observations;
}

std::string Name_Of(const Rtcm3_Satellite &satellite)
{
    return static_cast<char>(satellite.gnss) + std::to_string(satellite.number);
}

std::string Name_Of(const Signal_Code &code) { return code ? std::string{code.band, code.attribute} : ""; }

// --- Recordings

std::vector<Bytes> Payloads(const std::string &recording)
{
    const std::string stream = Whole_File(KERNEL_TEST_DATA "/" + recording);
    std::vector<Bytes> payloads;
    Rtcm3_Scanner scanner(
        [&](const Rtcm3_Frame &frame) { payloads.emplace_back(frame.payload().begin(), frame.payload().end()); });
    scanner.Feed({reinterpret_cast<const unsigned char *>(stream.data()), stream.size()});
    scanner.Finish();
    return payloads;
}

// What the epochs of a recording hold. `whole_code`: by RINEX code, else by band.
struct Played {
    std::vector<std::int64_t> times;  // [ms] since the GPS epoch
    Cell_Table cells;

    Played(const std::string &recording, const Rtcm3_Options &options, bool whole_code)
    {
        Rtcm3_Epoch_Assembler assembler([&](const Rtcm3_Epoch &epoch) { Take(epoch, whole_code); }, options);
        Rtcm3_Message_Decoder decoder;
        for (const Bytes &payload : Payloads(recording)) {
            const Rtcm3_Message *message = decoder.Decode(payload);
            EXPECT_TRUE(message) << Rtcm3_Fault_Name(decoder.Last_Fault());
            if (message) assembler.Take(*message);
        }
        assembler.Finish();
        EXPECT_EQ(assembler.Count().undated + assembler.Count().went_back, 0u);
    }

private:
    void Take(const Rtcm3_Epoch &epoch, bool whole_code)
    {
        const int week = epoch.week.value_or(-1);
        times.push_back(std::int64_t{week} * ms_per_week + epoch.tow);
        for (const Rtcm3_Cell &cell : epoch.cells) {
            const Rtcm3_Satellite &satellite = epoch.satellites[cell.satellite];
            const auto &channel = satellite.glonass_channel;
            const std::string code = Name_Of(cell.code).substr(0, whole_code ? 2 : 1);
            Cell_Values &values = cells[{week, epoch.tow, Name_Of(satellite), code}];
            values = {cell.pseudorange,
                      cell.Phase_Cycles(),
                      cell.Doppler(),
                      cell.cn0,
                      double(cell.lock_indicator),
                      whole_code ? cell.half_cycle : no_value,
                      channel ? *channel : no_value};
        }
    }
};

bool Near(double a, double b, double tolerance)
{
    return Has_Value(a) == Has_Value(b) && (!Has_Value(a) || std::abs(a - b) <= tolerance);
}

// Every cell up to the table's end is in the table, within half of its last digit. Returns the number of cells.
std::size_t Compare(const Cell_Table &cells, const Cell_Table &table, double digit)
{
    const auto &[last_week, last_time, satellite, code] = table.rbegin()->first;
    std::size_t compared = 0;
    for (const auto &[key, got] : cells) {
        if (std::tie(std::get<0>(key), std::get<1>(key)) > std::tie(last_week, last_time)) break;
        const auto found = table.find(key);
        const std::string what = std::to_string(std::get<1>(key)) + ' ' + std::get<2>(key) + ' ' + std::get<3>(key);
        if (found == table.end()) {
            ADD_FAILURE() << "not in the table: " << what;
            continue;
        }
        const Cell_Values &wanted = found->second;
        ++compared;
        EXPECT_TRUE(Near(got.pseudorange, wanted.pseudorange, 0.51 * digit) &&
                    Near(got.phase, wanted.phase, 0.51 * digit) && Near(got.doppler, wanted.doppler, 5.1 * digit) &&
                    Near(got.cn0, wanted.cn0, 0) && Near(got.lock, wanted.lock, 0) && Near(got.half, wanted.half, 0) &&
                    Near(got.channel, wanted.channel, 0))
            << what;
    }
    return compared;
}

// An assembler, and what it hands on: "week tow satellites", with + for a complete epoch and < for one that goes back.
class Heard {
public:
    explicit Heard(const Rtcm3_Options &options = {}) : assembler_([this](const Rtcm3_Epoch &e) { Hear(e); }, options)
    {
    }

    // A legacy message of satellites with one cell (1002, 1010) or two each.
    Heard &Say(unsigned int number, std::uint32_t time, bool more, const std::vector<int> &ids)
    {
        return Say(Legacy(number, time, more, ids));
    }
    Heard &Say(const Bytes &payload)
    {
        Rtcm3_Message_Decoder decoder;
        const Rtcm3_Message *message = decoder.Decode(payload);
        EXPECT_TRUE(message) << Rtcm3_Fault_Name(decoder.Last_Fault());
        if (message) assembler_.Take(*message);
        return *this;
    }
    Heard &Ephemeris(int week, int toe)
    {
        Rtcm3_Gps_Ephemeris ephemeris;
        ephemeris.week = static_cast<std::uint16_t>(week % 1024);
        ephemeris.toe = toe;
        return Take(ephemeris);
    }
    Heard &Take(const Rtcm3_Message &message)
    {
        assembler_.Take(message);
        return *this;
    }
    const Texts &Finish()
    {
        assembler_.Finish();
        return epochs_;
    }
    const Rtcm3_Epoch_Assembler::Counters &Count() const { return assembler_.Count(); }

    std::vector<double> frequencies;

private:
    void Hear(const Rtcm3_Epoch &epoch)
    {
        std::string text = (epoch.week ? std::to_string(*epoch.week) : "-") + ' ' + std::to_string(epoch.tow);
        for (const Rtcm3_Cell &cell : epoch.cells) {
            text += ' ' + Name_Of(epoch.satellites[cell.satellite]);
            frequencies.push_back(cell.frequency);
        }
        if (epoch.complete) text += '+';
        if (epoch.went_back) text += '<';
        epochs_.push_back(text);
    }

    Rtcm3_Epoch_Assembler assembler_;
    Texts epochs_;
};

const Rtcm3_Options week_1709 = {.start_week = 1709};

}  // namespace

TEST(Bit_Reader, agrees_with_reading_bit_by_bit)
{
    std::mt19937_64 random(3);
    for (int round = 0; round < 200; ++round) {
        Bytes bytes(static_cast<std::size_t>(random() % 40));
        std::string digits;
        for (auto &byte : bytes) {
            byte = static_cast<unsigned char>(random());
            for (int bit = 7; bit >= 0; --bit) digits += byte >> bit & 1 ? '1' : '0';
        }
        Bit_Reader reader(bytes), with_sign(bytes);
        for (std::size_t at = 0;;) {
            const auto n = static_cast<unsigned int>(1 + random() % 57);
            const std::uint64_t value = reader.Unsigned(n);
            const std::int64_t negative = with_sign.Signed(n);
            if (at + n > digits.size()) {
                ASSERT_TRUE(reader.Failed() && with_sign.Failed() && value == 0 && reader.Left() == 0);
                break;
            }
            const auto naive = static_cast<std::int64_t>(std::stoull(digits.substr(at, n), nullptr, 2));
            const std::int64_t top = std::int64_t{1} << (n - 1);
            ASSERT_EQ(value, static_cast<std::uint64_t>(naive));
            ASSERT_EQ(negative, naive >= top ? naive - 2 * top : naive);
            at += n;
            ASSERT_EQ(reader.Left(), digits.size() - at);
        }
    }
}

TEST(Rtcm3_Messages, of_receivers_agree_with_the_tables)
{
    const struct {
        const char *recording, *table;
        int week;
        std::int64_t tow, step;  // [ms]
        std::size_t epochs, cells;
        bool whole_code;
    } cases[] = {
        {"GMSD7_20121014.rtcm3", "gmsd7_cells.csv", 1709, 604'784'000, 1000, 257, 12'992, true},
        {"day30_first1000.rtcm3", "day30_cells.csv", 1712, 259'200'000, 30'000, 125, 3'924, false},
    };
    for (const auto &c : cases) {
        const Played played(c.recording, {.start_week = c.week, .beidou_in_gps_time = true}, c.whole_code);
        const Cell_Table table = Cells_Of(c.table);
        EXPECT_EQ(table.size(), c.cells);
        EXPECT_EQ(Compare(played.cells, table, 1e-5), table.size());
        ASSERT_EQ(played.times.size(), c.epochs);
        for (std::size_t i = 0; i < c.epochs; ++i)
            EXPECT_EQ(played.times[i],
                      std::int64_t{c.week} * ms_per_week + c.tow + static_cast<std::int64_t>(i) * c.step);
    }
}

TEST(Rtcm3_Messages, that_are_cut_deliver_nothing)
{
    std::map<int, Bytes> samples;  // one of each number
    for (const std::string recording : {"GMSD7_20121014.rtcm3", "day30_first1000.rtcm3"})
        for (const Bytes &payload : Payloads(recording)) samples.emplace(payload[0] << 4 | payload[1] >> 4, payload);
    for (const unsigned int number : {1074u, 1085u, 1096u}) samples[static_cast<int>(number)] = Msm(number, 0, false);
    for (const unsigned int number : {1002u, 1010u})
        samples[static_cast<int>(number)] = Legacy(number, 0, false, {1, 2});
    samples[1013] =
        Bit_Writer().Put(12, 1013).Put(12, 7).Put(16, 56213).Put(17, 86400).Put(5, 1).Put(8, 16).Put(29, 0).Done();
    ASSERT_EQ(samples.size(), 18u);
    for (const auto &[number, payload] : samples) {
        SCOPED_TRACE(number);
        Rtcm3_Message_Decoder decoder;
        Rtcm3_Observations observations;
        Bytes bytes = payload;
        bytes.push_back(0xFF);
        EXPECT_TRUE(decoder.Decode(payload) && decoder.Decode(bytes));
        for (bytes = payload; bytes.size() > 2;) {
            bytes.pop_back();
            ASSERT_EQ(decoder.Decode(bytes), nullptr) << bytes.size();
            ASSERT_EQ(decoder.Last_Fault(), Rtcm3_Fault::too_short) << bytes.size();
            ASSERT_NE(Decode(bytes, observations), Rtcm3_Fault::none);
            ASSERT_TRUE(observations.satellites().empty() && observations.cells().empty());
        }
        EXPECT_EQ(decoder.Count(Rtcm3_Fault::too_short), payload.size() - 2);
    }
}

TEST(Rtcm3_Messages, that_cannot_be_are_refused_with_the_reason)
{
    using enum Rtcm3_Fault;
    const auto gps = [](int prn, int toc) {
        Bit_Writer bits;
        return bits.Put(12, 1019).Put(6, prn).Put(38, 0).Put(16, toc).Zeros(60).Done();
    };
    const auto glonass = [](int slot, int channel, int tb) {
        Bit_Writer bits;
        return bits.Put(12, 1020).Put(6, slot).Put(5, channel).Put(18, 0).Put(7, tb).Zeros(50).Done();
    };
    const auto antenna = [](std::size_t size) {
        return Bit_Writer().Put(12, 1007).Put(12, 1).Text(std::string(size, 'x')).Put(8, 0).Done();
    };
    const std::int64_t first = std::int64_t{1} << 31;
    const std::vector<std::pair<Rtcm3_Fault, std::vector<Bytes>>> cases = {
        {none,
         {Legacy(1004, 604'799'999, false, {}),
          Legacy(1012, 86'400'999, false, {1}),                                      // the end of the week; leap second
          Legacy(1002, 0, false, {32, 40, 58}), Legacy(1010, 0, false, {0, 0, 24}),  // GPS, SBAS; slots unknown
          Msm(1077, 0, false, {-1, 0, 3}), Msm(1124, 0, false, {0, 2, 1}),           // 64 cells; BeiDou 63
          gps(32, 37'799), glonass(24, 20, 95), antenna(31)}},
        {unsupported, {Bytes{}, Msm(1073, 0, false)}},
        {bad_time,
         {Legacy(1004, 604'800'000, false, {1}), Legacy(1012, 86'401'000, false, {1}), Msm(1097, 604'800'000, false),
          Bit_Writer().Put(12, 1087).Put(15, 0).Put(27, 86'401'000).Done(), gps(1, 37'800), glonass(1, 1, 96)}},
        {bad_satellite,
         {Legacy(1002, 0, false, {1, 0}), Legacy(1004, 0, false, {33}), Legacy(1004, 0, false, {59}),
          Legacy(1012, 0, false, {25}), Msm(1074, 0, false, {0, first, 1}), Msm(1084, 0, false, {1 << 7, 0, 1}),
          Msm(1124, 0, false, {0, 1, 1}), gps(0, 0), gps(33, 0), glonass(0, 1, 0)}},
        {bad_channel, {Legacy(1012, 0, false, {1}, 21), glonass(1, 21, 0)}},
        {repeated_satellite, {Legacy(1004, 0, false, {3, 4, 3})}},
        {too_many_cells, {Msm(1127, 0, false, {-1, first, 3})}},
        {bad_text, {antenna(32)}},
    };
    Rtcm3_Message_Decoder decoder;
    for (const auto &[fault, payloads] : cases) {
        for (const Bytes &payload : payloads) {
            const Rtcm3_Message *message = decoder.Decode(payload);
            EXPECT_STREQ(Rtcm3_Fault_Name(decoder.Last_Fault()), Rtcm3_Fault_Name(fault)) << (&payload - &payloads[0]);
            EXPECT_EQ(message != nullptr, fault == none);
        }
    }
}

// MSM7 agrees with a table; what the others have to say, they say in other units.
TEST(Rtcm3_Messages, of_the_lower_msm_say_the_same)
{
    for (const unsigned int base : {1070u, 1080u, 1090u, 1110u, 1120u}) {
        const Masks two_by_two = {0x81000000, 0, 0x41000000};
        const Rtcm3_Observations whole = Decoded(Msm(base + 7, 5000, true, two_by_two));
        ASSERT_EQ(whole.cell_count, 4u);
        EXPECT_NEAR(whole.cell_table[3].pseudorange, 299'792.458 * (71.5 + std::ldexp(4, -24)), 1e-7);
        EXPECT_NEAR(whole.cell_table[3].phase_range, 299'792.458 * (71.5 + std::ldexp(4, -29)), 1e-7);
        EXPECT_NEAR(whole.cell_table[3].range_rate, 101.0004, 1e-9);
        for (unsigned int kind = 4; kind < 7; ++kind) {
            SCOPED_TRACE(base + kind);
            const Rtcm3_Observations other = Decoded(Msm(base + kind, 5000, true, two_by_two));
            ASSERT_EQ(other.cell_count, 4u);
            EXPECT_TRUE(other.more_follows && other.time == 5000 && other.station == 7);
            for (std::size_t i = 0; i < 4; ++i) {
                const Rtcm3_Cell &a = other.cell_table[i], &b = whole.cell_table[i];
                EXPECT_TRUE(a.code == b.code && a.satellite == b.satellite && a.half_cycle == b.half_cycle);
                EXPECT_EQ(a.pseudorange, b.pseudorange);
                EXPECT_EQ(a.phase_range, b.phase_range);
                EXPECT_EQ(a.lock_time, b.lock_time);
                EXPECT_EQ(a.cn0, b.cn0);
                EXPECT_EQ(a.half_cycle, i % 2 == 1);
                EXPECT_EQ(Has_Value(a.range_rate), kind == 5);
                EXPECT_TRUE(kind != 5 || a.range_rate == b.range_rate);
                EXPECT_EQ(Has_Value(a.frequency), Has_Value(b.frequency) && (base != 1080 || kind == 5));
            }
        }
    }
}

TEST(Rtcm3_Messages, name_the_signals_of_each_system)
{
    const std::tuple<unsigned int, int, std::string, double> cases[] = {
        // message, signal, name, [Hz]
        {1077, 10, "G1 2W", 1227.60e6},  {1074, 24, "G1 5X", 1176.45e6},   {1077, 32, "G1 1X", 1575.42e6},
        {1097, 8, "E1 6C", 1278.75e6},   {1094, 14, "E1 7I", 1207.14e6},   {1095, 20, "E1 8X", 1191.795e6},
        {1117, 9, "J193 6S", 1278.75e6}, {1117, 31, "J193 1L", 1575.42e6}, {1127, 2, "C1 2I", 1561.098e6},
        {1124, 8, "C1 6I", 1268.52e6},   {1124, 25, "C1 7D", 1207.14e6},   {1084, 9, "R1 2P", no_value},
        {1087, 3, "R1 1P", 1602.5625e6}, {1085, 8, "R1 2C", 1246.4375e6},  {1077, 1, "G1 ", no_value},
        {1094, 27, "E1 ", no_value},
    };
    for (const auto &[number, signal, name, frequency] : cases) {
        const Masks masks = {.signals = std::int64_t{1} << (32 - signal)};
        const Rtcm3_Observations observations = Decoded(Msm(number, 0, false, masks));
        ASSERT_EQ(observations.cell_count, 1u);
        const Rtcm3_Cell &cell = observations.cell_table[0];
        EXPECT_EQ(Name_Of(observations.satellite_table[0]) + ' ' + Name_Of(cell.code), name);
        EXPECT_EQ(cell.msm_signal, signal);
        EXPECT_TRUE(Near(cell.frequency, frequency, 0)) << name << ' ' << cell.frequency;
    }
}

TEST(Rtcm3_Messages, tell_how_the_receiver_works)
{
    const std::int64_t flags = 5 << 15 | 1 << 6 | 2 << 4 | 1 << 3 | 6;  // DF409, DF411, DF412, DF417, DF418
    for (const unsigned int number : {1074u, 1077u, 1084u, 1087u}) {
        const Rtcm3_Observations msm = Decoded(Msm(number, 0, false, {}, {}, flags));
        EXPECT_TRUE(msm.issue_of_station == 5 && msm.clock_steering == 1 && msm.external_clock == 2) << number;
        EXPECT_TRUE(msm.divergence_free && msm.smoothing_interval == 6) << number;
    }
    for (const unsigned int number : {1002u, 1004u, 1010u, 1012u}) {  // DF007 and DF008, DF036 and DF037
        const Rtcm3_Observations free = Decoded(Legacy(number, 0, false, {1}, 7, 7, 8 | 3));
        EXPECT_TRUE(free.divergence_free && free.smoothing_interval == 3) << number;
        const Rtcm3_Observations other = Decoded(Legacy(number, 0, false, {1}, 7, 7, 4));
        EXPECT_TRUE(!other.divergence_free && other.smoothing_interval == 4) << number;
        EXPECT_TRUE(other.clock_steering == 2 && other.external_clock == 3) << number;  // unknown
    }
    Rtcm3_Observations same;
    EXPECT_EQ(Decode(Msm(1074, 0, false, {}, {}, flags), same), Rtcm3_Fault::none);
    EXPECT_EQ(Decode(Legacy(1002, 0, false, {1}), same), Rtcm3_Fault::none);
    EXPECT_TRUE(same.issue_of_station == 0 && same.clock_steering == 2 && same.external_clock == 3);
    // DF419: 14 and 15 are reserved, and other systems have none.
    for (const auto &[number, extended, channel] : std::vector<std::tuple<unsigned int, int, std::optional<int>>>{
             {1085, 0, -7}, {1087, 13, 6}, {1085, 14, {}}, {1087, 15, {}}, {1086, 8, {}}, {1075, 8, {}}}) {
        const Rtcm3_Observations msm = Decoded(Msm(number, 0, false, {}, {.extended = extended}));
        EXPECT_EQ(msm.satellite_table[0].glonass_channel, channel) << number;
    }
}

// One field at a time has the value that stands for none.
TEST(Rtcm3_Messages, have_no_value_where_the_sender_had_none)
{
    const auto there = [](const Rtcm3_Cell &cell) {
        std::string letters;
        if (Has_Value(cell.pseudorange)) letters += 'P';
        if (Has_Value(cell.phase_range)) letters += 'L';
        if (Has_Value(cell.cn0)) letters += 'C';
        if (Has_Value(cell.range_rate)) letters += 'D';
        return letters;
    };
    const std::vector<std::pair<Values, std::string>> cases = {{{}, "PLCD"},
                                                               {{.rough = 255}, "CD"},
                                                               {{.rough_rate = -8192}, "PLC"},
                                                               {{.code = -16384}, "LCD"},
                                                               {{.phase = -2097152}, "PCD"},
                                                               {{.cn0 = 0}, "PLD"},
                                                               {{.rate = -16384}, "PLC"}};
    for (const auto &[values, letters] : cases)
        for (const unsigned int number : {1075u, 1077u})
            EXPECT_EQ(there(Decoded(Msm(number, 0, false, {}, values)).cell_table[0]), letters);

    // L1 for the sake of L2 only; then an L2 that is not there at all.
    Bit_Writer bits;
    bits.Put(12, 1004).Put(12, 7).Put(30, 0).Put(1, 0).Put(5, 2).Put(4, 0);
    bits.Put(6, 1).Put(1, 1).Put(24, 50).Put(20, -524'288).Put(7, 0).Put(8, 1).Put(8, 0);
    bits.Put(2, 2).Put(14, -50).Put(20, -524'288).Put(7, 24).Put(8, 160);
    bits.Put(6, 2).Put(1, 0).Put(24, 50).Put(20, 2000).Put(7, 0).Put(8, 1).Put(8, 1);
    bits.Put(2, 0).Put(14, -8192).Put(20, -524'288).Put(7, 0).Put(8, 0);
    const Rtcm3_Observations legacy = Decoded(bits.Done());
    ASSERT_EQ(legacy.cell_count, 3u);
    const auto &cells = legacy.cell_table;
    EXPECT_EQ(there(cells[0]) + ' ' + there(cells[1]) + ' ' + there(cells[2]), " PC PLC");
    EXPECT_EQ(Name_Of(cells[0].code) + Name_Of(cells[1].code), "1P2D");
    EXPECT_EQ(cells[1].cn0, 40);
    EXPECT_NEAR(cells[1].pseudorange, 299'792.458, 1e-9);
    EXPECT_EQ(cells[2].satellite, 1);
}

TEST(Rtcm3_Messages, of_one_frequency_have_the_first_half_of_the_fields)
{
    for (const unsigned int number : {1002u, 1010u}) {
        const Rtcm3_Observations one = Decoded(Legacy(number, 1000, true, {3, 9}));
        const Rtcm3_Observations two = Decoded(Legacy(number + 2, 1000, true, {3, 9}));  // agrees with a table
        ASSERT_TRUE(one.cell_count == 2 && two.cell_count == 4);
        EXPECT_TRUE(one.more_follows && one.station == 7 && one.time == 1000 && one.satellite_table[1].number == 9);
        const Rtcm3_Cell &a = one.cell_table[1], &b = two.cell_table[2];
        EXPECT_TRUE(a.pseudorange == b.pseudorange && a.phase_range == b.phase_range && a.code == b.code);
        EXPECT_TRUE(a.lock_time == b.lock_time && a.cn0 == b.cn0 && a.frequency == b.frequency);
    }
}

TEST(Rtcm3_Messages, of_the_station_tell_where_it_is_and_what_stands_there)
{
    Bit_Writer place;
    place.Put(12, 1005).Put(12, 4095).Put(6, 5).Put(4, 0b1010).Put(38, -1).Put(2, 2).Put(38, std::int64_t{1} << 36);
    place.Put(2, 2).Put(38, -(std::int64_t{1} << 37));
    Rtcm3_Station station;
    ASSERT_EQ(Decode(place.Done(), station), Rtcm3_Fault::none);
    EXPECT_EQ(station.station, 4095);
    EXPECT_TRUE(station.gps && !station.glonass && station.galileo && !station.virtual_station);
    EXPECT_TRUE(station.single_oscillator && station.quarter_cycle == 2);
    EXPECT_NEAR(station.x, -0.0001, 1e-12);
    EXPECT_NEAR(station.y, 6871947.6736, 1e-6);
    EXPECT_NEAR(station.z, -13743895.3472, 1e-6);
    EXPECT_FALSE(Has_Value(station.antenna_height));

    const std::pair<unsigned int, Texts> cases[] = {// antenna, its serial, receiver, firmware, its serial
                                                    {1007, {"ANT  NONE"}},
                                                    {1008, {"ANT  NONE", "12"}},
                                                    {1033, {"ANT  NONE", "", "RECEIVER", "1.2.3", "4711"}}};
    for (auto [number, wanted] : cases) {
        Bit_Writer bits;
        bits.Put(12, number).Put(12, 9).Text(wanted[0]).Put(8, 3);
        for (std::size_t i = 1; i < wanted.size(); ++i) bits.Text(wanted[i]);
        Rtcm3_Equipment e;
        ASSERT_EQ(Decode(bits.Done(), e), Rtcm3_Fault::none);
        Texts texts;
        for (const Rtcm3_Text &text : {e.antenna, e.antenna_serial, e.receiver, e.firmware, e.receiver_serial})
            texts.emplace_back(text.View());
        wanted.resize(5);
        EXPECT_EQ(texts, wanted);
        EXPECT_TRUE(e.setup == 3 && e.station == 9);
    }
}

TEST(Rtcm3_Messages, scales_of_week_and_lock)
{
    const int weeks[][3] = {{685, 1700, 1709}, {685, 2300, 2733}, {1023, 1024, 1023}, {0, 1023, 1024}, {0, 0, 0}};
    for (const auto &[bits, near, week] : weeks) EXPECT_EQ(Full_Week(static_cast<unsigned int>(bits), near), week);
    using Scale = std::map<unsigned int, std::int32_t>;  // the last of one step and the first of the next
    const Scale legacy = {{23, 23},  {24, 24},  {47, 70},   {48, 72},   {71, 164},  {72, 168},
                          {95, 352}, {96, 360}, {119, 728}, {120, 744}, {126, 936}, {127, 937}};
    for (const auto &[indicator, seconds] : legacy) EXPECT_EQ(Legacy_Lock_Time(indicator), seconds * 1000);
    for (const auto &[indicator, ms] :
         Scale{{63, 63}, {64, 64}, {95, 126}, {96, 128}, {703, 66060288}, {704, 67108864}, {705, 0}})
        EXPECT_EQ(Msm_Long_Lock_Time(indicator), ms);
    for (const auto &[indicator, ms] : Scale{{0, 0}, {1, 32}, {15, 524288}}) EXPECT_EQ(Msm_Lock_Time(indicator), ms);
    EXPECT_EQ(Decoded(Legacy(1002, 0, false, {1})).cell_table[0].lock_below, 124'000);  // 60: 120 s; 61: 124 s
    EXPECT_EQ(Decoded(Legacy(1004, 0, false, {1})).cell_table[1].lock_below, no_lock_limit);
    EXPECT_EQ(Decoded(Msm(1074, 0, false)).cell_table[0].lock_below, 128);  // 2: 64 ms; 3: 128 ms
    EXPECT_EQ(Decoded(Msm(1077, 0, false)).cell_table[0].lock_below, 66);   // 64: 64 ms; 65: 66 ms
}

TEST(Rtcm3_Epoch, ends_with_its_last_message_or_with_another_time)
{
    Heard heard(week_1709);
    heard.Say(1004, 1000, true, {1, 2}).Say(1012, 10'785'000, false, {3});
    heard.Say(1002, 2000, true, {1});                               // the last message is lost
    heard.Say(1002, 3000, false, {1}).Say(1002, 3000, false, {1});  // sent twice
    heard.Say(1002, 3000, false, {1, 4});                           // and something new of the same time
    heard.Say(1002, 5000, true, {1}).Say(1004, 5000, true, {1}).Say(Msm(1074, 5000, false));  // L1 C/A thrice, L2 once
    heard.Say(Legacy(1010, 10'790'000, true, {0}, 3)).Say(Legacy(1010, 10'790'000, true, {0}, 4));  // slots unknown
    heard.Say(Legacy(1002, 6000, false, {1}, 0, 8));                                                // another station
    EXPECT_EQ(heard.Finish(), (Texts{"1709 1000 G1 G1 G2 G2 R3 R3+", "1709 2000 G1", "1709 3000 G1+", "1709 3000 G4+",
                                     "1709 5000 G1 G1+", "1709 6000 R0 R0", "1709 6000 G1+"}));
    EXPECT_EQ(heard.Count().epochs, 7u);
    EXPECT_EQ(heard.Count().incomplete, 2u);
    EXPECT_EQ(heard.Count().repeated_cells, 4u);
}

TEST(Rtcm3_Epoch, follows_the_week_over_its_change_and_back)
{
    Heard heard;
    heard.Say(1002, 604'700'000, false, {1}).Ephemeris(1709, 0);  // which week it means is open
    heard.Say(1002, 604'798'000, false, {1}).Ephemeris(1709, 604'784);
    heard.Say(1002, 604'799'000, false, {1}).Say(1002, 0, false, {1}).Ephemeris(1709, 597'600);
    heard.Say(1002, 1000, false, {1}).Say(1002, 604'799'500, false, {1}).Say(1002, 5000, false, {1});
    heard.Say(1002, 4000, false, {1}).Ephemeris(1800, 7200).Ephemeris(1710, 7200).Ephemeris(1800, 0).Ephemeris(1800, 0);
    heard.Say(1002, 6000, false, {1}).Ephemeris(1800, 0).Say(1002, 7000, false, {1});
    EXPECT_EQ(heard.Finish(),
              (Texts{"- 604700000 G1+", "- 604798000 G1+", "1709 604799000 G1+", "1710 0 G1+", "1710 1000 G1+",
                     "1709 604799500 G1+<", "1710 5000 G1+", "1710 4000 G1+<", "1710 6000 G1+", "1800 7000 G1+"}));
    EXPECT_EQ(heard.Count().went_back, 2u);
}

TEST(Rtcm3_Epoch, dates_glonass_by_day_and_leap_seconds)
{
    const std::uint32_t midnight = 75'616'000;  // [ms] GPS 21:00:16, when the day of GLONASS began in 2012
    Heard followed(week_1709);                  // a legacy time of day belongs to the epoch before
    for (const std::uint32_t ms : {0u, 1000u})
        followed.Say(1002, midnight - 1000 + ms, true, {1}).Say(1010, (86'399'000 + ms) % 86'400'000, false, {2});
    followed.Say(1010, 86'398'000, false, {2});
    EXPECT_EQ(followed.Finish(), (Texts{"1709 75615000 G1 R2+", "1709 75616000 G1 R2+", "1709 75614000 R2+<"}));

    Heard alone;
    EXPECT_TRUE(alone.Say(1010, 0, false, {2}).Finish().empty());
    EXPECT_EQ(alone.Count().undated, 1u);

    // Sunday 03:00 of GLONASS is Sunday 00:00 UTC; Sunday 00:00 is in the week before.
    const auto msm = [](std::uint32_t time, const Rtcm3_Options &options) {
        return Heard(options).Say(Msm(1084, time, false)).Finish();
    };
    EXPECT_EQ(msm(10'800'000, {.start_week = 1710}), Texts{"1710 16000 R1+"});
    EXPECT_EQ(msm(10'800'000, {.start_week = 2200}), Texts{"2200 18000 R1+"});
    EXPECT_EQ(msm(0, {.leap_seconds = 17}), Texts{"- 594017000 R1+"});
    EXPECT_TRUE(msm(0, {}).empty());
    Rtcm3_System_Parameters announced;
    announced.leap_seconds = 15;
    EXPECT_EQ(Heard().Take(announced).Say(Msm(1084, 10'800'000, false)).Finish(), Texts{"- 15000 R1+"});
    // A GLONASS message of an epoch whose time is known shows the leap seconds.
    EXPECT_EQ(Heard().Say(1002, 5000, true, {1}).Say(Msm(1084, 10'789'000, false)).Finish(), Texts{"- 5000 G1 R1+"});
    EXPECT_EQ(Heard().Say(1002, 5000, true, {1}).Say(Msm(1084, 10'789'500, false)).Count().undated, 1u);

    // 30 June 2012 23:59:60 UTC is second 15 of week 1695; before it there are 15 leap seconds, then 16.
    Heard leap({.start_week = 1695});
    leap.Say(1002, 14'000, true, {1}).Say(1010, 10'799'000, false, {2});
    leap.Say(1002, 16'000, true, {1}).Say(1010, 10'800'000, false, {2});
    EXPECT_EQ(leap.Finish(), (Texts{"1695 14000 G1 R2+", "1695 16000 G1 R2+"}));
}

TEST(Rtcm3_Epoch, tells_how_the_receiver_works_by_its_first_message)
{
    std::vector<Rtcm3_Epoch> epochs;
    Rtcm3_Epoch_Assembler assembler([&](const Rtcm3_Epoch &epoch) { epochs.push_back(epoch); });
    for (const std::int64_t flags : {5 << 15 | 1 << 6 | 1 << 3 | 6, 2 << 6 | 1}) {
        assembler.Take(Decoded(Msm(1074, static_cast<std::uint32_t>(flags % 2) * 1000, true, {}, {}, flags)));
        assembler.Take(Decoded(Msm(1094, static_cast<std::uint32_t>(flags % 2) * 1000, false, {}, {}, 7)));
    }
    ASSERT_EQ(epochs.size(), 2u);
    EXPECT_TRUE(epochs[0].issue_of_station == 5 && epochs[0].clock_steering == 1);
    EXPECT_TRUE(epochs[0].divergence_free && epochs[0].smoothing_interval == 6);
    EXPECT_TRUE(epochs[1].issue_of_station == 0 && epochs[1].clock_steering == 2);
    EXPECT_TRUE(!epochs[1].divergence_free && epochs[1].smoothing_interval == 1);
}

TEST(Rtcm3_Epoch, takes_beidou_time_as_told)
{
    for (const bool gps_time : {true, false}) {
        Heard heard({.start_week = 1709, .beidou_in_gps_time = gps_time});
        heard.Say(Msm(1074, 604'790'000, true)).Say(Msm(1124, 604'790'000, false));
        EXPECT_EQ(heard.Finish(),
                  gps_time ? (Texts{"1709 604790000 G1 C1+"}) : (Texts{"1709 604790000 G1", "1710 4000 C1+"}));
    }
}

TEST(Rtcm3_Epoch, knows_glonass_channels_from_before)
{
    Rtcm3_Glonass_Ephemeris ephemeris;
    ephemeris.slot = 1;
    ephemeris.channel = -2;
    Heard heard({.leap_seconds = 16});
    heard.Say(Msm(1084, 0, false)).Take(ephemeris).Say(Msm(1084, 1000, false));  // MSM4 has no channel
    ASSERT_EQ(heard.frequencies.size(), 2u);
    EXPECT_FALSE(Has_Value(heard.frequencies[0]));
    EXPECT_EQ(heard.frequencies[1], 1600.875e6);
}

// Of a stream with damaged, cut and repeated frames, each epoch is one of the undamaged stream, or a part of it.
TEST(Rtcm3_Epoch, is_never_a_false_one)
{
    const Rtcm3_Options options = {.start_week = 1712};
    const Played clean("day30_first1000.rtcm3", options, false), dirty("day30_dirty4h.rtcm3", options, false);
    EXPECT_GT(Compare(dirty.cells, clean.cells, 0), clean.cells.size() / 2);
    EXPECT_GT(dirty.times.size(), 400u);
    const std::int64_t start = clean.times[0], hour = 3'600'000;
    for (std::size_t i = 0; i < dirty.times.size(); ++i) {
        EXPECT_TRUE(dirty.times[i] % 30'000 == 0 && dirty.times[i] >= start && dirty.times[i] < start + 4 * hour);
        EXPECT_TRUE(i == 0 || dirty.times[i] > dirty.times[i - 1]);  // so none comes twice or goes back
    }
}
