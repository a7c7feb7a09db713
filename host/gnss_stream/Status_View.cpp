#include "host/gnss_stream/Status_View.h"

#include <cstdio>
#include <utility>

namespace host {

namespace {

using namespace std::chrono_literals;

constexpr auto refresh = 200ms;  // of the live line
constexpr std::size_t live_width = 79;

double Per_Second(std::uint64_t bytes, std::chrono::steady_clock::duration time)
{
    const double seconds = std::chrono::duration<double>(time).count();
    return seconds > 0 ? static_cast<double>(bytes) / seconds : 0;
}

std::string Megabytes(double bytes)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.3f MB", bytes / 1e6);
    return text;
}

}  // namespace

Status_View::Status_View(const Options &options, Console &console)
    : options_(options), console_(console), start_(Clock::now()), live_shown_(start_), lines_shown_(start_)
{
}

void Status_View::Add(Live live, std::string label, std::string name, const Endpoint &end, Bytes bytes)
{
    streams_.push_back({live, std::move(label), std::move(name), end, std::move(bytes)});
}

void Status_View::Pass()
{
    const auto now = Clock::now();
    if (options_.live && now - live_shown_ >= refresh) Show_Live(now);
    if (options_.interval > 0s && now - lines_shown_ >= options_.interval) Show_Lines(now);
}

void Status_View::Last()
{
    const auto now = Clock::now();
    if (options_.live) Show_Live(now);
    console_.Keep_Live();
    if (options_.interval > 0s) Show_Lines(now);
}

// Shows the mean rate since the start.
std::string Status_View::Live_Part(const Stream &stream, Clock::time_point now) const
{
    const std::string state = stream.label + stream.end.Status().state;
    if (stream.live == Live::state) return state;
    const std::uint64_t bytes = stream.bytes();
    const std::string part = state + ' ' + Megabytes(static_cast<double>(bytes));
    return stream.live == Live::bytes ? part : part + ", " + Megabytes(Per_Second(bytes, now - start_)) + "/s";
}

// Cut to the width of a terminal: a line that is broken in two could not be rewritten.
void Status_View::Show_Live(Clock::time_point now)
{
    live_shown_ = now;
    std::string line;
    for (const Stream &stream : streams_) line += (line.empty() ? "" : " | ") + Live_Part(stream, now);
    console_.Show_Live(line.substr(0, live_width));
}

// Shows the mean rates since the last lines.
void Status_View::Show_Lines(Clock::time_point now)
{
    const auto time = now - std::exchange(lines_shown_, now);
    for (Stream &stream : streams_) {
        const Stream_Status status = stream.end.Status();
        const std::uint64_t bytes = stream.bytes();
        const std::uint64_t before = std::exchange(stream.bytes_before, bytes);
        const double rate = Per_Second(bytes > before ? bytes - before : 0, time);
        console_.Print(Console::ES_Message, stream.name + ": " + status.state + ", " + std::to_string(bytes) +
                                                " bytes, " + std::to_string(static_cast<std::uint64_t>(rate)) +
                                                " bytes/s" + (status.peer.empty() ? "" : ", peer " + status.peer));
    }
}

}  // namespace host
