#include "platform/stream.h"

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/fault.h"
#include "tests/support/sockets.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

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

// Bytes in which a lost, doubled or moved block shows.
std::string Pattern(std::size_t n)
{
    std::string bytes(n, '\0');
    std::uint32_t value = 1;
    for (char &byte : bytes) byte = static_cast<char>((value = value * 1664525 + 1013904223) >> 24);
    return bytes;
}

}  // namespace

TEST_F(stream, a_pending_read_ends_once_whatever_ends_it)
{
    struct Case {
        std::function<void()> end;
        std::string outcome;
    };
    for (const Case &c : {Case{[&] { Written(line.far, "abc"); }, "got 3"},
                          {[&] { line.far->close(); }, "got 0"},
                          {[&] { line.far.reset(); }, "got 0"},
                          {[&] { line.near->close(); }, "error 995"},
                          {[&] { transfer.cancel(); }, "error 995"}}) {
        line = Connection();
        Begin_Read();
        std::thread other([&] {
            sleep_ms(10);
            c.end();
        });
        EXPECT_TRUE(transfer.wait(20000)) << c.outcome;
        other.join();
        EXPECT_FALSE(transfer.pending());
        EXPECT_EQ(Outcome(transfer), c.outcome);
        EXPECT_EQ(Outcome(transfer), c.outcome);
        EXPECT_FALSE(transfer.wait(0)) << c.outcome;
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

TEST_F(stream, what_is_done_at_once_leaves_no_signal)
{
    Written(line.far, "abc");
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(transfer.read(line.near, buffer, 1)) << last_error();  // loopback delivers before write returns
        EXPECT_EQ(Outcome(transfer), "got 1");
        EXPECT_FALSE(transfer.wait(0));
    }
    Begin_Read();
    Written(line.far, "d");
    EXPECT_TRUE(transfer.wait(20000));
    Written(line.far, "e");
    EXPECT_FALSE(transfer.wait(30));  // nothing is under way, whatever has arrived
    transfer.read(line.near, buffer, 0);
    EXPECT_EQ(Outcome(transfer), "got 0");
    EXPECT_EQ(Read(line.near), "e");
}

TEST_F(stream, a_signal_that_nobody_took_is_forgotten)
{
    Begin_Read();
    transfer.cancel();
    Begin_Read();
    EXPECT_FALSE(transfer.wait(0));
}

TEST_F(stream, a_cancelled_read_leaves_buffer_and_bytes_alone)
{
    Begin_Read();
    EXPECT_FALSE(transfer.read(line.near, buffer, 1));  // one at a time
    EXPECT_EQ(last_error(), error_busy);
    transfer.cancel();
    EXPECT_EQ(Outcome(transfer), "error 995");
    Written(line.far, "abc");
    EXPECT_EQ(Read(line.near), "abc");
    EXPECT_EQ(buffer[0], '\0');
}

TEST_F(stream, a_full_line_keeps_the_write_pending_until_all_is_out)
{
    const std::string sent = Pattern(8 << 20);
    Begin_Read();  // one transfer may serve both ways
    Written(line.far, "a");
    EXPECT_TRUE(transfer.wait(20000));
    fault::move_at_most(7000);
    EXPECT_FALSE(transfer.write(line.near, sent.data(), sent.size()));
    EXPECT_EQ(last_error(), error_io_pending);
    EXPECT_FALSE(transfer.wait(30));
    std::string received;
    std::thread reader([&] {
        while (received.size() < sent.size()) {
            const std::string block = Read(line.far, 5001);
            if (block.empty()) break;
            received += block;
        }
    });
    EXPECT_EQ(Awaited(transfer), "got " + std::to_string(sent.size()));
    reader.join();
    EXPECT_TRUE(received == sent);
}

TEST_F(stream, a_write_to_a_peer_that_does_not_read_ends_with_close)
{
    const std::string sent = Pattern(8 << 20);
    ASSERT_FALSE(transfer.write(line.near, sent.data(), sent.size()));
    line.near->close();
    EXPECT_EQ(Awaited(transfer), "error 995");
    EXPECT_EQ(Written(line.near, "a"), "error 6");
    std::string received;
    for (std::string block; !(block = Read(line.far, 1 << 16)).empty() && received.size() < sent.size();)
        received += block;
    EXPECT_FALSE(received.empty());
    EXPECT_TRUE(received == sent.substr(0, received.size()));  // what the system had taken, and then the end
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
    for (int i = 0; i < 200; ++i) {
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

TEST_F(stream, fails_where_a_test_plans_it)
{
    Written(line.far, "abc");
    fault::fail_after(fault::Operation::read, 5, 10053);
    EXPECT_EQ(Read(line.near), "abc");
    Written(line.far, "def");
    EXPECT_EQ(Read(line.near), "de");
    EXPECT_EQ(Read(line.near), "error 10053");
    fault::clear();
    EXPECT_EQ(Read(line.near), "f");
    fault::fail_after(fault::Operation::write, 5, 10055);
    EXPECT_EQ(Written(line.far, "abc"), "got 3");
    EXPECT_EQ(Written(line.far, "def"), "error 10055");
    EXPECT_EQ(Read(line.near), "abcde");
}
