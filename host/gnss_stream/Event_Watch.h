// What happens to the streams of a run, as entries of its history.
#pragma once

#include "host/decoders/Rtcm3_Frame_Reader.h"
#include "host/gnss_stream/Endpoint.h"
#include "kernel/base/Error_Handler.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <utility>

namespace host {

// Looks at the ends from time to time and hears all reports. It notes:
//   connection made   with the time that there was none
//   connection lost   with the time that it lasted, and the last warning about the end
//   gap               no bytes came for gap_time, and how long it was when they come again
//   CRC failure       their number and that of good frames; only where there are good frames
//   slow output, disk full, bytes lost, fault   from reports; faults are those of level Error and above
// A connection that comes and goes between two calls of Pass is not seen.
//
// Threads:   one calls Add, the Watch operations, Last_Byte, Pass and Last; any may call On_Report. `note` is called on
//            these threads.
// Ownership: ends and all that the functions use outlive it.
// Errors:    none.
class Event_Watch {
public:
    using Clock = std::chrono::steady_clock;
    using Note = std::function<void(const char *event, const std::string &subject, const std::string &text)>;
    static constexpr std::chrono::seconds gap_time{10}, crc_time{10};
    static constexpr char disk_full[] = "disk full";

    explicit Event_Watch(Note note) : note_(std::move(note)) {}

    // path: as reports name the end.
    void Add(std::string name, std::string path, const Endpoint &end);
    // notes_gaps: false for an input that waits for its outputs.
    void Watch_Bytes(std::string name, std::function<std::uint64_t()> bytes, Clock::time_point now,
                     bool notes_gaps = true);
    using Frame_Count = Rtcm3_Frame_Reader::Progress_Count;
    void Watch_Frames(std::string name, std::function<Frame_Count()> frames, Clock::time_point now);
    Clock::time_point Last_Byte() const { return bytes_since_; }  // when it was seen; the begin without any
    void Pass(Clock::time_point now);
    void Last(Clock::time_point now);  // in place of the last Pass: nothing waits any longer
    void On_Report(kernel::Error_Handler::Enum_Status status, const std::string &text);

private:
    struct Watched {
        std::string name, path;
        const Endpoint &end;
        bool is_up = false;
        Clock::time_point since{};  // of is_up
        std::string lost{};         // the text of a loss that is not noted yet
        std::string cause{};        // the last warning since the end was up; guarded by lock_
    };

    void Look_At(Watched &watched, Clock::time_point now);
    void Note_Loss(Watched &watched);
    void Look_At_Bytes(Clock::time_point now);
    void Look_At_Frames(Clock::time_point now);

    const Note note_;
    std::deque<Watched> ends_;  // places stay; grows with lock_ held

    std::string input_;  // the name of the stream that bytes and frames belong to
    std::function<std::uint64_t()> bytes_;
    std::uint64_t bytes_before_ = 0;
    Clock::time_point bytes_since_{};
    bool in_gap_ = false, notes_gaps_ = true;

    std::function<Frame_Count()> frames_;
    Frame_Count frames_before_{};
    Clock::time_point frames_since_{};

    std::mutex lock_;
};

}  // namespace host
