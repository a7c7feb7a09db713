#include "host/gnss_stream/Event_History.h"

#include "host/gnss_stream/Event_File.h"
#include "host/gnss_stream/Utc_Time.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <new>

namespace host {

namespace {

using namespace std::chrono_literals;
using std::chrono::system_clock;

const char unit[] = "host/Event_History";
const char started[] = "started", ended[] = "ended";
constexpr auto write_pause = 2s, retry_pause = 10s;
constexpr int told_after = 2;            // failures in a row, or the last of all
constexpr std::int64_t set_back = 1000;  // [ms] by which the clock must go back to be believed

// What the file tells about the run before this one.
std::string Before(const kernel::EventTabelle &table)
{
    const double last_start = table.GetMax(started);
    if (last_start <= table.GetMax(ended)) return "";
    return "; the run before it, of " + Utc_Text(last_start) +
           ", did not end properly: it was killed, or the machine went down; its last entry is of " +
           Utc_Text(table.GetMax());
}

void Drop_Oldest(kernel::EventTabelle &table)
{
    std::size_t count = 0;
    bool more = table.ScanFirst(all_events);
    for (; more; more = table.WalkNext()) ++count;
    for (more = table.WalkNext(); more && count > Event_History::most_entries;
         more = table.WalkNext())  // from the first
        if (table.DelUnMarked()) --count;
    table.ScanDone();
}

}  // namespace

bool Event_History::Open(const std::string &text)
{
    std::string error;
    const Event_Table table = Read_Event_File(file_, Missing_File::is_empty, error);
    const auto complain = [&](const std::string &what) {
        console_.Set(unit, __LINE__)->Print_Out(kernel::Error_Handler::ES_Error, "History: %s", what.c_str());
        return false;
    };
    if (!table) return complain(error);
    constexpr double most_seconds = 1e12;
    last_time_ = std::llround(std::min(table->GetMax(), most_seconds) * 1000);
    Note(started, "gnss_stream", text + Before(*table));
    if (!Write(waiting_, error)) return complain(error);
    waiting_.clear();
    thread_ = std::thread([this] { Run(); });
    return true;
}

void Event_History::Note(const char *event, const std::string &subject, const std::string &text)
{
    const auto minute = std::chrono::floor<std::chrono::minutes>(system_clock::now());
    const std::lock_guard lock(lock_);
    auto &limit = *limits_.try_emplace({event, subject}).first;
    if (limit.second.minute != minute) {
        Tell_Left_Out(limit);
        limit.second = {minute, 0, 0};
    }
    if (++limit.second.noted > most_per_minute)
        ++limit.second.left_out;
    else
        Push(event, subject + ": " + text);
    wake_.notify_one();
}

// With the lock held.
void Event_History::Push(const std::string &event, std::string text)
{
    const std::int64_t now =
        std::chrono::floor<std::chrono::milliseconds>(system_clock::now()).time_since_epoch().count();
    last_time_ = now > last_time_ || now + set_back < last_time_ ? now : last_time_ + 1;
    text.resize(std::min(text.size(), kernel::AVL_EventTabelle::most_text));
    waiting_.push_back({static_cast<double>(last_time_) / 1000, event, std::move(text)});
    Drop_Surplus();
}

// With the lock held.
void Event_History::Drop_Surplus()
{
    for (; waiting_.size() > most_waiting; ++dropped_) waiting_.pop_front();
}

// With the lock held.
void Event_History::Tell_Left_Out(Limits::value_type &limit)
{
    auto &[key, value] = limit;
    if (value.left_out > 0)
        Push(key.first, key.second + ": " + std::to_string(value.left_out) + " more in the minute of " +
                            Utc_Text(std::chrono::floor<std::chrono::milliseconds>(value.minute)));
    value.left_out = 0;
}

void Event_History::Run()
{
    std::unique_lock lock(lock_);
    for (auto next = Clock::now();;) {
        wake_.wait_for(lock, 1min, [&] { return ending_ || !waiting_.empty(); });
        wake_.wait_until(lock, next, [&] { return ending_; });
        const auto minute = std::chrono::floor<std::chrono::minutes>(system_clock::now());
        for (auto &limit : limits_)
            if (ending_ || limit.second.minute != minute) Tell_Left_Out(limit);
        if (dropped_ > 0)
            Push("history", std::to_string(dropped_) + " entries are lost: the file could not be written");
        const bool ends = ending_;
        std::deque<Entry> entries = std::exchange(waiting_, {});
        dropped_ = 0;

        lock.unlock();
        std::string error;
        const bool written = entries.empty() || Write(entries, error);
        Report_Writing(written, ends, error);
        lock.lock();

        if (!written) waiting_.insert(waiting_.begin(), entries.begin(), entries.end());
        Drop_Surplus();
        if (ends) return;
        next = Clock::now() + (written ? write_pause : retry_pause);
    }
}

// A single failure may be due to a program that reads the file just then.
void Event_History::Report_Writing(bool written, bool ends, const std::string &error)
{
    using Level = kernel::Error_Handler::Enum_Status;
    const bool was_told = failed_ >= told_after;
    failed_ = written ? 0 : ends ? told_after : failed_ + 1;
    if (failed_ == told_after && !was_told)
        console_.Set(unit, __LINE__)
            ->Print_Out(Level::ES_Error, "History: %s%s", error.c_str(), ends ? "" : " It is tried again.");
    if (written && was_told)
        console_.Set(unit, __LINE__)->Print_Out(Level::ES_Warning, "History: \"%s\" is written again.", file_.c_str());
}

bool Event_History::Write(const std::deque<Entry> &entries, std::string &error) const
{
    try {
        const Event_Table table = Read_Event_File(file_, Missing_File::is_empty, error);
        if (!table) return false;
        for (const Entry &entry : entries) table->Insert(entry.time, entry.event.c_str(), entry.text.c_str(), 0);
        Drop_Oldest(*table);
        if (Write_Event_File(file_, *table)) return true;
        error = "\"" + file_ +
                "\" cannot be written: the disk is full, the folder does not permit it, or another "
                "program writes it.";
    } catch (const std::bad_alloc &) {
        error = "Not enough memory.";
    }
    return false;
}

void Event_History::End(const std::string &text)
{
    if (!thread_.joinable()) return;
    Note(ended, "gnss_stream", text);
    Stop();
}

void Event_History::Stop()
{
    if (!thread_.joinable()) return;
    {
        const std::lock_guard lock(lock_);
        ending_ = true;
        wake_.notify_one();
    }
    thread_.join();
}

}  // namespace host
