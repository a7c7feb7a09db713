#include "host/gnss_stream/Utc_Time.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace host {

namespace {

using namespace std::chrono;

constexpr double year_10000 = 253402300800;  // [s] since 1970

// Takes a number of exactly `digits` digits, off the beginning.
std::optional<int> Take_Number(std::string_view &text, std::size_t digits)
{
    int number = 0;
    if (text.size() < digits || text.starts_with('-')) return std::nullopt;
    const auto [end, error] = std::from_chars(text.data(), text.data() + digits, number);
    if (error != std::errc() || end != text.data() + digits) return std::nullopt;
    text.remove_prefix(digits);
    return number;
}

bool Take(std::string_view &text, char wanted)
{
    if (!text.starts_with(wanted)) return false;
    text.remove_prefix(1);
    return true;
}

// [HH[:MM[:SS[.fraction]]]] to the end of the text.
std::optional<double> Parse_Time_Of_Day(std::string_view text)
{
    constexpr int most[] = {23, 59, 59}, seconds_of[] = {3600, 60, 1};
    double seconds = 0;
    for (int part = 0; part < 3; ++part) {
        const auto number = Take_Number(text, 2);
        if (!number || *number > most[part]) return std::nullopt;
        seconds += *number * seconds_of[part];
        if (text.empty()) return seconds;
        if (part < 2 && !Take(text, ':')) return std::nullopt;
    }
    double fraction = 0;
    if (text.size() < 2 || text[0] != '.' || text[1] < '0' || text[1] > '9') return std::nullopt;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), fraction, std::chars_format::fixed);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return seconds + fraction;
}

}  // namespace

std::string Utc_Text(sys_time<milliseconds> time)
{
    // Instead of gmtime, whose result all threads share.
    const year_month_day date(floor<days>(time));
    const hh_mm_ss of_day(time - floor<days>(time));
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
                  static_cast<unsigned int>(date.month()), static_cast<unsigned int>(date.day()),
                  static_cast<int>(of_day.hours().count()), static_cast<int>(of_day.minutes().count()),
                  static_cast<int>(of_day.seconds().count()), static_cast<int>(of_day.subseconds().count()));
    return text;
}

std::string Utc_Text(double seconds)
{
    if (seconds >= 0 && seconds < year_10000)
        return Utc_Text(sys_time<milliseconds>(milliseconds(std::llround(seconds * 1000))));
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, seconds).ptr;
    return {text, end};
}

std::string Duration_Text(steady_clock::duration time)
{
    const double exact = duration<double>(time).count();
    const auto whole = duration_cast<seconds>(time).count();
    constexpr struct {
        long unit, part;  // [s]
        const char *name, *part_name;
    } forms[] = {{86400, 3600, "d", "h"}, {3600, 60, "h", "min"}, {60, 1, "min", "s"}};
    for (const auto &form : forms)
        if (whole >= form.unit)
            return std::to_string(whole / form.unit) + ' ' + form.name + ' ' +
                   std::to_string(whole % form.unit / form.part) + ' ' + form.part_name;
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", exact);
    return text;
}

std::optional<double> Parse_Utc(std::string_view text)
{
    double seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error == std::errc() && end == text.data() + text.size() && std::isfinite(seconds)) return seconds;

    if (text.ends_with('Z')) text.remove_suffix(1);
    const auto y = Take_Number(text, 4);
    if (!y || !Take(text, '-')) return std::nullopt;
    const auto m = Take_Number(text, 2);
    if (!m || !Take(text, '-')) return std::nullopt;
    const auto d = Take_Number(text, 2);
    if (!d) return std::nullopt;
    const year_month_day date(year(*y), month(static_cast<unsigned int>(*m)), day(static_cast<unsigned int>(*d)));
    if (!date.ok()) return std::nullopt;
    const auto midnight =
        static_cast<double>(duration_cast<std::chrono::seconds>(sys_days(date).time_since_epoch()).count());
    if (text.empty()) return midnight;
    if (!Take(text, 'T') && !Take(text, ' ')) return std::nullopt;
    const auto of_day = Parse_Time_Of_Day(text);
    return of_day ? std::optional(midnight + *of_day) : std::nullopt;
}

}  // namespace host
