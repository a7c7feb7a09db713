// Turns NMEA 0183 into records. It is the byte client at the start of a host's chain.
//
//   byte server -> Nmea_Decoder -> Pos_Server   Position   per GGA with a position
//                                  Obs_Server   EPO_DATA   per RMC with a time: an epoch without satellites
#pragma once

#include "host/decoders/Nmea_Sentence.h"
#include "kernel/connections/BYTE_SER.h"
#include "kernel/records/OBS_SERV.h"
#include "kernel/records/Typed_Servers.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

namespace host {

struct Nmea_Options {
    // [s] GPS - UTC. NMEA has UTC, records have GPS time. 18 since 2017; recordings from before want another one.
    int leap_seconds = 18;
};

// Connect clients to its two servers, connect it to a byte server, and call Finish when the stream has ended.
//
// The time of a position is its time of day on the day of the last RMC, the day before or the day after, whichever is
// nearest. Before the first RMC a position has no time. Its solution is SINGLE_POINT for the qualities 1 and 3, DGPS,
// FIXED_SOL, FLOAT_SOL, POSITION_KNOWN for one that was set by hand, else UNKNOWN. One that was set by hand is static,
// the others are kinematic.
//
// Threads:   Send and Finish run on the byte server's thread, and all records are sent on it.
// Ownership: belongs to the byte server it is connected to, unless Dont_Delete_Me was called (see Client_Server). Owns
//            the two servers, and they own their clients: call Dont_Delete_Me on a client that must live longer.
// Errors:    the number of refused sentences is reported as a warning (code 80) at Finish. Lack of memory is reported
//            by the server concerned, and that record is lost.
class Nmea_Decoder : public kernel::Byte_Client {
public:
    static const char Name[];  // "Nmea_Decoder"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    explicit Nmea_Decoder(const Nmea_Options &options = {});
    Nmea_Decoder(Nmea_Decoder &) = delete;
    Nmea_Decoder &operator=(const Nmea_Decoder &) = delete;

    bool Send(kernel::Byte_Server &server, kernel::CL_Mesg message) override;
    void Finish();

    using Object::Set_Error_Handler;
    void Set_Error_Handler(kernel::Error_Handler *handler) override;  // also of the two servers

    kernel::Pos_Server &Positions() { return *positions_; }
    kernel::Obs_Server &Times() { return *times_; }
    const Nmea_Scanner::Counters &Count() const { return scanner_.Count(); }

private:
    bool Pull(kernel::Byte_Server &server);
    void Take(std::string_view body);
    void Deliver(const Nmea_Fix &fix);
    void Deliver_Time();

    const Nmea_Options options_;
    const std::unique_ptr<kernel::Pos_Server> positions_;
    const std::unique_ptr<kernel::Obs_Server> times_;
    Nmea_Scanner scanner_;
    std::optional<double> utc_;           // [s] of the last RMC, see Read_Rmc
    std::uint64_t reported_refused_ = 0;  // in earlier runs
    std::array<unsigned char, 1024> block_;
};

}  // namespace host
