// A time zone for the length of a test, given by a POSIX rule: it needs no zone files.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

#ifndef _WIN32
#include <time.h>
#endif

// On Windows a program has no zone of its own; there the zone is set only if the program was started with this TZ,
// which Wine honours.
class Zone_Setting {
public:
    explicit Zone_Setting(const std::string &rule)
    {
        if (const char *value = std::getenv("TZ")) former_ = value;
#ifdef _WIN32
        set_ = former_ == rule;
#else
        Set(rule);
        set_ = true;
#endif
    }
    ~Zone_Setting()
    {
#ifndef _WIN32
        Set(former_);
#endif
    }
    Zone_Setting(const Zone_Setting &) = delete;
    Zone_Setting &operator=(const Zone_Setting &) = delete;

    explicit operator bool() const { return set_; }

private:
#ifndef _WIN32
    static void Set(const std::optional<std::string> &rule)
    {
        if (rule) {
            setenv("TZ", rule->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
    }
#endif

    std::optional<std::string> former_;
    bool set_ = false;
};

// Without daylight saving; with it, north, south and west; with half hours.
constexpr const char zone_utc[] = "UTC0";
constexpr const char zone_india[] = "IST-5:30";
constexpr const char zone_berlin[] = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char zone_adelaide[] = "ACST-9:30ACDT,M10.1.0,M4.1.0/3";
constexpr const char zone_newfoundland[] = "NST3:30NDT,M3.2.0,M11.1.0";
