#include "host/decoders/Rtcm3_Scanner.h"

#include "kernel/records/Crc24q.h"

#include <algorithm>
#include <cstring>

namespace host {

namespace {

constexpr unsigned char preamble = 0xD3;
constexpr std::size_t header = 3;       // [bytes]
constexpr std::size_t overhead = 6;     // [bytes] of header and CRC
constexpr unsigned char most_high = 3;  // of the second byte, whose upper 6 bits are reserved and zero

enum class Verdict { no_frame, incomplete, wrong_crc, intact };

struct Candidate {
    Verdict verdict;
    std::size_t size = 0;  // of the whole frame, when its length is known
};

// Judges the bytes, of which the first is a preamble.
Candidate Judge(std::span<const unsigned char> bytes)
{
    // The reserved bits reveal most false preambles after two bytes.
    if (bytes.size() > 1 && bytes[1] > most_high) return {Verdict::no_frame};
    if (bytes.size() < header) return {Verdict::incomplete};
    const std::size_t size = (std::size_t{bytes[1]} << 8 | bytes[2]) + overhead;
    if (bytes.size() < size) return {Verdict::incomplete, size};
    return {kernel::Crc24q(bytes.first(size)) == 0 ? Verdict::intact : Verdict::wrong_crc, size};
}

unsigned int Message_Number(std::span<const unsigned char> frame)
{
    if (frame.size() < overhead + 2) return 0;
    return static_cast<unsigned int>(frame[3]) << 4 | static_cast<unsigned int>(frame[4]) >> 4;
}

// The position of the next preamble at or after `at`; the size when there is none.
std::size_t Next_Preamble(std::span<const unsigned char> bytes, std::size_t at)
{
    if (at >= bytes.size()) return bytes.size();
    const void *found = std::memchr(&bytes[at], preamble, bytes.size() - at);
    return found ? static_cast<std::size_t>(static_cast<const unsigned char *>(found) - bytes.data()) : bytes.size();
}

// The position of the first intact frame after the first byte; the size when there is none.
std::size_t Next_Intact(std::span<const unsigned char> bytes)
{
    std::size_t at = Next_Preamble(bytes, 1);
    // Only a complete frame counts, because no further bytes will come.
    while (at < bytes.size() && Judge(bytes.subspan(at)).verdict != Verdict::intact) at = Next_Preamble(bytes, at + 1);
    return at;
}

}  // namespace

void Rtcm3_Scanner::Feed(std::span<const unsigned char> piece)
{
    count_.bytes += piece.size();
    piece = Feed_Pending(piece);
    if (!piece.empty()) Keep(piece.subspan(Scan(piece)));
}

// Adds bytes to the incomplete frame until it is complete or refused. Returns the unused part of the piece.
std::span<const unsigned char> Rtcm3_Scanner::Feed_Pending(std::span<const unsigned char> piece)
{
    while (pending_size_ > 0 && !piece.empty()) {
        const std::size_t kept = pending_size_;
        const std::size_t added = std::min(piece.size(), pending_.size() - kept);
        std::memcpy(&pending_[kept], piece.data(), added);
        pending_size_ += added;
        const std::size_t done = Scan(Pending());
        if (done >= kept) {  // the rest is also in the piece, and is scanned there without another copy
            pending_size_ = 0;
            return piece.subspan(done - kept);
        }
        Keep(Pending().subspan(done));
        piece = piece.subspan(added);
    }
    return piece;
}

void Rtcm3_Scanner::Keep(std::span<const unsigned char> rest)
{
    // memmove, because `rest` may be in the same array.
    std::memmove(pending_.data(), rest.data(), rest.size());
    pending_size_ = rest.size();
}

// Returns the start of an incomplete frame, less than max_frame bytes from the end, or the size.
std::size_t Rtcm3_Scanner::Scan(std::span<const unsigned char> bytes)
{
    std::size_t at = 0;
    while (at < bytes.size()) {
        const std::size_t start = Next_Preamble(bytes, at);
        count_.skipped += start - at;
        at = start;
        if (at == bytes.size()) break;
        const Candidate candidate = Judge(bytes.subspan(at));
        if (candidate.verdict == Verdict::incomplete) break;
        if (candidate.verdict == Verdict::intact) {
            Emit(bytes.subspan(at, candidate.size));
            at += candidate.size;
            continue;
        }
        // Advance by one byte only: an intact frame may begin within the length of a false one.
        if (candidate.verdict == Verdict::wrong_crc) ++count_.crc_failures;
        ++count_.skipped;
        ++at;
    }
    return at;
}

void Rtcm3_Scanner::Emit(std::span<const unsigned char> frame)
{
    const std::uint64_t offset = count_.frame_bytes + count_.skipped + count_.tail;  // all bytes before the frame
    ++count_.frames;
    count_.frame_bytes += frame.size();
    if (sink_) sink_({Message_Number(frame), frame, offset});
}

void Rtcm3_Scanner::Finish()
{
    std::span<const unsigned char> rest = Pending();
    while (!rest.empty()) {
        const std::size_t hidden = Next_Intact(rest);
        if (hidden == rest.size()) break;
        count_.skipped += hidden;
        rest = rest.subspan(hidden);
        rest = rest.subspan(Scan(rest));
    }
    count_.tail += rest.size();
    pending_size_ = 0;
}

}  // namespace host
