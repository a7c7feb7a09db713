// What tests hear: a handler that keeps every report.
#pragma once

#include "kernel/base/Error_Handler.h"
#include "kernel/base/Object.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

struct Reported {
    int level;
    int code;
    std::string text;
    std::string unit;

    bool operator==(const Reported &) const = default;
    friend std::ostream &operator<<(std::ostream &out, const Reported &r)
    {
        return out << r.level << ',' << r.code << " \"" << r.text << "\" (" << r.unit << ')';
    }
};
using Reports = std::vector<Reported>;

class Capturing_Handler : public kernel::Error_Handler {
public:
    Reports Take()
    {
        const std::lock_guard lock(guard_);
        return std::exchange(reports_, {});
    }
    bool Has(const std::string &text)
    {
        const std::lock_guard lock(guard_);
        return std::any_of(reports_.begin(), reports_.end(), [&](const Reported &r) { return r.text == text; });
    }
    using Error_Handler::File;
    using Error_Handler::Line;

    std::function<void()> on_report;  // on the thread that reports, before the report is kept

private:
    void Do_Print(Enum_Status status, kernel::Err_Code code, const char *text) override
    {
        if (const auto action = on_report) action();
        const std::lock_guard lock(guard_);
        reports_.push_back({status, code, text, File() ? File() : ""});
    }

    std::mutex guard_;
    Reports reports_;
};

// The default handler of one test: objects made meanwhile report to it.
class Heard_Reports {
public:
    Heard_Reports() : before_(kernel::Object::Get_Default_Handler()), handler_(new Capturing_Handler)
    {
        kernel::Object::Set_Default_Handler(handler_);
    }
    ~Heard_Reports() { kernel::Object::Set_Default_Handler(before_); }
    Capturing_Handler *operator->() { return handler_; }

private:
    kernel::Error_Handler *before_;
    Capturing_Handler *handler_;  // deleted by the library when it is replaced
};
