// Takes the place of the system's call that sets the clock: a program that includes this, once, cannot move the
// machine's.
#pragma once

#include <cstdint>
#include <optional>

#ifdef _WIN32
#include <windows.h>
#else
#include <cerrno>
#include <time.h>
#endif

namespace no_clock_setting {

inline bool refuse = false;                  // as for somebody without the right
inline std::optional<std::int64_t> last_ms;  // [ms] since 1970; what the last call would have set

inline bool Admit(std::int64_t ms)
{
    last_ms = ms;
    return !refuse;
}

}  // namespace no_clock_setting

#ifdef _WIN32
namespace no_clock_setting {

inline BOOL WINAPI Call(const SYSTEMTIME *time)
{
    FILETIME file_time;  // in 100 ns since 1601
    if (!SystemTimeToFileTime(time, &file_time)) return FALSE;
    const auto ticks = static_cast<std::int64_t>(file_time.dwHighDateTime) << 32 | file_time.dwLowDateTime;
    const bool done = Admit(ticks / 10000 - 11644473600000);
    if (!done) SetLastError(ERROR_ACCESS_DENIED);
    return done;
}

// The pointer through which the call is imported.
#ifdef _WIN64
extern "C" BOOL(WINAPI *const imported)(const SYSTEMTIME *) __asm__("__imp_SetSystemTime");
#else
extern "C" BOOL(WINAPI *const imported)(const SYSTEMTIME *) __asm__("__imp__SetSystemTime@4");
#endif
BOOL(WINAPI *const imported)(const SYSTEMTIME *) = Call;

}  // namespace no_clock_setting
#else
extern "C" int clock_settime(clockid_t clock, const timespec *time) noexcept
{
    if (clock == CLOCK_REALTIME && no_clock_setting::Admit(time->tv_sec * 1000 + time->tv_nsec / 1000000)) return 0;
    errno = EPERM;
    return -1;
}
#endif
