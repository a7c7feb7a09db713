#include "platform/socket.h"

#include "platform/error.h"
#include "platform/fault.h"
#include "tests/support/sockets.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

using namespace platform;
using namespace test;

namespace {

struct socket_ : testing::Test {
    ~socket_() override { fault::clear(); }

    Event stop;
    std::uint32_t host = 0;

    // The error of a call that waits, when another thread ends it in a moment.
    std::uint32_t Ended(const std::function<bool()> &call, const std::function<void()> &end)
    {
        std::thread other([&] {
            sleep_ms(30);
            end();
        });
        const std::uint32_t error = call() ? 0 : last_error();
        other.join();
        return error;
    }
};

}  // namespace

TEST_F(socket_, a_listener_that_is_closed_frees_its_port_at_once)
{
    const Listener first;
    const auto served = first.Connect();
    const auto other = first.Accept();
    const auto rival = Socket::create(), late = Socket::create(), next = Socket::create();
    EXPECT_FALSE(rival->bind(first.address));
    EXPECT_EQ(last_error(), 10048u);
    first.socket->close();  // another reference may still exist
    EXPECT_FALSE(late->connect(first.address, stop));
    EXPECT_EQ(last_error(), error_connection_refused);
    EXPECT_TRUE(next->bind(first.address) && next->listen(1)) << last_error();
}

TEST_F(socket_, a_released_socket_belongs_to_whoever_adopts_its_number)
{
    Connection line;
    const std::uintptr_t number = line.near->release();
    EXPECT_TRUE(number != Socket::nobody && line.near->closed());
    EXPECT_EQ(line.near->release(), Socket::nobody);
    EXPECT_EQ(Written(line.near, "x"), "error 6");
    line.near->close();
    line.near.reset();
    const auto heir = Socket::adopt(number);
    ASSERT_TRUE(heir);
    EXPECT_EQ(Written(heir, "after the hand-over"), "got 19");
    EXPECT_EQ(Read(line.far), "after the hand-over");
    heir->close();
    EXPECT_EQ(Read(line.far), "");
    EXPECT_EQ(heir->release(), Socket::nobody);
}

TEST_F(socket_, stop_and_close_end_an_accept)
{
    const Listener listener;
    Address peer;
    const auto accept = [&] { return listener.socket->accept(peer, stop) != nullptr; };
    EXPECT_EQ(Ended(accept, [&] { stop.set(); }), error_operation_aborted);
    EXPECT_FALSE(stop.wait(0));  // taken
    EXPECT_EQ(Ended(accept, [&] { listener.socket->close(); }), error_operation_aborted);
    EXPECT_EQ(Ended(accept, [] {}), error_operation_aborted);
}

TEST_F(socket_, stop_and_close_end_a_connect)
{
    const Listener listener(0);  // never accepts: when its queue is full, connections hang
    const auto connect = [&](Socket &socket) { return socket.connect(listener.address, stop); };
    std::vector<std::shared_ptr<Socket>> queue;
    std::uint32_t error = 0;
    while (queue.size() < 5 && error == 0) {
        queue.push_back(Socket::create());
        error = Ended([&] { return connect(*queue.back()); }, [&] { stop.set(); });
        stop.reset();
    }
    if (error == error_connection_refused) GTEST_SKIP() << "this system refuses them";
    EXPECT_EQ(error, error_operation_aborted);
    const auto late = Socket::create();
    EXPECT_EQ(Ended([&] { return connect(*late); }, [&] { late->close(); }), error_operation_aborted);
}

// The thread can wait for other things beside.
TEST_F(socket_, connects_and_accepts_without_waiting)
{
    const Listener listener;
    Address peer;
    const auto socket = Socket::create();
    EXPECT_TRUE(!listener.socket->accept_now(peer) && last_error() == error_io_pending);
    EXPECT_FALSE(listener.socket->readiness().wait(10));
    while (!socket->connect_now(listener.address)) {
        ASSERT_EQ(last_error(), error_io_pending);
        ASSERT_TRUE(socket->readiness().wait(20000));
    }
    ASSERT_TRUE(listener.socket->readiness().wait(20000));
    std::shared_ptr<Socket> accepted;
    EXPECT_TRUE(Soon([&] { return (accepted = listener.socket->accept_now(peer)) != nullptr; }));
    Address near;
    EXPECT_TRUE(socket->local_address(near) && near.port == peer.port);
    EXPECT_EQ(Written(socket, "abc"), "got 3");
    EXPECT_EQ(Read(accepted), "abc");
    listener.socket->close();
    EXPECT_TRUE(listener.socket->readiness().wait(20000));
    EXPECT_TRUE(!listener.socket->accept_now(peer) && last_error() == error_operation_aborted);
}

TEST_F(socket_, reads_addresses_as_inet_addr_does_and_looks_up_names)
{
    const std::pair<const char *, std::uint32_t> cases[] = {{"127.0.0.1", 0x7F000001},
                                                            {"127.1", 0x7F000001},
                                                            {"0x7F000001", 0x7F000001},
                                                            {"010.0xff.513", 0x08FF0201},
                                                            {"255.255.255.255 ", 0xFFFFFFFF}};
    for (const auto &[text, address] : cases) EXPECT_TRUE(parse_dotted(text, host) && host == address) << text;
    for (const char *text :
         {"4294967296", "256.0.0.1", "1.256.1", "1.2.65536", "1.2.3.4.5", "1..2", "08.1", "0x", "1a", ""})
        EXPECT_FALSE(parse_dotted(text, host)) << text;
    EXPECT_EQ(dotted(0x7F0001FE), "127.0.1.254");
    EXPECT_TRUE(resolve("localhost", host, stop)) << last_error();
    EXPECT_EQ(host >> 24, 127u);
    EXPECT_FALSE(resolve("", host, stop));
}

TEST_F(socket_, stop_ends_a_look_up_that_hangs)
{
    const auto look = [&] { return resolve("caster", host, stop); };
    fault::hang_name("caster");
    EXPECT_EQ(Ended(look, [&] { stop.set(); }), error_operation_aborted);
    std::vector<std::thread> others;
    std::atomic<int> resolved{0};
    Event late[3];
    for (Event &limit : late)
        others.emplace_back([&] {
            std::uint32_t found = 0;
            if (resolve("caster", found, limit) && found == loopback) ++resolved;
        });
    EXPECT_EQ(Ended(look, [] { fault::plan_name("caster", 0, loopback); }), 0u);
    EXPECT_TRUE(Soon([&] { return resolved == 3; }) && host == loopback);
    for (Event &limit : late) limit.set();
    for (std::thread &other : others) other.join();
}
