#include "platform/socket.h"

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
        const std::uint64_t begin = clock_ms();
        const bool done = call();
        const std::uint32_t error = done ? 0 : last_error();
        EXPECT_LT(clock_ms() - begin, 20000u);
        other.join();
        return error;
    }
};

}  // namespace

TEST_F(socket_, knows_addresses_and_peers)
{
    const Listener listener;
    const auto client = listener.Connect();
    Address from, client_end, server_end;
    const auto server = listener.socket->accept(from, stop);
    ASSERT_TRUE(client && server);
    EXPECT_TRUE(client->local_address(client_end));
    EXPECT_TRUE(client->peer_address(server_end));
    EXPECT_EQ(from.host, loopback);
    EXPECT_EQ(from.port, client_end.port);
    EXPECT_EQ(server_end.port, listener.address.port);
    EXPECT_FALSE(client->connect(listener.address, stop));
    EXPECT_EQ(last_error(), error_already_connected);
    const auto idle = Socket::create();
    EXPECT_FALSE(idle->peer_address(from));
    EXPECT_EQ(last_error(), 10057u);
    EXPECT_EQ(Socket::adopt(0x7FFFFFF0), nullptr);
    EXPECT_EQ(last_error(), error_not_socket);
}

TEST_F(socket_, a_listener_that_is_closed_frees_its_port_at_once)
{
    const Listener first;
    const auto served = first.Connect();
    const auto other = first.Accept();
    const auto rival = Socket::create();
    EXPECT_FALSE(rival->bind(first.address));
    EXPECT_EQ(last_error(), 10048u);
    first.socket->close();  // somebody may still hold it
    const auto late = Socket::create();
    EXPECT_FALSE(late->connect(first.address, stop));
    EXPECT_EQ(last_error(), error_connection_refused);
    const auto next = Socket::create();
    EXPECT_TRUE(next->bind(first.address) && next->listen(1)) << last_error();
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
    const Listener listener(0);  // accepts nobody: when its queue is full, connections hang
    std::vector<std::shared_ptr<Socket>> queue;
    std::uint32_t error = 0;
    while (queue.size() < 5 && error == 0) {
        queue.push_back(Socket::create());
        error = Ended([&] { return queue.back()->connect(listener.address, stop); }, [&] { stop.set(); });
        stop.reset();
    }
    if (error == error_connection_refused) GTEST_SKIP() << "this system refuses them";
    EXPECT_EQ(error, error_operation_aborted);
    const auto late = Socket::create();
    EXPECT_EQ(Ended([&] { return late->connect(listener.address, stop); }, [&] { late->close(); }),
              error_operation_aborted);
}

TEST_F(socket_, shutting_down_one_way_leaves_the_other_open)
{
    const Connection line;
    Written(line.near, "last");
    line.near->shutdown_send();
    EXPECT_EQ(Read(line.far), "last");
    EXPECT_EQ(Read(line.far), "");
    EXPECT_EQ(Written(line.far, "answer"), "got 6");
    EXPECT_EQ(Read(line.near), "answer");
    EXPECT_EQ(Written(line.near, "more"), "error 10058");
}

TEST_F(socket_, reads_addresses_as_inet_addr_does)
{
    struct Case {
        const char *text;
        std::uint32_t host;  // 0: refused
    };
    for (const Case &c : {Case{"127.0.0.1", 0x7F000001},
                          {"127.1", 0x7F000001},
                          {"0x7F000001", 0x7F000001},
                          {"010.0xff.513", 0x08FF0201},
                          {"255.255.255.255 ", 0xFFFFFFFF},
                          {"4294967296", 0},
                          {"256.0.0.1", 0},
                          {"1.256.1", 0},
                          {"1.2.65536", 0},
                          {"1.2.3.4.5", 0},
                          {"1..2", 0},
                          {"08.1", 0},
                          {"0x", 0},
                          {"1.2.3.4a", 0},
                          {"", 0}}) {
        host = 0;
        EXPECT_EQ(parse_dotted(c.text, host), c.host != 0) << c.text;
        EXPECT_EQ(host, c.host) << c.text;
    }
    EXPECT_EQ(dotted(0x7F0001FE), "127.0.1.254");
}

TEST_F(socket_, resolves_names)
{
    EXPECT_TRUE(resolve("127.1", host, stop));
    EXPECT_EQ(host, loopback);
    EXPECT_TRUE(resolve("localhost", host, stop)) << last_error();
    EXPECT_EQ(host >> 24, 127u);
    EXPECT_FALSE(resolve("", host, stop));
    EXPECT_EQ(last_error(), error_host_not_found);
    fault::plan_name("caster", 11002, 0);
    EXPECT_FALSE(resolve("caster", host, stop));
    EXPECT_EQ(last_error(), 11002u);
    fault::plan_name("caster", 0, 0x0A000001);
    EXPECT_TRUE(resolve("caster", host, stop));
    EXPECT_EQ(host, 0x0A000001u);
}

TEST_F(socket_, stop_ends_a_look_up_that_hangs)
{
    const auto look = [&] { return resolve("caster", host, stop); };
    fault::hang_name("caster");
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Ended(look, [&] { stop.set(); }), error_operation_aborted);
    std::vector<std::thread> others;
    std::atomic<int> resolved{0};
    for (int i = 0; i < 3; ++i)
        others.emplace_back([&] {
            Event never;
            std::uint32_t found = 0;
            if (resolve("caster", found, never) && found == loopback) ++resolved;
        });
    EXPECT_EQ(Ended(look, [] { fault::plan_name("caster", 0, loopback); }), 0u);
    for (std::thread &other : others) other.join();
    EXPECT_EQ(resolved, 3);
    EXPECT_EQ(host, loopback);
}

TEST_F(socket_, library_starts_or_fails_as_planned)
{
    Socket_Library library;
    EXPECT_TRUE(socket_startup(0x0202, library));
    EXPECT_EQ(library.version, 0x0202);
    EXPECT_FALSE(library.description.empty());
    EXPECT_EQ(library.status, "Running");
    socket_cleanup();
    fault::plan_socket_library(10091, 0);
    EXPECT_FALSE(socket_startup(0x0202, library));
    EXPECT_EQ(last_error(), 10091u);
    fault::plan_socket_library(0, 0x0101);
    EXPECT_TRUE(socket_startup(0x0202, library));
    EXPECT_EQ(library.version, 0x0101);
    socket_cleanup();
}
