#include "kernel/memory/Ring.h"

#include "tests/support/rings.h"
#include "tests/support/segments.h"
#include "tests/support/timing.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <thread>

using namespace kernel;

namespace {

using Ring_test = Segments;

// --- Other processes: this program with RING_ROLE set, which never reaches main.

std::string Variable(const char *name)
{
    const char *const value = std::getenv(name);
    return value ? value : "";
}

void Read_Until_Stopped(const std::string &folder)
{
    const Ring_Owner ring = Opened(Ring::Create(0));
    long accepted = 0, bad = ring ? 0 : 1, out_of_order = 0;
    double last = 0;
    while (ring && !std::filesystem::exists(folder + "/stop"))
        for (int round = 0; round < 1000; ++round) {
            const int n = ring->Readable();
            Ring_Epoch epoch;
            const REFDATA *const records[] = {ring->find_head(), ring->find_tail(), ring->Record_At(n / 2)};
            for (const REFDATA *record : records) {
                if (!ring->Copy_Epoch(record, epoch)) continue;
                ++accepted;
                if (!Is_Whole(epoch)) ++bad;
                if (record == records[0] && epoch.record.time < last) ++out_of_order;
                if (record == records[0]) last = epoch.record.time;
            }
        }
    const std::string file = "/reader" + Variable("RING_NUMBER");
    std::ofstream(folder + file) << accepted << ' ' << bad << ' ' << out_of_order;
}

// Ends in the middle of whatever it does.
void Write_And_Die()
{
    const Ring_Owner ring = Opened(Ring::Create(0));
    std::mt19937 random(static_cast<unsigned>(std::stoul(Variable("RING_NUMBER"))));
    std::thread([ms = random() % 60] {
        platform::sleep_ms(ms);
        std::_Exit(0);
    }).detach();
    if (ring)
        for (double time = ring->get_head_rtime() + 1;; time += random() % 3 == 0 ? 0.005 : 1)
            Publish(*ring, time, static_cast<int>(random() % 26));
}

const bool is_other_process = [] {
    const std::string role = Variable("RING_ROLE");
    if (role == "reader") Read_Until_Stopped(Variable("RING_FOLDER"));
    if (role == "writer") Write_And_Die();
    if (!role.empty()) std::_Exit(0);
    return false;
}();

void Run_Other(const std::string &role, int number)
{
    const std::string self = ::testing::internal::GetArgvs()[0];
#ifdef _WIN32
    const std::string command =
        "set RING_ROLE=" + role + "&& set RING_NUMBER=" + std::to_string(number) + "&& \"" + self + "\"";
#else
    const std::string command = "RING_ROLE=" + role + " RING_NUMBER=" + std::to_string(number) + " \"" + self + "\"";
#endif
    (void)!std::system(command.c_str());
}

// --- The searches, as they are described

class Search_Model {
public:
    explicit Search_Model(const Ring &ring)
        : header_(Header_Of(ring)), records_(Records_Of(ring)), slots_(header_.slots), head_(header_.head)
    {
        if (header_.total == 0) return;
        tail_ = static_cast<long long>(header_.total) < slots_ - 16 ? header_.tail
                : header_.count > 16                                ? (header_.tail + 16) % slots_
                                                                    : -1;
    }
    long long Greater(double t) const
    {
        if (tail_ < 0) return -1;
        if (t <= Time(tail_)) return tail_;
        if (t == Time(head_)) return head_;
        return t > Time(head_) ? -1 : Binary(t, t);
    }
    long long Less(double t) const
    {
        if (tail_ < 0 || t < Time(tail_)) return -1;
        if (t == Time(tail_)) return tail_;
        if (t >= Time(head_)) return head_;
        const long long found = Binary(t, t);
        if (Time(found) <= t) return found;
        return found == tail_ ? -1 : (found + slots_ - 1) % slots_;
    }
    long long Equal(double t, double tolerance) const
    {
        if (tail_ < 0 || tolerance < 0 || t + tolerance < Time(tail_) || Time(head_) < t - tolerance) return -1;
        const auto near = [&](long long i) { return Time(i) >= t - tolerance && Time(i) <= t + tolerance; };
        if (near(head_)) return head_;
        const long long found = Binary(t - tolerance, t + tolerance);
        return near(found) ? found : -1;
    }

private:
    long long Binary(double a, double b) const
    {
        long long lo = tail_ + 1, hi = head_ - 1;
        if (static_cast<long long>(header_.total) >= slots_) hi += slots_;
        while (lo < hi) {
            const long long mid = (lo + hi + 1) / 2;
            if (b >= Time(mid) && a <= Time(mid)) return mid % slots_;
            if (b >= Time(mid))
                lo = mid + 1;
            else
                hi = mid - 1;
        }
        return (hi + slots_) % slots_;
    }
    double Time(long long i) const { return records_[(i + slots_) % slots_].time; }

    const Ring_Header &header_;
    const REFDATA *records_;
    long long slots_, head_, tail_ = -1;
};

}  // namespace

TEST_F(Ring_test, is_opened_by_its_number_and_listed_in_order)
{
    EXPECT_STREQ(Ring::Get_Station_Ring_Name(3), "RING_3");
    EXPECT_EQ(Ring::Get_Station_Ring_Name(4), nullptr);
    EXPECT_STREQ(Ring::Get_Monitor_Ring_Name(17, 2), "RING_2_#0017");
    for (const int ring : {-1, 0, 4}) EXPECT_EQ(Ring::Create(ring), nullptr);
    EXPECT_EQ(Ring::Create(2047, 0), nullptr);

    const auto station = Ring_0(33, 100);
    std::string error;
    const auto monitor = host::Station_Segment::Create_Monitor(17, 2, {}, error);
    Ring *const zero = Ring::Create(0), *const second = Ring::Create(17, 2), *const again = Ring::Create(0);
    ASSERT_TRUE(zero && second && again) << error;
    EXPECT_TRUE(zero->version());
    EXPECT_EQ(second->get_station_id(), 17);
    EXPECT_EQ(second->get_ring(), 2);
    EXPECT_STREQ(second->get_name(), "RING_2_#0017");
    EXPECT_EQ(Ring::First(), second);
    EXPECT_EQ(Ring::Next(second), zero);
    EXPECT_EQ(Ring::Prev(again), zero);
    EXPECT_EQ(Ring::Last(), again);
    EXPECT_EQ(Ring::Find(17, 2), second);
    EXPECT_EQ(Ring::Find(2047, 0), zero);
    EXPECT_EQ(Ring::Find(17, 0), nullptr);
    Ring *gone = zero;
    Ring::Delete(gone);
    EXPECT_EQ(Ring::Find(2047, 0), again);
    for (int i = 0; i < 200; ++i) EXPECT_TRUE(Ring::Create(0));
    std::thread other(Ring::DeleteAll);
    Ring::DeleteAll();
    other.join();
    EXPECT_EQ(Ring::First(), nullptr);
    sharemem users("RING_0", 0, 0);
    EXPECT_EQ(users.in_use(), 2);  // each was deleted once
}

TEST_F(Ring_test, times_decide_what_an_insert_gives)
{
    const auto segment = Ring_0(100, 1000);
    const Ring_Owner ring = Opened(Ring::Create(0));
    EXPECT_EQ(ring->ins_meas(std::nan(""), 3), nullptr);
    REFDATA *const first = ring->ins_meas(100, 3);
    EXPECT_EQ(ring->ins_meas(100.005, 25), first);  // not published yet, and its blocks stay
    EXPECT_EQ(Ring::get_block_count(first), 3);
    ring->ins_done_meas(first);
    EXPECT_EQ(ring->get_total(), 0u);  // readers see nothing until the second
    EXPECT_EQ(ring->get_head(), nullptr);

    const struct {
        double time;
        bool taken;
        std::size_t slot;
        unsigned gap;
    } cases[] = {
        {99.98, false, 0, 0},
        {99.995, true, 0, 1000},
        {112.7, true, 1, 120},
        {612.7, true, 2, 904},
        {13719.6, true, 3, 13106 * 10 % 4096},
        {26726.8, true, 4, 13007 * 10 % 4096},
        {50000, true, 5, 0},
        {40000, false, 0, 0},
        {50000.009, true, 5, 0},
    };
    for (const auto &c : cases) {
        REFDATA *const record = ring->ins_pos(c.time);
        ASSERT_EQ(record != nullptr, c.taken) << c.time;
        if (!record) continue;
        EXPECT_EQ(record, Records_Of(*ring) + c.slot) << c.time;
        EXPECT_EQ(record->flags >> 19 & 0xFFF, c.gap) << c.time;
        ring->ins_done_meas(record);
    }
    EXPECT_EQ(ring->get_total(), 5u);
    EXPECT_EQ(ring->get_n(), 5);
    for (const int blocks : {0, 25, -1}) {
        REFDATA *const record = ring->ins_meas(60000 + blocks, blocks);
        if (!record) continue;
        EXPECT_EQ(Ring::get_block_count(record), 0) << blocks;
        EXPECT_EQ(record->first_block, REFDATA::No_Block);
        ring->ins_done_meas(record);
    }
    EXPECT_EQ(Header_Of(*ring).meas_inserts, 4u);
    EXPECT_EQ(Header_Of(*ring).pos_inserts, 7u);
}

TEST_F(Ring_test, readers_stay_clear_of_the_tail)
{
    const auto segment = Ring_0(100, 4000);
    const Ring_Owner ring = Opened(Ring::Create(0));
    for (int i = 0; i < 84; ++i) Publish(*ring, 1000 + i, 2);
    EXPECT_EQ(ring->get_n(), 83);
    EXPECT_EQ(ring->find_tail(), Records_Of(*ring));
    for (int i = 84; i < 91; ++i) Publish(*ring, 1000 + i, 2);
    EXPECT_EQ(ring->find_tail(), Records_Of(*ring) + 16);
    EXPECT_EQ(ring->get_n(), 91 - 16);
    EXPECT_EQ(ring->get_tail_rtime(), 1016);
    EXPECT_EQ(ring->find_prev(ring->find_tail()), nullptr);
    EXPECT_EQ(ring->find_succ(ring->find_head()), nullptr);
    EXPECT_EQ(ring->get_maxn(), 99);
    EXPECT_EQ(ring->get_minn(), 84);
    EXPECT_EQ(ring->get_maxtime(), 84);
    int walked = 0;
    for (REFDATA *record = ring->get_tail(); record; record = ring->walk_succ(nullptr)) ++walked;
    EXPECT_EQ(walked, 75);
    Header_Of(*ring).total = 0xFFFFFFFF;
    Publish(*ring, 2000, 2);
    EXPECT_EQ(ring->get_total(), 100u);  // still a ring that has wrapped
    EXPECT_EQ(ring->get_head_rtime(), 2000);
}

// Where the pool is the limit, and records of every size come, nothing is lost or owned twice.
TEST_F(Ring_test, blocks_are_accounted_for)
{
    for (const std::uint32_t pool : {0u, 3u, 24u, 25u, 61u, 150u, 230u, 1000u}) {
        const auto segment = Ring_0(40, pool == 0 ? 1 : pool);
        const Ring_Owner ring = Opened(Ring::Create(0));
        std::mt19937 random(pool);
        double time = 1000;
        for (int i = 0; i < 3000; ++i) {
            time += static_cast<double>(random() % 3 == 0 ? 0.001 : 1);
            const int blocks = static_cast<int>(random() % 27);
            REFDATA *const record = ring->ins_meas(time, blocks);
            ASSERT_TRUE(record);
            ASSERT_EQ(Faults_Of(*ring, record - Records_Of(*ring) != Header_Of(*ring).head ? 1 : 0), "")
                << pool << ' ' << i;
            const Ring_Header &header = Header_Of(*ring);
            ASSERT_LE(ring->Readable(), static_cast<int>((header.head + 40 - header.tail) % 40 + 1))
                << "readers see the record that is being written";
            if (random() % 10 == 0)
                time += 5;  // left unpublished
            else
                ring->ins_done_meas(record);
            ASSERT_GE(ring->get_n(), 0);
            const REFDATA *const head = ring->find_head();
            ASSERT_TRUE(!head || head->time > 0) << "the newest was evicted";
        }
    }
}

TEST_F(Ring_test, a_new_writer_sets_right_what_a_dead_one_left)
{
    const auto segment = Ring_0(40, 200);
    Ring_Owner ring = Opened(Ring::Create(0));
    for (int i = 0; i < 60; ++i) Publish(*ring, 1000 + i, 7);
    EXPECT_TRUE(ring->ins_meas(2000, 24));  // never published
    EXPECT_NE(Faults_Of(*ring), "");
    const std::uint32_t tail = Header_Of(*ring).tail;
    ring = Opened(Ring::Create(0));
    Header_Of(*ring).free_blocks = 4000000;
    Publish(*ring, 2000, 1);
    EXPECT_EQ(Faults_Of(*ring), "");
    EXPECT_LE(Header_Of(*ring).tail, (tail + 1) % 40) << "records were lost";
}

TEST_F(Ring_test, searches_are_those_described)
{
    for (const std::uint32_t pool : {30u, 4000u})
        for (int fill = 0; fill < 120; ++fill) {
            const auto segment = Ring_0(40, pool);
            const Ring_Owner ring = Opened(Ring::Create(0));
            for (int i = 0; i < fill; ++i) Publish(*ring, 1000 + i + (i % 3) * 0.25, 1);
            const Search_Model model(*ring);
            const auto slot = [&](const REFDATA *record) { return record ? record - Records_Of(*ring) : -1; };
            for (double t = 998; t < 1004 + fill; t += 0.25) {
                ASSERT_EQ(slot(ring->find_greater(t)), model.Greater(t)) << fill << ' ' << t;
                ASSERT_EQ(slot(ring->find_less(t)), model.Less(t)) << fill << ' ' << t;
                for (const double tolerance : {-1.0, 0.0, 0.1, 0.3, 1.0, 50.0})
                    ASSERT_EQ(slot(ring->find_equal(t, tolerance)), model.Equal(t, tolerance)) << fill << ' ' << t;
            }
            EXPECT_EQ(ring->find_greater(std::nan("")), nullptr);
        }
}

TEST_F(Ring_test, copies_are_whole_or_refused)
{
    const auto segment = Ring_0(40, 400);
    const Ring_Owner writer = Opened(Ring::Create(0)), reader = Opened(Ring::Create(0));
    for (int i = 0; i < 60; ++i) Publish(*writer, 1000 + i, 5);
    Ring_Epoch epoch;
    REFDATA *const oldest = reader->find_tail();
    EXPECT_TRUE(reader->Copy_Epoch(oldest, epoch));
    EXPECT_TRUE(Is_Whole(epoch));
    EXPECT_EQ(epoch.count, 5);
    REFDATA *const head = reader->find_head(), *const written = writer->ins_meas(1059.001, 5);
    EXPECT_TRUE(written);
    EXPECT_FALSE(reader->Copy_Epoch(head, epoch)) << "the writer is inside";
    writer->ins_done_meas(written);
    EXPECT_TRUE(reader->Copy_Epoch(head, epoch));
    const REFDATA saved = *head;
    head->first_block = 398;  // 5 blocks from there
    EXPECT_FALSE(reader->Copy_Epoch(head, epoch));
    *head = saved;
    for (int i = 0; i < 20; ++i) Publish(*writer, 2000 + i, 5);
    EXPECT_TRUE(reader->Copy_Epoch(oldest, epoch) && Is_Whole(epoch) && epoch.record.time >= 2000) << "a later lap";
    EXPECT_FALSE(reader->Copy_Epoch(nullptr, epoch));
}

TEST_F(Ring_test, damaged_headers_are_refused_or_read_safely)
{
    using Damage = void (*)(Ring_Header &);
    const Damage refused[] = {[](Ring_Header &h) { h.slots = 2; }, [](Ring_Header &h) { h.slots = 41; },
                              [](Ring_Header &h) { h.slots = 0xFFFFFFFF; }, [](Ring_Header &h) { h.pool_size = 10000; },
                              [](Ring_Header &h) { h.slots = 0x40000000, h.pool_size = 0xFFFFFFFF; }};
    const Damage read[] = {[](Ring_Header &h) { h.version = 521; }, [](Ring_Header &h) { h.head = 40; },
                           [](Ring_Header &h) { h.tail = 0xFFFFFFFF; }};
    const auto segment = Ring_0(40, 4000);
    const Ring_Owner ring = Opened(Ring::Create(0));
    for (int i = 0; i < 60; ++i) Publish(*ring, 1000 + i, 2);
    const Ring_Header good = Header_Of(*ring);
    for (const Damage damage : refused) {
        damage(Header_Of(*ring));
        EXPECT_EQ(Ring::Create(0), nullptr);
        Header_Of(*ring) = good;
    }
    for (const Damage damage : read) {
        const Ring_Owner opened = Opened(Ring::Create(0));
        ASSERT_TRUE(opened);
        damage(Header_Of(*ring));
        EXPECT_EQ(opened->ins_meas(9000, 1), nullptr);
        EXPECT_TRUE(!opened->version() || !opened->find_head());
        EXPECT_EQ(opened->find_equal(5, 1), nullptr);
        Header_Of(*ring) = good;
    }
    EXPECT_TRUE(Publish(*ring, 5000, 1));
}

TEST_F(Ring_test, fields_and_blocks_by_kind)
{
    const auto segment = Ring_0(40, 400);
    const Ring_Owner ring = Opened(Ring::Create(0));
    const double xyz[3] = {1, 2, 3}, next[3] = {3, 4, 5};
    double read[3] = {};
    REFDATA *const record = ring->ins_meas(1000, 3);
    const DATA_TYPE types[] = {DATA_GLONASS, DATA_GPS, DATA_GLONASS};
    for (int i = 0; i < 3; ++i) {
        ring->get_blocks(record)[i].type = static_cast<std::uint8_t>(types[i]);
        ring->get_blocks(record)[i].number = static_cast<std::uint8_t>(10 + i);
    }
    ring->set_ant(record, xyz);
    ring->set_ant(record, next);
    ring->set_temp(record, 21.5);
    ring->ins_done_meas(record);
    ring->get_ant_mean(read);
    EXPECT_EQ(read[0], 2);
    EXPECT_TRUE(ring->get_ant(record, read));
    EXPECT_EQ(read[2], 5);
    EXPECT_FALSE(ring->get_spp(record, read));
    EXPECT_EQ(ring->get_last_temp(), 21.5);
    EXPECT_EQ(Ring::get_sats(record, DATA_GLONASS), 2);
    EXPECT_EQ(Ring::get_sats(record, DATA_ALL), 3);
    EXPECT_EQ(ring->get_meas(record, DATA_GPS)->number, 11);
    EXPECT_EQ(ring->get_meas_index(record, 1, DATA_GLONASS)->number, 12);
    EXPECT_EQ(ring->get_meas_sat(record, Ring_Satellite(DATA_GLONASS, 12))->number, 12);
    EXPECT_EQ(ring->get_meas_sat(record, 12), nullptr);
    EXPECT_FALSE(ring->has_ref_off());
    ring->set_ref_off(1, 7);
    EXPECT_TRUE(ring->has_ref_off());
    EXPECT_EQ(ring->get_ref_off(1), 7);
    EXPECT_EQ(ring->get_ref_off(3), 0);
    ring->set_ant_type("an antenna with a very long name indeed");
    char text[32];
    ring->get_ant_type(text);
    EXPECT_STREQ(text, "an antenna with a very long nam");
    ring->set_sat_disable_receiver(Ring_Satellite(DATA_QZSS, 3));
    EXPECT_FALSE(ring->get_sat_enable_receiver(Ring_Satellite(DATA_QZSS, 3)));
    EXPECT_TRUE(ring->get_sat_enable_receiver(Ring_Satellite(DATA_QZSS, 4)));
    EXPECT_EQ(Header_Of(*ring).disabled[(DATA_QZSS * 256 + 3) / 8], 8);
}

// The writer dies again and again, wherever it is; RING_KILLS sets how often.
TEST_F(Ring_test, no_reader_takes_a_torn_epoch_while_writers_die)
{
    const auto segment = Ring_0(50, 500);
    const Environment_Setting where("RING_FOLDER", folder / "");
    const std::string kills = Variable("RING_KILLS");
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i) readers.emplace_back(Run_Other, "reader", i);
    for (int i = 0; i < (kills.empty() ? 5 : std::stoi(kills)); ++i) Run_Other("writer", i);
    folder.Write("stop", "x");
    for (std::thread &reader : readers) reader.join();
    for (int i = 0; i < 4; ++i) {
        std::istringstream result(Whole_File(folder / ("reader" + std::to_string(i))));
        long accepted = 0, bad = -1, out_of_order = -1;
        result >> accepted >> bad >> out_of_order;
        EXPECT_GT(accepted, 0);
        EXPECT_EQ(bad, 0) << "of " << accepted;
        EXPECT_EQ(out_of_order, 0);
        RecordProperty("accepted", static_cast<int>(accepted));
    }
    const Ring_Owner ring = Opened(Ring::Create(0));
    EXPECT_GT(ring->get_total(), 100u);
    EXPECT_TRUE(Publish(*ring, ring->get_head_rtime() + 1, 3));
    EXPECT_EQ(Faults_Of(*ring), "");
}
