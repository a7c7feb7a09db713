// Reads bit fields from a block of bytes, most significant bit first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace host {

// A field that reaches beyond the end reads as 0 and makes the reader fail for good. A decoder may therefore read a
// whole message and check Failed() once at its end.
//
// Threads:   one at a time.
// Ownership: refers to the bytes, which must outlive it; reads nothing outside of them.
// Errors:    see Failed.
class Bit_Reader {
public:
    explicit Bit_Reader(std::span<const unsigned char> bytes) : bytes_(bytes), left_(bytes.size() * 8) {}

    bool Failed() const { return failed_; }
    std::size_t Left() const { return left_; }  // [bits]; 0 after a failure

    // n: 0 to 57.
    std::uint64_t Unsigned(unsigned int n)
    {
        if (n > left_) {
            failed_ = true;
            left_ = 0;
            return 0;
        }
        const std::size_t at = bytes_.size() * 8 - left_;
        left_ -= n;
        return n == 0 ? 0 : Window(at / 8) << at % 8 >> (64 - n);
    }
    // Two's complement; n: 1 to 57.
    std::int64_t Signed(unsigned int n)
    {
        const std::uint64_t sign = std::uint64_t{1} << (n - 1);
        return static_cast<std::int64_t>((Unsigned(n) ^ sign) - sign);
    }
    // A sign bit and n - 1 bits of magnitude, as in GLONASS data; minus zero is 0. n: 1 to 57.
    std::int64_t Sign_Magnitude(unsigned int n)
    {
        const bool negative = Unsigned(1) != 0;
        const auto magnitude = static_cast<std::int64_t>(Unsigned(n - 1));
        return negative ? -magnitude : magnitude;
    }
    bool Flag() { return Unsigned(1) != 0; }
    void Skip(unsigned int n) { Unsigned(n); }

    // Reads an unsigned field into a member that is large enough for it.
    template <class T>
    void Read(unsigned int n, T &out)
    {
        out = static_cast<T>(Unsigned(n));
    }

private:
    // Eight bytes from `at` on; bytes beyond the end are 0.
    std::uint64_t Window(std::size_t at) const
    {
        const std::size_t there = bytes_.size() - at;
        std::uint64_t window = 0;
        if (there >= 8) {
            for (std::size_t i = 0; i < 8; ++i) window = window << 8 | bytes_[at + i];
            return window;
        }
        for (std::size_t i = 0; i < there; ++i) window = window << 8 | bytes_[at + i];
        return window << 8 * (8 - there);
    }

    std::span<const unsigned char> bytes_;
    std::size_t left_;  // [bits]
    bool failed_ = false;
};

}  // namespace host
