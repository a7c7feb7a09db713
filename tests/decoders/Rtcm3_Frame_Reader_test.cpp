#include "host/decoders/Rtcm3_Frame_Reader.h"
#include "kernel/bytes/String_Byte_Server.h"
#include "tests/support/Naive_Rtcm3.h"
#include "tests/support/csv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

using namespace host;

namespace {

using Bytes = std::vector<unsigned char>;
using Frames = std::vector<Naive_Frame>;

Bytes Recording(const std::string &name)
{
    const std::string text = Whole_File(KERNEL_TEST_DATA "/" + name);
    return {text.begin(), text.end()};
}

Bytes operator+(Bytes a, const Bytes &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Naive_Frame As_Found(const Rtcm3_Frame &frame) { return {frame.offset, frame.bytes.size(), frame.message}; }

// A scanner, and what it found.
struct Scan {
    Frames frames;
    Rtcm3_Scanner scanner{[this](const Rtcm3_Frame &frame) { frames.push_back(As_Found(frame)); }};

    Scan &Feed(std::span<const unsigned char> bytes, std::size_t piece)
    {
        for (; !bytes.empty(); bytes = bytes.subspan(std::min(piece, bytes.size())))
            scanner.Feed(bytes.first(std::min(piece, bytes.size())));
        return *this;
    }
    Scan &Finish()
    {
        scanner.Finish();
        return *this;
    }
    // CRC failures, skipped and tail
    std::vector<std::uint64_t> Rest() const
    {
        const auto &count = scanner.Count();
        return {count.crc_failures, count.skipped, count.tail};
    }
};

// A recording through a server's ring, in blocks as a file server makes them.
void Replay(const Bytes &bytes, Rtcm3_Frame_Reader &reader)
{
    const std::unique_ptr<kernel::String_Byte_Server> server(kernel::String_Byte_Server::Construct(8192, nullptr));
    reader.Dont_Delete_Me();
    ASSERT_TRUE(server->Connect(&reader));
    for (std::size_t at = 0; at < bytes.size(); at += 4096) {
        const std::size_t n = std::min<std::size_t>(4096, bytes.size() - at);
        ASSERT_TRUE(server->PutBin(&bytes[at], static_cast<unsigned int>(n)));
        ASSERT_TRUE(server->Work());
    }
    reader.Finish();
    EXPECT_FALSE(reader.Send(*server, kernel::Mesg_Data_Ready));  // nothing there: true would be asked for ever
}

}  // namespace

TEST(Rtcm3_Frame_Reader, finds_exactly_the_intact_frames_of_a_damaged_stream)
{
    const Bytes stream = Recording("day30_dirty4h.rtcm3");
    Frames found, table;
    Rtcm3_Frame_Reader reader([&](const Rtcm3_Frame &frame) {
        found.push_back(As_Found(frame));
        ASSERT_LE(frame.offset + frame.bytes.size(), stream.size());
        EXPECT_TRUE(std::equal(frame.bytes.begin(), frame.bytes.end(),
                               stream.begin() + static_cast<std::ptrdiff_t>(frame.offset)));
    });
    Replay(stream, reader);
    for (const Csv_Row &row : Csv_Rows("day30_dirty4h_frames.csv"))
        table.push_back({static_cast<std::uint64_t>(row.Int("offset")), static_cast<std::size_t>(row.Int("total_len")),
                         static_cast<unsigned int>(row.Int("msg"))});
    EXPECT_EQ(table.size(), 3764u);
    EXPECT_EQ(found, table);
    EXPECT_EQ(reader.Count().bytes, stream.size());
    EXPECT_GT(reader.Count().crc_failures, 0u);
    EXPECT_EQ(reader.Progress().frames, 3764u);
    const auto stations = static_cast<std::uint64_t>(
        std::count_if(table.begin(), table.end(), [](const Naive_Frame &frame) { return frame.message == 1006; }));
    EXPECT_EQ(reader.Messages(1006).frames, stations);
    EXPECT_EQ(reader.Messages(1006).bytes, stations * 27);
}

TEST(Rtcm3_Scanner, draws_the_line_between_frames_and_other_bytes)
{
    const Bytes empty = Naive_Framed({}), station = Naive_Framed({0x3E, 0xD0, 1, 2, 3});  // 1005
    Bytes reserved = station, broken = station;
    reserved[1] = 0x04;
    broken[5] ^= 0x10;
    const Bytes false_start = {0xD3, 0x00, 0x08};  // claims 14 bytes
    const Bytes unending = {0xD3, 0x03, 0xFF};     // claims 1029
    const struct {
        const char *what;
        Bytes stream;
        Frames frames;
        std::vector<std::uint64_t> rest;  // CRC failures, skipped, tail
    } cases[] = {
        {"too short for a number", empty + Naive_Framed({0x3E}), {{0, 6, 0}, {6, 7, 0}}, {0, 0, 0}},
        {"the longest", Naive_Framed(Bytes(1023, 0xD3)), {{0, 1029, 0xD3D}}, {0, 0, 0}},
        {"reserved bits set", reserved, {}, {0, 11, 0}},
        {"a wrong bit", broken + station, {{11, 11, 1005}}, {1, 11, 0}},
        {"inside a false frame", false_start + station + empty, {{3, 11, 1005}, {14, 6, 0}}, {1, 3, 0}},
        {"cut", Bytes{'x'} + Bytes(station.begin(), station.end() - 1), {}, {0, 1, 10}},
        {"a preamble at the end", station + Bytes{0xD3}, {{0, 11, 1005}}, {0, 0, 1}},
        {"inside a frame that never ends", unending + station + Bytes{'x'}, {{3, 11, 1005}}, {0, 4, 0}},
        {"twice", unending + station + unending + empty, {{3, 11, 1005}, {17, 6, 0}}, {0, 6, 0}},
        {"an incomplete frame with a broken one in it", unending + broken, {}, {0, 0, 14}},
    };
    for (const auto &c : cases) {
        for (const std::size_t piece : {std::size_t{1}, std::size_t{5}, std::size_t{5000}}) {
            SCOPED_TRACE(std::string(c.what) + " in pieces of " + std::to_string(piece));
            Scan scan;
            EXPECT_EQ(scan.Feed(c.stream, piece).Finish().Rest(), c.rest);
            EXPECT_TRUE(scan.frames == c.frames);
        }
    }
}

TEST(Rtcm3_Scanner, goes_on_with_a_new_stream_after_the_end_of_one)
{
    const Bytes station = Naive_Framed({0x3E, 0xD0, 1, 2, 3});
    const Bytes cut(station.begin(), station.end() - 4);
    Scan scan;
    scan.Feed(cut, 3).Finish().Feed(station, 4).Feed(cut, 5).Finish().Finish();
    EXPECT_TRUE(scan.frames == (Frames{{7, 11, 1005}}));
    EXPECT_EQ(scan.Rest(), (std::vector<std::uint64_t>{0, 0, 14}));
}

// Streams made of frames, parts of frames and bytes that look like headers; in one piece, in pieces of a size around a
// frame's and of random sizes.
TEST(Rtcm3_Scanner, agrees_with_the_naive_scan_on_garbage)
{
    std::mt19937 random(20121014);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random()) % n; };
    for (int round = 0; round < 300; ++round) {
        Bytes stream;
        for (std::size_t parts = below(30); parts > 0; --parts) {
            Bytes part(below(below(8) == 0 ? 1024 : 20));
            for (auto &byte : part) byte = static_cast<unsigned char>(below(3) == 0 ? 0xD3 : below(256));
            const std::size_t kind = below(5);
            if (kind > 0) part = Naive_Framed(part);
            if (kind == 1) part.resize(below(part.size()));
            if (kind == 2) part = {0xD3, static_cast<unsigned char>(below(5)), 0x10};
            stream = stream + part;
        }
        Scan scan;
        for (std::span<const unsigned char> rest = stream; !rest.empty();) {
            const std::size_t piece = std::min<std::size_t>(rest.size(), 1 + below(below(2) == 0 ? 8 : 1500));
            scan.scanner.Feed(rest.first(piece));
            rest = rest.subspan(piece);
        }
        scan.Finish();
        ASSERT_TRUE(scan.frames == Naive_Frames(stream)) << "round " << round;
        const auto &count = scan.scanner.Count();
        ASSERT_EQ(count.frame_bytes + count.skipped + count.tail, stream.size());
        for (const std::size_t size : {std::size_t{1028}, std::size_t{1030}, stream.size() + 1}) {
            Scan pieces;
            ASSERT_EQ(pieces.Feed(stream, size).Finish().Rest(), scan.Rest()) << size;
            ASSERT_TRUE(pieces.frames == scan.frames) << size;
        }
    }
}
