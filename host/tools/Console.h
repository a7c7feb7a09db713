// Standard error of a command-line tool: the library's reports and one line that is rewritten in place.
#pragma once

#include "kernel/Error_Handler.h"

#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>

namespace host {

// Prints "23:59:59.123Z Error: text" (UTC), line ends in the text as ", ". It never ends the process.
//
// Threads:   any.
// Ownership: nothing.
// Errors:    what standard error refuses is lost.
class Console : public kernel::Error_Handler {
public:
    void Show_Live(const std::string &line);  // replaces the live line
    void Keep_Live();                         // leaves the live line standing; the next one starts below

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

}  // namespace host
