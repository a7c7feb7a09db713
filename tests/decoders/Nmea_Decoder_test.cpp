#include "host/decoders/Nmea_Decoder.h"

#include "host/decoders/Record_Client.h"
#include "kernel/bytes/String_Byte_Server.h"
#include "kernel/time/mTime.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <numbers>
#include <vector>

using namespace host;
using namespace kernel;

namespace {

const std::string gga = "GNGGA,123519.50,4807.0380,N,01131.0000,W,4,08,0.9,545.40,M,46.90,M,1.0,0001";
const std::string rmc = "GPRMC,123519.50,A,4807.038,N,01131.000,W,022.4,084.4,230394,003.1,W";

std::string Sentence(const std::string &body)
{
    unsigned char sum = 0;
    for (const char c : body) sum = static_cast<unsigned char>(sum ^ static_cast<unsigned char>(c));
    char end[8];
    std::snprintf(end, sizeof end, "*%02X\r\n", sum);
    return '$' + body + end;
}

// The body with another field: the n-th, from 1.
std::string With(std::string body, int n, const std::string &field)
{
    std::size_t at = 0;
    for (; n > 0; --n) at = body.find(',', at) + 1;
    return body.replace(at, body.find(',', at) - at, field);
}

// A byte server, a decoder, and all records that came out; servers own decoder and clients.
class Chain {
public:
    explicit Chain(const Nmea_Options &options = {}) : decoder(new Nmea_Decoder(options))
    {
        decoder->Set_Error_Handler(&handler);
        server_->Connect(decoder);
        decoder->Positions().Connect(new Pos_Record_Client([this](auto record) { positions.push_back(*record); }));
        decoder->Times().Connect(new Obs_Record_Client([this](auto record) { times.push_back(*record); }));
    }
    Chain &Feed(const std::string &bytes)
    {
        server_->PutBin(reinterpret_cast<const unsigned char *>(bytes.data()), static_cast<unsigned int>(bytes.size()));
        server_->Work();
        return *this;
    }
    ~Chain() { String_Byte_Server::Destruct(server_); }

    Capturing_Handler handler;
    std::vector<Position> positions;
    std::vector<EPO_DATA> times;
    Nmea_Decoder *const decoder;

private:
    String_Byte_Server *const server_ = String_Byte_Server::Construct(&handler);
};

}  // namespace

TEST(Nmea_Scanner, finds_intact_sentences_however_the_stream_is_cut)
{
    const std::string longest(Nmea_Scanner::longest_body, 'x');
    const struct {
        std::string stream;
        std::vector<std::string> bodies;
        std::uint64_t refused;
    } rows[] = {
        {Sentence("A") + Sentence("B,1"), {"A", "B,1"}, 0},
        {"\x01*41\r\n" + Sentence("A") + "noise\r\n\r\n", {"A"}, 0},
        {"$A*41\n$A*4a\r$A*4f*41\n$A\n$A*411\n", {"A"}, 4},
        {"$GPG" + Sentence("A"), {"A"}, 1},  // cut short by the next one
        {"$A\x80*C1\n" + Sentence("A"), {"A"}, 1},
        {Sentence(longest) + Sentence(longest + "x"), {longest}, 1},
        {"$A*41", {"A"}, 0},  // only the line end is missing
        {"$A*4", {}, 1},
    };
    for (const auto &row : rows) {
        for (std::size_t piece = 1; piece <= row.stream.size(); piece += piece < 20 ? 1 : 97) {
            std::vector<std::string> bodies;
            Nmea_Scanner scanner([&](std::string_view body) { bodies.emplace_back(body); });
            for (std::size_t at = 0; at < row.stream.size(); at += piece) {
                const std::string part = row.stream.substr(at, piece);
                scanner.Feed({reinterpret_cast<const unsigned char *>(part.data()), part.size()});
            }
            scanner.Finish();
            EXPECT_EQ(bodies, row.bodies) << row.stream << " in pieces of " << piece;
            EXPECT_EQ(scanner.Count().refused, row.refused) << row.stream;
        }
    }
}

TEST(Nmea_Sentence, says_a_position_or_nothing)
{
    const auto fix = Read_Gga(gga);
    ASSERT_TRUE(fix);
    EXPECT_DOUBLE_EQ(fix->time_of_day, 45319.5);
    EXPECT_DOUBLE_EQ(fix->latitude, (48 + 7.038 / 60) * std::numbers::pi / 180);
    EXPECT_DOUBLE_EQ(fix->longitude, -(11 + 31.0 / 60) * std::numbers::pi / 180);
    EXPECT_DOUBLE_EQ(fix->height, 592.3);
    EXPECT_EQ(fix->quality, 4);
    EXPECT_EQ(fix->satellites, 8);
    EXPECT_EQ(fix->hdop, 0.9);
    EXPECT_EQ(Read_Gga(With(With(gga, 7, ""), 8, ""))->satellites, std::nullopt);
    const struct {
        int field;
        const char *value;
    } bad[] = {{0, "GPGLL"},  {0, "PXGGA"},    {0, "GGA"},         {1, "243519"}, {1, "12351"}, {1, "12-519"},
               {1, "1235a9"}, {2, "9000.001"}, {2, "4860.0"},      {2, "-4807"},  {2, "nan"},   {3, "E"},
               {3, ""},       {4, "18000.1"},  {4, "01131.0000x"}, {5, "N"},      {6, "0"},     {6, "9"},
               {6, ""},       {9, ""},         {9, "inf"},         {10, "F"},     {11, ""},     {12, ""}};
    for (const auto &row : bad) EXPECT_FALSE(Read_Gga(With(gga, row.field, row.value))) << row.field << row.value;
    EXPECT_FALSE(Read_Gga(""));
}

TEST(Nmea_Sentence, says_a_time_or_nothing)
{
    EXPECT_EQ(Read_Rmc(rmc), mTime(1994, 3, 23, 12, 35, 19.5).get_roguetime());
    EXPECT_EQ(Read_Rmc(With(With(rmc, 1, "235960.25"), 9, "311216")), mTime(2017, 1, 1, 0, 0, 0.25).get_roguetime());
    EXPECT_EQ(Read_Rmc(With(rmc, 9, "290220")), mTime(2020, 2, 29, 12, 35, 19.5).get_roguetime());
    const struct {
        int field;
        const char *value;
    } bad[] = {{0, "GPGGA"},  {1, ""},       {2, "V"},    {9, "290221"},
               {9, "010020"}, {9, "011320"}, {9, "0101"}, {9, "000120"}};
    for (const auto &row : bad) EXPECT_FALSE(Read_Rmc(With(rmc, row.field, row.value))) << row.field << row.value;
}

TEST(Nmea_Decoder, makes_positions_and_times)
{
    Chain chain({.leap_seconds = 10});
    chain.Feed(Sentence(gga) + Sentence(rmc) + Sentence(gga) + "$cut\n");
    ASSERT_EQ(chain.times.size(), 1u);
    const double utc = mTime(1994, 3, 23, 12, 35, 19.5).get_roguetime();
    EXPECT_DOUBLE_EQ(chain.times[0].ReadGPSTime().secondsSinceGPS(), utc + 10);
    EXPECT_EQ(chain.times[0].ReadUint8Epo(EPO_SATELLITES), 0);

    ASSERT_EQ(chain.positions.size(), 2u);
    const Position &position = chain.positions[1];
    double x = 0, y = 0, z = 0, time = 0;
    EXPECT_FALSE(chain.positions[0].Read_Time(time));  // no date yet
    ASSERT_TRUE(position.Read_WGS(x, y, z) && position.Read_Time(time));
    // By the parametric latitude, in Python.
    EXPECT_NEAR(x, 4180514.5663, 1e-4);
    EXPECT_NEAR(y, -851801.7749, 1e-4);
    EXPECT_NEAR(z, 4726034.6864, 1e-4);
    EXPECT_DOUBLE_EQ(time, utc + 10);
    EXPECT_EQ(position.Get_Solution(), Position::FIXED_SOL);
    EXPECT_EQ(position.GetNSat(), 8);
    EXPECT_EQ(position.GetHdop(), 0.9);
    EXPECT_TRUE(position.IsKinematic());

    chain.decoder->Finish();
    EXPECT_EQ(chain.handler.Take(),
              (Reports{{2, 80, "1 sentences were cut short or had no good checksum.", "host/Nmea_Decoder"}}));
    chain.decoder->Finish();
    EXPECT_EQ(chain.handler.Take(), Reports());
    chain.Feed(Sentence(gga));
    EXPECT_FALSE(chain.positions.back().Read_Time(time));  // a new stream
}

// Times of day around a midnight, as receivers send them: the position before or behind the date.
TEST(Nmea_Decoder, dates_a_position_by_the_nearest_time)
{
    const double midnight = mTime(2024, 3, 1, 0, 0, 0).get_roguetime();
    const struct {
        const char *rmc_time, *date, *gga_time;
        double utc;
    } rows[] = {{"235959.00", "290224", "000000.00", midnight},
                {"000000.00", "010324", "235959.00", midnight - 1},
                {"120000.00", "290224", "115900.00", midnight - 43260}};
    for (const auto &row : rows) {
        Chain chain;
        chain.Feed(Sentence(With(With(rmc, 1, row.rmc_time), 9, row.date)) +
                   Sentence(With(With(gga, 1, row.gga_time), 6, "7")));
        double time = 0;
        ASSERT_EQ(chain.positions.size(), 1u);
        EXPECT_TRUE(chain.positions[0].Read_Time(time));
        EXPECT_DOUBLE_EQ(time, row.utc + 18) << row.gga_time;
        EXPECT_TRUE(chain.positions[0].IsStatic());
    }
}
