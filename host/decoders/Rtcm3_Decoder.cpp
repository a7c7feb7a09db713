#include "host/decoders/Rtcm3_Decoder.h"

#include "kernel/base/Error_Handler.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace host {

namespace {

using namespace kernel;

const char unit[] = "host/Rtcm3_Decoder";
constexpr Err_Code fault_code = 60;  // plus the number of the fault
constexpr Err_Code doubt_code = 70;  // plus the number of the doubt

// Indexed by Rtcm3_Doubt; the numbers are the former value and what the stream shows.
constexpr const char *doubt_texts[rtcm3_doubts] = {
    "GPS week %d is in doubt: ephemerides say %d.",
    "GPS week %d was wrong: the stream shows %d.",
    "The GPS week is in doubt: it has %d leap seconds, the stream %d.",
    "Leap seconds %d are in doubt: GLONASS and GPS times differ by %d.",
};

void Fill_Orbit(const Rtcm3_Gps_Ephemeris &from, KeplerData &to)
{
    to[Kepler_toe] = from.toe;
    to[Kepler_Omega0] = from.omega0;
    to[Kepler_i0] = from.i0;
    to[Kepler_omega] = from.omega;
    to[Kepler_A] = from.semi_major_axis;
    to[Kepler_e] = from.e;
    to[Kepler_M0] = from.m0;
    to[Kepler_OmegaDot] = from.omega_dot;
    to[Kepler_IDot] = from.i_dot;
    to[Kepler_DeltaN] = from.delta_n;
    to[Kepler_Crs] = from.crs;
    to[Kepler_Crc] = from.crc;
    to[Kepler_Cis] = from.cis;
    to[Kepler_Cic] = from.cic;
    to[Kepler_Cus] = from.cus;
    to[Kepler_Cuc] = from.cuc;
}

// Kepler_sent stays 0: the message does not contain the time of transmission.
void Fill(const Rtcm3_Gps_Ephemeris &from, int week, KeplerData &to)
{
    Fill_Orbit(from, to);
    to[Kepler_week] = week;
    to[Kepler_toc] = from.toc;
    to[Kepler_af0] = from.af0;
    to[Kepler_af1] = from.af1;
    to[Kepler_af2] = from.af2;
    to[Kepler_TGD] = from.tgd;
    to[Kepler_IODE] = from.iode;
    to[Kepler_IODC] = from.iodc;
    to.Set(Kepler_prn, from.prn);
    to.Set(Kepler_health, from.health);
    to.Set(Kepler_accuracy, from.ura);
    to.Set(Kepler_L2_code, from.l2_code);
    to.Set(Kepler_L2P_data_off, from.l2p_no_data);
    to.Set(Kepler_fit_interval, from.long_fit);
}

void Fill_Clock_And_Marks(const Rtcm3_Glonass_Ephemeris &from, GlonassEph &to)
{
    to.tau_n = from.tau;
    to.gamma_n = from.gamma;
    to.delta_tau_n = from.delta_tau;
    to.En = from.en;
    to.Bn = from.bn_msb ? GlonassEph::Bn_Malfunction : 0;  // of its three bits only the highest is sent
    to.ln = from.ln_third;
    to.almanac_known = from.almanac_health_known;
    to.Cn = from.almanac_health;
    to.M = from.m;
    to.FT = from.ft;
    to.P = from.p;
    to.P1 = from.p1;
    to.P2 = from.p2;
    to.P3 = from.p3;
    to.P4 = from.p4;
}

void Fill(const Rtcm3_Glonass_Ephemeris &from, GlonassEph &to)
{
    to.slot = from.slot;
    to.channel = from.channel;
    to.tb = from.tb;
    to.tk = from.tk;
    to.NT = from.nt;
    to.N4 = from.n4;
    to.position = from.position;
    to.velocity = from.velocity;
    to.acceleration = from.acceleration;
    Fill_Clock_And_Marks(from, to);
    to.additional = from.additional;
    to.NA = from.na;
    to.tau_c = from.tau_c;
    to.tau_GPS = from.tau_gps;
    to.ln5 = from.ln_fifth;
}

}  // namespace

const char Rtcm3_Decoder::Name[] = "Rtcm3_Decoder";

Rtcm3_Decoder::Rtcm3_Decoder(const Rtcm3_Options &options)
    : Object(ClassName()), observations_(Obs_Server::Construct()), ephemerides_(Eph_Server::Construct()),
      glonass_ephemerides_(Glo_Eph_Server::Construct()), positions_(Pos_Server::Construct()),
      reader_([this](const Rtcm3_Frame &frame) { Take(frame); }),
      assembler_([this](const Rtcm3_Epoch &epoch) { Deliver(epoch); }, options)
{
}

bool Rtcm3_Decoder::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Client::IsInheritedFrom(name);
}

void Rtcm3_Decoder::Set_Error_Handler(Error_Handler *handler)
{
    Byte_Client::Set_Error_Handler(handler);
    for (Object *server : {static_cast<Object *>(observations_.get()), static_cast<Object *>(ephemerides_.get()),
                           static_cast<Object *>(glonass_ephemerides_.get()), static_cast<Object *>(positions_.get())})
        server->Set_Error_Handler(handler);
}

// The reader pulls the data. All other messages are handled by this client.
bool Rtcm3_Decoder::Send(Byte_Server &server, CL_Mesg message)
{
    const bool pulls = message == Mesg_Request_Invite || message == Mesg_Data_Ready;
    return pulls ? reader_.Send(server, message) : Byte_Client::Send(server, message);
}

void Rtcm3_Decoder::Finish()
{
    // The reader first: an incomplete frame may contain a shorter one that belongs to the open epoch.
    reader_.Finish();
    assembler_.Finish();
    Report_Counts();
}

void Rtcm3_Decoder::Take(const Rtcm3_Frame &frame)
{
    const Rtcm3_Message *message = decoder_.Decode(frame.payload());
    if (!message) return Report_Fault(decoder_.Last_Fault(), frame.message);
    assembler_.Take(*message);
    Note_Doubts();
    if (const auto *equipment = std::get_if<Rtcm3_Equipment>(message)) Note(*equipment);
    if (const auto *station = std::get_if<Rtcm3_Station>(message)) Deliver(*station);
    // PRN and slot are within the arrays; Decode refuses others.
    if (const auto *gps = std::get_if<Rtcm3_Gps_Ephemeris>(message))
        Deliver_New(*gps, frame.payload(), last_gps_[gps->prn]);
    if (const auto *glonass = std::get_if<Rtcm3_Glonass_Ephemeris>(message))
        Deliver_New(*glonass, frame.payload(), last_glonass_[glonass->slot]);
}

// Stores the time even if no satellite can be used, because positions carry the time of the last epoch. A static record
// still holds the previous epoch with its capacity, so it is replaced.
void Rtcm3_Decoder::Deliver(const Rtcm3_Epoch &epoch)
{
    time_.reset();
    if (epoch.week) time_ = Gps_Time(static_cast<unsigned short>(*epoch.week), epoch.tow / 1000.0);
    const int satellites = record_.Select(epoch);
    if (satellites == 0) return;
    EPO_DATA *record = observations_->Malloc_Obs(satellites);
    if (!record) return;
    if (observations_->StaticAlloc()) *record = EPO_DATA(satellites);
    record_.Store(epoch, *record);
    observations_->Send_Obs(record);
}

// Compares the payloads byte by byte, so that no field is missed. The payload is remembered only if the client took the
// ephemeris, so that a client that connects later gets the current ones.
template <class Ephemeris>
void Rtcm3_Decoder::Deliver_New(const Ephemeris &ephemeris, std::span<const unsigned char> payload, Payload &last)
{
    if (std::equal(payload.begin(), payload.end(), last.begin(), last.end())) return;
    if (Deliver(ephemeris)) last.assign(payload.begin(), payload.end());
}

bool Rtcm3_Decoder::Deliver(const Rtcm3_Gps_Ephemeris &ephemeris)
{
    KeplerData *record = ephemerides_->Malloc_Eph();
    if (!record) return false;
    // A static record still holds the previous ephemeris; likewise below.
    *record = KeplerData();
    Fill(ephemeris, assembler_.Clock().Full(ephemeris.week), *record);
    return ephemerides_->Send_Eph(record);
}

bool Rtcm3_Decoder::Deliver(const Rtcm3_Glonass_Ephemeris &ephemeris)
{
    GlonassEph *record = glonass_ephemerides_->Malloc_Glo_Eph();
    if (!record) return false;
    *record = GlonassEph();
    Fill(ephemeris, *record);
    return glonass_ephemerides_->Send_Glo_Eph(record);
}

void Rtcm3_Decoder::Deliver(const Rtcm3_Station &station)
{
    // Sent each time, although the position seldom changes: its time is new.
    Position *record = positions_->Malloc_Pos();
    if (!record) return;
    *record = Position(Position::POSITION_KNOWN);
    record->Set_WGS(station.x, station.y, station.z);
    record->SetStatic();
    if (Has_Value(station.antenna_height)) record->Set_Antenna_Height(station.antenna_height);
    if (time_) record->Set_Time(time_->week, time_->sec);
    record->Set_Point_Number(std::to_string(station.station).c_str());
    positions_->Send_Pos(record);
}

void Rtcm3_Decoder::Note(const Rtcm3_Equipment &equipment)
{
    Rtcm3_Equipment all = equipment;
    constexpr unsigned int with_antenna_serial = 1008, with_receiver = 1033;  // message numbers
    if (all.message < with_antenna_serial) all.antenna_serial = equipment_.antenna_serial;
    if (all.message < with_receiver) {
        all.receiver = equipment_.receiver;
        all.firmware = equipment_.firmware;
        all.receiver_serial = equipment_.receiver_serial;
    }
    equipment_ = all;
}

void Rtcm3_Decoder::Note_Doubts()
{
    for (std::size_t index = 0; index < rtcm3_doubts; ++index) {
        const auto kind = static_cast<Rtcm3_Doubt>(index);
        const std::uint64_t count = Clock().Doubts(kind).count;
        const bool first = seen_doubts_[index] == reported_doubts_[index];
        if (std::exchange(seen_doubts_[index], count) == count) continue;
        // The ephemerides sent so far have the wrong week, so they are sent again.
        if (kind == Rtcm3_Doubt::week_corrected) last_gps_.fill({});
        if (first) Report_Doubt(kind, "More of this kind are only counted.");
    }
}

void Rtcm3_Decoder::Report_Doubt(Rtcm3_Doubt kind, const std::string &more)
{
    const auto index = static_cast<std::size_t>(kind);
    const Rtcm3_Clock::Doubt &doubt = Clock().Doubts(kind);
    std::string text = doubt_texts[index];
    for (const int number : {doubt.had, doubt.shown}) text.replace(text.find("%d"), 2, std::to_string(number));
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Warning, doubt_code + static_cast<int>(index), "%s %s", text.c_str(),
                   more.c_str());
}

void Rtcm3_Decoder::Report_Fault(Rtcm3_Fault fault, unsigned int message)
{
    // Report only the first one since the last Report_Counts; the decoder has counted it already.
    const auto index = static_cast<std::size_t>(fault);
    if (decoder_.Count(fault) != reported_faults_[index] + 1) return;
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Warning, fault_code + static_cast<int>(index),
                   "RTCM 3 message %u not decoded: %s. More of this kind are only counted.", message,
                   Rtcm3_Fault_Name(fault));
}

void Rtcm3_Decoder::Report_Counts()
{
    // From 1 on: index 0 counts the messages without a fault.
    for (std::size_t index = 1; index < rtcm3_faults; ++index) {
        const auto fault = static_cast<Rtcm3_Fault>(index);
        // Added to the earlier runs at once: a stream that continues after Finish is a new run.
        const std::uint64_t count = decoder_.Count(fault) - reported_faults_[index];
        reported_faults_[index] += count;
        if (count == 0) continue;
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Warning, fault_code + static_cast<int>(index),
                       "RTCM 3 messages not decoded: %llu: %s.", static_cast<unsigned long long>(count),
                       Rtcm3_Fault_Name(fault));
    }
    for (std::size_t index = 0; index < rtcm3_doubts; ++index) {
        const std::uint64_t count = seen_doubts_[index] - reported_doubts_[index];
        reported_doubts_[index] = seen_doubts_[index];
        if (count > 0) Report_Doubt(static_cast<Rtcm3_Doubt>(index), "Counted: " + std::to_string(count) + ".");
    }
    const std::uint64_t undated = Epochs().undated - reported_undated_;
    reported_undated_ += undated;
    if (undated == 0) return;
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Warning, fault_code, "GLONASS messages dropped: %llu: nothing to date them by.",
                   static_cast<unsigned long long>(undated));
}

}  // namespace host
