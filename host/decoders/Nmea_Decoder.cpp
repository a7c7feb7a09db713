#include "host/decoders/Nmea_Decoder.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/time/mTime.h"

#include <cmath>
#include <cstring>
#include <utility>

namespace host {

namespace {

using namespace kernel;

constexpr char unit[] = "host/Nmea_Decoder";
constexpr Err_Code refused_code = 80;
constexpr double seconds_per_day = 86400;

Position::Solution_Type Solution_Of(int quality)
{
    using enum Position::Solution_Type;
    constexpr Position::Solution_Type solutions[] = {NO_SOLUTION, SINGLE_POINT, DGPS,           SINGLE_POINT, FIXED_SOL,
                                                     FLOAT_SOL,   UNKNOWN,      POSITION_KNOWN, UNKNOWN};
    return solutions[quality];
}

void Set_Place(const Nmea_Fix &fix, Position &record)
{
    constexpr double semi_major_axis = 6378137.0, flattening = 1 / 298.257223563;  // [m], [1] WGS-84
    constexpr double e2 = flattening * (2 - flattening);
    const double sine = std::sin(fix.latitude), cosine = std::cos(fix.latitude);
    const double normal = semi_major_axis / std::sqrt(1 - e2 * sine * sine);  // [m] radius across the meridian
    record.Set_WGS((normal + fix.height) * cosine * std::cos(fix.longitude),
                   (normal + fix.height) * cosine * std::sin(fix.longitude), (normal * (1 - e2) + fix.height) * sine);
}

}  // namespace

const char Nmea_Decoder::Name[] = "Nmea_Decoder";

Nmea_Decoder::Nmea_Decoder(const Nmea_Options &options)
    : Object(ClassName()), options_(options), positions_(Pos_Server::Construct()), times_(Obs_Server::Construct()),
      scanner_([this](std::string_view body) { Take(body); })
{
}

bool Nmea_Decoder::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Client::IsInheritedFrom(name);
}

void Nmea_Decoder::Set_Error_Handler(Error_Handler *handler)
{
    Byte_Client::Set_Error_Handler(handler);
    positions_->Set_Error_Handler(handler);
    times_->Set_Error_Handler(handler);
}

bool Nmea_Decoder::Send(Byte_Server &server, CL_Mesg message)
{
    switch (message) {
    case Mesg_Request_Invite: server.Request(1); return true;
    case Mesg_Data_Ready: return Pull(server);
    default: return Byte_Client::Send(server, message);
    }
}

// Returns false when nothing was pulled; with true the server would send Mesg_Data_Ready for ever.
bool Nmea_Decoder::Pull(Byte_Server &server)
{
    const long most = static_cast<long>(block_.size());
    bool has_pulled = false;
    for (long got; (got = Bytes_Moved(server.GetNBytes(block_.data(), most), most)) > 0; has_pulled = true)
        scanner_.Feed({block_.data(), static_cast<std::size_t>(got)});
    return has_pulled;
}

void Nmea_Decoder::Finish()
{
    scanner_.Finish();
    utc_.reset();
    const std::uint64_t refused = Count().refused - std::exchange(reported_refused_, Count().refused);
    if (refused > 0)
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Warning, refused_code,
                       "%llu sentences were cut short or had no good checksum.",
                       static_cast<unsigned long long>(refused));
}

void Nmea_Decoder::Take(std::string_view body)
{
    if (const auto fix = Read_Gga(body)) Deliver(*fix);
    if (const auto utc = Read_Rmc(body)) {
        utc_ = utc;
        Deliver_Time();
    }
}

void Nmea_Decoder::Deliver(const Nmea_Fix &fix)
{
    Position *record = positions_->Malloc_Pos();
    if (!record) return;
    // A static record still holds the previous one.
    *record = Position(Solution_Of(fix.quality));
    Set_Place(fix, *record);
    if (record->Get_Solution() != Position::POSITION_KNOWN) record->SetKinematic();
    if (fix.satellites) record->SetNSat(*fix.satellites);
    if (fix.hdop) record->SetHdop(*fix.hdop);
    if (utc_) {
        const double days = std::round((*utc_ - fix.time_of_day) / seconds_per_day);
        record->Set_Time(days * seconds_per_day + fix.time_of_day + options_.leap_seconds);
    }
    positions_->Send_Pos(record);
}

void Nmea_Decoder::Deliver_Time()
{
    EPO_DATA *record = times_->Malloc_Obs(0);
    if (!record) return;
    if (times_->StaticAlloc()) *record = EPO_DATA(0);
    const mTime time(*utc_ + options_.leap_seconds);
    record->StoreGPSTime(Gps_Time(static_cast<unsigned short>(time.get_GPSweek()), time.get_GPSsecs()));
    record->StoreUint8Epo(EPO_SATELLITES, 0);
    times_->Send_Obs(record);
}

}  // namespace host
