// Fault injection for tests: a disk that fills up, a file that becomes unreadable.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace platform::fault {

enum class Operation { read, write };

// From now on `bytes` more bytes pass through the operation (all files together). The transfer that exceeds them moves
// the rest and fails with `error`, and so does each later one until clear(). One test at a time.
void fail_after(Operation operation, std::uint64_t bytes, std::uint32_t error);
// Until clear(), the system moves at most `bytes` per call. Real systems may do that at any time.
void move_at_most(std::size_t bytes);
// Until clear(), starting the socket library fails with `error`. With error 0 it succeeds with a library of this
// version.
void plan_socket_library(std::uint32_t error, std::uint16_t version);
// Until clear(), looking up the name gives this address (host byte order), or fails with `error` if that is not 0. With
// hang_name the look-up does not return until the name gets another plan; clear() makes it fail.
void plan_name(const char *name, std::uint32_t error, std::uint32_t host);
void hang_name(const char *name);
// Until clear() or release_opens(), opening a file does not return, as in a folder of a share that is down.
void hold_opens();
void release_opens();
// The next query of a serial port's errors also returns these (serial_* bits).
void plan_serial_errors(std::uint32_t errors);
void clear();

// For the platform layer: the plans above; null or false when there is none.
struct Socket_Library_Plan {
    std::uint32_t error = 0;
    std::uint16_t version = 0;
};
const Socket_Library_Plan *planned_socket_library();
// False when the name is not planned. Waits while it is planned to hang.
bool planned_name(const char *name, std::uint32_t &error, std::uint32_t &host);
void wait_while_opens_are_held();
std::uint32_t planned_serial_errors();  // takes them: the next call returns 0

// For the platform layer. admit returns how many of n bytes may be moved now; if that is less than n, the caller moves
// them and returns fail(), which sets the last error and is always false. Without a plan admit only reads a flag.
extern std::atomic<bool> armed;
std::size_t piece(std::size_t n);  // how many of n bytes to ask the system for in one call
std::size_t planned(Operation operation, std::size_t n);
inline std::size_t admit(Operation operation, std::size_t n)
{
    return armed.load(std::memory_order_relaxed) ? planned(operation, n) : n;
}
bool fail(Operation operation);
// Gives back n bytes that were admitted and not moved, because a read found fewer.
void returned(Operation operation, std::size_t n);
inline void give_back(Operation operation, std::size_t n)
{
    if (armed.load(std::memory_order_relaxed)) returned(operation, n);
}

}  // namespace platform::fault
