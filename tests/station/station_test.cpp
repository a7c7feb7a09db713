#include "host/station/Epoch_Publisher.h"
#include "host/station/Ring_Reader.h"
#include "host/station/Station_Segment.h"

#include "tests/support/rings.h"
#include "tests/support/segments.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <tuple>

using namespace host;
using namespace kernel;

using station = Segments;

TEST_F(station, segments_have_the_bytes_that_are_documented)
{
    std::string error;
    Station_Segment::Options options{40, 77, 9, 0.5, 1234};
    const auto segment = Station_Segment::Create(0, options, error);
    ASSERT_TRUE(segment) << error;
    sharemem opened("RING_0", 0, 0);
    EXPECT_GE(opened.get_size(), 2440u + 40 * 216 + 77 * 172);
    const auto word = [&](unsigned long offset) { return *static_cast<std::uint32_t *>(opened.get_ptr(offset)); };
    const std::uint32_t words[][2] = {
        {0, 0},    {4, 0},   {8, 77}, {12, 0}, {16, 77}, {20, 0}, {24, 40}, {28, 0}, {32, 1234 << 16 | 522},
        {2344, 9}, {1744, 0}};
    for (const auto &[offset, value] : words) EXPECT_EQ(word(offset), value) << offset;
    double interval = 0;
    std::memcpy(&interval, opened.get_ptr(704), 8);
    EXPECT_EQ(interval, 0.5);
    const Ring_Owner ring = Opened(Ring::Create(0));
    Publish(*ring, 1000, 2);
    EXPECT_EQ(word(2440 + 20), 0u);
    EXPECT_EQ(word(2440 + 212) >> 8 & 31, 2u);
    std::memcpy(&interval, opened.get_ptr(2440 + 40 * 216 + 172 + 12), 8);
    EXPECT_EQ(interval, 1000);  // the second block's pseudorange

    // The second program takes it as it is, and nothing is laid out that cannot be used.
    options.slots = 33;
    const auto second = Station_Segment::Create(0, options, error);
    ASSERT_TRUE(second) << error;
    EXPECT_FALSE(second->Is_Fresh());
    EXPECT_EQ(word(24), 40u);
    for (const auto &[slots, pool, interval_s, ring_number] :
         {std::tuple(32u, 1u, 1.0, 1), std::tuple(40000000u, 1u, 1.0, 1), std::tuple(33u, 0xFFFFFFFFu, 1.0, 1),
          std::tuple(33u, 1u, -1.0, 1), std::tuple(33u, 1u, std::nan(""), 1), std::tuple(33u, 1u, 1.0, 4)})
        EXPECT_TRUE(!Station_Segment::Create(ring_number, {slots, pool, 1, interval_s, 0}, error) && !error.empty());
    const sharemem small("RING_2", 10000, sharemem::flag_create);  // zero, but too small for what is to be made
    EXPECT_EQ(Station_Segment::Create(2, {}, error), nullptr);
    const sharemem foreign("RING_1", 100000, sharemem::flag_create);
    std::memset(foreign.get_ptr(0), 7, 100);
    EXPECT_EQ(Station_Segment::Create(1, {}, error), nullptr);
    EXPECT_EQ(error, "Segment RING_1 exists with another layout.");
}

TEST_F(station, publisher_keeps_what_an_epoch_measures)
{
    const auto segment = Ring_0(40, 400);
    const Ring_Owner ring = Opened(Ring::Create(0));
    Epoch_Publisher publisher(*ring);
    EPO_DATA epoch(30);
    EXPECT_FALSE(publisher.Publish(epoch)) << "without a week";
    for (int second = 0; second < 2; ++second) {
        epoch.StoreGPSTime(Gps_Time(2200, 100 + second));
        epoch.StoreUint8Epo(EPO_SATELLITES, 26);
        for (unsigned char sat = 0; sat < 26; ++sat) {
            epoch.StoreUint8Obs(OBS_SYSTEM, sat == 0 ? 'R' : sat == 1 ? 'I' : 'G', sat);  // 'I' has no kind
            epoch.StoreUint8Obs(OBS_SATELLITE, static_cast<unsigned char>(sat + 1), sat);
            epoch.StoreUint8Obs(OBS_GLO_CHANNEL, 3, sat);
            epoch.StoreDoubleObs(OBS_CODE_C, 2e7 + sat, sat);
            epoch.StoreFloatObs(OBS_CN0_B, 40, sat);
        }
        EXPECT_TRUE(publisher.Publish(epoch));
    }
    EXPECT_FALSE(publisher.Publish([&]() -> EPO_DATA & {
        epoch.StoreGPSTime(Gps_Time(2200, 99));
        return epoch;
    }()));
    EXPECT_EQ(publisher.Count().published, 2u);
    EXPECT_EQ(publisher.Count().refused, 2u);
    EXPECT_EQ(publisher.Count().left_out, 4u);  // twice: the one without a kind, and the 26th
    Ring_Epoch copy;
    ASSERT_TRUE(ring->Copy_Epoch(ring->find_head(), copy));
    EXPECT_EQ(copy.record.time, 2200 * 604800.0 + 101);
    EXPECT_EQ(copy.count, 24);
    EXPECT_EQ(copy.blocks[0].type, DATA_GLONASS);
    EXPECT_EQ(copy.blocks[0].channel, -4);
    EXPECT_EQ(copy.blocks[23].number, 25);
    EXPECT_EQ(copy.blocks[23].code[2], 2e7 + 24);
    EXPECT_EQ(copy.blocks[23].code[0], 0.0);
    EXPECT_EQ(copy.blocks[23].cn0[1], 40);
    EXPECT_EQ(Ring::get_sats(&copy.record, DATA_GPS), 23);
}

// Against a list of what is in the ring, from every time.
TEST_F(station, reader_finds_each_epoch_once_and_in_order)
{
    for (const int fill : {0, 1, 2, 5, 23, 24, 40, 41, 100}) {
        const auto segment = Ring_0(40, 400);
        const Ring_Owner ring = Opened(Ring::Create(0));
        for (int i = 0; i < fill; ++i) Publish(*ring, 1000 + i * 2, 1);
        std::vector<double> all;
        for (int i = 0; i < ring->Readable(); ++i) all.push_back(ring->Record_At(i)->time);
        for (double from = 998; from < 1003 + 2 * fill; ++from) {
            Ring_Reader reader(*ring);
            reader.Start_At(from);
            Ring_Epoch epoch;
            std::vector<double> read;
            while (reader.Next(epoch)) read.push_back(epoch.record.time);
            const auto first = std::lower_bound(all.begin(), all.end(), from);
            EXPECT_EQ(read, std::vector<double>(first, all.end())) << fill << ' ' << from;
        }
    }
}

TEST_F(station, reader_follows_and_tells_what_it_missed)
{
    const auto segment = Ring_0(40, 400);
    const Ring_Owner ring = Opened(Ring::Create(0));
    Ring_Reader reader(*ring);
    Ring_Epoch epoch;
    for (int i = 0; i < 3; ++i) Publish(*ring, 1000 + i, 1);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(reader.Next(epoch));
    EXPECT_EQ(reader.Gap(), 1);
    EXPECT_FALSE(reader.Next(epoch));
    REFDATA *record = ring->ins_meas(1002, 1);  // the newest once more, and its writer dies
    ASSERT_TRUE(record);
    Ring_Reader other(*ring);
    for (int i = 0; i < 2; ++i) ASSERT_TRUE(other.Next(epoch));
    EXPECT_FALSE(other.Next(epoch));
    const Ring_Owner next_writer = Opened(Ring::Create(0));
    Publish(*next_writer, 1010, 1);
    ASSERT_TRUE(other.Next(epoch));
    EXPECT_EQ(epoch.record.time, 1010);
    EXPECT_EQ(other.Torn(), 1u);
    EXPECT_FALSE(other.Was_Lapped());
    for (int i = 0; i < 60; ++i) Publish(*next_writer, 2000 + i, 1);
    ASSERT_TRUE(other.Next(epoch));
    EXPECT_TRUE(other.Was_Lapped());
    EXPECT_EQ(epoch.record.time, next_writer->get_tail_rtime());
}
