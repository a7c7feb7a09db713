// What happens to the streams of a run, as e-mails to its operator.
#pragma once

#include "host/gnss_stream/Endpoint.h"
#include "host/gnss_stream/Mail_Rule.h"
#include "kernel/base/Error_Handler.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace host {

// Sends an e-mail when an input has been silent or an output has been down for the time `after`, and when a disk is
// full; and one more when it is well again. Mail_Rule says when. The text ends with the last lines of the report, of
// repeated ones the newest, with their number.
//
// Threads:   one calls Watch_..., Pass and Last, and `send` and has_room are called on it; any may call Note_Full_Disk
//            and On_Report.
// Ownership: outputs and all that the functions use outlive it.
// Errors:    none; `send` reports its own.
class Mail_Watch {
public:
    using Clock = Mail_Rule::Clock;
    using Send = std::function<void(const std::string &subject, const std::string &text)>;
    static constexpr std::size_t most_lines = 20;
    static constexpr std::chrono::seconds room_time{10};  // between two looks for room on the disk

    // has_room: whether all disks that are written to have room. It is asked after Note_Full_Disk only.
    Mail_Watch(Clock::duration after, Send send, std::function<bool()> has_room);

    void Watch_Input(std::string name, std::function<Clock::time_point()> last_byte);
    void Watch_Output(std::string name, const Output &output, Clock::time_point now);
    void Pass(Clock::time_point now);
    void Last(Clock::time_point now);  // in place of the last Pass: an end that is closing is neither silent nor down
    void Note_Full_Disk() { disk_filled_.store(true, std::memory_order_release); }
    void On_Report(kernel::Error_Handler::Enum_Status status, const std::string &text);

private:
    struct Words {
        const char *bad, *well, *advice;  // advice: behind the first sentence, when all is well again
    };
    struct Cause {
        std::string name;
        const Words &words;
        std::function<Clock::time_point(Clock::time_point now)> last_well;
        Mail_Rule rule;
    };
    struct Line {
        std::string line, kind;  // with time and level; and what repetitions have in common
        unsigned long times = 1;
    };

    static const Words of_input, of_output, of_disk;

    Clock::time_point Disk_Last_Well(Clock::time_point now);
    void Look_At(Cause &cause, Clock::time_point now);
    std::string Last_Lines();

    const Clock::duration after_;
    const Send send_;
    const std::function<bool()> has_room_;
    std::deque<Cause> causes_;  // the disk first

    std::atomic<bool> disk_filled_{false};
    std::optional<Clock::time_point> full_since_;
    Clock::time_point looked_for_room_{};

    std::mutex lock_;
    std::deque<Line> lines_;  // guarded by lock_
};

}  // namespace host
