// Standard error of a command-line tool: the library's reports and one line that is rewritten in place.
#pragma once

#include "kernel/base/Error_Handler.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <utility>

namespace host {

// Prints "2026-12-31T23:59:59.123Z Error: text" (UTC), line ends in the text as ", ". It never ends the process.
//
// Threads:   any.
// Ownership: nothing.
// Errors:    what standard error refuses is lost.
class Console : public kernel::Error_Handler {
public:
    void Print(Enum_Status status, const std::string &text);  // without counting it
    void Show_Live(const std::string &line);                  // replaces the live line
    void Keep_Live();  // leaves the live line standing; the next one starts below
    void Count_Fault() { faults_.fetch_add(1, std::memory_order_relaxed); }

    unsigned long Faults() const
    {
        return faults_.load(std::memory_order_relaxed);
    }  // reports of level Error and above

private:
    void Do_Print(Enum_Status status, kernel::Err_Code code, const char *text) override;

    std::atomic<unsigned long> faults_{0};
    std::mutex lock_;
    std::string live_;  // on the screen; guarded by lock_
};

// The handler of one end of a stream. Each report names the end. A report that is said over and over is printed once a
// minute, with the number of times; how long something has lasted ("since 12 sec.") does not make it another report. Of an
// end that may come and go no report is a fault of the run, but for want of a thread or of memory (level Fatal).
//
// Threads:   any.
// Ownership: the console outlives it.
// Errors:    as Console.
class End_Handler : public kernel::Error_Handler {
public:
    End_Handler(Console &console, std::string name, bool counts_faults)
        : console_(console), name_(std::move(name)), counts_faults_(counts_faults)
    {
    }
    ~End_Handler() override { Tell_Repetitions(); }

    // While an end is tried again and again none of its reports need be heard.
    void Mute(bool mute) { muted_.store(mute, std::memory_order_relaxed); }
    unsigned long Errors() const { return errors_.load(std::memory_order_relaxed); }  // of level Error and above

private:
    void Do_Print(Enum_Status status, kernel::Err_Code code, const char *text) override;
    std::string Named(const std::string &text) const;
    bool Is_Repetition(const std::string &text);
    void Tell_Repetitions();
    void Remember(const std::string &text, Enum_Status status);

    Console &console_;
    const std::string name_;
    const bool counts_faults_;
    std::atomic<bool> muted_{false};
    std::atomic<unsigned long> errors_{0};
    std::mutex lock_;
    struct Said {
        std::string text;  // as it was said last
        Enum_Status status;
        std::chrono::steady_clock::time_point time;  // when it was printed
        unsigned long repetitions = 0;               // since
    };
    std::deque<Said> said_;  // the last few texts, guarded by lock_: an end that fails may say two or three in turn
};

}  // namespace host
