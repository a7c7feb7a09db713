// Reading a ring in the order of time, live or from a time on.
#pragma once

#include "kernel/memory/Ring.h"

#include <cstdint>
#include <limits>

namespace host {

// Each call gives the next epoch after the last one, found by its time. So nothing is given twice, and a reader that
// was lapped goes on with the oldest epoch that there is.
//
// Threads:   one.
// Ownership: the ring is the caller's and outlives this object.
// Errors:    none. An epoch that a dying writer left half written is passed over and counted.
class Ring_Reader {
public:
    explicit Ring_Reader(const kernel::Ring &ring) : ring_(ring) {}

    // The next epoch is the first one at this time [s GPS] or later.
    void Start_At(double time);
    // False: there is none yet, or the newest is being written.
    bool Next(kernel::Ring_Epoch &epoch);

    // Of the epoch that Next gave:
    double Gap() const { return gap_; }          // [s] since the one before; 0: there was none
    bool Was_Lapped() const { return lapped_; }  // epochs between the two may have been overwritten
    std::uint64_t Torn() const { return torn_; }

private:
    static constexpr double before_all = -std::numeric_limits<double>::infinity();

    int First_After(double time) const;

    const kernel::Ring &ring_;
    double last_ = before_all;  // [s GPS] the next epoch is later
    double gap_ = 0;
    bool has_given_ = false, lapped_ = false;
    std::uint64_t torn_ = 0;
};

}  // namespace host
