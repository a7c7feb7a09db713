#include "host/decoders/Bit_Reader.h"
#include "host/decoders/Rtcm3_Epoch.h"
#include "host/decoders/Rtcm3_Messages.h"
#include "host/decoders/Rtcm3_Scanner.h"
#include "tests/support/folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

using namespace host;

namespace {

using Bytes = std::vector<unsigned char>;
using Fields = std::vector<std::string>;

// Bit fields, most significant bit first.
class Bit_Writer {
public:
    Bit_Writer &Put(unsigned int n, std::int64_t value)
    {
        for (unsigned int i = n; i-- > 0; ++size_) {
            if (size_ % 8 == 0) bytes_.push_back(0);
            if (value >> i & 1) bytes_.back() = static_cast<unsigned char>(bytes_.back() | 0x80 >> size_ % 8);
        }
        return *this;
    }
    Bit_Writer &Text(const std::string &text)
    {
        Put(8, static_cast<std::int64_t>(text.size()));
        for (const char c : text) Put(8, c);
        return *this;
    }
    const Bytes &Done() const { return bytes_; }

private:
    Bytes bytes_;
    std::size_t size_ = 0;  // [bits]
};

std::vector<Bytes> Payloads(const std::string &recording)
{
    const std::string stream = Whole_File(KERNEL_TEST_DATA "/" + recording);
    std::vector<Bytes> payloads;
    Rtcm3_Scanner scanner([&](const Rtcm3_Frame &frame) {
        const auto payload = frame.payload();
        payloads.emplace_back(payload.begin(), payload.end());
    });
    scanner.Feed({reinterpret_cast<const unsigned char *>(stream.data()), stream.size()});
    scanner.Finish();
    return payloads;
}

unsigned int Number(const Bytes &payload) { return static_cast<unsigned int>(payload[0] << 4 | payload[1] >> 4); }

// The lines of a table, each split at its commas; the first has the names of the columns.
std::vector<Fields> Table(const std::string &name)
{
    std::istringstream file(Whole_File(KERNEL_TEST_DATA "/" + name));
    std::vector<Fields> rows;
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        Fields fields(1);
        for (const char c : line) {
            if (c == ',')
                fields.emplace_back();
            else
                fields.back() += c;
        }
        rows.push_back(fields);
    }
    return rows;
}

std::string Name_Of(const Rtcm3_Satellite &satellite)
{
    return static_cast<char>(satellite.gnss) + std::to_string(satellite.number);
}

// An epoch that stays.
struct Epoch {
    Rtcm3_Epoch head;
    std::vector<Rtcm3_Satellite> satellites;
    std::vector<Rtcm3_Cell> cells;

    explicit Epoch(const Rtcm3_Epoch &epoch)
        : head(epoch), satellites(epoch.satellites.begin(), epoch.satellites.end()),
          cells(epoch.cells.begin(), epoch.cells.end())
    {
    }
};

std::vector<Epoch> Epochs(const std::vector<Bytes> &payloads, const Rtcm3_Options &options)
{
    std::vector<Epoch> epochs;
    Rtcm3_Epoch_Assembler assembler([&](const Rtcm3_Epoch &epoch) { epochs.emplace_back(epoch); }, options);
    Rtcm3_Message_Decoder decoder;
    for (const Bytes &payload : payloads) {
        const Rtcm3_Message *message = decoder.Decode(payload);
        EXPECT_TRUE(message) << Number(payload) << ": " << Rtcm3_Fault_Name(decoder.Last_Fault());
        if (message) assembler.Take(*message);
    }
    assembler.Finish();
    EXPECT_EQ(assembler.Count().undated, 0u);
    return epochs;
}

// What a table says of one signal; a blank is NaN.
struct Wanted {
    double pseudorange, phase, doppler, cn0, lock, half, channel;
};
using Key = std::tuple<int, std::int32_t, std::string, std::string>;  // week, time [ms], satellite, code

std::map<Key, Wanted> Cell_Table(const std::string &name)
{
    const auto number = [](const std::string &text) { return text.empty() ? no_value : std::stod(text); };
    std::map<Key, Wanted> cells;
    const auto rows = Table(name);
    for (std::size_t i = 1; i < rows.size(); ++i) {
        const Fields &row = rows[i];
        for (std::size_t at = 4; at + 7 <= row.size(); at += 7) {
            const Key key{std::stoi(row[0]), std::stoi(row[1]), row[2], row[at]};
            cells[key] = {number(row[at + 1]), number(row[at + 2]), number(row[at + 3]), number(row[at + 4]),
                          number(row[at + 5]), number(row[at + 6]), number(row[3])};
        }
    }
    return cells;
}

// The largest difference; a value on one side only is infinitely far.
struct Worst {
    double difference = 0;
    int compared = 0;

    void Take(double got, double wanted)
    {
        if (!Has_Value(got) && !Has_Value(wanted)) return;
        ++compared;
        const double d = std::abs(got - wanted);
        difference = std::max(difference, Has_Value(d) ? d : std::numeric_limits<double>::infinity());
    }
};

struct Comparison {
    Worst pseudorange, phase, doppler, cn0, lock, half, channel;
    std::size_t cells = 0;
    std::size_t without = 0;  // cells that the table does not have
    Key last;                 // the table's end

    void Report(const std::string &name) const
    {
        std::ostringstream text;
        const auto show = [&](const char *what, const Worst &worst) {
            text << ", " << what << ' ' << worst.compared << " worst " << worst.difference;
        };
        show("P", pseudorange);
        show("L", phase);
        show("D", doppler);
        show("CN0", cn0);
        show("lock", lock);
        testing::Test::RecordProperty(name, std::to_string(cells) + " cells" + text.str());
    }
};

// Cells of epochs behind the table's end are left out. `whole_code`: the table has RINEX codes, else bands.
Comparison Compare(const std::vector<Epoch> &epochs, const std::map<Key, Wanted> &table, bool whole_code)
{
    Comparison result;
    result.last = table.rbegin()->first;
    for (const Epoch &epoch : epochs) {
        const int week = epoch.head.week.value_or(-1);
        if (std::tie(week, epoch.head.tow) > std::tie(std::get<0>(result.last), std::get<1>(result.last))) break;
        for (const Rtcm3_Cell &cell : epoch.cells) {
            const Rtcm3_Satellite &satellite = epoch.satellites[cell.satellite];
            std::string code = {cell.code.band, cell.code.attribute};
            if (!whole_code) code.pop_back();
            const auto found = table.find({week, epoch.head.tow, Name_Of(satellite), code});
            if (found == table.end()) {
                ++result.without;
                continue;
            }
            const Wanted &wanted = found->second;
            ++result.cells;
            result.pseudorange.Take(cell.pseudorange, wanted.pseudorange);
            result.phase.Take(cell.Phase_Cycles(), wanted.phase);
            result.doppler.Take(cell.Doppler(), wanted.doppler);
            result.cn0.Take(cell.cn0, wanted.cn0);
            result.lock.Take(cell.lock_indicator, wanted.lock);
            if (whole_code) result.half.Take(cell.half_cycle, wanted.half);
            result.channel.Take(satellite.glonass_channel ? *satellite.glonass_channel : no_value, wanted.channel);
        }
    }
    return result;
}

template <class... T>
std::vector<double> Row(T... values)
{
    return {static_cast<double>(values)...};
}

// In the order of the tables' columns.
std::vector<double> Values(const Rtcm3_Gps_Ephemeris &e)
{
    return Row(e.prn, e.iode, e.iodc, e.ura, e.health, Full_Week(e.week, 1700), e.toe, e.omega0, e.i0, e.omega,
               e.semi_major_axis, e.e, e.m0, e.omega_dot, e.i_dot, e.delta_n, e.crs, e.crc, e.cis, e.cic, e.cus, e.cuc,
               e.toc, e.af0, e.af1, e.af2, e.tgd, e.l2_code, e.l2p_no_data, e.long_fit ? no_value : 4);
}

std::vector<double> Values(const Rtcm3_Glonass_Ephemeris &e)
{
    const auto &[px, py, pz] = e.position;
    const auto &[vx, vy, vz] = e.velocity;
    const auto &[ax, ay, az] = e.acceleration;
    return Row(e.slot, e.channel, e.almanac_health, e.almanac_health_known, e.p1, e.tk / 3600, e.tk / 60 % 60,
               e.tk % 60, e.bn_msb, e.p2, e.tb, px, py, pz, vx, vy, vz, ax, ay, az, e.p3, e.gamma, e.p, e.ln_third,
               e.tau, e.delta_tau, e.en, e.p4, e.ft, e.nt, e.m, e.additional, e.na, e.tau_c, e.n4, e.tau_gps,
               e.ln_fifth);
}

// Every row and column of a table, whose first column is the number of the frame. Doubles differ in the last place, by the
// order of the factors. Answers the rows.
template <class Ephemeris>
std::size_t Compare_Ephemerides(const std::string &table, const std::string &recording)
{
    const auto payloads = Payloads(recording);
    const auto rows = Table(table);
    double worst = 0;
    for (std::size_t i = 1; i < rows.size(); ++i) {
        SCOPED_TRACE(table + " row " + std::to_string(i));
        Ephemeris ephemeris;
        EXPECT_EQ(Decode(payloads.at(std::stoul(rows[i][0])), ephemeris), Rtcm3_Fault::none);
        const std::vector<double> values = Values(ephemeris);
        EXPECT_EQ(values.size() + 1, rows[0].size());
        for (std::size_t column = 1; column < rows[0].size(); ++column) {
            const double got = values.at(column - 1), wanted = std::stod(rows[i][column]);
            EXPECT_NEAR(got, wanted, 4e-16 * std::abs(wanted)) << rows[0][column];
            if (wanted != 0) worst = std::max(worst, std::abs(got / wanted - 1));
        }
    }
    std::ostringstream text;
    text << rows.size() - 1 << " rows, worst relative " << worst;
    testing::Test::RecordProperty(table.substr(0, table.size() - 4), text.str());
    return rows.size() - 1;
}

// --- Messages made here

// A legacy message of satellites without ranges worth looking at; `ids` go into the satellite fields.
Bytes Legacy(unsigned int number, std::uint32_t time, bool more, const std::vector<int> &ids, int channel = 7,
             int station = 7)
{
    const bool glonass = number > 1008;
    Bit_Writer bits;
    bits.Put(12, number).Put(12, station).Put(glonass ? 27 : 30, time).Put(1, more);
    bits.Put(5, static_cast<std::int64_t>(ids.size())).Put(4, 0);
    for (const int id : ids) {
        bits.Put(6, id).Put(1, 0);
        if (glonass) bits.Put(5, channel);
        bits.Put(glonass ? 25 : 24, 5'000'000).Put(20, -100'000).Put(7, 60).Put(glonass ? 7 : 8, 70).Put(8, 180);
        if (number % 4 == 0) bits.Put(2, 3).Put(14, -8191).Put(20, 524'287).Put(7, 127).Put(8, 0);
    }
    return bits.Done();
}

Bit_Writer Msm_Header(unsigned int number, std::uint32_t time, bool more)
{
    Bit_Writer bits;
    bits.Put(12, number).Put(12, 7);
    if (number / 10 == 108)
        bits.Put(3, time / 86'400'000).Put(27, time % 86'400'000);
    else
        bits.Put(30, time);
    return bits.Put(1, more).Put(18, 0);
}

// The same observations as a lower MSM, or of another system; MSM7 in, MSM4 to MSM7 out.
Bytes Say_Again(const Bytes &msm7, unsigned int number)
{
    const unsigned int kind = number % 10;
    Bit_Reader in(msm7);
    Bit_Writer out;
    in.Skip(12);
    out.Put(12, number);
    const auto copy = [&](unsigned int n) {
        const auto value = in.Unsigned(n);
        out.Put(n, static_cast<std::int64_t>(value));
        return value;
    };
    const auto drop = [&](std::size_t count, unsigned int n) {
        for (std::size_t i = 0; i < count; ++i) in.Skip(n);
    };
    const auto each = [&](std::size_t count, unsigned int from, unsigned int to, unsigned int shift) {
        for (std::size_t i = 0; i < count; ++i) {
            const std::int64_t value = in.Signed(from), least = -(std::int64_t{1} << (from - 1));
            out.Put(to, value == least ? -(std::int64_t{1} << (to - 1)) : value >> shift);
        }
    };
    for (const unsigned int n : {12u, 30u, 19u}) copy(n);
    const auto satellites = static_cast<std::size_t>(std::popcount(copy(32)) + std::popcount(copy(32)));
    const auto mask = satellites * static_cast<std::size_t>(std::popcount(copy(32)));
    std::size_t cells = 0;
    for (std::size_t i = 0; i < mask; ++i) cells += static_cast<std::size_t>(copy(1));
    each(satellites, 8, 8, 0);
    if (kind % 2 == 1)
        each(satellites, 4, 4, 0);
    else
        drop(satellites, 4);
    each(satellites, 10, 10, 0);
    if (kind % 2 == 1)
        each(satellites, 14, 14, 0);
    else
        drop(satellites, 14);
    each(cells, 20, kind < 6 ? 15 : 20, kind < 6 ? 5 : 0);
    each(cells, 24, kind < 6 ? 22 : 24, kind < 6 ? 2 : 0);
    for (std::size_t i = 0; i < cells; ++i) {
        const auto lock = static_cast<std::int64_t>(in.Unsigned(10));
        out.Put(kind < 6 ? 4 : 10, kind < 6 ? lock / 64 : lock);
    }
    for (std::size_t i = 0; i < cells; ++i) copy(1);
    for (std::size_t i = 0; i < cells; ++i) {
        const auto cn0 = static_cast<std::int64_t>(in.Unsigned(10));
        out.Put(kind < 6 ? 6 : 10, kind < 6 ? cn0 / 16 : cn0);
    }
    if (kind % 2 == 1) each(cells, 15, 15, 0);
    EXPECT_FALSE(in.Failed());
    return out.Done();
}

Rtcm3_Observations Decoded(const Bytes &payload)
{
    Rtcm3_Observations observations;
    EXPECT_EQ(Decode(payload, observations), Rtcm3_Fault::none) << Number(payload);
    return observations;
}

// Both have a value within `most` below one another (lower MSM cut off), or neither has.
void Expect_Cut(double got, double whole, double most)
{
    ASSERT_EQ(Has_Value(got), Has_Value(whole));
    if (!Has_Value(got)) return;
    ASSERT_LE(got, whole + 1e-7);
    ASSERT_GT(got, whole - most);
}

// An assembler, and what it hands on: "week tow satellites", with + for a complete epoch and < for one that goes back.
class Heard {
public:
    explicit Heard(const Rtcm3_Options &options = {}) : assembler_([this](const Rtcm3_Epoch &e) { Hear(e); }, options)
    {
    }

    // A message of satellites with one cell each.
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
    // An MSM4 with one signal of satellite 1.
    Heard &Msm(unsigned int number, std::uint32_t time, bool more)
    {
        Bit_Writer bits = Msm_Header(number, time, more);
        bits.Put(32, std::int64_t{1} << 31).Put(32, 0).Put(32, std::int64_t{1} << 30).Put(1, 1);
        return Say(bits.Put(8, 70).Put(10, 0).Put(15, 0).Put(22, 0).Put(4, 0).Put(1, 0).Put(6, 40).Done());
    }
    Heard &Ephemeris(int week, int toe)
    {
        Rtcm3_Gps_Ephemeris ephemeris;
        ephemeris.prn = 1;
        ephemeris.week = static_cast<std::uint16_t>(week % 1024);
        ephemeris.toe = toe;
        assembler_.Take(ephemeris);
        return *this;
    }
    Heard &Take(const Rtcm3_Message &message)
    {
        assembler_.Take(message);
        return *this;
    }
    const Fields &Finish()
    {
        assembler_.Finish();
        return epochs_;
    }
    const Rtcm3_Epoch_Assembler::Counters &Count() const { return assembler_.Count(); }

private:
    void Hear(const Rtcm3_Epoch &epoch)
    {
        std::string text = (epoch.week ? std::to_string(*epoch.week) : "-") + ' ' + std::to_string(epoch.tow);
        for (const Rtcm3_Cell &cell : epoch.cells) text += ' ' + Name_Of(epoch.satellites[cell.satellite]);
        if (epoch.complete) text += '+';
        if (epoch.went_back) text += '<';
        epochs_.push_back(text);
    }

    Rtcm3_Epoch_Assembler assembler_;
    Fields epochs_;
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
        Bit_Reader reader(bytes), with_sign(bytes), with_magnitude(bytes);
        for (std::size_t at = 0;;) {
            const auto n = static_cast<unsigned int>(1 + random() % 57);
            const std::uint64_t value = reader.Unsigned(n);
            const std::int64_t negative = with_sign.Signed(n), glonass = with_magnitude.Sign_Magnitude(n);
            if (at + n > digits.size()) {
                ASSERT_TRUE(reader.Failed() && with_sign.Failed() && with_magnitude.Failed());
                ASSERT_EQ(value, 0u);
                ASSERT_EQ(reader.Unsigned(0), 0u);
                ASSERT_EQ(reader.Left(), 0u);
                break;
            }
            const std::string field = digits.substr(at, n);
            const auto naive = static_cast<std::int64_t>(std::stoull(field, nullptr, 2));
            const std::int64_t top = std::int64_t{1} << (n - 1);
            ASSERT_EQ(value, static_cast<std::uint64_t>(naive));
            ASSERT_EQ(negative, naive >= top ? naive - 2 * top : naive);
            ASSERT_EQ(glonass, naive >= top ? top - naive : naive);
            at += n;
            ASSERT_EQ(reader.Left(), digits.size() - at);
        }
    }
}

TEST(Rtcm3_Messages, of_a_receiver_agree_with_the_table)
{
    Rtcm3_Options options = week_1709;
    options.beidou_in_gps_time = true;
    const auto epochs = Epochs(Payloads("GMSD7_20121014.rtcm3"), options);
    ASSERT_EQ(epochs.size(), 257u);
    for (std::size_t i = 0; i < epochs.size(); ++i) {
        const std::int64_t second = std::int64_t{1709} * 604800 + 604784 + static_cast<std::int64_t>(i);
        EXPECT_EQ(std::int64_t{*epochs[i].head.week} * 604800 + epochs[i].head.tow / 1000, second);
        EXPECT_TRUE(epochs[i].head.complete && !epochs[i].head.went_back);
    }

    const auto table = Cell_Table("gmsd7_cells.csv");
    const Comparison result = Compare(epochs, table, true);
    result.Report("gmsd7");
    EXPECT_EQ(result.cells, table.size());
    EXPECT_EQ(result.cells, 12'992u);
    EXPECT_EQ(result.without, 0u);
    EXPECT_LT(result.pseudorange.difference, 5.1e-6);  // the table has five digits, Doppler four
    EXPECT_LT(result.phase.difference, 5.1e-6);
    EXPECT_LT(result.doppler.difference, 5.1e-5);
    EXPECT_EQ(result.cn0.difference, 0);
    EXPECT_EQ(result.lock.difference, 0);
    EXPECT_EQ(result.half.difference, 0);
    EXPECT_EQ(result.channel.difference, 0);
}

TEST(Rtcm3_Messages, of_the_legacy_kind_agree_with_the_table)
{
    const auto epochs = Epochs(Payloads("day30_first1000.rtcm3"), {});
    const auto table = Cell_Table("day30_cells.csv");
    const Comparison result = Compare(epochs, table, false);
    result.Report("day30");
    EXPECT_EQ(result.cells, table.size());
    EXPECT_GT(result.cells, 3'000u);
    EXPECT_EQ(result.without, 0u);
    EXPECT_LT(result.pseudorange.difference, 1e-7);  // exact to the millimetre
    EXPECT_LT(result.phase.difference, 5.1e-6);      // the table has five digits
    EXPECT_EQ(result.cn0.difference, 0);
    EXPECT_EQ(result.lock.difference, 0);
    EXPECT_EQ(result.channel.difference, 0);
    for (const Epoch &epoch : epochs)
        EXPECT_TRUE(epoch.head.complete && !epoch.head.went_back && epoch.head.week == 1712);
}

TEST(Rtcm3_Messages, with_ephemerides_agree_with_the_tables)
{
    EXPECT_EQ(Compare_Ephemerides<Rtcm3_Gps_Ephemeris>("gmsd7_eph_gps.csv", "GMSD7_20121014.rtcm3"), 10u);
    EXPECT_EQ(Compare_Ephemerides<Rtcm3_Glonass_Ephemeris>("gmsd7_eph_glonass.csv", "GMSD7_20121014.rtcm3"), 11u);
    EXPECT_GT(Compare_Ephemerides<Rtcm3_Gps_Ephemeris>("day30_eph_gps.csv", "day30_first1000.rtcm3"), 20u);
    EXPECT_GT(Compare_Ephemerides<Rtcm3_Glonass_Ephemeris>("day30_eph_glonass.csv", "day30_first1000.rtcm3"), 20u);
}

// What a bit error or a lost piece spoils hardly gets through the CRC; but a sender may have made it wrong.
TEST(Rtcm3_Messages, that_are_cut_or_wrong_are_refused_and_deliver_nothing)
{
    std::map<unsigned int, Bytes> samples;
    for (const std::string recording : {"GMSD7_20121014.rtcm3", "day30_first1000.rtcm3"})
        for (const Bytes &payload : Payloads(recording)) samples.emplace(Number(payload), payload);
    for (const auto &[number, msm7] :
         {std::pair{1074u, 1077u}, {1085u, 1087u}, {1096u, 1077u}, {1116u, 1117u}, {1124u, 1127u}})
        samples[number] = Say_Again(samples[msm7], number);
    samples[1002] = Legacy(1002, 0, false, {1, 2});
    samples[1010] = Legacy(1010, 0, false, {1, 2});
    samples[1013] =
        Bit_Writer().Put(12, 1013).Put(12, 7).Put(16, 56213).Put(17, 86400).Put(5, 1).Put(8, 16).Put(29, 0).Done();
    ASSERT_EQ(samples.size(), 20u);
    for (const auto &[number, payload] : samples) {
        SCOPED_TRACE(number);
        Rtcm3_Message_Decoder decoder;
        Bytes longer = payload;
        longer.push_back(0xFF);
        EXPECT_TRUE(decoder.Decode(payload) && decoder.Decode(longer));
        for (std::size_t size = 2; size < payload.size(); ++size) {
            const Bytes cut(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(size));
            ASSERT_EQ(decoder.Decode(cut), nullptr) << size;
            ASSERT_EQ(decoder.Last_Fault(), Rtcm3_Fault::too_short) << size;
            Rtcm3_Observations observations;
            ASSERT_NE(Decode(cut, observations), Rtcm3_Fault::none);
            ASSERT_TRUE(observations.satellites().empty() && observations.cells().empty());
        }
        EXPECT_EQ(decoder.Count(Rtcm3_Fault::none), 2u);
        EXPECT_EQ(decoder.Count(Rtcm3_Fault::too_short), payload.size() - 2);
        for (std::size_t bit = 12; bit < payload.size() * 8; ++bit) {  // a wrong one: anything, but all or nothing
            Bytes wrong = payload;
            wrong[bit / 8] = static_cast<unsigned char>(wrong[bit / 8] ^ 0x80 >> bit % 8);
            Rtcm3_Observations observations;
            if (Decode(wrong, observations) == Rtcm3_Fault::none) continue;
            ASSERT_TRUE(observations.satellites().empty() && observations.cells().empty());
        }
    }
}

TEST(Rtcm3_Messages, that_cannot_be_are_refused_with_the_reason)
{
    using enum Rtcm3_Fault;
    const Bytes station = Bit_Writer().Put(12, 1005).Put(12, 1).Put(32, 0).Put(32, 0).Put(32, 0).Put(32, 0).Done();
    const auto masks = [](unsigned int number, std::int64_t high, std::int64_t low, std::int64_t signals) {
        Bit_Writer bits = Msm_Header(number, 0, false);
        bits.Put(32, high).Put(32, low).Put(32, signals);
        for (int i = 0; i < 900; ++i) bits.Put(8, 0);
        return bits.Done();
    };
    const auto ephemeris = [](int prn, int toc) {
        Bit_Writer bits;
        bits.Put(12, 1019).Put(6, prn).Put(10, 685).Put(4, 0).Put(2, 1).Put(14, 0).Put(8, 0).Put(16, toc);
        for (int i = 0; i < 60; ++i) bits.Put(8, 0);
        return bits.Done();
    };
    const auto glonass = [](int slot, int channel, int tb) {
        Bit_Writer bits;
        bits.Put(12, 1020).Put(6, slot).Put(5, channel).Put(4, 0).Put(12, 0).Put(2, 0).Put(7, tb);
        for (int i = 0; i < 50; ++i) bits.Put(8, 0);
        return bits.Done();
    };
    const struct {
        const char *what;
        Bytes payload;
        Rtcm3_Fault fault;
    } cases[] = {
        {"nothing", {}, unsupported},
        {"MSM3", Msm_Header(1073, 0, false).Done(), unsupported},
        {"a station", station, none},
        {"no satellites", Legacy(1004, 604'799'999, false, {}), none},
        {"the end of the week", Legacy(1004, 604'800'000, false, {1}), bad_time},
        {"a leap second", Legacy(1012, 86'400'999, false, {1}), none},
        {"behind a leap second", Legacy(1012, 86'401'000, false, {1}), bad_time},
        {"GPS, the last", Legacy(1002, 0, false, {32, 40, 58}), none},
        {"GPS 0", Legacy(1002, 0, false, {1, 0}), bad_satellite},
        {"GPS 33", Legacy(1004, 0, false, {33}), bad_satellite},
        {"SBAS 139", Legacy(1004, 0, false, {59}), bad_satellite},
        {"GLONASS, slots unknown", Legacy(1010, 0, false, {0, 0, 24}), none},
        {"GLONASS 25", Legacy(1012, 0, false, {25}), bad_satellite},
        {"GLONASS channel 14", Legacy(1012, 0, false, {1}, 21), bad_channel},
        {"twice", Legacy(1004, 0, false, {3, 4, 3}), repeated_satellite},
        {"MSM time", Msm_Header(1097, 604'800'000, false).Put(32, 0).Put(32, 0).Put(32, 0).Done(), bad_time},
        {"MSM, GLONASS time", Bit_Writer().Put(12, 1087).Put(12, 0).Put(3, 0).Put(27, 86'401'000).Done(), bad_time},
        {"MSM without satellites", masks(1077, 0, 0, 0), none},
        {"MSM of 64 cells", masks(1077, -1, 0, 3), none},
        {"MSM of 66 cells", masks(1127, -1, std::int64_t{1} << 31, 3), too_many_cells},
        {"MSM, everything", masks(1127, -1, -1, -1), too_many_cells},
        {"MSM, GPS 33", masks(1074, 0, std::int64_t{1} << 31, 1), bad_satellite},
        {"MSM, GLONASS 25", masks(1084, 1 << 7, 0, 1), bad_satellite},
        {"MSM, BeiDou 63", masks(1124, 0, 2, 1), none},
        {"MSM, BeiDou 64", masks(1124, 0, 1, 1), bad_satellite},
        {"ephemeris", ephemeris(32, 37'799), none},
        {"ephemeris of 0", ephemeris(0, 0), bad_satellite},
        {"ephemeris of 33", ephemeris(33, 0), bad_satellite},
        {"ephemeris of no week", ephemeris(1, 37'800), bad_time},
        {"GLONASS ephemeris", glonass(24, 20, 95), none},
        {"GLONASS ephemeris of 0", glonass(0, 1, 0), bad_satellite},
        {"GLONASS ephemeris, channel", glonass(1, 21, 0), bad_channel},
        {"GLONASS ephemeris of no day", glonass(1, 1, 96), bad_time},
        {"text", Bit_Writer().Put(12, 1007).Put(12, 1).Text(std::string(31, 'x')).Put(8, 0).Done(), none},
        {"long text", Bit_Writer().Put(12, 1007).Put(12, 1).Text(std::string(32, 'x')).Put(8, 0).Done(), bad_text},
    };
    Rtcm3_Message_Decoder decoder;
    for (const auto &c : cases) {
        const Rtcm3_Message *message = decoder.Decode(c.payload);
        EXPECT_STREQ(Rtcm3_Fault_Name(decoder.Last_Fault()), Rtcm3_Fault_Name(c.fault)) << c.what;
        EXPECT_EQ(message != nullptr, c.fault == none) << c.what;
    }
    Rtcm3_Station kept;
    kept.x = 5;
    EXPECT_EQ(Decode(std::span(station).first(18), kept), too_short);
    EXPECT_EQ(kept.x, 5);
}

TEST(Rtcm3_Messages, of_the_lower_msm_say_the_same_less_finely)
{
    const double light_ms = speed_of_light / 1000;
    const auto unit = [](int n) { return std::ldexp(1.0, -n); };
    int compared = 0;
    for (const Bytes &payload : Payloads("GMSD7_20121014.rtcm3")) {
        if (Number(payload) % 10 != 7 || Number(payload) < 1077) continue;
        const Rtcm3_Observations whole = Decoded(payload);
        for (unsigned int lower = 1; lower <= 3; ++lower) {
            const Rtcm3_Observations cut = Decoded(Say_Again(payload, Number(payload) - lower));
            const bool fine = lower == 1, rates = lower == 2;
            ASSERT_EQ(cut.cell_count, whole.cell_count);
            for (std::size_t i = 0; i < cut.cell_count; ++i) {
                const Rtcm3_Cell &a = cut.cell_table[i], &b = whole.cell_table[i];
                ASSERT_TRUE(a.code == b.code && a.satellite == b.satellite && a.half_cycle == b.half_cycle);
                Expect_Cut(a.pseudorange, b.pseudorange, fine ? 1e-7 : light_ms * unit(24));
                Expect_Cut(a.phase_range, b.phase_range, fine ? 1e-7 : light_ms * unit(29));
                Expect_Cut(a.cn0, b.cn0, fine ? 1e-9 : 1);
                ASSERT_EQ(a.lock_indicator, fine ? b.lock_indicator : b.lock_indicator / 64);
                if (rates)
                    Expect_Cut(a.range_rate, b.range_rate, 1e-9);
                else
                    ASSERT_FALSE(Has_Value(a.range_rate));
                ASSERT_EQ(Has_Value(a.frequency), whole.gnss != Gnss::glonass || rates);
                ++compared;
            }
        }
    }
    EXPECT_GT(compared, 50'000);
}

TEST(Rtcm3_Messages, name_the_signals_of_each_system)
{
    const struct {
        unsigned int number;
        const char *satellite;
        int mask_bit;
        const char *code;
        double frequency;
    } cases[] = {
        {1077, "G1", 2, "1C", 1575.42e6},   {1077, "G1", 10, "2W", 1227.60e6},  {1074, "G1", 24, "5X", 1176.45e6},
        {1097, "E1", 5, "1X", 1575.42e6},   {1094, "E1", 14, "7I", 1207.14e6},  {1095, "E1", 20, "8X", 1191.795e6},
        {1096, "E1", 8, "6C", 1278.75e6},   {1097, "E1", 22, "5I", 1176.45e6},  {1117, "J193", 31, "1L", 1575.42e6},
        {1117, "J193", 9, "6S", 1278.75e6}, {1127, "C1", 2, "2I", 1561.098e6},  {1124, "C1", 8, "6I", 1268.52e6},
        {1124, "C1", 25, "7D", 1207.14e6},  {1127, "C1", 32, "1X", 1575.42e6},  {1084, "R1", 9, "2P", no_value},
        {1087, "R1", 3, "1P", 1602.5625e6}, {1085, "R1", 8, "2C", 1246.4375e6}, {1077, "G1", 1, "", no_value},
        {1094, "E1", 32, "", no_value},
    };
    for (const auto &c : cases) {
        Bit_Writer bits = Msm_Header(c.number, 0, false);
        bits.Put(32, std::int64_t{1} << 31).Put(32, 0).Put(32, std::int64_t{1} << (32 - c.mask_bit));
        bits.Put(1, 1).Put(8, 70);
        if (c.number % 2 == 1) bits.Put(4, 8);  // GLONASS channel 1
        for (int i = 0; i < 20; ++i) bits.Put(8, 0);
        const Rtcm3_Observations observations = Decoded(bits.Done());
        ASSERT_EQ(observations.cell_count, 1u);
        const Rtcm3_Cell &cell = observations.cell_table[0];
        EXPECT_EQ(Name_Of(observations.satellite_table[0]), c.satellite);
        EXPECT_EQ(cell.code ? std::string({cell.code.band, cell.code.attribute}) : "", c.code) << c.number;
        EXPECT_EQ(cell.msm_signal, c.mask_bit);
        EXPECT_EQ(Has_Value(cell.frequency), Has_Value(c.frequency)) << c.number << ' ' << c.code;
        if (Has_Value(c.frequency)) {
            EXPECT_EQ(cell.frequency, c.frequency) << c.number << ' ' << c.code;
        }
    }
}

// One field at a time has the value that stands for none.
TEST(Rtcm3_Messages, have_no_value_where_the_sender_had_none)
{
    const auto msm7 = [](int rough, int rough_rate, int code, int phase, int rate, int cn0) {
        Bit_Writer bits = Msm_Header(1077, 0, false);
        bits.Put(32, 1).Put(32, 0).Put(32, 1).Put(1, 1).Put(8, rough).Put(4, 0).Put(10, 512).Put(14, rough_rate);
        return Decoded(bits.Put(20, code).Put(24, phase).Put(10, 704).Put(1, 1).Put(10, cn0).Put(15, rate).Done());
    };
    const struct {
        Rtcm3_Observations observations;
        const char *there;
    } cases[] = {
        {msm7(70, 100, 1, 1, 1, 1), "PLDC"},         {msm7(255, 100, 1, 1, 1, 1), "DC"},
        {msm7(70, -8192, 1, 1, 1, 1), "PLC"},        {msm7(70, 100, -524'288, 1, 1, 1), "LDC"},
        {msm7(70, 100, 1, -8'388'608, 1, 1), "PDC"}, {msm7(70, 100, 1, 1, -16'384, 1), "PLC"},
        {msm7(70, 100, 1, 1, 1, 0), "PLD"},
    };
    for (const auto &c : cases) {
        const Rtcm3_Cell &cell = c.observations.cell_table[0];
        std::string there;
        if (Has_Value(cell.pseudorange)) there += 'P';
        if (Has_Value(cell.phase_range)) there += 'L';
        if (Has_Value(cell.range_rate)) there += 'D';
        if (Has_Value(cell.cn0)) there += 'C';
        EXPECT_EQ(there, c.there);
        EXPECT_EQ(cell.lock_time, 67'108'864);
    }

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
    EXPECT_FALSE(Has_Value(cells[0].pseudorange) || Has_Value(cells[0].phase_range) || Has_Value(cells[0].cn0));
    EXPECT_EQ(cells[0].code, (Signal_Code{'1', 'P'}));
    EXPECT_EQ(cells[1].code, (Signal_Code{'2', 'D'}));
    EXPECT_EQ(cells[1].cn0, 40);
    EXPECT_NEAR(cells[1].pseudorange, 299'792.458, 1e-9);
    EXPECT_FALSE(Has_Value(cells[1].phase_range));
    EXPECT_EQ(cells[2].satellite, 1);
    EXPECT_NEAR(cells[2].phase_range, 299'794.458, 1e-9);
}

TEST(Rtcm3_Messages, of_one_frequency_have_the_first_half_of_the_fields)
{
    const struct {
        unsigned int number;
        double pseudorange;  // [m]
    } cases[] = {{1002, 100'000 + 70 * 299'792.458}, {1010, 100'000 + 70 * 599'584.916}};
    for (const auto &c : cases) {
        const Rtcm3_Observations one = Decoded(Legacy(c.number, 1000, true, {3, 9}));
        const Rtcm3_Observations two = Decoded(Legacy(c.number + 2, 1000, true, {3, 9}));
        ASSERT_EQ(one.cell_count, 2u);
        ASSERT_EQ(two.cell_count, 4u);
        EXPECT_TRUE(one.more_follows && one.station == 7 && one.time == 1000);
        const Rtcm3_Cell &a = one.cell_table[1], &b = two.cell_table[2], &l2 = two.cell_table[3];
        EXPECT_EQ(one.satellite_table[1].number, 9);
        EXPECT_NEAR(a.pseudorange, c.pseudorange, 1e-7);
        EXPECT_NEAR(a.phase_range, c.pseudorange - 50, 1e-7);
        EXPECT_EQ(a.lock_time, 120'000);
        EXPECT_EQ(a.cn0, 45);
        EXPECT_EQ(a.pseudorange, b.pseudorange);
        EXPECT_NEAR(l2.pseudorange, c.pseudorange - 163.82, 1e-7);
        EXPECT_NEAR(l2.phase_range, c.pseudorange + 262.1435, 1e-7);
        EXPECT_FALSE(Has_Value(l2.cn0));
    }
}

TEST(Rtcm3_Messages, of_the_station_tell_where_it_is_and_what_stands_there)
{
    Rtcm3_Station station;
    for (const Bytes &payload : Payloads("day30_first1000.rtcm3")) Decode(payload, station);
    EXPECT_EQ(station.message, 1006);
    EXPECT_NEAR(station.x, -3607665.5418, 1e-6);  // GMSD, IGS SINEX of week 2131
    EXPECT_NEAR(station.y, 4147867.8786, 1e-6);
    EXPECT_NEAR(station.z, 3223716.9177, 1e-6);
    EXPECT_EQ(station.antenna_height, 0);

    const Bytes made = Bit_Writer()
                           .Put(12, 1005)
                           .Put(12, 4095)
                           .Put(6, 5)
                           .Put(4, 0b1010)
                           .Put(38, -1)
                           .Put(2, 2)
                           .Put(38, std::int64_t{1} << 36)
                           .Put(2, 2)
                           .Put(38, -(std::int64_t{1} << 37))
                           .Done();
    ASSERT_EQ(Decode(made, station), Rtcm3_Fault::none);
    EXPECT_EQ(station.station, 4095);
    EXPECT_TRUE(station.gps && !station.glonass && station.galileo && !station.virtual_station);
    EXPECT_TRUE(station.single_oscillator);
    EXPECT_EQ(station.quarter_cycle, 2);
    EXPECT_NEAR(station.x, -0.0001, 1e-12);
    EXPECT_NEAR(station.y, 6871947.6736, 1e-6);
    EXPECT_NEAR(station.z, -13743895.3472, 1e-6);
    EXPECT_FALSE(Has_Value(station.antenna_height));

    const struct {
        unsigned int number;
        Fields texts;  // antenna, its serial, receiver, firmware, its serial
    } cases[] = {{1007, {"ANT  NONE", "", "", "", ""}},
                 {1008, {"ANT  NONE", "12", "", "", ""}},
                 {1033, {"ANT  NONE", "", "RECEIVER", "1.2.3", "4711"}}};
    for (const auto &c : cases) {
        Bit_Writer bits;
        bits.Put(12, c.number).Put(12, 9).Text(c.texts[0]).Put(8, 3);
        for (std::size_t i = 1; i < (c.number == 1007 ? 1u : c.number == 1008 ? 2u : 5u); ++i) bits.Text(c.texts[i]);
        Rtcm3_Equipment e;
        ASSERT_EQ(Decode(bits.Done(), e), Rtcm3_Fault::none);
        const Fields texts = {std::string(e.antenna.View()), std::string(e.antenna_serial.View()),
                              std::string(e.receiver.View()), std::string(e.firmware.View()),
                              std::string(e.receiver_serial.View())};
        EXPECT_EQ(texts, c.texts);
        EXPECT_TRUE(e.setup == 3 && e.station == 9);
    }
}

TEST(Rtcm3_Messages, scales_of_week_and_lock)
{
    const std::vector<std::tuple<unsigned int, int, int>> weeks = {
        {685, 1700, 1709}, {685, 2200, 1709}, {685, 2300, 2733}, {1023, 1024, 1023}, {0, 1023, 1024}, {0, 0, 0}};
    for (const auto &[bits, near, week] : weeks) EXPECT_EQ(Full_Week(bits, near), week);
    const std::vector<std::pair<unsigned int, int>> legacy = {{0, 0},    {23, 23},   {24, 24},   {47, 70},
                                                              {48, 72},  {71, 164},  {72, 168},  {95, 352},
                                                              {96, 360}, {119, 728}, {120, 744}, {127, 937}};
    for (const auto &[indicator, seconds] : legacy) EXPECT_EQ(Legacy_Lock_Time(indicator), seconds * 1000);
    const std::vector<std::pair<unsigned int, int>> long_msm = {
        {63, 63},   {64, 64},        {95, 126},       {96, 128},       {127, 252},
        {128, 256}, {672, 33554432}, {703, 66060288}, {704, 67108864}, {705, 0}};
    for (const auto &[indicator, ms] : long_msm) EXPECT_EQ(Msm_Long_Lock_Time(indicator), ms);
    const std::vector<std::pair<unsigned int, int>> msm = {{0, 0}, {1, 32}, {2, 64}, {15, 524288}};
    for (const auto &[indicator, ms] : msm) EXPECT_EQ(Msm_Lock_Time(indicator), ms);
}

TEST(Rtcm3_Epoch, ends_with_its_last_message_or_with_another_time)
{
    Heard heard(week_1709);
    heard.Say(1004, 1000, true, {1, 2}).Say(1012, 10'785'000, false, {3});
    heard.Say(1002, 2000, true, {1});                               // the last message is lost
    heard.Say(1002, 3000, false, {1}).Say(1002, 3000, false, {1});  // sent twice
    heard.Say(1002, 3000, false, {1, 4});                           // and something new of the same time
    heard.Say(1002, 4000, true, {1}).Say(1002, 4000, true, {1});
    heard.Say(1002, 5000, true, {1}).Say(1004, 5000, true, {1}).Msm(1074, 5000, false);  // L1 C/A thrice, L2 once
    heard.Say(Legacy(1010, 10'790'000, true, {0}, 3)).Say(Legacy(1010, 10'790'000, true, {0}, 4));  // slots unknown
    heard.Say(Legacy(1002, 6000, false, {1}, 0, 8));                                                // another station
    EXPECT_EQ(heard.Finish(), (Fields{"1709 1000 G1 G1 G2 G2 R3 R3+", "1709 2000 G1", "1709 3000 G1+", "1709 3000 G4+",
                                      "1709 4000 G1", "1709 5000 G1 G1+", "1709 6000 R0 R0", "1709 6000 G1+"}));
    EXPECT_EQ(heard.Count().epochs, 8u);
    EXPECT_EQ(heard.Count().incomplete, 3u);
    EXPECT_EQ(heard.Count().repeated_cells, 5u);
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
              (Fields{"- 604700000 G1+", "- 604798000 G1+", "1709 604799000 G1+", "1710 0 G1+", "1710 1000 G1+",
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
    EXPECT_EQ(followed.Finish(), (Fields{"1709 75615000 G1 R2+", "1709 75616000 G1 R2+", "1709 75614000 R2+<"}));

    Heard alone;
    alone.Say(1010, 0, false, {2});
    EXPECT_TRUE(alone.Finish().empty());
    EXPECT_EQ(alone.Count().undated, 1u);

    // Sunday 03:00 of GLONASS is Sunday 00:00 UTC; Sunday 00:00 is in the week before.
    const auto msm = [](std::uint32_t time, const Rtcm3_Options &options) {
        return Heard(options).Msm(1084, time, false).Finish();
    };
    EXPECT_EQ(msm(10'800'000, {.start_week = 1710}), Fields{"1710 16000 R1+"});
    EXPECT_EQ(msm(10'800'000, {.start_week = 2200}), Fields{"2200 18000 R1+"});
    EXPECT_EQ(msm(10'800'000, {.leap_seconds = 17}), Fields{"- 17000 R1+"});
    EXPECT_EQ(msm(0, {.leap_seconds = 17}), Fields{"- 594017000 R1+"});
    EXPECT_TRUE(msm(0, {}).empty());
    Rtcm3_System_Parameters parameters;
    parameters.leap_seconds = 15;
    EXPECT_EQ(Heard().Take(parameters).Msm(1084, 10'800'000, false).Finish(), Fields{"- 15000 R1+"});
    // Said to belong to an epoch whose time is known, it tells the leap seconds itself.
    EXPECT_EQ(Heard().Say(1002, 5000, true, {1}).Msm(1084, 10'789'000, false).Finish(), Fields{"- 5000 G1 R1+"});
    EXPECT_EQ(Heard().Say(1002, 5000, true, {1}).Msm(1084, 10'789'500, false).Count().undated, 1u);

    // 30 June 2012 23:59:60 UTC is second 15 of week 1695; before it there are 15 leap seconds, then 16.
    Heard leap({.start_week = 1695});
    leap.Say(1002, 14'000, true, {1}).Say(1010, 10'799'000, false, {2});
    leap.Say(1002, 16'000, true, {1}).Say(1010, 10'800'000, false, {2});
    EXPECT_EQ(leap.Finish(), (Fields{"1695 14000 G1 R2+", "1695 16000 G1 R2+"}));
}

TEST(Rtcm3_Epoch, takes_beidou_time_as_told)
{
    const auto heard = [](bool gps_time) {
        Rtcm3_Options options = week_1709;
        options.beidou_in_gps_time = gps_time;
        return Heard(options).Msm(1077 - 3, 604'790'000, true).Msm(1124, 604'790'000, false).Finish();
    };
    EXPECT_EQ(heard(true), Fields{"1709 604790000 G1 C1+"});
    EXPECT_EQ(heard(false), (Fields{"1709 604790000 G1", "1710 4000 C1+"}));
}

TEST(Rtcm3_Epoch, knows_glonass_channels_from_before)
{
    std::vector<double> frequencies;
    Rtcm3_Epoch_Assembler assembler([&](const Rtcm3_Epoch &e) { frequencies.push_back(e.cells[0].frequency); },
                                    {.leap_seconds = 16});
    Rtcm3_Observations msm4;
    msm4.gnss = Gnss::glonass;
    msm4.glonass_day = std::uint8_t{0};
    msm4.satellite_count = msm4.cell_count = 1;
    msm4.satellite_table[0] = {Gnss::glonass, 5, {}};
    msm4.cell_table[0].code = {'1', 'C'};
    assembler.Take(msm4);
    Rtcm3_Glonass_Ephemeris ephemeris;
    ephemeris.slot = 5;
    ephemeris.channel = -2;
    assembler.Take(ephemeris);
    msm4.time = 1000;
    assembler.Take(msm4);
    ASSERT_EQ(frequencies.size(), 2u);
    EXPECT_FALSE(Has_Value(frequencies[0]));
    EXPECT_EQ(frequencies[1], 1600.875e6);
}

// Of a stream with damaged, cut and repeated frames, each epoch is one of the undamaged stream, or a part of it.
TEST(Rtcm3_Epoch, is_never_a_false_one)
{
    const auto clean = Epochs(Payloads("day30_first1000.rtcm3"), {});
    std::map<Key, Wanted> cells;
    for (const Epoch &epoch : clean) {
        for (const Rtcm3_Cell &cell : epoch.cells) {
            const Key key{1712, epoch.head.tow, Name_Of(epoch.satellites[cell.satellite]), {cell.code.band}};
            cells[key] = {cell.pseudorange, cell.Phase_Cycles(), no_value, cell.cn0, double(cell.lock_indicator), 0,
                          no_value};
        }
    }
    const auto dirty = Epochs(Payloads("day30_dirty4h.rtcm3"), {.start_week = 1712});
    std::set<std::int32_t> times;
    std::int32_t before = 0;
    for (const Epoch &epoch : dirty) {
        EXPECT_EQ(epoch.head.tow % 30'000, 0);
        EXPECT_GT(epoch.head.tow, before);  // so none comes twice or goes back
        EXPECT_TRUE(epoch.head.tow >= 259'200'000 && epoch.head.tow < 259'200'000 + 4 * 3'600'000);
        EXPECT_EQ(epoch.head.week, 1712);
        before = epoch.head.tow;
    }
    EXPECT_GT(dirty.size(), 400u);
    const Comparison result = Compare(dirty, cells, false);
    result.Report("dirty");
    EXPECT_EQ(result.without, 0u);
    EXPECT_GT(result.cells, cells.size() / 2);
    EXPECT_EQ(result.pseudorange.difference, 0);
    EXPECT_EQ(result.phase.difference, 0);
    EXPECT_EQ(result.cn0.difference, 0);
    EXPECT_EQ(result.lock.difference, 0);
}
