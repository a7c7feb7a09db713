#include "host/gnss_stream/Tagged_Replay.h"

#include "host/gnss_stream/Drain.h"
#include "host/gnss_stream/File_Name.h"
#include "host/gnss_stream/Timer_Tick.h"
#include "kernel/files/file_timetag_client.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <system_error>
#include <thread>

namespace host {

namespace {

using kernel::Error_Handler;

const char unit[] = "host/Tagged_Replay";
constexpr std::uint64_t stride = 1U << 20;                     // bytes between two looks at the stop flag
constexpr std::chrono::duration<double> longest_sleep{0.020};  // between two looks at it
constexpr double long_silence = 60;                            // [s] that is announced

}  // namespace

Tagged_Replay::Tagged_Replay(kernel::File_Server &server, const Replay_Pace &pace, Error_Handler &handler)
    : server_(server), pace_(pace), handler_(handler)
{
}

bool Tagged_Replay::Open(const std::string &recording)
{
    const std::string tags = kernel::File_TimeTag_Client::Tag_File_Name(recording.c_str());
    std::error_code error;
    // Looked at first: opening a pipe would wait for its other end.
    if (!tags.empty() && std::filesystem::is_regular_file(Path_Of(tags), error))
        rows_.open(Path_Of(tags), std::ios::binary);
    const std::uintmax_t size = std::filesystem::file_size(Path_Of(recording), error);
    if (!rows_.is_open() || error) {
        handler_.Set(unit, __LINE__)
            ->Print_Out(Error_Handler::ES_Error, "The time tags cannot be opened: %s.",
                        tags.empty() ? "their name would be too long" : tags.c_str());
        return false;
    }
    schedule_ = std::make_unique<Timetag_Schedule>(rows_, size, handler_);
    return true;
}

void Tagged_Replay::Run()
{
    const Timer_Tick tick;
    if (!Play()) return;
    // Also what was not there when the tags were opened; and the server tells that the file has ended.
    while (Give_Up_To(position_ + stride)) continue;
}

// False: stopped, at the end of the recording, or there is nothing to replay.
bool Tagged_Replay::Play()
{
    std::uint64_t passed = 0;
    std::optional<Timetag_Schedule::Step> step = schedule_->Next();
    for (; step && step->time < pace_.start && !Is_Stopped(); step = schedule_->Next()) passed = step->end;
    if (!step && schedule_->Last_Time() < pace_.start && !Is_Stopped()) {
        handler_.Set(unit, __LINE__)
            ->Print_Out(Error_Handler::ES_Error,
                        "The last time tag is at +%.0f s: nothing is left to replay from +%.0f s.",
                        schedule_->Last_Time(), pace_.start);
        return false;
    }
    if (!Pass_Over(passed)) return false;
    begin_ = Clock::now();
    for (; step; step = schedule_->Next())
        if (!Wait_For(step->time) || !Give_Up_To(step->end)) return false;
    return true;
}

// Reads without giving: for that time another client has the place of the server's.
bool Tagged_Replay::Pass_Over(std::uint64_t end)
{
    if (end == 0) return true;
    Drain drain;
    drain.Dont_Delete_Me();
    kernel::Byte_Client *const client = server_.Switch(&drain);
    const bool goes_on = Give_Up_To(end);
    server_.Switch(client);
    return goes_on;
}

// False: stopped, or at the end of the recording.
bool Tagged_Replay::Give_Up_To(std::uint64_t end)
{
    while (position_ < end) {
        const std::uint64_t n = std::min(end - position_, stride);
        // Work(n) also returns true without a file.
        if (Is_Stopped() || !server_.GetFilename() || !server_.Work(static_cast<unsigned long>(n))) return false;
        position_ += n;
    }
    return true;
}

bool Tagged_Replay::Wait_For(double time)
{
    using Seconds = std::chrono::duration<double>;
    const Seconds due((time - pace_.start) / pace_.speed);
    Seconds left = due - (Clock::now() - begin_);
    if (left.count() > long_silence)
        handler_.Set(unit, __LINE__)
            ->Print_Out(Error_Handler::ES_Information,
                        "The recording is silent until +%.0f s: the next bytes come in %.0f s.", time, left.count());
    waits_.store(true, std::memory_order_relaxed);
    for (; left.count() > 0 && !Is_Stopped(); left = due - (Clock::now() - begin_))
        std::this_thread::sleep_for(std::min(left, longest_sleep));
    waits_.store(false, std::memory_order_relaxed);
    return !Is_Stopped();
}

}  // namespace host
