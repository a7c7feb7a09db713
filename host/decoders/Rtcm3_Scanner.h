// Finds the intact RTCM 3 frames in a byte stream.
//
// A frame: preamble 0xD3, 6 reserved bits (zero), 10 bits payload length, the payload (0 to 1023 bytes), and a CRC-24Q
// over all of these, most significant byte first. The first 12 bits of the payload are the message number.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

namespace host {

// One intact frame; valid only during the call of the sink.
struct Rtcm3_Frame {
    unsigned int message;                  // 0 to 4095; 0 when the payload is shorter than 2 bytes
    std::span<const unsigned char> bytes;  // the whole frame, header and CRC included
    std::uint64_t offset;                  // [bytes] of its preamble from the start of the stream

    std::span<const unsigned char> payload() const { return bytes.subspan(3, bytes.size() - 6); }
};

using Rtcm3_Sink = std::function<void(const Rtcm3_Frame &)>;

// Scans bytes of any source. After a wrong CRC it continues with the byte after that preamble, so that it finds frames
// within the length of a false one. A preamble with reserved bits set is not a frame. Each false frame costs a CRC: a
// stream of nothing but false preambles is slow (1029 CRC steps per byte at worst), but is scanned correctly.
//
// Threads:   one at a time; the sink runs inside Feed and Finish and must not call them.
// Ownership: copies at most one incomplete frame; nothing is allocated after construction.
// Errors:    none; an exception of the sink passes through and leaves the scanner unusable.
class Rtcm3_Scanner {
public:
    static constexpr std::size_t max_frame = 3 + 1023 + 3;  // [bytes]

    // Each byte is counted once: in a frame, as skipped or as tail; or it is still pending.
    struct Counters {
        std::uint64_t bytes = 0;         // fed
        std::uint64_t frames = 0;        // intact
        std::uint64_t frame_bytes = 0;   // in intact frames
        std::uint64_t crc_failures = 0;  // complete frames with a wrong CRC; false preambles count as well
        std::uint64_t skipped = 0;       // bytes that belong to no frame
        std::uint64_t tail = 0;          // bytes of the incomplete frame at each Finish
    };

    explicit Rtcm3_Scanner(Rtcm3_Sink sink) : sink_(std::move(sink)) {}
    Rtcm3_Scanner(const Rtcm3_Scanner &) = delete;
    Rtcm3_Scanner &operator=(const Rtcm3_Scanner &) = delete;

    // Takes the next piece of the stream, of any size, and hands on each frame that it completes.
    void Feed(std::span<const unsigned char> piece);
    // Ends the stream: searches an incomplete frame for shorter frames inside; the rest becomes the tail. Feed may
    // start a new stream afterwards; offsets and counters continue.
    void Finish();

    const Counters &Count() const { return count_; }

private:
    std::span<const unsigned char> Pending() const { return {pending_.data(), pending_size_}; }
    std::size_t Scan(std::span<const unsigned char> bytes);
    void Emit(std::span<const unsigned char> frame);
    std::span<const unsigned char> Feed_Pending(std::span<const unsigned char> piece);
    void Keep(std::span<const unsigned char> rest);

    Rtcm3_Sink sink_;
    Counters count_;
    // Starts with the preamble of an incomplete frame, or is empty. It has room for two frames, so that the bytes added
    // to complete one frame are seldom fewer than those kept.
    std::array<unsigned char, 2 * max_frame> pending_;
    std::size_t pending_size_ = 0;
};

}  // namespace host
