// Gives a recording back in the rhythm in which it came, by its time tags.
#pragma once

#include "host/gnss_stream/Replay_Pace.h"
#include "host/gnss_stream/Timetag_Schedule.h"
#include "kernel/base/Error_Handler.h"
#include "kernel/files/file_server.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

namespace host {

// Plays a File_Server that has its recording open and no rate. The first time tag (with a start: that time) is due when
// Run begins. Each block comes when its tag says so, counted from there: a block that was late, because the client was
// slow, delays no other. A silence of more than a minute is announced. After the last tag the rest of the recording
// comes at once.
//
// Threads:   Run delivers on its thread; Stop and Is_Waiting belong to any thread, all else to the one that constructs.
// Ownership: server and handler are the caller's and outlive the object.
// Errors:    reported: tags that cannot be opened, a start behind the end of the recording, and what Timetag_Schedule
//            finds.
class Tagged_Replay {
public:
    Tagged_Replay(kernel::File_Server &server, const Replay_Pace &pace, kernel::Error_Handler &handler);

    // Opens the tags of the recording that the server has open. False: reported.
    bool Open(const std::string &recording);
    // Until the end of the recording, or until Stop.
    void Run();
    void Stop() { stop_.store(true, std::memory_order_relaxed); }  // Run returns within 20 ms if the client does
    // The next bytes are not due yet: it is no fault that none come.
    bool Is_Waiting() const { return waits_.load(std::memory_order_relaxed); }

private:
    using Clock = std::chrono::steady_clock;

    bool Play();
    bool Pass_Over(std::uint64_t end);
    bool Give_Up_To(std::uint64_t end);
    bool Wait_For(double time);
    bool Is_Stopped() const { return stop_.load(std::memory_order_relaxed); }

    kernel::File_Server &server_;
    const Replay_Pace pace_;
    kernel::Error_Handler &handler_;
    std::ifstream rows_;
    std::unique_ptr<Timetag_Schedule> schedule_;
    Clock::time_point begin_;     // when pace_.start is due
    std::uint64_t position_ = 0;  // [bytes] given or passed over
    std::atomic<bool> stop_{false}, waits_{false};
};

}  // namespace host
