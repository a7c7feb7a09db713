#include "host/gnss_stream/Mail_Watch.h"

#include "host/gnss_stream/Console.h"
#include "host/gnss_stream/Utc_Time.h"

#include <algorithm>
#include <utility>

namespace host {

const Mail_Watch::Words Mail_Watch::of_input{"is silent", "gives bytes again", ""};
const Mail_Watch::Words Mail_Watch::of_output{"is down", "is up again", ""};
const Mail_Watch::Words Mail_Watch::of_disk{
    "is full", "has room again",
    " An output or record that could not be written stays closed until the program is started again."};

Mail_Watch::Mail_Watch(Clock::duration after, Send send, std::function<bool()> has_room)
    : after_(after), send_(std::move(send)), has_room_(std::move(has_room))
{
    causes_.push_back({"the disk", of_disk, [this](Clock::time_point now) { return Disk_Last_Well(now); },
                       Mail_Rule(Clock::duration::zero())});
}

void Mail_Watch::Watch_Input(std::string name, std::function<Clock::time_point()> last_byte)
{
    causes_.push_back({std::move(name), of_input,
                       [last_byte = std::move(last_byte)](Clock::time_point) { return last_byte(); },
                       Mail_Rule(after_)});
}

void Mail_Watch::Watch_Output(std::string name, const Output &output, Clock::time_point now)
{
    const auto last_up = [&output, last = now](Clock::time_point time) mutable {
        if (output.Is_Up() && !output.Has_Failed()) last = time;
        return last;
    };
    causes_.push_back({std::move(name), of_output, last_up, Mail_Rule(after_)});
}

// A disk is full from the report on until room is found. To look for it asks the file system, which may be slow.
Mail_Watch::Clock::time_point Mail_Watch::Disk_Last_Well(Clock::time_point now)
{
    if (disk_filled_.exchange(false, std::memory_order_acq_rel)) {
        if (!full_since_) full_since_ = now - Clock::duration(1);
        looked_for_room_ = now;
    }
    if (full_since_ && now - looked_for_room_ >= room_time) {
        looked_for_room_ = now;
        if (has_room_()) full_since_.reset();
    }
    return full_since_.value_or(now);
}

void Mail_Watch::Pass(Clock::time_point now)
{
    for (Cause &cause : causes_) Look_At(cause, now);
}

void Mail_Watch::Last(Clock::time_point now) { Look_At(causes_.front(), now); }

void Mail_Watch::Look_At(Cause &cause, Clock::time_point now)
{
    const Mail_Rule::Mail mail = cause.rule.Pass(cause.last_well(now), now);
    if (mail == Mail_Rule::Mail::none) return;
    const bool is_bad = mail == Mail_Rule::Mail::bad;
    const std::string what = cause.name + ' ' + (is_bad ? cause.words.bad : cause.words.well);
    const std::string lasted = (is_bad ? " (for " : " (after ") + Duration_Text(cause.rule.Lasted()) + ").";
    send_("gnss_stream: " + what, what + lasted + (is_bad ? "" : cause.words.advice) +
                                      "\r\n\r\nThe last lines of the report:\r\n" + Last_Lines());
}

std::string Mail_Watch::Last_Lines()
{
    std::string text;
    const std::lock_guard lock(lock_);
    for (const Line &line : lines_)
        text += line.line + (line.times > 1 ? " (" + std::to_string(line.times) + " times)" : "") + "\r\n";
    return text.empty() ? "(none)\r\n" : text;
}

void Mail_Watch::On_Report(kernel::Error_Handler::Enum_Status status, const std::string &text)
{
    Line line{Console::Line_Of(status, text), Without_Duration(text)};
    const std::lock_guard lock(lock_);
    const auto former =
        std::find_if(lines_.begin(), lines_.end(), [&line](const Line &one) { return one.kind == line.kind; });
    if (former != lines_.end()) {
        line.times += former->times;
        lines_.erase(former);
    }
    lines_.push_back(std::move(line));
    if (lines_.size() > most_lines) lines_.pop_front();
}

}  // namespace host
