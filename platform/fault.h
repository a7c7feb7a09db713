// Failures made on purpose, for tests: a disk that fills up, a file that cannot be read on.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace platform::fault {

enum class Operation { read, write };

// From now on `bytes` more bytes pass through the operation (all files together); the transfer that goes beyond moves what
// is left and fails with `error`, and so does each one after it, until clear(). One test at a time.
void fail_after(Operation operation, std::uint64_t bytes, std::uint32_t error);
// Until clear(), the system moves at most `bytes` per call, as it may at any time.
void move_at_most(std::size_t bytes);
// Until clear(), starting the socket library fails with `error`, or, with error 0, gives a library of this version.
void plan_socket_library(std::uint32_t error, std::uint16_t version);
// Until clear(), looking the name up gives this address (host byte order), or fails with `error` where that is not 0;
// with hang_name the look-up does not come back until the name is planned otherwise. clear() lets it end in a failure.
void plan_name(const char *name, std::uint32_t error, std::uint32_t host);
void hang_name(const char *name);
// Until clear(), or hold_opens(false), opening a file does not come back: as with a folder on a share that has gone.
void hold_opens(bool hold);
// The next look at a serial port's errors finds these too (serial_* bits).
void plan_serial_errors(std::uint32_t errors);
void clear();

// For the platform layer: the plans above; nothing when there is none.
struct Socket_Library_Plan {
    std::uint32_t error = 0;
    std::uint16_t version = 0;
};
const Socket_Library_Plan *planned_socket_library();
// False when the name is not planned. Waits while it is planned to hang.
bool planned_name(const char *name, std::uint32_t &error, std::uint32_t &host);
void wait_while_opens_are_held();
std::uint32_t planned_serial_errors();  // taken: the second look finds nothing

// For the platform layer: how many of n bytes may be moved now, and the failure to answer when it is less than n (sets the
// last error; always false). Without a plan it costs the look at a flag.
extern std::atomic<bool> armed;
std::size_t piece(std::size_t n);  // how many of n bytes to ask the system for in one call
std::size_t planned(Operation operation, std::size_t n);
inline std::size_t admit(Operation operation, std::size_t n)
{
    return armed.load(std::memory_order_relaxed) ? planned(operation, n) : n;
}
bool fail(Operation operation);
// What was admitted and then not moved (a read that found less) may be moved another time.
void returned(Operation operation, std::size_t n);
inline void give_back(Operation operation, std::size_t n)
{
    if (armed.load(std::memory_order_relaxed)) returned(operation, n);
}

}  // namespace platform::fault
