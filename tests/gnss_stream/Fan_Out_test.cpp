// One stream to several outputs, and the queue in front of an output that blocks.
#include "host/gnss_stream/Fan_Out.h"
#include "host/gnss_stream/Feed.h"
#include "host/gnss_stream/Queued_Writer.h"
#include "tests/support/folder.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>

using namespace host;
using namespace std::chrono_literals;

namespace {

std::span<const unsigned char> Bytes_Of(const std::string &text)
{
    return {reinterpret_cast<const unsigned char *>(text.data()), text.size()};
}

// Holds a few blocks until Take removes them.
class Test_Output : public Output {
public:
    explicit Test_Output(std::size_t size = 1 << 30) : size_(size) {}

    bool Open() override { return true; }
    Stream_Status Status() const override { return {}; }
    bool Close() override { return true; }
    bool Is_Up() const override { return up; }
    std::size_t Room() const override
    {
        const std::lock_guard held(lock_);
        return size_ - (all_.size() - taken_);
    }
    void Put(std::span<const unsigned char> block) override
    {
        const bool fits = up && Room() >= block.size();
        if (!fits) dropped += block.size();
        const std::lock_guard held(lock_);
        if (fits) all_.append(block.begin(), block.end());
    }
    bool Is_Drained() const override { return Room() == size_; }
    std::uint64_t Sent() const override
    {
        const std::lock_guard held(lock_);
        return taken_;
    }
    void Take(std::size_t n)
    {
        const std::lock_guard held(lock_);
        taken_ = std::min(taken_ + n, all_.size());
    }
    const std::string &All() const { return all_; }  // taken or not; call it after the last Put

    std::atomic<bool> up{true};
    std::size_t dropped = 0;

private:
    const std::size_t size_;
    mutable std::mutex lock_;
    std::string all_;
    std::size_t taken_ = 0;
};

// Gives all bytes to the outputs while `slow` takes a few bytes each millisecond.
void Give(Fan_Out &fan_out, const std::string &bytes, Test_Output &slow)
{
    const std::jthread peer([&](const std::stop_token &stop) {
        for (; !stop.stop_requested(); std::this_thread::sleep_for(1ms)) slow.Take(1500);
    });
    Feed feed(fan_out);
    for (std::size_t at = 0; at < bytes.size(); at += 4096) feed.Give(Bytes_Of(bytes.substr(at, 4096)));
}

}  // namespace

TEST(Fan_Out, waits_for_a_slow_peer_and_gives_up_on_one_that_takes_nothing_where_the_input_can_wait)
{
    const std::string bytes = Pattern(40000);
    Test_Output fast, slow(5000), alone(5000), leaving(5000), stuck(5000);
    alone.up = false;
    Fan_Out fan_out(Fan_Out::Source::can_wait, Fan_Out::for_ever);
    for (Test_Output *output : {&fast, &slow, &alone, &leaving, &stuck}) fan_out.Add(*output);
    const auto departure = std::async(std::launch::async, [&] {
        std::this_thread::sleep_for(50ms);
        leaving.up = false;
        std::this_thread::sleep_for(50ms);
        fan_out.Limit_Waiting(100ms);
    });
    Give(fan_out, bytes, slow);
    EXPECT_TRUE(fast.All() == bytes && slow.All() == bytes);
    EXPECT_TRUE(leaving.All() == bytes.substr(0, 4096) && stuck.All() == bytes.substr(0, 4096));
    EXPECT_EQ(fan_out.Bytes(), bytes.size());
}

TEST(Fan_Out, waits_briefly_and_once_for_a_stuck_peer_where_the_input_is_live)
{
    const std::string bytes = Pattern(64 * 4096);
    Test_Output fast, stuck(5000), behind(5000);
    Fan_Out fan_out(Fan_Out::Source::live, Fan_Out::for_ever);
    for (Test_Output *output : {&stuck, &fast, &behind}) fan_out.Add(*output);
    const auto start = std::chrono::steady_clock::now();
    Give(fan_out, bytes, behind);                              // `behind` keeps up
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);  // 63 waits in vain would be 16 s
    EXPECT_TRUE(fast.All() == bytes && behind.All() == bytes);
    EXPECT_EQ(stuck.dropped, bytes.size() - 4096);
}

TEST(Fan_Out, takes_what_a_closed_connection_left_and_answers_for_silence)
{
    Test_Output output;
    Fan_Out patient(Fan_Out::Source::live, Fan_Out::for_ever), impatient(Fan_Out::Source::live, 0ms);
    patient.Add(output);
    const std::unique_ptr<kernel::String_Byte_Server> server(kernel::String_Byte_Server::Construct(100, nullptr));
    server->PutStr("rest");
    EXPECT_TRUE(patient.Send(*server, kernel::Mesg_Detached));
    EXPECT_EQ(output.All(), "rest");
    EXPECT_TRUE(patient.Send(*server, kernel::Mesg_Status_50));
    EXPECT_FALSE(impatient.Send(*server, kernel::Mesg_Status_50));
}

namespace {

constexpr std::size_t queue_size = 100000;

// Writes into a text, but not before it is opened.
struct Gate {
    Queued_Writer::Write Writer()
    {
        return [this](std::span<const unsigned char> block) {
            ++begun;
            Wait();
            written.append(block.begin(), block.end());
            return ++done, !fails;
        };
    }
    void Open()
    {
        const std::lock_guard guard(lock);
        open = true;
        changed.notify_all();
    }
    void Wait()
    {
        std::unique_lock guard(lock);
        changed.wait(guard, [this] { return open; });
    }
    std::mutex lock;
    std::condition_variable changed;
    bool open = false;
    std::atomic<bool> fails{false};
    std::atomic<int> begun{0}, done{0};
    std::string written;
};

}  // namespace

TEST(Queued_Writer, writes_all_in_order)
{
    const std::string bytes = Pattern(3 * queue_size + 17);
    Gate gate;
    gate.Open();
    Queued_Writer writer(queue_size, gate.Writer());
    writer.Start();
    for (std::size_t at = 0, n = 0; at < bytes.size(); at += n) {
        n = std::min<std::size_t>(at % 4096 + 1, bytes.size() - at);
        ASSERT_TRUE(Soon([&] { return writer.Room() >= n; }));
        ASSERT_TRUE(writer.Put(Bytes_Of(bytes.substr(at, n))));
    }
    ASSERT_TRUE(Soon([&] { return writer.Is_Empty(); }));
    EXPECT_EQ(writer.Written(), bytes.size());
    EXPECT_TRUE(gate.written == bytes && writer.Stop(5s));
}

TEST(Queued_Writer, opens_before_it_writes)
{
    const std::string bytes = Pattern(5000);
    for (const bool opens : {true, false}) {
        Gate gate;
        gate.Open();
        std::atomic<bool> may_open{false};
        Queued_Writer writer(queue_size, gate.Writer(), [&] {
            may_open.wait(false);
            return opens;
        });
        writer.Start();
        EXPECT_FALSE(writer.Is_Open() || writer.Has_Failed());
        EXPECT_TRUE(writer.Put(Bytes_Of(bytes)));
        may_open = true;
        may_open.notify_all();
        EXPECT_TRUE(Soon([&] { return writer.Is_Empty(); }));
        EXPECT_TRUE(writer.Is_Open() == opens && writer.Has_Failed() == !opens && writer.Stop(5s));
        EXPECT_TRUE(gate.written == (opens ? bytes : ""));
    }
}

TEST(Queued_Writer, discards_what_waits_and_not_what_is_on_its_way)
{
    const std::string block(4096, 'b'), next(4096, 'n');
    Gate gate;
    Queued_Writer writer(queue_size, gate.Writer());
    writer.Start();
    ASSERT_TRUE(writer.Put(Bytes_Of(block)) && Soon([&] { return gate.begun == 1; }));
    while (writer.Room() >= block.size()) ASSERT_TRUE(writer.Put(Bytes_Of(block)));
    EXPECT_FALSE(writer.Put(Bytes_Of(next)));
    EXPECT_EQ(writer.Room(), queue_size - block.size() - next.size());
    gate.Open();
    EXPECT_TRUE(Soon([&] { return writer.Is_Empty(); }) && writer.Stop(5s));
    EXPECT_TRUE(gate.written == block + next);
}

TEST(Queued_Writer, ends_with_a_failed_write_and_leaves_a_stuck_one_behind)
{
    Gate failing, stuck;
    failing.fails = true;
    failing.Open();
    Queued_Writer writer(queue_size, failing.Writer());
    writer.Start();
    writer.Put(Bytes_Of("lost"));
    EXPECT_TRUE(Soon([&] { return writer.Has_Failed(); }));
    EXPECT_TRUE(writer.Put(Bytes_Of("dropped")) && writer.Is_Empty());
    EXPECT_TRUE(writer.Stop(5s));

    {
        Queued_Writer other(queue_size, stuck.Writer());
        other.Start();
        other.Put(Bytes_Of("x"));
        ASSERT_TRUE(Soon([&] { return stuck.begun == 1; }));
        EXPECT_FALSE(other.Stop(10ms));
    }
    stuck.Open();
    EXPECT_TRUE(Soon([&] { return stuck.done == 1; }));
}
