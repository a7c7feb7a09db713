// UTC as text, with milliseconds; and durations.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace host {

// "2026-12-31T23:59:59.123Z"
std::string Utc_Text(std::chrono::sys_time<std::chrono::milliseconds> time);
// The same for seconds since 1970; as a plain number of seconds when the date is outside of 1970 to 9999.
std::string Utc_Text(double seconds);

// Seconds since 1970 of such a text; a part at the end may be missing: "2026-12-31T23", "2026-12-31". A blank may stand
// for the T. A plain number is taken as seconds. Empty when it is none of these.
std::optional<double> Parse_Utc(std::string_view text);

// "12.3 s", "5 min 12 s", "3 h 5 min", "12 d 3 h"
std::string Duration_Text(std::chrono::steady_clock::duration time);

}  // namespace host
