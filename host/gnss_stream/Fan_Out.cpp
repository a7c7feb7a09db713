#include "host/gnss_stream/Fan_Out.h"

#include <cstring>
#include <thread>

namespace host {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr auto look = 100us;       // between two looks at an output that has no room
constexpr auto live_wait = 250ms;  // for room, with a live input

}  // namespace

const char Fan_Out::Name[] = "Fan_Out";

Fan_Out::Fan_Out(Source source, std::chrono::milliseconds patience)
    : Object(ClassName()), source_(source), patience_(patience), last_(steady_clock::now())
{
}

bool Fan_Out::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Client::IsInheritedFrom(name);
}

bool Fan_Out::Send(kernel::Byte_Server &server, kernel::CL_Mesg message)
{
    switch (message) {
    case kernel::Mesg_Request_Invite: server.Request(1); return true;
    case kernel::Mesg_Data_Ready: return Pull(server);
    case kernel::Mesg_Attached: last_ = steady_clock::now(); break;  // silence counts from the connection
    case kernel::Mesg_Detached: Pull(server); break;                 // bytes that were not delivered before the loss
    case kernel::Mesg_Status_50: return steady_clock::now() - last_ < patience_;  // the base always returns true
    default: break;
    }
    return Byte_Client::Send(server, message);
}

// Returns false when nothing was pulled: after true the server would repeat the message for ever.
bool Fan_Out::Pull(kernel::Byte_Server &server)
{
    const long most = static_cast<long>(block_.size());
    bool pulled = false;
    busy_.store(true, std::memory_order_relaxed);
    for (long got; (got = kernel::Bytes_Moved(server.GetNBytes(block_.data(), most), most)) > 0; pulled = true) {
        const auto n = static_cast<std::size_t>(got);
        bytes_.fetch_add(n, std::memory_order_relaxed);
        for (Branch &branch : branches_) Hand_On(branch, {block_.data(), n});
    }
    busy_.store(false, std::memory_order_relaxed);
    // Set after the outputs have the block: the time spent waiting for them is no silence of the input.
    if (pulled) last_ = steady_clock::now();
    return pulled;
}

void Fan_Out::Hand_On(Branch &branch, std::span<const unsigned char> block)
{
    if (source_ == Source::live)
        Wait_Briefly(branch, block.size());
    else if (!Wait_For_Room(*branch.output, block.size()))
        return;
    branch.output->Put(block);  // without room: the output decides what it discards, and reports it
}

void Fan_Out::Wait_Briefly(Branch &branch, std::size_t n)
{
    const Output &output = *branch.output;
    // Nothing was sent since the last wait in vain: nobody reads, and another wait would slow down all other outputs.
    if (output.Room() >= n || !output.Is_Up() || branch.gave_up_at == output.Sent()) return;
    const auto end = steady_clock::now() + live_wait;
    while (output.Room() < n && output.Is_Up() && steady_clock::now() < end) std::this_thread::sleep_for(look);
    branch.gave_up_at.reset();
    if (output.Room() < n) branch.gave_up_at = output.Sent();
}

// Polls, because no event tells of room: threads of the library empty the outputs' buffers. A look costs little
// compared with sending a whole buffer.
bool Fan_Out::Wait_For_Room(const Output &output, std::size_t n) const
{
    // Bytes sent show that somebody reads, even before there is enough room.
    std::uint64_t sent = output.Sent();
    for (auto since = steady_clock::now(); output.Room() < n && output.Is_Up();) {
        std::this_thread::sleep_for(look);
        if (sent != output.Sent()) {
            sent = output.Sent();
            since = steady_clock::now();
        }
        // Read each time, because the end of the run sets it to end this loop.
        const std::int64_t limit = limit_ms_.load(std::memory_order_relaxed);
        if (limit >= 0 && steady_clock::now() - since > std::chrono::milliseconds(limit)) return false;
    }
    return true;
}

void Fan_Out::Limit_Waiting(std::chrono::milliseconds limit)
{
    limit_ms_.store(limit.count(), std::memory_order_relaxed);
}

}  // namespace host
