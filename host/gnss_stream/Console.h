// Standard error of a command-line tool: the library's reports and one line that is rewritten in place.
#pragma once

#include "kernel/base/Error_Handler.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <utility>

namespace host {

// Prints "2026-12-31T23:59:59.123Z Error: text" (UTC), with ", " for line ends in the text. It never ends the process.
//
// Threads:   any.
// Ownership: nothing.
// Errors:    text that standard error does not take is lost.
class Console : public kernel::Error_Handler {
public:
    void Print(Enum_Status status, const std::string &text);  // does not count a fault
    void Show_Live(const std::string &line);                  // replaces the live line
    void Keep_Live();                                         // ends the live line; the next one starts below
    void Count_Fault() { faults_.fetch_add(1, std::memory_order_relaxed); }
    // A report as it is printed, without the line end.
    static std::string Line_Of(Enum_Status status, const std::string &text);
    // Reports of level Error and above, and those that were counted.
    unsigned long Faults() const { return faults_.load(std::memory_order_relaxed); }

    // Hears every report, also the repetitions that are not printed, on the thread of the report. It may not report
    // itself. When Set_Listener returns, no call of the former one is under way. Empty: nobody listens.
    using Listener = std::function<void(Enum_Status status, const std::string &text)>;
    void Set_Listener(Listener listener);
    void Tell_Listener(Enum_Status status, const std::string &text);

private:
    void Do_Print(Enum_Status status, kernel::Err_Code code, const char *text) override;

    std::atomic<unsigned long> faults_{0};
    std::mutex lock_;
    std::string live_;  // on the screen; guarded by lock_
    std::mutex listener_lock_;
    Listener listener_;  // guarded by listener_lock_
};

// The text without the number behind "since ": reports that differ in it alone are repetitions.
std::string Without_Duration(std::string text);

// The handler of one end of a stream. Each report names the end. A repeated report is printed once a minute, with the
// number of repetitions; reports that differ in a duration alone ("since 12 sec.") count as repeated.
//
// Threads:   any.
// Ownership: the console outlives it.
// Errors:    as Console.
class End_Handler : public kernel::Error_Handler {
public:
    // The level from which a report is a fault of the run. An end that may come and go has faults of level Fatal only:
    // no thread or no memory was to be had.
    enum class Faults { from_error, from_fatal };

    End_Handler(Console &console, std::string name, Faults faults)
        : console_(console), name_(std::move(name)), faults_(faults)
    {
    }
    ~End_Handler() override { Tell_Repetitions(); }

    // Between the two, reports are counted and not printed: while an end is tried again and again.
    void Mute() { muted_.store(true, std::memory_order_relaxed); }
    void Unmute() { muted_.store(false, std::memory_order_relaxed); }
    unsigned long Errors() const { return errors_.load(std::memory_order_relaxed); }  // of level Error and above

private:
    void Do_Print(Enum_Status status, kernel::Err_Code code, const char *text) override;
    std::string Named(const std::string &text) const;
    bool Is_Repetition(const std::string &text);
    void Tell_Repetitions();
    void Remember(const std::string &text, Enum_Status status);

    Console &console_;
    const std::string name_;
    const Faults faults_;
    std::atomic<bool> muted_{false};
    std::atomic<unsigned long> errors_{0};
    std::mutex lock_;
    struct Said {
        std::string text;  // in its latest form
        Enum_Status status;
        std::chrono::steady_clock::time_point time;  // of its printing
        unsigned long repetitions = 0;               // since then
    };
    std::deque<Said>
        said_;  // guarded by lock_; several, because an end that fails may report two or three texts in turn
};

}  // namespace host
