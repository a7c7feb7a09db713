#include "host/decoders/Crc24q.h"
#include "host/decoders/Rtcm3_Frame_Reader.h"
#include "kernel/String_Byte_Server.h"
#include "tests/support/Message_Counts.h"
#include "tests/support/Naive_Rtcm3.h"
#include "tests/support/folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <sstream>
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

Bytes Frame(const Bytes &payload)
{
    Bytes frame = {0xD3, static_cast<unsigned char>(payload.size() >> 8), static_cast<unsigned char>(payload.size())};
    frame.insert(frame.end(), payload.begin(), payload.end());
    const std::uint32_t crc = Naive_Crc24q(frame);
    for (int shift = 16; shift >= 0; shift -= 8) frame.push_back(static_cast<unsigned char>(crc >> shift));
    return frame;
}

Bytes operator+(Bytes a, const Bytes &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A scanner, and what it found.
struct Scan {
    Frames frames;
    Rtcm3_Scanner scanner{[this](const Rtcm3_Frame &frame) {
        frames.push_back({frame.offset, frame.bytes.size(), frame.message});
    }};

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
    // skipped and tail
    std::vector<std::uint64_t> Rest() const { return {scanner.Count().skipped, scanner.Count().tail}; }
};

Frames Table(const std::string &name)
{
    std::istringstream file(Whole_File(KERNEL_TEST_DATA "/" + name));
    Frames frames;
    std::string line;
    std::getline(file, line);  // the heading
    while (std::getline(file, line)) {
        std::replace(line.begin(), line.end(), ',', ' ');
        std::istringstream fields(line);
        std::uint64_t original;
        Naive_Frame frame;
        if (fields >> original >> frame.offset >> frame.size >> frame.message) frames.push_back(frame);
    }
    return frames;
}

std::unique_ptr<kernel::String_Byte_Server> Server()
{
    return std::unique_ptr<kernel::String_Byte_Server>(kernel::String_Byte_Server::Construct(8192, nullptr));
}

// The recording through a server's ring, in blocks as a file server makes them.
void Replay(const std::string &name, Rtcm3_Frame_Reader &reader)
{
    reader.Dont_Delete_Me();
    const auto server = Server();
    ASSERT_TRUE(server->Connect(&reader));
    const Bytes bytes = Recording(name);
    for (std::size_t at = 0; at < bytes.size(); at += 4096) {
        const std::size_t n = std::min<std::size_t>(4096, bytes.size() - at);
        ASSERT_TRUE(server->PutBin(&bytes[at], static_cast<unsigned int>(n)));
        ASSERT_TRUE(server->Work());
    }
    reader.Finish();
}

}  // namespace

TEST(Crc24q, gives_published_values_in_one_piece_or_several)
{
    const Bytes digits = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    EXPECT_EQ(Crc24q(digits), 0xCDE703u);
    EXPECT_EQ(Crc24q(Bytes{0xD3, 0x00, 0x00}), 0x47EA4Bu);
    EXPECT_EQ(Crc24q(Bytes{0xD3, 0x00, 0x00, 0x47, 0xEA, 0x4B}), 0u);
    EXPECT_EQ(Crc24q(std::span(digits).subspan(4), Crc24q(std::span(digits).first(4))), 0xCDE703u);
}

TEST(Rtcm3_Frame_Reader, finds_exactly_the_intact_frames_of_a_damaged_stream)
{
    Frames found;
    Bytes copied;
    Rtcm3_Frame_Reader reader([&](const Rtcm3_Frame &frame) {
        found.push_back({frame.offset, frame.bytes.size(), frame.message});
        copied.insert(copied.end(), frame.bytes.begin(), frame.bytes.end());
    });
    Replay("day30_dirty4h.rtcm3", reader);

    const Frames table = Table("day30_dirty4h_frames.csv");
    ASSERT_EQ(table.size(), 3764u);
    EXPECT_EQ(found, table);
    Bytes wanted;
    const Bytes stream = Recording("day30_dirty4h.rtcm3");
    for (const Naive_Frame &frame : table) {
        const auto start = stream.begin() + static_cast<std::ptrdiff_t>(frame.offset);
        wanted.insert(wanted.end(), start, start + static_cast<std::ptrdiff_t>(frame.size));
    }
    EXPECT_TRUE(copied == wanted);
    EXPECT_EQ(reader.Count().bytes, stream.size());
    EXPECT_GT(reader.Count().crc_failures, 0u);
    EXPECT_EQ(reader.Progress().frames, 3764u);
}

TEST(Rtcm3_Frame_Reader, counts_frames_and_bytes_per_message)
{
    for (const std::string name : {"GMSD7_20121014.rtcm3", "day30_first1000.rtcm3"}) {
        SCOPED_TRACE(name);
        Rtcm3_Frame_Reader reader;
        Replay(name, reader);
        Message_Counts counted;
        for (unsigned int number = 0; number < Rtcm3_Frame_Reader::message_numbers; ++number) {
            const auto &count = reader.Messages(number);
            if (count.frames > 0) counted[number] = {count.frames, count.bytes};
        }
        EXPECT_EQ(counted, Counts_Of(name));
        EXPECT_EQ(reader.Count().crc_failures, 0u);
        EXPECT_EQ(reader.Count().skipped, 0u);
        EXPECT_EQ(reader.Count().tail, name[0] == 'G' ? 302u : 0u);
    }
}

TEST(Rtcm3_Frame_Reader, refuses_data_that_is_not_there)
{
    Rtcm3_Frame_Reader reader;
    reader.Dont_Delete_Me();
    const auto server = Server();
    ASSERT_TRUE(server->Connect(&reader));
    EXPECT_FALSE(reader.Send(*server, kernel::Mesg_Data_Ready));  // true would make the server ask for ever
    EXPECT_FALSE(reader.Send(*server, kernel::Mesg_Login));
}

TEST(Rtcm3_Scanner, finds_the_same_in_pieces_of_every_size)
{
    const Bytes stream = Recording("day30_dirty4h.rtcm3");
    Scan whole;
    whole.Feed(stream, stream.size()).Finish();
    std::vector<std::size_t> sizes = {1027, 1028, 1029, 1030, 2057, 2058, 2059, 4095, 4096, 65536};
    for (std::size_t size = 1; size <= 40; ++size) sizes.push_back(size);
    for (const std::size_t size : sizes) {
        SCOPED_TRACE(size);
        Scan pieces;
        pieces.Feed(stream, size).Finish();
        EXPECT_TRUE(pieces.frames == whole.frames);
        EXPECT_EQ(pieces.scanner.Count().crc_failures, whole.scanner.Count().crc_failures);
        EXPECT_EQ(pieces.Rest(), whole.Rest());
    }
}

TEST(Rtcm3_Scanner, draws_the_line_between_frames_and_other_bytes)
{
    const Bytes empty = Frame({}), short_one = Frame({0x3E}), station = Frame({0x3E, 0xD0, 1, 2, 3});  // 1005
    const Bytes longest = Frame(Bytes(1023, 0xD3));
    Bytes reserved = station, broken = station;
    reserved[1] = 0x04;
    broken[5] ^= 0x10;
    const Bytes false_start = {0xD3, 0x00, 0x08};  // claims 14 bytes
    const Bytes unending = {0xD3, 0x03, 0xFF};     // claims 1029
    const struct {
        const char *what;
        Bytes stream;
        Frames frames;
        std::uint64_t crc_failures, skipped, tail;
    } cases[] = {
        {"nothing", {}, {}, 0, 0, 0},
        {"no payload", empty, {{0, 6, 0}}, 0, 0, 0},
        {"too short for a number", short_one, {{0, 7, 0}}, 0, 0, 0},
        {"the longest", longest, {{0, 1029, 0xD3D}}, 0, 0, 0},
        {"one behind the other", station + station, {{0, 11, 1005}, {11, 11, 1005}}, 0, 0, 0},
        {"reserved bits set", reserved, {}, 0, 11, 0},
        {"a wrong bit", broken + station, {{11, 11, 1005}}, 1, 11, 0},
        {"inside a false frame", false_start + station + empty, {{3, 11, 1005}, {14, 6, 0}}, 1, 3, 0},
        {"cut", Bytes{'x'} + Bytes(station.begin(), station.end() - 1), {}, 0, 1, 10},
        {"a preamble at the end", station + Bytes{0xD3}, {{0, 11, 1005}}, 0, 0, 1},
        {"inside a frame that never ends", unending + station + Bytes{'x'}, {{3, 11, 1005}}, 0, 4, 0},
        {"twice", unending + station + unending + empty, {{3, 11, 1005}, {17, 6, 0}}, 0, 6, 0},
        {"an incomplete frame with a broken one in it", unending + broken, {}, 0, 0, 14},
    };
    for (const auto &c : cases) {
        for (const std::size_t piece : {std::size_t{1}, std::size_t{5}, std::size_t{5000}}) {
            SCOPED_TRACE(std::string(c.what) + " in pieces of " + std::to_string(piece));
            Scan scan;
            scan.Feed(c.stream, piece).Finish();
            EXPECT_TRUE(scan.frames == c.frames);
            EXPECT_EQ(scan.scanner.Count().crc_failures, c.crc_failures);
            EXPECT_EQ(scan.Rest(), (std::vector{c.skipped, c.tail}));
        }
    }
}

TEST(Rtcm3_Scanner, goes_on_with_a_new_stream_after_the_end_of_one)
{
    const Bytes station = Frame({0x3E, 0xD0, 1, 2, 3});
    const Bytes cut(station.begin(), station.end() - 4);
    Scan scan;
    scan.Feed(cut, 3).Finish().Feed(station, 4).Feed(cut, 5).Finish().Finish();
    EXPECT_TRUE(scan.frames == (Frames{{7, 11, 1005}}));
    EXPECT_EQ(scan.Rest(), (std::vector<std::uint64_t>{0, 14}));
}

// Streams made of frames, parts of frames and bytes that look like headers, in pieces of random size.
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
            if (kind > 0) part = Frame(part);
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
    }
}
