// Takes a caster's answer off the front of a stream.
#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace host {

// The library leaves "ICY 200 OK" and whatever header lines follow in front of the data. This takes them off, in whatever
// pieces they come, in upper or lower case, with or without carriage returns. A refusal that the library has not seen as
// one, since it judges no piece below 50 bytes, is dropped with all that follows it; so is an answer that the end of the
// connection cuts short. Any other beginning is data from its first byte on.
//
// Threads:   one.
// Ownership: keeps copies of at most `longest` bytes while it cannot tell yet what they are.
// Errors:    none: in doubt bytes are data.
class Caster_Answer {
public:
    using Bytes = std::span<const unsigned char>;

    void Expect();  // a connection begins
    bool Is_Expected() const { return expected_; }
    bool Is_Refusal() const { return refused_; }
    std::string Refusal() const;  // its first line, without the line end; until the next connection
    // Gives what is data of this piece, and of earlier ones, to `take` (none, one or two calls).
    template <class Taker>
    void Pass(Bytes piece, Taker take)
    {
        if (expected_) piece = Skip(piece);
        Give_Held(take);
        if (!piece.empty() && !refused_) take(piece);
    }
    // The connection has ended: what was held back is data, but for a refusal and an answer that is cut short.
    template <class Taker>
    void End(Taker take)
    {
        End_First_Line();
        Give_Held(take);
    }

private:
    static constexpr std::size_t longest = 1024;

    Bytes Skip(Bytes piece);
    bool Judge_First_Line();
    bool Judge_Header();
    void End_First_Line();
    template <class Taker>
    void Give_Held(Taker take)
    {
        if (expected_ || refused_ || held_.empty()) return;
        take(Bytes(reinterpret_cast<const unsigned char *>(held_.data()), held_.size()));
        held_.clear();
    }

    bool expected_ = false;
    bool accepted_ = false;  // the first line is off
    bool refused_ = false;   // the first line is a refusal or cut short, and held
    std::string held_;       // the line that has begun
};

}  // namespace host
