#include "host/gnss_stream/Event_Watch.h"

#include "host/gnss_stream/Utc_Time.h"

namespace host {

namespace {

using namespace std::chrono_literals;

constexpr auto report_time = 100ms;  // within which the report about a loss comes

bool Means_Connected(const std::string &state) { return state == "connected" || state == "open"; }

// Reports by their words; the first that fits counts.
constexpr std::pair<const char *, const char *> kinds[] = {{"its reader has gone", "fault"},
                                                           {"it is closed, or", "fault"},
                                                           {"the disk is full", Event_Watch::disk_full},
                                                           {"takes too little", "slow output"},
                                                           {"bytes are lost", "bytes lost"}};

const char *Kind_Of(kernel::Error_Handler::Enum_Status status, const std::string &text)
{
    for (const auto &[words, event] : kinds)
        if (text.find(words) != std::string::npos) return event;
    return status >= kernel::Error_Handler::ES_Error ? "fault" : nullptr;
}

}  // namespace

void Event_Watch::Add(std::string name, std::string path, const Endpoint &end)
{
    const std::lock_guard lock(lock_);
    ends_.push_back({std::move(name), std::move(path), end});
}

void Event_Watch::Watch_Bytes(std::string name, std::function<std::uint64_t()> bytes, Clock::time_point now,
                              bool notes_gaps)
{
    input_ = std::move(name);
    notes_gaps_ = notes_gaps;
    bytes_ = std::move(bytes);
    bytes_since_ = now;
}

void Event_Watch::Watch_Frames(std::string name, std::function<Frame_Count()> frames, Clock::time_point now)
{
    input_ = std::move(name);
    frames_ = std::move(frames);
    frames_since_ = now;
}

void Event_Watch::Pass(Clock::time_point now)
{
    for (Watched &watched : ends_) Look_At(watched, now);
    if (bytes_) Look_At_Bytes(now);
    if (frames_ && now - frames_since_ >= crc_time) Look_At_Frames(now);
}

void Event_Watch::Last(Clock::time_point now)
{
    Pass(now);
    for (Watched &watched : ends_) Note_Loss(watched);
    if (frames_) Look_At_Frames(now);
}

void Event_Watch::Look_At(Watched &watched, Clock::time_point now)
{
    const Stream_Status status = watched.end.Status();
    const bool is_up = Means_Connected(status.state);
    if (is_up != watched.is_up) {
        Note_Loss(watched);  // of a connection that is back already
        const std::string lasted = watched.since == Clock::time_point() ? "" : Duration_Text(now - watched.since);
        if (is_up)
            note_("connection made", watched.name,
                  status.state + (status.peer.empty() ? "" : ", peer " + status.peer) +
                      (lasted.empty() ? "" : ", after " + lasted + " without one"));
        else
            watched.lost = status.state + ", after " + lasted;
        watched.is_up = is_up;
        watched.since = now;
        const std::lock_guard lock(lock_);
        if (is_up) watched.cause.clear();
    }
    if (now - watched.since >= report_time) Note_Loss(watched);
}

// Waits for the report about the loss, which may come a moment later than the loss.
void Event_Watch::Note_Loss(Watched &watched)
{
    if (watched.lost.empty()) return;
    std::string cause;
    {
        const std::lock_guard lock(lock_);
        cause = watched.cause;
    }
    note_("connection lost", watched.name, watched.lost + (cause.empty() ? "" : ": " + cause));
    watched.lost.clear();
}

void Event_Watch::Look_At_Bytes(Clock::time_point now)
{
    const std::uint64_t bytes = bytes_();
    if (bytes != bytes_before_) {
        if (in_gap_ && notes_gaps_)
            note_("gap", input_, "bytes again, after " + Duration_Text(now - bytes_since_) + " without any");
        bytes_before_ = bytes;
        bytes_since_ = now;
        in_gap_ = false;
    } else if (!in_gap_ && now - bytes_since_ >= gap_time) {
        if (notes_gaps_) note_("gap", input_, "no bytes for " + Duration_Text(now - bytes_since_));
        in_gap_ = true;
    }
}

void Event_Watch::Look_At_Frames(Clock::time_point now)
{
    const Frame_Count count = frames_();
    const std::uint64_t failures = count.crc_failures - frames_before_.crc_failures;
    if (failures > 0 && count.frames > 0)
        note_("CRC failure", input_,
              std::to_string(failures) + ", and " + std::to_string(count.frames - frames_before_.frames) +
                  " good frames, in " + Duration_Text(now - frames_since_));
    frames_before_ = count;
    frames_since_ = now;
}

void Event_Watch::On_Report(kernel::Error_Handler::Enum_Status status, const std::string &text)
{
    if (status < kernel::Error_Handler::ES_Warning) return;
    std::string subject = "gnss_stream", said = text;
    {
        const std::lock_guard lock(lock_);
        Watched *named = nullptr;  // the longest path: one may be the beginning of another
        for (Watched &watched : ends_)
            if (text.find(watched.path) != std::string::npos && (!named || watched.path.size() > named->path.size()))
                named = &watched;
        if (named) {
            subject = named->name;
            for (const std::string &name : {named->name, named->path})
                if (said.starts_with(name + ": ")) said.erase(0, name.size() + 2);
            if (said.find("Successfully connected") == std::string::npos) named->cause = said;
        }
    }
    if (const char *const event = Kind_Of(status, said)) note_(event, subject, said);
}

}  // namespace host
