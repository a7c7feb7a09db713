// From bytes to records: what clients of the decoder's servers get of real recordings.
#include "host/decoders/Rtcm3_Decoder.h"

#include "host/decoders/Record_Client.h"
#include "host/decoders/Satellite_View.h"
#include "kernel/String_Byte_Server.h"
#include "tests/support/Naive_Rtcm3.h"
#include "tests/support/csv.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using namespace host;
using namespace kernel;

namespace {

const Rtcm3_Options gmsd7 = {.start_week = 1709, .beidou_in_gps_time = true};

// A byte server, a decoder, and all records that came out; servers own decoder and clients.
class Chain {
public:
    explicit Chain(const Rtcm3_Options &options = {}) : decoder(new Rtcm3_Decoder(options))
    {
        server_->Connect(decoder);
        decoder->Observations().Connect(new Obs_Record_Client([this](auto record) { epochs.push_back(*record); }));
        decoder->Ephemerides().Connect(new Eph_Record_Client([this](auto record) { gps.push_back(*record); }));
        decoder->Glonass_Ephemerides().Connect(
            new Glo_Eph_Record_Client([this](auto record) { glonass.push_back(*record); }));
        decoder->Positions().Connect(new Pos_Record_Client([this](auto record) { positions.push_back(*record); }));
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

// The signals of one satellite in a table of cells, by code.
struct Wanted {
    std::string pseudorange, phase, doppler, cn0, lock, half;
};
using Signals = std::map<std::string, Wanted>;
using Cells = std::map<std::pair<double, std::string>, Signals>;  // by time [s since the GPS epoch] and satellite

Cells Cell_Table(const std::string &name)
{
    std::istringstream file(Whole_File(std::string(KERNEL_TEST_DATA "/") + name));
    Cells cells;
    std::string line;
    std::getline(file, line);
    while (std::getline(file, line)) {
        std::vector<std::string> f(1);
        for (const char c : line)
            if (c == ',')
                f.emplace_back();
            else if (c != '\r')
                f.back() += c;
        Signals &signals = cells[{std::stod(f[0]) * 604800 + std::stod(f[1]) / 1000, f[2]}];
        for (std::size_t at = 4; at + 7 <= f.size(); at += 7)
            signals[f[at]] = {f[at + 1], f[at + 2], f[at + 3], f[at + 4], f[at + 5], f[at + 6]};
    }
    return cells;
}

// What the table says is what the record says; a blank is a record's "not measured".
void Expect_Value(double got, const std::string &wanted, double tolerance)
{
    EXPECT_NEAR(std::max(got, 0.0), wanted.empty() ? 0 : std::stod(wanted), tolerance);
}

void Expect_Set(const EPO_DATA &epoch, unsigned char sat, int set, const Wanted &wanted)
{
    const auto of_set = [set](ObsDataTypes of_a) { return static_cast<ObsDataTypes>(of_a + set); };
    Expect_Value(epoch.ReadDoubleObs(of_set(OBS_CODE_A), sat), wanted.pseudorange, 1e-4);
    Expect_Value(epoch.ReadDoubleObs(of_set(OBS_PHASE_A), sat), wanted.phase, 1e-4);
    Expect_Value(static_cast<double>(epoch.ReadFloatObs(of_set(OBS_CN0_A), sat)), wanted.cn0, 1e-6);
    if (!wanted.doppler.empty()) {
        EXPECT_NEAR(epoch.ReadDoubleObs(of_set(OBS_DOPPLER_A), sat), std::stod(wanted.doppler), 1e-3);
    }
    const float lock = static_cast<float>(Msm_Long_Lock_Time(static_cast<unsigned int>(std::stoi(wanted.lock))));
    EXPECT_FLOAT_EQ(epoch.ReadFloatObs(of_set(OBS_LOCK_TIME_A), sat), lock / 1000);
    EXPECT_EQ(epoch.ReadUint8Obs(OBS_HALF_CYCLE, sat) >> set & 1, std::stoi(wanted.half));
    EXPECT_EQ(epoch.ReadUint8Obs(of_set(OBS_VALID_A), sat), wanted.pseudorange.empty() ? 255 : 0);
}

// The codes of GMSD7 in the sets A, B and C, best first.
std::vector<std::string> Codes(char system, int set)
{
    static const std::map<char, std::vector<std::vector<std::string>>> codes = {
        {'G', {{"1C"}, {"5X"}, {"2W", "2X"}}},
        {'R', {{"1C"}, {"1P"}, {"2P"}}},
        {'J', {{"1C"}, {"5X"}, {"2X"}}},
        {'C', {{"2I"}, {"6I"}, {"7I"}}},
    };
    return codes.at(system)[static_cast<std::size_t>(set)];
}

// Of all ephemerides the row's is there, and says what the row says.
void Expect_Gps(const std::vector<KeplerData> &all, const Csv_Row &row)
{
    const auto found = std::find_if(all.begin(), all.end(), [&](const KeplerData &e) {
        return e.Get(Kepler_prn) == static_cast<unsigned int>(row.Int("prn")) && e[Kepler_IODE] == row.Number("iode");
    });
    ASSERT_NE(found, all.end()) << row.Line();
    const KeplerData &e = *found;
    const std::pair<const char *, KeplerIndex> fields[] = {{"week_from_message", Kepler_week},
                                                           {"toe_s", Kepler_toe},
                                                           {"omega0", Kepler_Omega0},
                                                           {"i0", Kepler_i0},
                                                           {"omega", Kepler_omega},
                                                           {"A", Kepler_A},
                                                           {"e", Kepler_e},
                                                           {"M0", Kepler_M0},
                                                           {"omegadot", Kepler_OmegaDot},
                                                           {"idot", Kepler_IDot},
                                                           {"deltan", Kepler_DeltaN},
                                                           {"crs", Kepler_Crs},
                                                           {"crc", Kepler_Crc},
                                                           {"cis", Kepler_Cis},
                                                           {"cic", Kepler_Cic},
                                                           {"cus", Kepler_Cus},
                                                           {"cuc", Kepler_Cuc},
                                                           {"toc_s", Kepler_toc},
                                                           {"af0", Kepler_af0},
                                                           {"af1", Kepler_af1},
                                                           {"af2", Kepler_af2},
                                                           {"tgd", Kepler_TGD},
                                                           {"iodc", Kepler_IODC}};
    for (const auto &[column, index] : fields)
        EXPECT_NEAR(e[index], row.Number(column), 1e-15 * std::abs(row.Number(column))) << column;
    EXPECT_EQ(e.Get(Kepler_health), static_cast<unsigned int>(row.Int("health")));
    EXPECT_EQ(e.Get(Kepler_accuracy), static_cast<unsigned int>(row.Int("ura_index")));
    EXPECT_EQ(e.Get(Kepler_L2_code), static_cast<unsigned int>(row.Int("code_l2")));
}

void Expect_Glonass(const std::vector<GlonassEph> &all, const Csv_Row &row)
{
    const int tk = row.Int("tk_h") * 3600 + row.Int("tk_m") * 60 + row.Int("tk_s");
    const auto found = std::find_if(all.begin(), all.end(), [&](const GlonassEph &e) {
        return e.slot == row.Int("prn") && e.tb == row.Number("tb_s") && e.tk == tk;
    });
    ASSERT_NE(found, all.end()) << row.Line();
    EXPECT_EQ(found->channel, row.Int("frq"));
    EXPECT_NEAR(found->position[2], row.Number("pz"), 1e-6);
    EXPECT_NEAR(found->velocity[0], row.Number("vx"), 1e-9);
    EXPECT_NEAR(found->acceleration[1], row.Number("ay"), 1e-18);
    EXPECT_NEAR(found->tau_n, row.Number("taun"), 1e-18);
    EXPECT_EQ(found->NT, row.Int("NT"));
    EXPECT_EQ(found->P1, row.Int("P1"));
}

// A payload as a frame.
std::string Frame(const std::vector<unsigned char> &payload)
{
    std::vector<unsigned char> bytes = {0xD3, 0, static_cast<unsigned char>(payload.size())};
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    const std::uint32_t crc = Naive_Crc24q(bytes);
    for (int shift = 16; shift >= 0; shift -= 8) bytes.push_back(static_cast<unsigned char>(crc >> shift));
    return {bytes.begin(), bytes.end()};
}

}  // namespace

TEST(Rtcm3_Decoder, gives_every_epoch_of_a_recording_in_order)
{
    Chain chain(gmsd7);
    chain.Play("GMSD7_20121014.rtcm3");
    ASSERT_EQ(chain.epochs.size(), 257u);
    Gps_Time wanted(1709, 604784.0);
    for (const EPO_DATA &epoch : chain.epochs) {
        const Gps_Time time = epoch.ReadGPSTime();
        EXPECT_EQ(time.week, wanted.week);
        EXPECT_EQ(time.sec, wanted.sec);
        EXPECT_EQ(epoch.ReadUint8Epo(EPO_STATION_LOW), chain.epochs[0].ReadUint8Epo(EPO_STATION_LOW));
        wanted += 1.0;
    }
    EXPECT_EQ(chain.epochs.back().ReadGPSTime().week, 1710);
    EXPECT_EQ(chain.epochs.back().ReadGPSTime().sec, 240.0);
    EXPECT_TRUE(chain.positions.empty());
    EXPECT_EQ(chain.decoder->Reader().Count().tail, 302u);
}

TEST(Rtcm3_Decoder, puts_each_signal_where_the_record_has_its_carrier)
{
    const Cells cells = Cell_Table("gmsd7_cells.csv");
    Chain chain(gmsd7);
    chain.Play("GMSD7_20121014.rtcm3");
    std::map<std::pair<std::string, int>, std::pair<std::string, int>> last;  // code and lock by satellite and set
    std::size_t satellites = 0, sets = 0;
    int slips = 0;
    for (const EPO_DATA &epoch : chain.epochs) {
        const double time = epoch.ReadGPSTime().secondsSinceGPS();
        if (time > cells.rbegin()->first.first) break;
        for (unsigned char sat = 0; sat < epoch.ReadUint8Epo(EPO_SATELLITES); ++sat, ++satellites) {
            const std::string name = Satellite_Name(epoch, sat);
            SCOPED_TRACE(name + " " + std::to_string(time));
            const Signals &signals = cells.at({time, name});
            for (int set = 0; set < 3; ++set) {
                const std::vector<std::string> codes = Codes(name[0], set);
                const auto code = std::find_if(codes.begin(), codes.end(),
                                               [&](const std::string &c) { return signals.count(c) > 0; });
                const bool tracked = (epoch.ReadUint8Obs(TRACKING_FLAG, sat) >> set & 1) != 0;
                ASSERT_EQ(tracked, code != codes.end()) << set;
                if (!tracked) continue;
                const Wanted &wanted = signals.at(*code);
                Expect_Set(epoch, sat, set, wanted);
                ++sets;
                auto &[last_code, last_lock] = last[{name, set}];
                const bool slip = !last_code.empty() && (*code != last_code || std::stoi(wanted.lock) < last_lock);
                EXPECT_EQ(epoch.ReadUint8Obs(OBS_LOSS_OF_LOCK, sat) >> set & 1, slip);
                slips += slip;
                last_code = *code;
                last_lock = std::stoi(wanted.lock);
            }
        }
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_EQ(satellites, 4617u);
    EXPECT_GT(sets, 2 * satellites);
    EXPECT_GT(slips, 0);
}

TEST(Rtcm3_Decoder, tells_glonass_channels)
{
    Chain chain(gmsd7);
    chain.Play("GMSD7_20121014.rtcm3");
    std::map<std::string, int> wanted, got;
    for (const Csv_Row &row : Csv_Rows("gmsd7_cells.csv"))
        if (!row.Text("channel").empty()) wanted[row.Text("satellite")] = row.Int("channel");
    const EPO_DATA &epoch = chain.epochs.at(0);
    for (unsigned char sat = 0; sat < epoch.ReadUint8Epo(EPO_SATELLITES); ++sat) {
        const int channel = epoch.ReadUint8Obs(OBS_GLO_CHANNEL, sat);
        if (channel != 255) got[Satellite_Name(epoch, sat)] = channel - 7;
    }
    EXPECT_EQ(got, wanted);
    EXPECT_FALSE(got.empty());
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
        SCOPED_TRACE(c.recording);
        Chain chain({.near_week = 1700});
        chain.Play(c.recording);
        EXPECT_EQ(chain.gps.size(), c.gps);
        EXPECT_EQ(chain.glonass.size(), c.glonass);
        EXPECT_EQ(chain.decoder->Reader().Messages(1019).frames, c.messages);
        ASSERT_FALSE(Csv_Rows(c.gps_table).empty() || Csv_Rows(c.glonass_table).empty());
        for (const Csv_Row &row : Csv_Rows(c.gps_table)) Expect_Gps(chain.gps, row);
        for (const Csv_Row &row : Csv_Rows(c.glonass_table)) Expect_Glonass(chain.glonass, row);
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
    chain.decoder->Ephemerides().Connect(new Eph_Record_Client([&](auto record) { chain.gps.push_back(*record); }));
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
    EXPECT_NEAR(x, -3607665.5418, 1e-4);
    EXPECT_NEAR(y, 4147867.8786, 1e-4);
    EXPECT_NEAR(z, 3223716.9177, 1e-4);
    EXPECT_EQ(last.Get_Solution(), Position::POSITION_KNOWN);
    EXPECT_TRUE(last.IsStatic());
    EXPECT_EQ(last.Read_Point_Number(number), 1);
    ASSERT_EQ(last.Read_Time(time), 1);
    EXPECT_EQ(time, chain.epochs.at(123).ReadGPSTime().secondsSinceGPS());
}

TEST(Rtcm3_Decoder, does_not_go_back_in_time_on_a_damaged_stream)
{
    Chain chain({.start_week = 1712});
    chain.Play("day30_dirty4h.rtcm3");
    EXPECT_GT(chain.epochs.size(), 400u);
    for (std::size_t i = 1; i < chain.epochs.size(); ++i)
        EXPECT_GT(chain.epochs[i].ReadGPSTime() - chain.epochs[i - 1].ReadGPSTime(), 0.0);
    EXPECT_GT(chain.decoder->Reader().Count().crc_failures, 0u);
}

TEST(Rtcm3_Decoder, fills_the_record_of_a_client_that_owns_none)
{
    Chain owned(gmsd7), shared(gmsd7);
    std::vector<EPO_DATA> seen;
    class Reader : public Obs_Client {
    public:
        explicit Reader(std::vector<EPO_DATA> &seen) : Object("reader"), seen_(seen) {}
        bool Send(Object_Server &server, CL_Mesg message) override
        {
            if (message == Mesg_Object_Connect) return false;
            if (message == Mesg_Request_Invite) return true;
            if (message != Mesg_Data_Ready) return Obs_Client::Send(server, message);
            seen_.push_back(*dynamic_cast<Obs_Server &>(server).Get_Obs());
            return true;
        }

    private:
        std::vector<EPO_DATA> &seen_;
    };
    shared.decoder->Observations().Connect(new Reader(seen));
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
    const std::string unsupported = Frame({0xFF, 0xE0, 0}), cut = Frame({0x3F, 0xB0, 0});  // 4094; 1019
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

TEST(Rtcm3_Decoder, can_be_left_behind_in_the_middle)
{
    const std::string stream = Whole_File(KERNEL_TEST_DATA "/GMSD7_20121014.rtcm3");
    Chain chain(gmsd7);
    chain.Feed(stream.substr(0, 100000));  // an epoch is open, a frame half read
    EXPECT_GT(chain.epochs.size(), 10u);
    Rtcm3_Decoder alone;
    alone.Finish();
}

// The range of each satellite against its pseudorange: apart by the satellite's clock and a few hundred metres of the
// synthetic day's delays and receiver clock, and every satellite above the horizon.
TEST(Satellite_View, agrees_with_the_measured_ranges)
{
    Chain chain;
    chain.Play("day30_first1000.rtcm3");
    std::array<double, 3> station;
    ASSERT_EQ(chain.positions.at(0).Read_WGS(station.data()), 1);
    std::map<int, KeplerData> ephemerides;
    for (const KeplerData &e : chain.gps) ephemerides.try_emplace(static_cast<int>(e.Get(Kepler_prn)), e);
    const EPO_DATA &epoch = chain.epochs.at(10);
    std::vector<double> residuals;
    for (unsigned char sat = 0; sat < epoch.ReadUint8Epo(EPO_SATELLITES); ++sat) {
        if (epoch.ReadUint8Obs(OBS_SYSTEM, sat) != 'G') continue;
        const KeplerData &e = ephemerides.at(epoch.ReadUint8Obs(OBS_SATELLITE, sat));
        const double pseudorange = epoch.ReadDoubleObs(OBS_CODE_A, sat);
        const auto view = View_Of(e, epoch.ReadGPSTime(), pseudorange, station);
        ASSERT_TRUE(view);
        EXPECT_GT(view->elevation, 0.05);
        residuals.push_back(pseudorange - view->range + e[Kepler_af0] * orbit::Light_Speed);
    }
    ASSERT_GT(residuals.size(), 5u);
    const auto [least, most] = std::minmax_element(residuals.begin(), residuals.end());
    EXPECT_LT(*most - *least, 100.0);
    RecordProperty("spread_m", std::to_string(*most - *least));
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
    const double r = 26560000 / 6378137.0;
    for (const double longitude : {0.0, 0.5, -0.5}) {
        e[Kepler_Omega0] = longitude + turn;
        const auto view = View_Of(e, Gps_Time(1712, 300000.0), 2.02e7, station);
        ASSERT_TRUE(view);
        EXPECT_NEAR(view->elevation, std::atan2(r * std::cos(longitude) - 1, std::abs(r * std::sin(longitude))), 1e-4);
        if (longitude != 0) {
            EXPECT_NEAR(view->azimuth, std::acos(-1.0) * (longitude > 0 ? 0.5 : 1.5), 1e-4);
        }
    }
    EXPECT_TRUE(View_Of(e, Gps_Time(1712, 300000.0 + 7500), 2.02e7, station));
    EXPECT_FALSE(View_Of(e, Gps_Time(1712, 300000.0 + 7501), 2.02e7, station));
    EXPECT_FALSE(View_Of(e, Gps_Time(1713, 300000.0), 2.02e7, station));
    e[Kepler_toe] = 0;
    EXPECT_TRUE(View_Of(e, Gps_Time(1711, 604000.0), 2.02e7, station));  // across the change of week
    e[Kepler_week] = 1711;
    EXPECT_TRUE(View_Of(e, Gps_Time(1711, 604000.0), 2.02e7, station));  // sent in the week before
    e[Kepler_A] = 0;
    EXPECT_FALSE(View_Of(e, Gps_Time(1711, 604000.0), 2.02e7, station));
}
