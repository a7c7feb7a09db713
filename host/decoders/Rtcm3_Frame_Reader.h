// The client that reads RTCM 3 frames from a byte server.
#pragma once

#include "host/decoders/Rtcm3_Scanner.h"
#include "kernel/connections/BYTE_SER.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

namespace host {

// Pulls all bytes of the server, counts frames per message number, and hands on each intact frame. It is the first
// stage of a decoder.
//
// Threads:   Send, and in it the sink, runs on the server's thread. Any thread may call Progress; call all else while
//            the server does not send.
// Ownership: belongs to the server it is connected to, unless Dont_Delete_Me was called (see Client_Server).
// Errors:    none reported: errors of the stream are counted.
class Rtcm3_Frame_Reader : public kernel::Byte_Client {
public:
    static const char Name[];  // "Rtcm3_Frame_Reader"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    explicit Rtcm3_Frame_Reader(Rtcm3_Sink sink = {});

    bool Send(kernel::Byte_Server &server, kernel::CL_Mesg message) override;
    void Finish() { scanner_.Finish(); }  // the stream has ended

    struct Message_Count {
        std::uint64_t frames = 0;
        std::uint64_t bytes = 0;  // of whole frames: payload and 6 bytes of header and CRC
    };
    const Message_Count &Messages(unsigned int number) const { return messages_[number]; }  // number: 0 to 4095
    const Rtcm3_Scanner::Counters &Count() const { return scanner_.Count(); }

    // Three of the counters after the last block. They are read one by one, so they may belong to different blocks.
    struct Progress_Count {
        std::uint64_t bytes, frames, crc_failures;
    };
    Progress_Count Progress() const;

    static constexpr unsigned int message_numbers = 4096;

private:
    bool Pull(kernel::Byte_Server &server);
    void Take(const Rtcm3_Frame &frame);

    Rtcm3_Sink sink_;
    Rtcm3_Scanner scanner_;
    std::vector<Message_Count> messages_;  // indexed by message number
    std::array<unsigned char, 4096> block_;
    std::atomic<std::uint64_t> bytes_{0}, frames_{0}, crc_failures_{0};  // relaxed: for display only
};

}  // namespace host
