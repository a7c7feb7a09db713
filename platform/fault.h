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
void clear();

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

}  // namespace platform::fault
