// A double that may be missing.
#pragma once

#include <cmath>

namespace kernel {

// A measured value that may be missing. Zero is a value; not-a-number makes it missing.
//
// Converts from double, so that a field is set by assignment.
//
// Threads:   a value.
// Ownership: holds nothing.
// Errors:    none; Value() of a missing one is 0.
class Mdouble {
public:
    constexpr Mdouble() = default;  // missing
    Mdouble(double value) : value_(std::isnan(value) ? 0 : value), valid_(!std::isnan(value)) {}

    constexpr bool IsValid() const { return valid_; }
    constexpr explicit operator bool() const { return valid_; }
    constexpr double Value() const { return value_; }
    constexpr double Value_Or(double other) const { return valid_ ? value_ : other; }
    void Clear() { *this = Mdouble(); }

    // Two missing ones are equal.
    friend constexpr bool operator==(const Mdouble &, const Mdouble &) = default;

private:
    double value_ = 0;  // [the owner's unit]
    bool valid_ = false;
};

}  // namespace kernel
