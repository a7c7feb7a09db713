// From bytes to records: what clients of the decoder's servers get of real recordings.
#include "host/decoders/Rtcm3_Decoder.h"

#include "host/decoders/Record_Client.h"
#include "host/decoders/Satellite_View.h"
#include "kernel/bytes/String_Byte_Server.h"
#include "tests/support/Bit_Writer.h"
#include "tests/support/Naive_Rtcm3.h"
#include "tests/support/Rtcm3_Cells.h"
#include "tests/support/csv.h"
#include "tests/support/records.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using namespace host;
using namespace kernel;

namespace {

static_assert(!std::is_copy_constructible_v<Rtcm3_Decoder> && !std::is_move_constructible_v<Rtcm3_Decoder>);

const Rtcm3_Options gmsd7 = {.start_week = 1709, .beidou_in_gps_time = true};

// A byte server, a decoder, and all records that came out; servers own decoder and clients.
class Chain {
public:
    explicit Chain(const Rtcm3_Options &options = {}) : decoder(new Rtcm3_Decoder(options))
    {
        server_->Connect(decoder);
        decoder->Observations().Connect(new Obs_Record_Client([this](auto record) { epochs.push_back(*record); }));
        Take_Ephemerides();
        decoder->Glonass_Ephemerides().Connect(
            new Glo_Eph_Record_Client([this](auto record) { glonass.push_back(*record); }));
        decoder->Positions().Connect(new Pos_Record_Client([this](auto record) { positions.push_back(*record); }));
    }
    void Take_Ephemerides()
    {
        decoder->Ephemerides().Connect(new Eph_Record_Client([this](auto record) { gps.push_back(*record); }));
    }
    Chain &Feed(const std::string &bytes)
    {
        constexpr std::size_t piece = 1000;
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            const std::string part = bytes.substr(at, piece);
            EXPECT_TRUE(server_->PutBin(reinterpret_cast<const unsigned char *>(part.data()),
                                        static_cast<unsigned int>(part.size())));
            server_->Work();
        }
        return *this;
    }
    Chain &Play(const std::string &recording)
    {
        Feed(Whole_File(std::string(KERNEL_TEST_DATA "/") + recording));
        decoder->Finish();
        return *this;
    }

private:
    const std::unique_ptr<String_Byte_Server> server_{String_Byte_Server::Construct(4096, nullptr)};

public:
    Rtcm3_Decoder *const decoder;  // the byte server's
    std::vector<EPO_DATA> epochs;
    std::vector<KeplerData> gps;
    std::vector<GlonassEph> glonass;
    std::vector<Position> positions;
};

std::string Satellite_Name(const EPO_DATA &epoch, unsigned char sat)
{
    const int number = epoch.ReadUint8Obs(OBS_SATELLITE, sat);
    const char system = static_cast<char>(epoch.ReadUint8Obs(OBS_SYSTEM, sat));
    return system + std::to_string(system == 'J' ? number + 192 : number);
}

// The codes of GMSD7 in the sets A, B and C, best first.
const std::map<char, std::array<std::vector<std::string>, 3>> codes_of_sets = {
    {'G', {{{"1C"}, {"5X"}, {"2W", "2X"}}}},
    {'R', {{{"1C"}, {"1P"}, {"2P"}}}},
    {'J', {{{"1C"}, {"5X"}, {"2X"}}}},
    {'C', {{{"2I"}, {"6I"}, {"7I"}}}},
};

// The table's row for a set, and its code; the table's end when the satellite has no such signal.
Cell_Table::const_iterator Best_Of_Set(const Cell_Table &cells, Cell_Key key, int set)
{
    for (const std::string &code : codes_of_sets.at(std::get<2>(key)[0])[static_cast<std::size_t>(set)]) {
        std::get<3>(key) = code;
        if (const auto found = cells.find(key); found != cells.end()) return found;
    }
    return cells.end();
}

// What the table says is what the record says; a blank is a record's "not measured".
void Expect_Set(const EPO_DATA &epoch, unsigned char sat, int set, const Cell_Values &wanted)
{
    const auto of_set = [set](ObsDataTypes of_a) { return static_cast<ObsDataTypes>(of_a + set); };
    const auto expect = [](double got, double value, double tolerance) {
        EXPECT_NEAR(std::max(got, 0.0), Has_Value(value) ? value : 0, tolerance);
    };
    expect(epoch.ReadDoubleObs(of_set(OBS_CODE_A), sat), wanted.pseudorange, 1e-4);
    expect(epoch.ReadDoubleObs(of_set(OBS_PHASE_A), sat), wanted.phase, 1e-4);
    expect(static_cast<double>(epoch.ReadFloatObs(of_set(OBS_CN0_A), sat)), wanted.cn0, 1e-6);
    if (Has_Value(wanted.doppler)) {
        EXPECT_NEAR(epoch.ReadDoubleObs(of_set(OBS_DOPPLER_A), sat), wanted.doppler, 1e-3);
    }
    const auto lock = static_cast<float>(Msm_Long_Lock_Time(static_cast<unsigned int>(wanted.lock)));
    EXPECT_FLOAT_EQ(epoch.ReadFloatObs(of_set(OBS_LOCK_TIME_A), sat), lock / 1000);
    EXPECT_EQ(epoch.ReadUint8Obs(OBS_HALF_CYCLE, sat) >> set & 1, wanted.half);
    EXPECT_EQ(epoch.ReadUint8Obs(of_set(OBS_VALID_A), sat), Has_Value(wanted.pseudorange) ? 0 : 255);
    EXPECT_EQ(epoch.ReadUint8Obs(OBS_GLO_CHANNEL, sat), Has_Value(wanted.channel) ? wanted.channel + 7 : 255);
}

using Row = std::vector<double>;

template <class... T>
Row Values(T... values)
{
    return {static_cast<double>(values)...};
}

// In the order of the tables' columns.
Row Values_Of(const KeplerData &e)
{
    return Values(e.Get(Kepler_prn), e[Kepler_IODE], e[Kepler_IODC], e.Get(Kepler_accuracy), e.Get(Kepler_health),
                  e[Kepler_week], e[Kepler_toe], e[Kepler_Omega0], e[Kepler_i0], e[Kepler_omega], e[Kepler_A],
                  e[Kepler_e], e[Kepler_M0], e[Kepler_OmegaDot], e[Kepler_IDot], e[Kepler_DeltaN], e[Kepler_Crs],
                  e[Kepler_Crc], e[Kepler_Cis], e[Kepler_Cic], e[Kepler_Cus], e[Kepler_Cuc], e[Kepler_toc],
                  e[Kepler_af0], e[Kepler_af1], e[Kepler_af2], e[Kepler_TGD], e.Get(Kepler_L2_code),
                  e.Get(Kepler_L2P_data_off), e.Get(Kepler_fit_interval) ? 0 : 4);
}

Row Values_Of(const GlonassEph &e)
{
    const int tk = static_cast<int>(e.tk);
    const auto &[px, py, pz] = e.position;
    const auto &[vx, vy, vz] = e.velocity;
    const auto &[ax, ay, az] = e.acceleration;
    return Values(e.slot, e.channel, e.Cn, e.almanac_known, e.P1, tk / 3600, tk / 60 % 60, tk % 60, e.Bn / 4, e.P2,
                  e.tb, px, py, pz, vx, vy, vz, ax, ay, az, e.P3, e.gamma_n, e.P, e.ln, e.tau_n, e.delta_tau_n, e.En,
                  e.P4, e.FT, e.NT, e.M, e.additional, e.NA, e.tau_c, e.N4, e.tau_GPS, e.ln5);
}

// Each row of the table is a record; the first column is the number of the frame. Doubles differ in the last place, by
// the order of the factors.
template <class Record>
void Expect_Rows(const std::vector<Record> &records, const std::string &table)
{
    const auto agree = [](double got, double wanted) { return std::abs(got - wanted) <= 4e-16 * std::abs(wanted); };
    EXPECT_FALSE(Csv_Rows(table).empty());
    for (const Csv_Row &row : Csv_Rows(table)) {
        const Row wanted = row.Numbers();
        EXPECT_TRUE(std::any_of(records.begin(), records.end(),
                                [&](const Record &record) {
                                    const Row got = Values_Of(record);
                                    return std::equal(got.begin(), got.end(), wanted.begin() + 1, wanted.end(), agree);
                                }))
            << table << ": " << row.Line();
    }
}

std::string Framed(const std::vector<unsigned char> &payload)
{
    const auto frame = Naive_Framed(payload);
    return {frame.begin(), frame.end()};
}

}  // namespace

TEST(Rtcm3_Decoder, puts_each_signal_where_the_record_has_its_carrier)
{
    const Cell_Table cells = Cells_Of("gmsd7_cells.csv");
    const auto &[last_week, last_tow, last_satellite, last_code] = cells.rbegin()->first;
    Chain chain(gmsd7);
    chain.Play("GMSD7_20121014.rtcm3");
    ASSERT_EQ(chain.epochs.size(), 257u);
    Gps_Time wanted_time(1709, 604784.0);
    struct Lock {
        std::string code;
        unsigned int indicator = 0;
        Gps_Time time;
    };
    std::map<std::pair<std::string, int>, Lock> last;  // by satellite and set
    std::size_t satellites = 0, sets = 0;
    int slips = 0;
    for (const EPO_DATA &epoch : chain.epochs) {
        const Gps_Time time = epoch.ReadGPSTime();
        ASSERT_TRUE(time.week == wanted_time.week && time.sec == wanted_time.sec);
        wanted_time += 1.0;
        if (time > Gps_Time(static_cast<unsigned short>(last_week), last_tow / 1000.0)) continue;
        for (unsigned char sat = 0; sat < epoch.ReadUint8Epo(EPO_SATELLITES); ++sat, ++satellites) {
            const std::string name = Satellite_Name(epoch, sat);
            SCOPED_TRACE(name + " " + std::to_string(time.sec));
            for (int set = 0; set < 3; ++set) {
                const auto wanted = Best_Of_Set(cells, {time.week, static_cast<int>(time.sec * 1000), name, ""}, set);
                const bool tracked = (epoch.ReadUint8Obs(TRACKING_FLAG, sat) >> set & 1) != 0;
                ASSERT_EQ(tracked, wanted != cells.end()) << set;
                if (!tracked) continue;
                ++sets;
                Expect_Set(epoch, sat, set, wanted->second);
                Lock &lock = last[{name, set}];
                const Lock now = {std::get<3>(wanted->first), static_cast<unsigned int>(wanted->second.lock), time};
                const double most = now.indicator < 704 ? Msm_Long_Lock_Time(now.indicator + 1) / 1000.0 : HUGE_VAL;
                const double least = Msm_Long_Lock_Time(lock.indicator) / 1000.0;
                const bool slip = !lock.code.empty() && (now.code != lock.code || most <= least + (time - lock.time));
                EXPECT_EQ(epoch.ReadUint8Obs(OBS_LOSS_OF_LOCK, sat) >> set & 1, slip);
                slips += slip;
                lock = now;
            }
        }
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_EQ(satellites, 4617u);
    EXPECT_GT(sets, 2 * satellites);
    EXPECT_GT(slips, 0);
    EXPECT_TRUE(chain.positions.empty());
}

TEST(Rtcm3_Decoder, gives_ephemerides_once)
{
    const struct {
        const char *recording, *gps_table, *glonass_table;
        std::size_t gps, glonass, messages;
    } cases[] = {
        {"GMSD7_20121014.rtcm3", "gmsd7_eph_gps.csv", "gmsd7_eph_glonass.csv", 15, 16, 15},
        {"day30_first1000.rtcm3", "day30_eph_gps.csv", "day30_eph_glonass.csv", 37, 56, 250},
    };
    for (const auto &c : cases) {
        Chain chain({.near_week = 1700});
        chain.Play(c.recording);
        EXPECT_EQ(chain.gps.size(), c.gps);
        EXPECT_EQ(chain.glonass.size(), c.glonass);
        EXPECT_EQ(chain.decoder->Reader().Messages(1019).frames, c.messages);
        Expect_Rows(chain.gps, c.gps_table);
        Expect_Rows(chain.glonass, c.glonass_table);
    }
}

TEST(Rtcm3_Decoder, offers_an_ephemeris_again_until_a_client_takes_it)
{
    const std::string stream = Whole_File(KERNEL_TEST_DATA "/day30_first1000.rtcm3");
    Chain chain;
    const std::unique_ptr<Client> let_go(chain.decoder->Ephemerides().GetClient());
    chain.decoder->Ephemerides().Disconnect();
    chain.Feed(stream);
    EXPECT_TRUE(chain.gps.empty());
    chain.Take_Ephemerides();
    chain.Feed(stream);
    EXPECT_EQ(chain.gps.size(), 37u);
}

TEST(Rtcm3_Decoder, gives_the_station_with_the_time_of_the_epoch_before)
{
    Chain chain;
    chain.Play("day30_first1000.rtcm3");
    ASSERT_EQ(chain.positions.size(), 125u);
    double x = 0, y = 0, z = 0, time = 0;
    char number[Position::Point_Number_Size] = "";
    EXPECT_EQ(chain.positions[0].Read_Time(time), 0);
    const Position &last = chain.positions.back();
    ASSERT_EQ(last.Read_WGS(x, y, z), 1);
    EXPECT_NEAR(x, -3607665.5418, 1e-4);  // GMSD, IGS SINEX of week 2131
    EXPECT_NEAR(y, 4147867.8786, 1e-4);
    EXPECT_NEAR(z, 3223716.9177, 1e-4);
    EXPECT_EQ(last.Get_Solution(), Position::POSITION_KNOWN);
    EXPECT_TRUE(last.IsStatic());
    EXPECT_EQ(last.Read_Point_Number(number), 1);
    const EPO_DATA &epoch = chain.epochs.at(123);
    EXPECT_EQ(std::atoi(number), epoch.ReadUint8Epo(EPO_STATION_HIGH) << 8 | epoch.ReadUint8Epo(EPO_STATION_LOW));
    ASSERT_EQ(last.Read_Time(time), 1);
    EXPECT_EQ(time, epoch.ReadGPSTime().secondsSinceGPS());
}

TEST(Rtcm3_Decoder, fills_the_record_of_a_client_that_owns_none)
{
    Chain owned(gmsd7), shared(gmsd7);
    std::vector<EPO_DATA> seen;
    auto *reader = new Taking_Client<Obs_Client>;  // the server's
    reader->Answer_With(Mesg_Object_Connect, false).On(Mesg_Data_Ready, [&](Object_Server &server) {
        seen.push_back(*static_cast<Obs_Server &>(server).Get_Obs());
        return true;
    });
    shared.decoder->Observations().Connect(reader);
    owned.Play("GMSD7_20121014.rtcm3");
    shared.Play("GMSD7_20121014.rtcm3");
    ASSERT_EQ(seen.size(), owned.epochs.size());
    for (std::size_t i = 0; i < seen.size(); ++i) {
        const unsigned char satellites = owned.epochs[i].ReadUint8Epo(EPO_SATELLITES);
        EXPECT_GT(satellites, Obs_Server::Default_Capacity);
        ASSERT_EQ(seen[i].ReadUint8Epo(EPO_SATELLITES), satellites);
        for (unsigned char sat = 0; sat < satellites; ++sat)
            for (int type = OBS_CODE_A; type <= OBS_DOPPLER_C; ++type)
                ASSERT_EQ(seen[i].ReadDoubleObs(static_cast<ObsDataTypes>(type), sat),
                          owned.epochs[i].ReadDoubleObs(static_cast<ObsDataTypes>(type), sat));
    }
}

TEST(Rtcm3_Decoder, reports_each_kind_of_fault_once_and_its_count_at_the_end)
{
    const std::string unsupported = Framed({0xFF, 0xE0, 0}), cut = Framed({0x3F, 0xB0, 0});  // 4094; 1019
    const std::string unit = "host/Rtcm3_Decoder";
    Chain chain;
    Capturing_Handler handler;
    chain.decoder->Set_Error_Handler(handler);
    for (int run = 0; run < 2; ++run) {
        chain.Feed(unsupported + unsupported + cut);
        EXPECT_EQ(
            handler.Take(),
            (Reports{
                {2, 61, "RTCM 3 message 4094 not decoded: unsupported. More of this kind are only counted.", unit},
                {2, 62, "RTCM 3 message 1019 not decoded: too short. More of this kind are only counted.", unit}}));
        chain.decoder->Finish();
        EXPECT_EQ(handler.Take(), (Reports{{2, 61, "RTCM 3 messages not decoded: 2: unsupported.", unit},
                                           {2, 62, "RTCM 3 messages not decoded: 1: too short.", unit}}));
    }
    chain.decoder->Finish();
    EXPECT_EQ(handler.Take(), Reports{});
}

TEST(Rtcm3_Decoder, says_doubts_about_the_week)
{
    const std::string unit = "host/Rtcm3_Decoder", more = " More of this kind are only counted.";
    Chain told({.start_week = 1711});
    Capturing_Handler handler;
    told.decoder->Set_Error_Handler(handler);
    told.Play("day30_first1000.rtcm3");
    EXPECT_EQ(handler.Take(),
              (Reports{{2, 70, "GPS week 1711 is in doubt: ephemerides say 1712." + more, unit},
                       {2, 70, "GPS week 1711 is in doubt: ephemerides say 1712. Counted: 247.", unit}}));
    EXPECT_EQ(told.epochs.back().ReadGPSTime().week, 1711);
    told.decoder->Finish();  // counted once
    EXPECT_EQ(handler.Take(), Reports{});

    Chain later({.start_week = 1712 + 1024});  // ephemerides have the same week as epochs
    later.decoder->Set_Error_Handler(handler);
    later.Play("day30_first1000.rtcm3");
    EXPECT_EQ(later.gps.at(0)[Kepler_week], 1712 + 1024);
    EXPECT_EQ(later.epochs.at(0).ReadGPSTime().week, 1712 + 1024);
}

TEST(Rtcm3_Decoder, sends_ephemerides_again_when_the_week_was_wrong)
{
    const std::string stream = Whole_File(KERNEL_TEST_DATA "/day30_first1000.rtcm3");
    std::vector<std::string> last;  // 1019 as it came, then of the week after: the last of the week's ten bits changes
    const std::span bytes(reinterpret_cast<const unsigned char *>(stream.data()), stream.size());
    std::string week_after;
    for (const Naive_Frame &frame : Naive_Frames(bytes)) {
        if (frame.message != 1019) continue;
        std::vector<unsigned char> payload(bytes.begin() + static_cast<std::ptrdiff_t>(frame.offset) + 3,
                                           bytes.begin() + static_cast<std::ptrdiff_t>(frame.offset + frame.size) - 3);
        last.push_back(Framed(payload));
        payload[3] ^= 0x10;
        week_after = Framed(payload);
    }
    Chain chain;
    Capturing_Handler handler;
    chain.decoder->Set_Error_Handler(handler);
    chain.Feed(stream).Feed(last.back());
    EXPECT_EQ(chain.gps.size(), 37u);
    chain.Feed(week_after + week_after + week_after);
    EXPECT_EQ(handler.Take(), (Reports{{2, 71,
                                        "GPS week 1712 was wrong: the stream shows 1713. More of this kind are only "
                                        "counted.",
                                        "host/Rtcm3_Decoder"}}));
    const std::size_t before = chain.gps.size();
    chain.Feed(last[last.size() - 2]);
    EXPECT_EQ(chain.gps.size(), before + 1);
}

TEST(Rtcm3_Decoder, keeps_what_stands_at_the_station)
{
    Chain chain;
    const auto texts = [&] {
        const Rtcm3_Equipment &e = chain.decoder->Equipment();
        std::string all;
        for (const Rtcm3_Text &text : {e.antenna, e.antenna_serial, e.receiver, e.firmware, e.receiver_serial})
            all += std::string(text.View()) + ',';
        return all;
    };
    Bit_Writer whole, antenna, serial;
    whole.Put(12, 1033).Put(12, 7).Text("A").Put(8, 0).Text("1").Text("R").Text("F").Text("2");
    antenna.Put(12, 1007).Put(12, 7).Text("B").Put(8, 0);
    serial.Put(12, 1008).Put(12, 7).Text("C").Put(8, 0).Text("3");
    EXPECT_EQ(texts(), ",,,,,");
    EXPECT_EQ((chain.Feed(Framed(whole.Done())), texts()), "A,1,R,F,2,");
    EXPECT_EQ((chain.Feed(Framed(antenna.Done())), texts()), "B,1,R,F,2,");
    EXPECT_EQ((chain.Feed(Framed(serial.Done())), texts()), "C,3,R,F,2,");
    for (const int message : {1005, 1006}) {
        Bit_Writer place;
        place.Put(12, message).Put(12, 7).Zeros(16);
        if (message == 1006) place.Put(16, 12'345);
        chain.Feed(Framed(place.Done()));
    }
    double antenna_height = 0;
    ASSERT_EQ(chain.positions.size(), 2u);
    EXPECT_EQ(chain.positions[0].Read_Antenna_Height(antenna_height), 0);
    ASSERT_EQ(chain.positions[1].Read_Antenna_Height(antenna_height), 1);
    EXPECT_NEAR(antenna_height, 1.2345, 1e-12);
}

TEST(Rtcm3_Decoder, is_made_with_or_without_options)
{
    Rtcm3_Decoder without, with_empty_braces({});
    const std::unique_ptr<Rtcm3_Decoder> named(new Rtcm3_Decoder({.start_week = 1709}));
    EXPECT_EQ(without.Epochs().epochs + with_empty_braces.Epochs().epochs + named->Epochs().epochs, 0u);
}

TEST(Satellite_View, stands_where_the_geometry_says)
{
    // On a circular equatorial orbit without clock, seen from the equator: the node gives the longitude.
    KeplerData e;
    e.Set(Kepler_prn, 1);
    e[Kepler_week] = 1712;
    e[Kepler_A] = 26560000;
    e[Kepler_toe] = e[Kepler_toc] = 300000;
    const double turn = orbit::Earth_Rate * 300000;  // of the node's reference, from the start of the week
    const std::array<double, 3> station = {6378137, 0, 0};
    const double r = 26560000 / 6378137.0, pi = std::acos(-1.0);
    for (const double longitude : {0.5, -0.5}) {
        e[Kepler_Omega0] = longitude + turn;
        const auto view = View_Of(e, Gps_Time(1712, 300000.0), 2.02e7, station);
        ASSERT_TRUE(view);
        EXPECT_NEAR(view->elevation, std::atan2(r * std::cos(longitude) - 1, std::abs(r * std::sin(longitude))), 1e-4);
        EXPECT_NEAR(view->range, 6378137 * std::sqrt(1 + r * r - 2 * r * std::cos(longitude)), 100);
        EXPECT_NEAR(view->azimuth, pi * (longitude > 0 ? 0.5 : 1.5), 1e-4);
    }
    e[Kepler_Omega0] = turn;
    const auto from_pole = View_Of(e, Gps_Time(1712, 300000.0), 2.02e7, {0, 0, 6356752.3});
    const auto from_north = View_Of(e, Gps_Time(1712, 300000.0), 2.02e7, {4517590.9, 0, 4487348.4});  // 45 degrees
    ASSERT_TRUE(from_pole && from_north);
    EXPECT_NEAR(from_pole->elevation, -std::atan2(6356752.3, 26560000), 1e-4);
    EXPECT_NEAR(from_north->azimuth, pi, 1e-4);
    EXPECT_NEAR(from_north->elevation, std::atan2(26560000.0 - 4517590.9, 4487348.4) - pi / 4, 1e-4);
    const auto seen = [&](unsigned short week, double second) {
        return View_Of(e, Gps_Time(week, second), 2.02e7, station).has_value();
    };
    EXPECT_TRUE(seen(1712, 307500) && !seen(1712, 307501) && !seen(1713, 300000));
    e[Kepler_toe] = 0;
    EXPECT_TRUE(seen(1711, 604000));  // across the change of week
    e[Kepler_week] = 1711;
    EXPECT_TRUE(seen(1711, 604000));  // sent in the week before
    e[Kepler_A] = 0;
    EXPECT_FALSE(seen(1711, 604000));
}
