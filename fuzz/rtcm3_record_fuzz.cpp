// Any bytes as framed messages, through the whole decoder: the records that come out are sound, and the view of each
// GPS satellite is a direction. The first byte chooses the options; Rtcm3_Payloads.h says how the rest becomes
// messages.
#include "fuzz/Require.h"
#include "fuzz/Rtcm3_Payloads.h"
#include "host/decoders/Record_Client.h"
#include "host/decoders/Rtcm3_Decoder.h"
#include "host/decoders/Satellite_View.h"
#include "kernel/base/Error_Handler.h"
#include "kernel/bytes/String_Byte_Server.h"
#include "tests/support/Naive_Rtcm3.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <numbers>

namespace {

using namespace kernel;

// Receives the records of one stream, and checks them.
class Checked_Records {
public:
    explicit Checked_Records(host::Rtcm3_Decoder &decoder)
    {
        decoder.Observations().Connect(
            new host::Obs_Record_Client([this](std::unique_ptr<EPO_DATA> epoch) { Check(*epoch); }));
        decoder.Ephemerides().Connect(
            new host::Eph_Record_Client([this](std::unique_ptr<KeplerData> ephemeris) { Check(*ephemeris); }));
        decoder.Glonass_Ephemerides().Connect(
            new host::Glo_Eph_Record_Client([](std::unique_ptr<GlonassEph> ephemeris) { Check(*ephemeris); }));
        decoder.Positions().Connect(
            new host::Pos_Record_Client([this](std::unique_ptr<Position> position) { Check(*position); }));
    }

private:
    void Check(const EPO_DATA &epoch)
    {
        const Gps_Time time = epoch.ReadGPSTime();
        Require(time.sec >= 0 && time.sec < Seconds_Per_Week, "an epoch without a time of week");
        Require(epoch.is_ava_epo(EPO_SATELLITES) != 0, "an epoch without a count");
        const unsigned char count = epoch.ReadUint8Epo(EPO_SATELLITES);
        Require(count > 0, "an epoch without satellites");
        for (unsigned char sat = 0; sat < count; ++sat) Check_Satellite(epoch, time, sat);
    }

    void Check_Satellite(const EPO_DATA &epoch, const Gps_Time &time, unsigned char sat) const
    {
        const unsigned char tracked = epoch.ReadUint8Obs(TRACKING_FLAG, sat);
        Require(tracked >= 1 && tracked <= 7, "a satellite without a carrier");
        Require((epoch.ReadUint8Obs(OBS_LOSS_OF_LOCK, sat) & ~tracked) == 0, "a lost lock of no carrier");
        for (const ObsDataTypes code : {OBS_CODE_A, OBS_CODE_B, OBS_CODE_C})
            Require(std::isfinite(epoch.ReadDoubleObs(code, sat)), "a code that is no number");
        const unsigned char number = epoch.ReadUint8Obs(OBS_SATELLITE, sat);
        if (epoch.ReadUint8Obs(OBS_SYSTEM, sat) != 'G') return;
        Require(number >= 1 && number < ephemerides_.size(), "a PRN out of its range");
        Check_View(ephemerides_[number], time, epoch.ReadDoubleObs(OBS_CODE_A, sat));
    }

    void Check_View(const KeplerData &ephemeris, const Gps_Time &time, double code) const
    {
        const auto view = host::View_Of(ephemeris, time, code, station_);
        if (!view) return;
        Require(std::abs(view->elevation) <= std::numbers::pi / 2, "an elevation beyond the zenith");
        Require(view->azimuth >= 0 && view->azimuth <= 2 * std::numbers::pi, "an azimuth off the circle");
        Require(std::isfinite(view->range) && std::isfinite(view->range_rate), "a range that is no number");
    }

    void Check(const KeplerData &ephemeris)
    {
        const std::uint32_t prn = ephemeris.Get(Kepler_prn);
        Require(prn >= 1 && prn < ephemerides_.size(), "an ephemeris of no satellite");
        Require(ephemeris[Kepler_toe] >= 0 && ephemeris[Kepler_toe] < Seconds_Per_Week, "a toe out of the week");
        ephemerides_[prn] = ephemeris;
    }

    static void Check(const GlonassEph &ephemeris)
    {
        Require(ephemeris.slot >= 1 && ephemeris.slot <= 24, "an ephemeris of no slot");
        Require(ephemeris.IOD() >= 0 && ephemeris.IOD() < 96, "a tb out of the day");
    }

    void Check(const Position &position)
    {
        Require(position.Read_WGS(station_[0], station_[1], station_[2]) == 1, "a station without a place");
        char name[Position::Point_Number_Size] = {};
        Require(position.Read_Point_Number(name) == 1 && name[0] != '\0', "a station without a number");
    }

    std::array<KeplerData, 33> ephemerides_{};  // by PRN
    std::array<double, 3> station_{};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0) return 0;
    host::Rtcm3_Options options;
    options.beidou_in_gps_time = (data[0] & 1) != 0;
    if ((data[0] & 2) != 0) options.leap_seconds = 16;
    if ((data[0] & 4) != 0) options.start_week = 1711;

    NULL_Error_Handler silent;
    host::Rtcm3_Decoder decoder(options);
    decoder.Set_Error_Handler(&silent);
    const Checked_Records records(decoder);
    const std::unique_ptr<String_Byte_Server> server(String_Byte_Server::Construct(2048, &silent));
    decoder.Dont_Delete_Me();
    server->Connect(&decoder);
    std::uint64_t messages = 0;
    Each_Rtcm3_Payload({data + 1, size - 1}, [&](std::span<const unsigned char> payload) {
        const auto frame = Naive_Framed({payload.begin(), payload.end()});
        server->PutBin(frame.data(), static_cast<unsigned int>(frame.size()));
        server->Work();
        ++messages;
    });
    decoder.Finish();
    Require(decoder.Reader().Count().frames == messages, "frames miscounted");
    server->Disconnect();
    return 0;
}
