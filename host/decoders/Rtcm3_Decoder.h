// Turns an RTCM 3 byte stream into records. It is the byte client at the start of a host's chain.
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

// Connect clients to its four servers, connect it to a byte server, and call Finish when the stream has ended: Finish
// closes the last epoch. Rtcm3_Epoch_Record.h says how an epoch fills its record, Rtcm3_Clock.h which week it has.
//
// An ephemeris equal to the last one of its satellite that the client took is not sent again, unless the week was
// corrected. Kepler_sent is unknown, because the message does not contain it. A position is the antenna reference point
// of the message, static and POSITION_KNOWN. Its point number is the number of the station. Its time is that of the
// last epoch, if that has a week.
//
// Threads:   Send and Finish run on the byte server's thread, and all records are sent on it. Read counters while it
//            does not send; call Reader().Progress() at any time.
// Ownership: belongs to the byte server it is connected to, unless Dont_Delete_Me was called (see Client_Server). Owns
//            the four servers, and they own their clients: call Dont_Delete_Me on a client that must live longer.
// Errors:    a message that cannot be decoded is reported as a warning (code 60 plus the number of the fault), the
//            first of each kind at once, the others at Finish with their count. Likewise reported are GLONASS messages
//            that could not be dated (code 60), at Finish only, and doubts about the week and the leap seconds (code 70
//            plus the number of the doubt). A new run begins after Finish. Lack of memory is reported by the server
//            concerned, and that record is lost.
class Rtcm3_Decoder : public kernel::Byte_Client {
public:
    static const char Name[];  // "Rtcm3_Decoder"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    explicit Rtcm3_Decoder(const Rtcm3_Options &options = {});
    // Not copyable. The parameter is not const, so that the {} of Rtcm3_Decoder({}) can only mean the options.
    Rtcm3_Decoder(Rtcm3_Decoder &) = delete;
    Rtcm3_Decoder &operator=(const Rtcm3_Decoder &) = delete;

    bool Send(kernel::Byte_Server &server, kernel::CL_Mesg message) override;
    void Finish();

    using Object::Set_Error_Handler;
    void Set_Error_Handler(kernel::Error_Handler *handler) override;  // also of the four servers

    kernel::Obs_Server &Observations() { return *observations_; }
    kernel::Eph_Server &Ephemerides() { return *ephemerides_; }
    kernel::Glo_Eph_Server &Glonass_Ephemerides() { return *glonass_ephemerides_; }
    kernel::Pos_Server &Positions() { return *positions_; }

    const Rtcm3_Frame_Reader &Reader() const { return reader_; }  // counts of bytes, frames and messages
    const Rtcm3_Message_Decoder &Messages() const { return decoder_; }
    const Rtcm3_Epoch_Assembler::Counters &Epochs() const { return assembler_.Count(); }
    const Rtcm3_Clock &Clock() const { return assembler_.Clock(); }
    // The last values of 1007, 1008 and 1033, each in the fields that it has; message 0: none was received.
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
    std::optional<kernel::Gps_Time> time_;                       // of the last epoch, if it has a week
    std::array<Payload, 33> last_gps_, last_glonass_;            // by PRN and slot: the last ephemeris taken
    std::array<std::uint64_t, rtcm3_faults> reported_faults_{};  // counts in earlier runs
    std::uint64_t reported_undated_ = 0;
    std::array<std::uint64_t, rtcm3_doubts> seen_doubts_{}, reported_doubts_{};  // counts now, and in earlier runs
    Rtcm3_Equipment equipment_;
};

}  // namespace host
