#include "host/gnss_stream/Fan_Out.h"

#include <cstring>
#include <thread>

namespace host {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr auto look = 100us;  // at an output that has no room
constexpr auto live_wait = 250ms;

}  // namespace

const char Fan_Out::Name[] = "Fan_Out";

Fan_Out::Fan_Out(bool input_can_wait, std::chrono::milliseconds patience)
    : Object(ClassName()), input_can_wait_(input_can_wait), patience_(patience), last_(steady_clock::now())
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
    case kernel::Mesg_Attached: last_ = steady_clock::now(); break;  // a new one has all the patience
    case kernel::Mesg_Detached: Pull(server); break;                 // what came and was not delivered any more
    case kernel::Mesg_Status_50: return steady_clock::now() - last_ < patience_;  // the base would say yes
    default: break;
    }
    return Byte_Client::Send(server, message);
}

// An answer of true for nothing pulled would make the server ask for ever.
bool Fan_Out::Pull(kernel::Byte_Server &server)
{
    const long most = static_cast<long>(block_.size());
    bool pulled = false;
    busy_.store(true, std::memory_order_relaxed);
    for (long got; (got = server.GetNBytes(block_.data(), most)) > 0 && got <= most; pulled = true) {
        const auto n = static_cast<std::size_t>(got);
        bytes_.fetch_add(n, std::memory_order_relaxed);
        for (Branch &branch : branches_) Hand_On(branch, {block_.data(), n});
    }
    busy_.store(false, std::memory_order_relaxed);
    // After the outputs, which may have kept us waiting: that was no silence of the input.
    if (pulled) last_ = steady_clock::now();
    return pulled;
}

void Fan_Out::Hand_On(Branch &branch, std::span<const unsigned char> block)
{
    if (!input_can_wait_) Wait_Briefly(branch, block.size());
    if (!input_can_wait_ || Wait_For_Room(*branch.output, block.size()))
        // From a live input it comes also without room: what to discard is the output's choice, and its report.
        branch.output->Put(block);
}

void Fan_Out::Wait_Briefly(Branch &branch, std::size_t n)
{
    const Output &output = *branch.output;
    // Nothing sent since it was given up: nobody reads there, and waiting would slow down all others with every block.
    if (output.Room() >= n || !output.Is_Up() || branch.gave_up_at == output.Sent()) return;
    const auto end = steady_clock::now() + live_wait;
    while (output.Room() < n && output.Is_Up() && steady_clock::now() < end) std::this_thread::sleep_for(look);
    branch.gave_up_at.reset();
    if (output.Room() < n) branch.gave_up_at = output.Sent();
}

// Room comes when the system takes bytes. There is nothing to be woken by: the outputs' buffers are emptied by threads of
// the library, and looking that often costs nothing beside a whole buffer on its way.
bool Fan_Out::Wait_For_Room(const Output &output, std::size_t n) const
{
    // What is sent shows that somebody reads, also before there is room enough.
    std::uint64_t sent = output.Sent();
    for (auto since = steady_clock::now(); output.Room() < n && output.Is_Up();) {
        std::this_thread::sleep_for(look);
        if (sent != output.Sent()) {
            sent = output.Sent();
            since = steady_clock::now();
        }
        // Asked anew each time: at the end of the run it is set while this goes on, and is to end it.
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
