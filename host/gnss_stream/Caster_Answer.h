// Removes a caster's answer from the front of a stream.
#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace host {

// The library leaves "ICY 200 OK" and the header lines in front of the data. This class removes them, for pieces of any
// size, in upper or lower case, with or without carriage returns. The library judges no piece of less than 50 bytes; a
// refusal that it has missed is dropped here with all that follows. An answer that ends with the connection is dropped,
// too. Any other beginning is data from its first byte on.
//
// Threads:   one.
// Ownership: keeps copies of at most `longest` bytes until it is clear what they are.
// Errors:    none: bytes that may be either are data.
class Caster_Answer {
public:
    using Bytes = std::span<const unsigned char>;

    void Expect();  // a connection begins
    bool Is_Expected() const { return expected_; }
    bool Is_Refusal() const { return refused_; }
    std::string Refusal() const;  // its first line, without the line end; until the next connection
    // Gives the data of this piece, and data held back from earlier ones, to `take`: none, one or two calls.
    template <class Taker>
    void Pass(Bytes piece, Taker take)
    {
        if (expected_) piece = Skip(piece);
        Give_Held(take);
        if (!piece.empty() && !refused_) take(piece);
    }
    // The connection has ended: bytes held back are data, except a refusal and an incomplete answer.
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
    bool accepted_ = false;  // the first line was "ICY 200 OK" and is removed
    bool refused_ = false;   // the first line is a refusal or incomplete; held_ has it
    std::string held_;       // the current line so far
};

}  // namespace host
