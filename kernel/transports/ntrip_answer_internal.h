// Judges the first bytes of a caster's answer to a request for a stream. Not installed.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace kernel {

// Collects the pieces of the answer as they are received, up to 250 bytes. The first piece that adds 50 bytes or more
// has everything collected so far judged. An answer in smaller pieces is never judged and passes. The pieces are
// copied; nothing is taken from the stream.
//
// Threads:   used on the reader's thread only.
// Ownership: holds a copy of the answer.
// Errors:    the caster's refusal, as a text for a report. The caster chooses the words: use them as an argument of a
//            report, never as its format.
class Ntrip_Answer {
public:
    void Expect(bool answer);  // a request went out; false: do not judge its answer
    bool Is_Awaited() const { return awaited_; }
    // Takes the next piece. Returns false when the answer was judged and the caster refuses; `message` then says why,
    // like "NTRIP error: Unauthorized. Please check user name and password."
    bool Accepts(const char *piece, std::size_t n, std::string &message);

private:
    std::string Refusal() const;

    bool awaited_ = false;
    std::size_t count_ = 0;
    std::array<char, 250> answer_{};
};

}  // namespace kernel
