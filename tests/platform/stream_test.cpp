#include "platform/stream.h"

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/fault.h"
#include "tests/support/folder.h"
#include "tests/support/sockets.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

using namespace platform;
using namespace test;

namespace {

struct stream : testing::Test {
    ~stream() override { fault::clear(); }

    Connection line;
    char buffer[100] = {};
    Transfer transfer;

    // Begins a read that finds nothing yet.
    void Begin_Read()
    {
        ASSERT_FALSE(transfer.read(line.near, buffer, sizeof buffer));
        ASSERT_EQ(last_error(), error_io_pending);
        ASSERT_EQ(Outcome(transfer), "pending");
    }
};

}  // namespace

TEST_F(stream, a_pending_read_ends_once_whatever_ends_it)
{
    const std::pair<std::function<void()>, std::string> cases[] = {{[&] { Written(line.far, "abc"); }, "got 3"},
                                                                   {[&] { line.far->close(); }, "got 0"},
                                                                   {[&] { line.far.reset(); }, "got 0"},
                                                                   {[&] { line.near->close(); }, "error 995"},
                                                                   {[&] { transfer.cancel(); }, "error 995"}};
    for (const auto &[end, outcome] : cases) {
        line = Connection();
        Begin_Read();
        std::thread other([&end = end] {
            sleep_ms(10);
            end();
        });
        EXPECT_TRUE(transfer.wait(20000)) << outcome;
        other.join();
        EXPECT_EQ(Outcome(transfer), outcome);
        EXPECT_FALSE(transfer.wait(0)) << outcome;
    }
}

TEST_F(stream, a_reset_is_no_end_of_the_stream)
{
    auto listener = std::make_unique<Listener>();
    line.near = listener->Connect();
    Begin_Read();
    listener.reset();  // the connection has never been accepted
    EXPECT_EQ(Awaited(transfer), "error 10054");
    Written(line.near, "a");
    EXPECT_EQ(Written(line.near, "b"), "error 10054");
}

TEST_F(stream, signal_and_buffer_belong_to_one_transfer)
{
    Written(line.far, "abc");
    ASSERT_TRUE(transfer.read(line.near, buffer, 3)) << last_error();  // loopback delivers before write returns
    EXPECT_EQ(Outcome(transfer), "got 3");
    EXPECT_FALSE(transfer.wait(0));
    Begin_Read();
    EXPECT_FALSE(transfer.read(line.near, buffer, 1));  // one at a time
    EXPECT_EQ(last_error(), error_busy);
    transfer.cancel();
    EXPECT_EQ(Outcome(transfer), "error 995");
    Written(line.far, "x");
    EXPECT_EQ(Read(line.near), "x");
    EXPECT_EQ(buffer[0], 'a');
    Begin_Read();
    EXPECT_FALSE(transfer.wait(0));  // the signal that was not taken is dropped
    Written(line.far, "d");
    EXPECT_TRUE(transfer.wait(20000));
    Written(line.far, "e");
    EXPECT_FALSE(transfer.wait(30));  // no transfer is under way, although data arrived
    EXPECT_EQ(Read(line.near), "e");
}

TEST_F(stream, wakes_a_thread_that_has_waited_since_before_it_began)
{
    std::atomic<bool> woken{false};
    std::thread waiter([&] { woken = transfer.wait(20000); });
    sleep_ms(20);
    Begin_Read();
    Written(line.far, "abc");
    EXPECT_TRUE(Soon([&] { return woken.load(); }));
    waiter.join();
    EXPECT_EQ(Outcome(transfer), "got 3");
}

TEST_F(stream, a_write_to_a_full_line_is_pending_until_all_is_out_or_it_is_closed)
{
    const std::string sent = Pattern(8 << 20);
    for (const bool closes : {false, true}) {
        line = Connection();
        Begin_Read();  // one transfer may serve both ways
        Written(line.far, "a");
        EXPECT_TRUE(transfer.wait(20000));
        fault::move_at_most(7000);
        EXPECT_FALSE(transfer.write(line.near, sent.data(), sent.size()));
        EXPECT_EQ(last_error(), error_io_pending);
        EXPECT_FALSE(transfer.wait(30));
        if (closes) line.near->close();
        std::string received;
        std::thread reader([&] {
            for (std::string block; !(block = Read(line.far, 5001)).empty() && received.size() < sent.size();)
                received += block;
        });
        EXPECT_EQ(Awaited(transfer), closes ? "error 995" : "got " + std::to_string(sent.size()));
        line.near->close();
        reader.join();
        EXPECT_EQ(Written(line.near, "a"), "error 6");
        EXPECT_FALSE(received.empty());
        EXPECT_TRUE(received == sent.substr(0, closes ? received.size() : sent.size()));  // and then the end, no reset
    }
}

TEST_F(stream, is_released_by_its_last_holder)
{
    const std::uintptr_t number = line.near->native();
    const std::weak_ptr<Socket> watched = line.near;
    Begin_Read();
    line.near->close();
    line.near.reset();
    EXPECT_NE(Socket::create()->native(), number);
    EXPECT_EQ(Awaited(transfer), "error 995");
    EXPECT_TRUE(watched.expired());
}

TEST_F(stream, a_transfer_begun_against_close_never_waits_for_ever)
{
    for (int i = 0; i < 60; ++i) {
        const Connection fresh;
        Event ready;
        std::thread closer([&] {
            ready.wait(10000);
            fresh.near->close();
        });
        ready.set();
        for (int turn = 0; turn < i % 10; ++turn) std::this_thread::yield();
        transfer.read(fresh.near, buffer, sizeof buffer);
        const std::string outcome = Awaited(transfer);
        closer.join();
        ASSERT_TRUE(outcome == "error 995" || outcome == "error 6") << outcome;
    }
}
