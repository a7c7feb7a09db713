// Judges the first bytes of a caster's answer to a request for a stream. Not installed.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace kernel {

// Collects the pieces of the answer as they are received, up to 250 bytes, and judges them with the first piece that
// adds 50 bytes or more; an answer in smaller pieces is never judged and passes. What is collected is a copy: nothing
// is taken from the stream.
//
// Threads:   one, the reader.
// Ownership: copies.
// Errors:    the caster's refusal, in words for a report. They are its own words: an argument of a report, never a
//            format.
class Ntrip_Answer {
public:
    void Expect(bool answer);  // a request went out; false: to one that is not judged
    bool Is_Awaited() const { return awaited_; }
    // The next piece. False: it was judged, and the caster refuses; then `message` says why, like "NTRIP error:
    // Unauthorized. Please check user name and password."
    bool Accepts(const char *piece, std::size_t n, std::string &message);

private:
    std::string Refusal() const;

    bool awaited_ = false;
    std::size_t count_ = 0;
    std::array<char, 250> answer_{};
};

}  // namespace kernel
