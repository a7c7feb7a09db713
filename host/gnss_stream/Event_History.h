// The history of a station: an event file that grows while the program runs.
#pragma once

#include "host/gnss_stream/Console.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace host {

// Entries are collected and written by a thread of its own, two seconds after the last writing at the soonest. For each
// writing the file is read, the new entries are added, and the file is replaced as a whole. So marks that another
// program made meanwhile stay, and a kill or a power cut costs the entries of the last seconds at most. One process
// writes a history at a time.
//
// The file keeps the newest most_entries; older ones go, unless they are marked. Of the entries with the same event and
// subject, most_per_minute are noted in a minute; the rest are counted.
//
// Times are UTC. Each entry has a millisecond of its own, so that they stay in the order in which they were noted.
//
// Threads:   any may call Note; one calls the rest.
// Ownership: the console outlives it.
// Errors:    a file that cannot be written twice in a row, or at the end, is reported as a fault, once until it can be
//            written again. The entries wait meanwhile; of more than most_waiting the oldest are dropped and counted.
class Event_History {
public:
    static constexpr std::size_t most_entries = 100000, most_waiting = 10000;
    static constexpr unsigned long most_per_minute = 4;

    Event_History(std::string file, Console &console) : file_(std::move(file)), console_(console) {}
    ~Event_History() { Stop(); }
    Event_History(const Event_History &) = delete;
    Event_History &operator=(const Event_History &) = delete;

    // Notes that the program has started, and whether the run before it ended properly. False: the file is no event
    // file or cannot be written. Throws std::system_error when no thread can be had.
    bool Open(const std::string &text);
    void Note(const char *event, const std::string &subject, const std::string &text);
    void End(const std::string &text);  // notes that the program has ended, and writes the rest

private:
    using Clock = std::chrono::steady_clock;
    using Minute = std::chrono::sys_time<std::chrono::minutes>;
    struct Entry {
        double time;  // [s] since 1970
        std::string event, text;
    };
    struct Limit {
        Minute minute{};
        unsigned long noted = 0, left_out = 0;  // in this minute
    };
    using Limits = std::map<std::pair<std::string, std::string>, Limit>;

    void Push(const std::string &event, std::string text);
    void Drop_Surplus();
    void Tell_Left_Out(Limits::value_type &limit);
    void Run();
    void Report_Writing(bool written, bool ends, const std::string &error);
    bool Write(const std::deque<Entry> &entries, std::string &error) const;
    void Stop();

    const std::string file_;
    Console &console_;
    int failed_ = 0;  // writings in a row; of the thread
    std::thread thread_;
    std::mutex lock_;  // guards what follows
    std::condition_variable wake_;
    std::deque<Entry> waiting_;
    std::size_t dropped_ = 0;     // entries, since the last writing
    std::int64_t last_time_ = 0;  // [ms] since 1970, of the newest entry
    Limits limits_;
    bool ending_ = false;
};

}  // namespace host
