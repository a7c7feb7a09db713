#include "host/decoders/Rtcm3_Frame_Reader.h"

#include <cstring>
#include <utility>

namespace host {

const char Rtcm3_Frame_Reader::Name[] = "Rtcm3_Frame_Reader";

Rtcm3_Frame_Reader::Rtcm3_Frame_Reader(Rtcm3_Sink sink)
    : Object(ClassName()), sink_(std::move(sink)), scanner_([this](const Rtcm3_Frame &frame) { Take(frame); }),
      messages_(message_numbers)
{
}

bool Rtcm3_Frame_Reader::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Client::IsInheritedFrom(name);
}

bool Rtcm3_Frame_Reader::Send(kernel::Byte_Server &server, kernel::CL_Mesg message)
{
    // A request of one byte is enough: Pull takes all there is.
    switch (message) {
    case kernel::Mesg_Request_Invite: server.Request(1); return true;
    case kernel::Mesg_Data_Ready: return Pull(server);
    default: return Byte_Client::Send(server, message);
    }
}

// Returns false when nothing was pulled; with true the server would send Mesg_Data_Ready for ever.
bool Rtcm3_Frame_Reader::Pull(kernel::Byte_Server &server)
{
    const long most = static_cast<long>(block_.size());
    bool pulled = false;
    for (long got; (got = kernel::Bytes_Moved(server.GetNBytes(block_.data(), most), most)) > 0; pulled = true)
        scanner_.Feed({block_.data(), static_cast<std::size_t>(got)});
    // Published once per block for Progress(); the scanner's own counters are not atomic.
    bytes_.store(Count().bytes, std::memory_order_relaxed);
    frames_.store(Count().frames, std::memory_order_relaxed);
    crc_failures_.store(Count().crc_failures, std::memory_order_relaxed);
    return pulled;
}

void Rtcm3_Frame_Reader::Take(const Rtcm3_Frame &frame)
{
    // A number has twelve bits, so it is a valid index.
    Message_Count &count = messages_[frame.message];
    ++count.frames;
    count.bytes += frame.bytes.size();
    if (sink_) sink_(frame);
}

Rtcm3_Frame_Reader::Progress_Count Rtcm3_Frame_Reader::Progress() const
{
    return {bytes_.load(std::memory_order_relaxed), frames_.load(std::memory_order_relaxed),
            crc_failures_.load(std::memory_order_relaxed)};
}

}  // namespace host
