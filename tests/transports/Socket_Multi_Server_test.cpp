#include "kernel/transports/Socket_Multi_Server.h"

#include "tests/support/folder.h"
#include "tests/support/peer.h"
#include "tests/support/reports.h"
#include "tests/support/short_memory.h"
#include "tests/support/upstream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <arpa/inet.h>
#include <ctime>
#include <deque>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
constexpr int turns = 70;
#else
#include <winsock2.h>
constexpr int turns = 20;  // each takes longer
#endif

using namespace kernel;

namespace {

class Test_Server : public Socket_Multi_Server {
public:
    Test_Server(Error_Handler &handler, bool drop_when_read, unsigned int ring_size)
        : Object(Name, &handler), Socket_Multi_Server(&handler, drop_when_read, ring_size)
    {
        Dont_Delete_Me();
        EXPECT_TRUE(CreateServer(0) && Work());
    }
    ~Test_Server() override { Stop_Threads(); }
    void Sleep(unsigned long ms) override { Socket_Multi_Server::Sleep(ms / haste); }
    void Insert(std::string data) { InsertData(data.data(), static_cast<int>(data.size())); }
    // A client that is served.
    Peer Joined(int number)
    {
        Peer peer = Peer::To(GetPort());
        EXPECT_TRUE(peer && Has(number));
        return peer;
    }
    bool Has(int number)
    {
        return Soon([&] { return GetNumConnections() == number; });
    }
    bool Is_Synchronized()
    {
        return Soon([&] { return CheckIfAllClientsAreSynchronized(); });
    }
    std::atomic<unsigned long> haste{100};  // the pauses of the passes are shorter by this factor
    using Socket_Multi_Server::AdaptReadPointer;
    using Socket_Multi_Server::EndReached;
    using Socket_Multi_Server::GetFromPointerToTail;
    using Socket_Multi_Server::WaitForClientsThreadTerminate;
};

struct Heard_By_Handler : Capturing_Handler {
    // "level,code text" of the server's own reports.
    std::vector<std::string> Lines()
    {
        for (const Reported &report : Take())
            if (report.unit == "kernel/Socket_Multi_Server")
                lines_.push_back(std::to_string(report.level) + ',' + std::to_string(report.code) + ' ' + report.text);
        return lines_;
    }
    std::ptrdiff_t Count(const std::string &part)
    {
        const auto lines = Lines();
        return std::count_if(lines.begin(), lines.end(),
                             [&](const auto &line) { return line.find(part) != line.npos; });
    }

private:
    std::vector<std::string> lines_;
};

struct Multi_Server : testing::TestWithParam<bool> {
    Heard_By_Handler reports;
};

const std::string mark = "the end of the stream";

// One after the other: the queue of a listener is short, and whoever finds it full waits for a second.
Peer Let_In(Test_Server &server, std::mutex &door)
{
    const std::lock_guard guard(door);
    Peer peer = Peer::To(server.GetPort());
    platform::sleep_ms(8);
    return peer;
}

std::string Here(const Peer &peer) { return "127.0.0.1:" + std::to_string(peer.Port()); }

}  // namespace

INSTANTIATE_TEST_SUITE_P(drop_when_read, Multi_Server, testing::Bool());

TEST_P(Multi_Server, each_client_hears_what_comes_after_it_has_connected)
{
    Test_Server server(reports, GetParam(), 10'000);
    server.haste = 1000;  // passes that find a client whose reader has not begun
    Upstream producer(server);
    EXPECT_TRUE(producer.Give("nobody hears this. ") && !server.is_connected());
    Peer first = server.Joined(1);
    first.Say(Pattern(3000));  // thrown away
    EXPECT_TRUE(producer.Give("one ") && server.Is_Synchronized());
    Peer second = server.Joined(2);
    EXPECT_TRUE(producer.Give("two"));
    EXPECT_EQ(first.Hear(7), "one two");
    EXPECT_EQ(second.Hear(3), "two");
    const std::string long_text = Pattern(9'000);
    EXPECT_TRUE(producer.Give(long_text));
    EXPECT_TRUE(first.Hear(9'000) == long_text && second.Hear(9'000) == long_text);
    EXPECT_EQ(server.GetBytesIn(), 9'026u);
    EXPECT_EQ(server.GetStatus(nullptr), Remote_Control::Status_Connected_As_Server);
    first.Leave();
    EXPECT_TRUE(server.Has(1) && server.IsBusy());
    EXPECT_TRUE(server.Hang_Up() && second.Hears_The_End() && server.Has(0));
    const std::string port = std::to_string(server.GetPort());
    EXPECT_EQ(reports.Lines(),
              (std::vector<std::string>{"1,91 Client " + Here(first) + " has connected.",
                                        "1,91 Created Socket Server thread for 1. Client on port " + port + ".",
                                        "1,91 Client " + Here(second) + " has connected.",
                                        "1,91 Created Socket Server thread for 2. Client on port " + port + ".",
                                        "2,91 Hang-up done on Socket Server port " + port + "."}));
    Peer again = server.Joined(1);
    EXPECT_TRUE(producer.Give("again"));
    EXPECT_EQ(again.Hear(5), "again");
}

TEST_P(Multi_Server, a_client_that_does_not_read_loses_only_what_the_ring_overwrites)
{
    constexpr std::size_t block = 32768, blocks = 150;  // more than the system takes for a connection of this kind
    platform::Event never;
    for (const bool ring_holds_all : {true, false}) {
        Heard_By_Handler heard;
        Test_Server server(heard, GetParam(), ring_holds_all ? 2 * block * blocks : 2 * block);
        server.haste = 1000;
        const auto lazy = platform::Socket::create();
        const int narrow = 4096;  // [bytes]
        setsockopt(static_cast<decltype(::socket(0, 0, 0))>(lazy->native()), SOL_SOCKET, SO_RCVBUF,
                   reinterpret_cast<const char *>(&narrow), sizeof narrow);
        EXPECT_TRUE(lazy->connect({test::loopback, server.GetPort()}, never) && server.Has(1));
        Peer eager = server.Joined(2);
        const std::string stream = Pattern(block * blocks);
        std::string got;
        for (std::size_t at = 0; at < stream.size() && got.size() == at; at += block) {
            server.Insert(stream.substr(at, block));
            got += eager.Hear(block);
        }
        EXPECT_TRUE(got == stream);
        std::atomic<bool> is_over{false};
        std::thread producer([&] {
            for (; !is_over; platform::sleep_ms(5)) server.Insert(mark);
        });
        std::string late;  // it is still served
        for (std::string piece = "."; !piece.empty() && !late.ends_with(mark); late += piece)
            piece = test::Read(lazy, 1 << 16);
        is_over = true;
        producer.join();
        EXPECT_EQ(late.starts_with(stream), ring_holds_all);
        EXPECT_EQ(heard.Count("2,91 Client " + Here(Peer(lazy)) + " does not keep up, ring with 65536 bytes overrun, "),
                  ring_holds_all ? 0 : 1);
        EXPECT_EQ(heard.Count("does not keep up"), ring_holds_all ? 0 : 1);
    }
}

TEST_P(Multi_Server, clients_come_and_go_and_the_others_lose_nothing)
{
    Test_Server server(reports, GetParam(), 1 << 24);
    Peer steady = server.Joined(1);
    std::atomic<bool> is_over{false};
    std::thread producer([&] {
        for (char next = 0; !is_over; ++next) {
            server.Insert(std::string(500, next));
            platform::sleep_ms(2);
        }
    });
    std::mutex door;
    std::vector<std::thread> visitors;
    for (unsigned int seed = 1; seed <= 3; ++seed)
        visitors.emplace_back([&, seed] {
            std::mt19937 random(seed);
            for (int turn = 0; turn < turns; ++turn) {
                Peer visitor = Let_In(server, door);
                if (random() % 2 == 0) visitor.Hear(1 + random() % 700);
                if (random() % 3 == 0) visitor.Say("bye");
            }
        });
    for (auto &visitor : visitors) visitor.join();
    is_over = true;
    producer.join();
    std::string all;
    for (std::string piece = "."; !piece.empty() && all.size() < server.GetBytesIn(); all += piece)
        piece = steady.Hear(500);
    EXPECT_EQ(all.size(), server.GetBytesIn());
    bool is_in_order = true;
    for (std::size_t i = 0; i < all.size(); ++i) is_in_order &= all[i] == static_cast<char>(i / 500);
    EXPECT_TRUE(is_in_order);
    EXPECT_TRUE(server.Has(1));
    EXPECT_EQ(reports.Count("does not keep up"), 0);
}

TEST_P(Multi_Server, ends_at_any_moment_while_others_use_it)
{
    std::mt19937 random(7);
    std::mutex door;
    for (int turn = 0; turn < 12; ++turn) {
        std::vector<Peer> peers;
        {
            Test_Server server(reports, GetParam(), 5000);
            std::atomic<bool> is_over{false};
            std::thread user([&] {
                for (int i = 0; !is_over; ++i) {
                    server.Insert("0123456789");
                    if (i % 5 == 4) server.Hang_Up();
                    if (turn % 3 == 0 && i % 10 == 9) server.CreateServer(0);
                    if (server.GetNumConnections() > 20) break;
                }
            });
            for (int i = 0; i < 5; ++i)
                if (Peer peer = Let_In(server, door)) peers.push_back(std::move(peer));
            platform::sleep_ms(random() % 8);
            is_over = true;
            user.join();
        }
        for (Peer &peer : peers) {
            while (!peer.Hear(1).empty()) continue;  // to the end
        }
    }
}

// Blocks of memory of this process, and the number of a new socket: systems give the lowest free one.
static long Things() { return replaced_new::living + static_cast<long>(platform::Socket::create()->native()); }

TEST(Socket_Multi_Server, keeps_nothing_of_clients_that_have_gone)
{
    NULL_Error_Handler reports;
    Test_Server server(reports, false, 1000);
    long before = 0;
    for (int visitors = 0; visitors < 20; ++visitors) {
        server.Joined(1).Leave();
        EXPECT_TRUE(server.Has(0));
        if (visitors == 0) platform::sleep_ms(50), before = Things();
    }
    EXPECT_TRUE(Soon([&] { return Things() < before + 100; }));
}

TEST(Socket_Multi_Server, refuses_what_cannot_be)
{
    Heard_By_Handler reports;
    for (const unsigned int size : {0u, 0x80000000u, 0xFFFFFFFFu})
        EXPECT_EQ(Socket_Multi_Server::Construct(&reports, false, size), nullptr);
    Test_Server server(reports, true, 4);
    const int port = server.GetPort();
    Multicast_Client_Identifier *const stranger = Multicast_Client_Identifier::Construct(&server, &reports);
    Multicast_Client_Identifier *const detached = Multicast_Client_Identifier::Construct(nullptr, &reports);
    server.Insert("ab");
    server.Insert("cdef");
    unsigned char bytes[4];
    EXPECT_EQ(stranger->GetNBytes(bytes, 4) + detached->GetNBytes(bytes, 4), 0);
    EXPECT_TRUE(stranger->Hang_Up() && !detached->Hang_Up());
    Multicast_Client_Identifier::Destruct(stranger);
    Multicast_Client_Identifier::Destruct(detached);
    int got = 0;
    EXPECT_EQ(server.GetFromPointerToTail(3, bytes, 2, got), 1);
    EXPECT_TRUE(got == 2 && bytes[0] == 'd' && bytes[1] == 'e');
    EXPECT_EQ(server.AdaptReadPointer(true, 0, 2, 0, 2, -1), 0);
    EXPECT_TRUE(server.EndReached(-1, 2) && !server.EndReached(2, 2));
    Host other;
    EXPECT_FALSE(server.CreateServer(other.Open().Port()));
    EXPECT_EQ(server.GetStatus(nullptr), Remote_Control::Status_Failed);
    EXPECT_EQ(reports.Count("3,89 :" + std::to_string(other.Port()) +
                            "Could not bind socket server communication object.\n Socket Error-Code: 100"),
              1);
    EXPECT_FALSE(Peer::To(static_cast<std::uint16_t>(port)));  // the former port was closed
    EXPECT_TRUE(server.CreateServer(0));
    server.Joined(1);
}

TEST(Socket_Multi_Server, drops_a_client_whose_port_is_closed_before_it_is_served)
{
    for (const int moment : {1, 2}) {  // the reports of a client: it has connected, and its thread was created
        Heard_By_Handler reports;
        std::atomic<Test_Server *> users{nullptr};
        std::atomic<int> n{0};
        reports.on_report = [&] {
            if (Test_Server *const server = users; server && ++n == moment) server->CreateServer(0);
        };
        Test_Server server(reports, false, 1000);
        users = &server;
        EXPECT_TRUE(Peer::To(server.GetPort()).Hears_The_End() && server.Has(0));
        EXPECT_EQ(reports.Count("Created Socket Server thread"), moment - 1);
        EXPECT_NE(server.GetStatus(nullptr), Remote_Control::Status_Connected_As_Server);
        server.Joined(1);
        server.WaitForClientsThreadTerminate();
        EXPECT_TRUE(server.CreateServer(0) && server.Has(0));
        server.Joined(1);
    }
}

namespace {

// From the first client on the thread that waits for clients gets `blocks` more blocks of memory, until it reports a
// failure.
class Memory_Taker : public Error_Handler {
public:
    explicit Memory_Taker(int blocks) : blocks_(blocks) {}
    std::atomic<bool> has_failed{false};

private:
    void Do_Print(Enum_Status, Err_Code, const char *text) override
    {
        if (std::strstr(text, " has connected.")) memory_.emplace(blocks_);
        if (!std::strstr(text, "Creation of ")) return;
        memory_.reset();
        has_failed = true;
    }
    static inline thread_local std::optional<Short_Memory> memory_;
    const int blocks_;
};

bool Ends(const Peer &peer)
{
    char byte = 0;
    platform::Transfer transfer;
    std::size_t moved = 0;
    transfer.read(std::shared_ptr<platform::Stream>(&peer.Socket(), [](auto *) {}), &byte, 1) || transfer.wait(5000);
    return transfer.result(moved) && moved == 0;
}

}  // namespace

TEST(Socket_Multi_Server, without_memory_no_accepted_socket_is_left_open)
{
    int blocks = 0;
    for (bool is_served = false; !is_served; ++blocks) {
        Memory_Taker handler(blocks);
        Peer peer;
        {
            Test_Server server(handler, false, 1000);
            peer = Peer::To(server.GetPort());
            EXPECT_TRUE(Soon([&] {
                is_served = server.GetStatus(nullptr) == Remote_Control::Status_Connected_As_Server;
                return is_served || handler.has_failed;
            }));
        }
        ASSERT_TRUE(Ends(peer)) << blocks;
    }
    EXPECT_GT(blocks, 10);
}

#if !defined(_WIN32) && !defined(__SANITIZE_ADDRESS__)  // that sanitizer needs descriptors for its own checks

namespace {

// Clients in a process of their own: they need no descriptors of the test's.
class Far_Clients {
public:
    explicit Far_Clients(std::uint16_t port)
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        child_ = fork();
        if (child_ == 0) {
            close(ends[1]);
            Obey(ends[0], port);
        }
        close(ends[0]);
        order_ = ends[1];
    }
    ~Far_Clients()
    {
        close(order_);
        waitpid(child_, nullptr, 0);
    }
    void Join() const { EXPECT_EQ(write(order_, "+", 1), 1); }
    void Leave() const { EXPECT_EQ(write(order_, "-", 1), 1); }  // the oldest one

private:
    [[noreturn]] static void Obey(int orders, std::uint16_t port)
    {
        ::sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        std::deque<int> clients;
        for (char order = 0; read(orders, &order, 1) == 1;) {
            if (order == '-') {
                close(clients.front());
                clients.pop_front();
                continue;
            }
            clients.push_back(socket(AF_INET, SOCK_STREAM, 0));
            connect(clients.back(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
        }
        _exit(0);
    }

    pid_t child_;
    int order_ = -1;
};

// From here to the end of the scope this process gets `free` more descriptors.
class Few_Descriptors {
public:
    explicit Few_Descriptors(int free)
    {
        getrlimit(RLIMIT_NOFILE, &before_);
        const int lowest = dup(0);  // free ones below it: none
        close(lowest);
        const rlimit now{static_cast<rlim_t>(lowest + free), before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &now), 0);
    }
    ~Few_Descriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_{};
};

}  // namespace

TEST(Socket_Multi_Server, without_descriptors_clients_wait_until_one_goes)
{
    Heard_By_Handler reports;
    Test_Server server(reports, false, 1000);
    const Far_Clients clients(server.GetPort());
    clients.Join();
    EXPECT_TRUE(server.Has(1));
    {
        const Few_Descriptors none(0);
        clients.Join();
        EXPECT_TRUE(Soon([&] {
            return reports.Count("Reason: The queue is nonempty upon entry to WSAAccept and there "
                                 "are no socket descriptors available..") == 1;
        }));
        const std::clock_t used = std::clock();
        platform::sleep_ms(600);  // two more tries
        EXPECT_LT(std::clock() - used, CLOCKS_PER_SEC / 10);
        EXPECT_EQ(reports.Count("3,91 "), 1);
        EXPECT_EQ(server.GetNumConnections(), 1);
        clients.Leave();
        EXPECT_TRUE(Soon([&] { return reports.Count("Created Socket Server") == 2; }));
        EXPECT_TRUE(server.Has(1));
    }
    clients.Join();
    EXPECT_TRUE(server.Has(2));
}

#endif
