// One stream to several outputs, and the queue in front of an output that blocks.
#include "host/tools/Fan_Out.h"
#include "host/tools/Feed.h"
#include "host/tools/Queued_Writer.h"
#include "tests/support/folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

using namespace host;
using namespace std::chrono_literals;

namespace {

std::span<const unsigned char> Bytes_Of(const std::string &text)
{
    return {reinterpret_cast<const unsigned char *>(text.data()), text.size()};
}

// Holds a few blocks until somebody takes them.
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
        return size_ - waiting_.size();
    }
    void Put(std::span<const unsigned char> block) override
    {
        const std::lock_guard held(lock_);
        if (!up || size_ - waiting_.size() < block.size())
            dropped += block.size();
        else
            waiting_.append(block.begin(), block.end());
    }
    bool Is_Drained() const override { return Room() == size_; }
    std::uint64_t Sent() const override
    {
        const std::lock_guard held(lock_);
        return taken_.size();
    }
    void Take(std::size_t n)
    {
        const std::lock_guard held(lock_);
        taken_ += waiting_.substr(0, n);
        waiting_.erase(0, n);
    }
    std::string All()
    {
        Take(size_);
        return taken_;
    }

    std::atomic<bool> up{true};
    std::atomic<std::size_t> dropped{0};

private:
    const std::size_t size_;
    mutable std::mutex lock_;
    std::string waiting_, taken_;
};

// Takes a few bytes each millisecond.
class Slow_Peer {
public:
    explicit Slow_Peer(Test_Output &output)
        : thread_([&output](std::stop_token stop) {
              for (; !stop.stop_requested(); std::this_thread::sleep_for(1ms)) output.Take(1500);
          })
    {
    }

private:
    std::jthread thread_;
};

void Give(Fan_Out &fan_out, const std::string &bytes)
{
    Feed feed(fan_out);
    for (std::size_t at = 0; at < bytes.size(); at += 4096) feed.Give(Bytes_Of(bytes.substr(at, 4096)));
}

}  // namespace

TEST(Fan_Out, waits_for_a_slow_peer_and_for_nobody_else_where_the_input_can_wait)
{
    const std::string bytes = Pattern(100000);
    Test_Output fast, slow(5000), alone(5000), leaving(5000);
    alone.up = false;
    Fan_Out fan_out(true, Fan_Out::for_ever);
    for (Test_Output *output : {&fast, &slow, &alone, &leaving}) fan_out.Add(*output);
    {
        const Slow_Peer peer(slow);
        const auto departure = std::async(std::launch::async, [&] {
            std::this_thread::sleep_for(50ms);
            leaving.up = false;
        });
        Give(fan_out, bytes);
    }
    EXPECT_TRUE(fast.All() == bytes);
    EXPECT_TRUE(slow.All() == bytes);
    EXPECT_EQ(slow.dropped, 0u);
    EXPECT_TRUE(leaving.All() == bytes.substr(0, 4096));
    EXPECT_EQ(fan_out.Bytes(), bytes.size());
    EXPECT_EQ(fan_out.Lost(), 0u);
}

TEST(Fan_Out, waits_briefly_and_once_for_a_stuck_peer_where_the_input_is_live)
{
    const std::string bytes = Pattern(64 * 4096);
    Test_Output fast, stuck(5000), behind(5000);
    Fan_Out fan_out(false, Fan_Out::for_ever);
    for (Test_Output *output : {&stuck, &fast, &behind}) fan_out.Add(*output);
    const auto start = std::chrono::steady_clock::now();
    {
        const Slow_Peer peer(behind);  // it keeps up with what is let through
        Give(fan_out, bytes);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);  // 63 waits in vain would be 16 s
    EXPECT_TRUE(fast.All() == bytes);
    EXPECT_TRUE(behind.All() == bytes);
    EXPECT_EQ(stuck.dropped, bytes.size() - 4096);
}

TEST(Fan_Out, gives_up_on_a_peer_that_takes_nothing_and_on_no_other)
{
    const std::string bytes = Pattern(20000);
    Test_Output slow(4096), stuck(4096);
    Fan_Out fan_out(true, Fan_Out::for_ever);
    fan_out.Add(slow);
    fan_out.Add(stuck);
    fan_out.Limit_Waiting(200ms);
    const Slow_Peer peer(slow);
    Give(fan_out, bytes);
    EXPECT_EQ(fan_out.Lost(), bytes.size() - 4096);
    EXPECT_TRUE(slow.All() == bytes);
    EXPECT_TRUE(stuck.All() == bytes.substr(0, 4096));
}

TEST(Fan_Out, takes_what_a_closed_connection_left_and_answers_for_silence)
{
    Test_Output output;
    Fan_Out patient(false, Fan_Out::for_ever), impatient(false, 0ms);
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

// Writes into a text, one block at a time when it is let.
struct Gate {
    Queued_Writer::Write Writer()
    {
        return [this](std::span<const unsigned char> block) {
            ++begun;
            open.wait(false);
            written.append(block.begin(), block.end());
            const bool succeeds = !fails;
            ++done;
            return succeeds;
        };
    }
    void Open()
    {
        open = true;
        open.notify_all();
    }
    std::atomic<bool> open{false};
    std::atomic<int> begun{0}, done{0};
    bool fails = false;
    std::string written;
};

template <class Condition>
bool Soon(Condition condition)
{
    for (int i = 0; i < 5000 && !condition(); ++i) std::this_thread::sleep_for(1ms);
    return condition();
}

}  // namespace

TEST(Queued_Writer, writes_all_in_order)
{
    const std::string bytes = Pattern(3 * queue_size + 17);
    Gate gate;
    gate.Open();
    Queued_Writer writer(queue_size, gate.Writer());
    writer.Start();
    std::size_t n = 0;
    for (std::size_t at = 0; at < bytes.size(); at += n) {
        n = std::min<std::size_t>(at % 4096 + 1, bytes.size() - at);
        while (writer.Room() < n) std::this_thread::yield();
        ASSERT_TRUE(writer.Put(Bytes_Of(bytes.substr(at, n))));
    }
    EXPECT_TRUE(Soon([&] { return writer.Is_Empty(); }));
    EXPECT_EQ(writer.Written(), bytes.size());
    EXPECT_TRUE(writer.Stop(5s));
    EXPECT_TRUE(gate.written == bytes);
}

TEST(Queued_Writer, discards_what_waits_and_not_what_is_on_its_way)
{
    const std::string block = Pattern(4096), next(4096, 'n');
    Gate gate;
    Queued_Writer writer(queue_size, gate.Writer());
    writer.Start();
    ASSERT_TRUE(writer.Put(Bytes_Of(block)));
    ASSERT_TRUE(Soon([&] { return gate.begun == 1; }));
    while (writer.Room() >= block.size()) ASSERT_TRUE(writer.Put(Bytes_Of(block)));
    EXPECT_FALSE(writer.Put(Bytes_Of(next)));
    EXPECT_EQ(writer.Room(), queue_size - block.size() - next.size());
    gate.Open();
    EXPECT_TRUE(Soon([&] { return writer.Is_Empty(); }));
    EXPECT_TRUE(writer.Stop(5s));
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
    EXPECT_TRUE(writer.Put(Bytes_Of("dropped")));
    EXPECT_TRUE(writer.Is_Empty());
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
