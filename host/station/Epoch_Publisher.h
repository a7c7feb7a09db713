// Observation epochs into a ring.
#pragma once

#include "kernel/memory/Ring.h"
#include "kernel/records/EPO_DATA.h"

#include <atomic>
#include <cstdint>

namespace host {

// The only writer of its ring.
//
// Threads:   one publishes; the counts may be read on any.
// Ownership: the ring is the caller's and outlives this object.
// Errors:    Publish returns false and counts the epoch.
class Epoch_Publisher {
public:
    static constexpr int Most_Satellites = 24;  // of one record

    explicit Epoch_Publisher(kernel::Ring &ring) : ring_(ring) {}

    // False: the epoch has no week, it is older than the newest in the ring, or the ring is not writable. Satellites
    // beyond the 24th, or beyond what the pool can give, are left out.
    bool Publish(const kernel::EPO_DATA &epoch);

    struct Counts {
        std::uint64_t published = 0, refused = 0;  // epochs
        std::uint64_t left_out = 0;                // satellites
    };
    Counts Count() const { return {published_.load(), refused_.load(), left_out_.load()}; }

private:
    kernel::Ring &ring_;
    std::atomic<std::uint64_t> published_{0}, refused_{0}, left_out_{0};
};

}  // namespace host
