// The ring of Socket_Multi_Server: one writer, any number of read positions that their owners keep. Not installed.
#pragma once

#include <cstdint>
#include <memory>

namespace kernel {

// Bytes are written at the tail; a full ring loses its oldest bytes. A position is the index of the next byte to read.
// The two modes differ in how a position says that it has read everything:
//
//   by tail    it equals the tail. Insert moves no position. A position that the writer has passed finds the newest
//              bytes: it has lost whole rings, and the order is kept. So an insert of exactly the ring's size is lost
//              to a position that had read everything.
//   by mark    it is caught_up. After each Insert the owner passes every position to Adapted. A position whose bytes
//              may be overwritten goes to the oldest byte. The test is coarse (part of the interface): a position with
//              unread bytes at a wrap may go back as well, and then reads bytes twice.
//
// Threads:   the owner's lock guards it.
// Ownership: owns its bytes.
// Errors:    Is_Valid is false for a size of 0 or above 2^31 - 1, and without memory. Insert and Read refuse impossible
//            arguments and move nothing.
class Multicast_Ring {
public:
    using Position = std::int32_t;
    static constexpr Position caught_up = -1;

    enum class Mode { by_tail, by_mark };

    // What an Insert has changed.
    struct Change {
        bool wraps = false;  // this insert went beyond the ring's end
        Position old_head = 0, new_head = 0, old_tail = 0, new_tail = 0;
    };

    Multicast_Ring(std::uint32_t size, Mode mode);  // [bytes]

    bool Is_Valid() const { return bytes_ != nullptr; }
    Mode Get_Mode() const { return mode_; }
    std::uint32_t Size() const { return size_; }
    Position Tail() const { return tail_; }
    Position Start() const { return mode_ == Mode::by_mark ? caught_up : tail_; }  // for what comes from now on

    bool Has_Ended(Position position, Position tail) const;
    // Of more bytes than the ring holds, the last ones stay.
    Change Insert(const unsigned char *data, long n);
    Position Adapted(const Change &change, Position position) const;
    // Copies at most n bytes from the position to dst. Returns the position behind them; got: their number.
    Position Read(Position position, unsigned char *dst, long n, long &got) const;

private:
    const std::uint32_t size_;  // bytes; at most 2^31 - 1
    const Mode mode_;
    const std::unique_ptr<unsigned char[]> bytes_;  // null: not valid
    Position head_ = -1;                            // the oldest byte; -1: the ring is empty
    Position tail_ = 0;                             // where the next byte goes
    bool has_wrapped_ = false;                      // since construction
};

}  // namespace kernel
