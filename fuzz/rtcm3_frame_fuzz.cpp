// Scans any bytes in pieces of any size, and compares with a slow scan. The first byte seeds the sizes of the pieces.
#include "fuzz/Require.h"
#include "host/decoders/Rtcm3_Scanner.h"
#include "tests/support/Naive_Rtcm3.h"

#include <algorithm>
#include <cstdint>
#include <random>

namespace {

struct Result {
    std::vector<Naive_Frame> frames;
    host::Rtcm3_Scanner::Counters count;
};

// Pieces of 1 to `most` bytes.
Result Scan(std::span<const unsigned char> stream, std::size_t most, unsigned int seed)
{
    Result result;
    host::Rtcm3_Scanner scanner([&](const host::Rtcm3_Frame &frame) {
        const bool copied = std::equal(frame.bytes.begin(), frame.bytes.end(),
                                       stream.begin() + static_cast<std::ptrdiff_t>(frame.offset));
        Require(copied, "a frame's bytes are not those at its offset");
        result.frames.push_back({frame.offset, frame.bytes.size(), frame.message});
    });
    std::minstd_rand random(seed + 1);
    for (auto rest = stream; !rest.empty();) {
        const std::size_t piece = std::min<std::size_t>(rest.size(), 1 + random() % most);
        scanner.Feed(rest.first(piece));
        rest = rest.subspan(piece);
    }
    scanner.Finish();
    result.count = scanner.Count();
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0) return 0;
    const std::span<const unsigned char> stream(data + 1, size - 1);
    const Result whole = Scan(stream, stream.size() + 1, 0);
    const Result pieces = Scan(stream, data[0] % 2 == 0 ? 7 : 1200, data[0]);

    Require(whole.frames == Naive_Frames(stream), "not the frames of the naive scan");
    Require(whole.frames == pieces.frames, "the frames depend on the pieces");
    for (const auto &count : {whole.count, pieces.count}) {
        Require(count.bytes == stream.size(), "bytes lost");
        Require(count.frames == whole.frames.size(), "frames miscounted");
        Require(count.frame_bytes + count.skipped + count.tail == count.bytes, "a byte not counted once");
        Require(count.tail < host::Rtcm3_Scanner::max_frame, "a tail that is no incomplete frame");
    }
    Require(whole.count.crc_failures == pieces.count.crc_failures && whole.count.skipped == pieces.count.skipped,
            "the counters depend on the pieces");
    return 0;
}
