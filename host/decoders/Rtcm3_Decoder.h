// RTCM 3 into records: the byte client at the start of what a host does with a receiver's stream.
//
//   byte server -> Rtcm3_Decoder -> Obs_Server      EPO_DATA     per closed epoch
//                                   Eph_Server      KeplerData   per new 1019
//                                   Glo_Eph_Server  GlonassEph   per new 1020
//                                   Pos_Server      Position     per 1005 and 1006
#pragma once

#include "host/decoders/Rtcm3_Epoch.h"
#include "host/decoders/Rtcm3_Epoch_Record.h"
#include "host/decoders/Rtcm3_Frame_Reader.h"
#include "host/decoders/Rtcm3_Messages.h"
#include "kernel/connections/BYTE_SER.h"
#include "kernel/records/OBS_SERV.h"
#include "kernel/records/Typed_Servers.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace host {

// Connect clients to its four servers, connect it to a byte server, and call Finish when the stream has ended: the last
// epoch is closed then. How an epoch fills its record stands in Rtcm3_Epoch_Record.h, which week it has in Rtcm3_Clock.h.
//
// An ephemeris that says the same as the last one of its satellite which a client took is not sent again, unless the week
// was corrected. Kepler_sent is unknown: the message does not tell. A position is that of the antenna reference point as the message has it, static and
// POSITION_KNOWN; its point number is the station's, its time that of the last epoch, where that has a week.
//
// Threads:   Send and Finish belong to the byte server's thread, and all records are sent on it. Counters are read when it
//            does not send; Reader().Progress() at any time.
// Ownership: belongs to the byte server it is connected to, unless Dont_Delete_Me was called (see Client_Server). Owns the
//            four servers, and they their clients: a client that shall live longer calls Dont_Delete_Me.
// Errors:    what could not be decoded is reported as a warning (code 60 and the fault's number) once per kind, and at
//            Finish with its count, as are GLONASS messages that could not be dated (code 60), and doubts about the week
//            and the leap seconds (code 70 and the doubt's number); a new run begins then.
//            Memory that is short is reported by the server concerned and costs that record.
class Rtcm3_Decoder : public kernel::Byte_Client {
public:
    static const char Name[];  // "Rtcm3_Decoder"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    explicit Rtcm3_Decoder(const Rtcm3_Options &options = {});
    // Not copied. The parameter is not const, so that the {} of Rtcm3_Decoder({}) can only mean the options.
    Rtcm3_Decoder(Rtcm3_Decoder &) = delete;
    Rtcm3_Decoder &operator=(const Rtcm3_Decoder &) = delete;

    bool Send(kernel::Byte_Server &server, kernel::CL_Mesg message) override;
    void Finish();

    using Object::Set_Error_Handler;
    void Set_Error_Handler(kernel::Error_Handler *handler) override;  // the servers' as well

    kernel::Obs_Server &Observations() { return *observations_; }
    kernel::Eph_Server &Ephemerides() { return *ephemerides_; }
    kernel::Glo_Eph_Server &Glonass_Ephemerides() { return *glonass_ephemerides_; }
    kernel::Pos_Server &Positions() { return *positions_; }

    const Rtcm3_Frame_Reader &Reader() const { return reader_; }  // counts of bytes, frames and messages
    const Rtcm3_Message_Decoder &Messages() const { return decoder_; }
    const Rtcm3_Epoch_Assembler::Counters &Epochs() const { return assembler_.Count(); }
    const Rtcm3_Clock &Clock() const { return assembler_.Clock(); }
    // What 1007, 1008 and 1033 said last, each in the fields that it has; message 0: none came.
    const Rtcm3_Equipment &Equipment() const { return equipment_; }

private:
    using Payload = std::vector<unsigned char>;

    void Take(const Rtcm3_Frame &frame);
    void Deliver(const Rtcm3_Epoch &epoch);
    bool Deliver(const Rtcm3_Gps_Ephemeris &ephemeris);
    bool Deliver(const Rtcm3_Glonass_Ephemeris &ephemeris);
    void Deliver(const Rtcm3_Station &station);
    template <class Ephemeris>
    void Deliver_New(const Ephemeris &ephemeris, std::span<const unsigned char> payload, Payload &last);
    void Note(const Rtcm3_Equipment &equipment);
    void Note_Doubts();
    void Report_Doubt(Rtcm3_Doubt kind, const std::string &more);
    void Report_Fault(Rtcm3_Fault fault, unsigned int message);
    void Report_Counts();

    const std::unique_ptr<kernel::Obs_Server> observations_;
    const std::unique_ptr<kernel::Eph_Server> ephemerides_;
    const std::unique_ptr<kernel::Glo_Eph_Server> glonass_ephemerides_;
    const std::unique_ptr<kernel::Pos_Server> positions_;

    Rtcm3_Frame_Reader reader_;
    Rtcm3_Message_Decoder decoder_;
    Rtcm3_Epoch_Assembler assembler_;
    Rtcm3_Epoch_Record record_;
    std::optional<kernel::Gps_Time> time_;                       // of the last epoch, where it has a week
    std::array<Payload, 33> last_gps_, last_glonass_;            // by PRN and slot: the ephemeris that was taken
    std::array<std::uint64_t, rtcm3_faults> reported_faults_{};  // counts in earlier runs
    std::uint64_t reported_undated_ = 0;
    std::array<std::uint64_t, rtcm3_doubts> seen_doubts_{}, reported_doubts_{};  // counts now, and in earlier runs
    Rtcm3_Equipment equipment_;
};

}  // namespace host
