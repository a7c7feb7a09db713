#include "kernel/Socket_Client_Server.h"

#include "kernel/ntrip_answer_internal.h"
#include "kernel/receive_buffer_internal.h"

#include "platform/fault.h"

#include "tests/support/caster.h"
#include "tests/support/clients.h"
#include "tests/support/folder.h"
#include "tests/support/peer.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <random>

using namespace kernel;

namespace {

using Lines = std::vector<std::string>;

// Hears and pulls on the reader's thread; the test asks meanwhile.
class Recorder : public Recording_Client {
public:
    Recorder() : Object("recorder")
    {
        Dont_Delete_Me();
        records = false;
        On(Mesg_Request_Invite, [](Byte_Server &server) { return server.Request(1), true; });
        On(Mesg_Data_Ready, [this](Byte_Server &server) {
            char block[4096];
            const auto got = static_cast<std::size_t>(server.GetNBytes(block, sizeof block));
            const std::lock_guard lock(guard_);
            pulled.append(block, got);
            return true;
        });
    }
    bool Send(Byte_Server &server, CL_Mesg message) override
    {
        {
            const std::lock_guard lock(guard_);
            heard.push_back(message);
        }
        senders.clear();
        return message != refused && Recording_Client::Send(server, message);
    }
    Heard Story()  // without what comes with time
    {
        const std::lock_guard lock(guard_);
        Heard story = heard;
        std::erase_if(story, [](int m) { return m == Mesg_Status_40 || m == Mesg_Second || m == Mesg_Byte_Type; });
        return story;
    }
    bool Hears(CL_Mesg message, int times = 1)
    {
        return Soon([&] {
            const std::lock_guard lock(guard_);
            return std::count(heard.begin(), heard.end(), message) >= times;
        });
    }
    std::string Pulled()
    {
        const std::lock_guard lock(guard_);
        return pulled;
    }
    int refused = 0;  // this message is

private:
    std::mutex guard_;
};

class Test_Socket : public Socket_Client_Server {
public:
    explicit Test_Socket(Error_Handler &handler) : Object("station", &handler), Socket_Client_Server(handler, 65536) {}
    ~Test_Socket() override { Stop_Threads(); }
    void Sleep(unsigned long ms) override { Socket_Client_Server::Sleep(ms / 10); }  // a test has less time
    void SetStatus(Status status) override
    {
        Socket_Client_Server::SetStatus(status);
        const std::lock_guard lock(guard_);
        statuses_.push_back(static_cast<int>(status));
    }
    std::vector<int> Statuses()
    {
        const std::lock_guard lock(guard_);
        return statuses_;
    }
    void Ask(const char *mountpoint, const char *user, const char *password)
    {
        Set_Ntrip_Mode(true);
        Set_Stream_Wanted(mountpoint != nullptr);
        EXPECT_EQ(Set_Mountpoint(mountpoint), mountpoint != nullptr);
        EXPECT_TRUE(Set_User(user) && Set_Password(password));
    }
    using Socket_Client_Server::ReportErrorIntern;
    using Socket_Client_Server::Set_Mountpoint;
    using Socket_Client_Server::Set_User;

private:
    std::mutex guard_;
    std::vector<int> statuses_;
};

// One end of a connection. Its client pulls everything; what that hears is kept, and what is reported.
struct Station {
    Station() { socket.Connect(&client); }
    Station &To(std::uint16_t port, unsigned long reconnect = 0)
    {
        socket.Enable_Auto_Reconnect(reconnect);
        EXPECT_TRUE(socket.CreateClient("127.0.0.1", port, nullptr, 0) && socket.Work());
        return *this;
    }
    std::uint16_t Listen()
    {
        EXPECT_TRUE(socket.CreateServer(0) && socket.Work());
        EXPECT_TRUE(Soon([&] { return socket.GetPort() != 0; }));
        return socket.GetPort();
    }
    bool Is_Up()
    {
        return Soon([&] { return socket.is_connected(); }) && client.Hears(Mesg_Attached);
    }
    bool Waits()
    {
        return Soon([&] { return socket.GetStatus(nullptr) == Remote_Control::Status_Waiting; });
    }
    bool Ends()
    {
        return Soon([&] { return !socket.is_running(); });
    }
    void Expect_Pulled(const std::string &bytes)
    {
        EXPECT_TRUE(Soon([&] { return client.Pulled().size() >= bytes.size(); }));
        EXPECT_TRUE(client.Pulled() == bytes) << client.Pulled().substr(0, 1000);
    }
    const Lines &Reported()  // "level,code text" of this unit
    {
        for (const ::Reported &line : reports.Take()) {
            if (line.unit != "kernel/Socket_Client_Server") continue;
            reported_.push_back(std::to_string(line.level) + ',' + std::to_string(line.code) + ' ' + line.text);
        }
        return reported_;
    }
    std::ptrdiff_t Count(const std::string &beginning)
    {
        const Lines &lines = Reported();
        return std::count_if(lines.begin(), lines.end(),
                             [&](const std::string &line) { return line.starts_with(beginning); });
    }
    bool Reports(const std::string &beginning, int times = 1)
    {
        return Soon([&] { return Count(beginning) >= times; });
    }

    Capturing_Handler reports;
    Recorder client;
    Test_Socket socket{reports};

private:
    Lines reported_;
};

// Gives bytes to a station's sending side, as a server above would.
class Feed : public Byte_Server {
public:
    explicit Feed(std::string bytes) : Object("feed"), bytes_(std::move(bytes)) {}
    bool Give(Win32_Buffered_Byte_Client &to, std::size_t n)
    {
        limit_ = std::min(n, bytes_.size() - at_);
        return limit_ > 0 && to.Room() >= n && to.Send(*this, Mesg_Data_Ready);
    }
    bool Is_Empty() const { return at_ == bytes_.size(); }
    using Byte_Server::GetNBytes;
    long GetNBytes(unsigned char *buffer, long n) override
    {
        const std::size_t taken = bytes_.copy(reinterpret_cast<char *>(buffer), std::min<std::size_t>(limit_, n), at_);
        at_ += taken;
        limit_ -= taken;
        return static_cast<long>(taken);
    }

private:
    const std::string bytes_;
    std::size_t at_ = 0, limit_ = 0;
};

std::string Address(std::uint16_t port) { return "127.0.0.1:" + std::to_string(port); }

Peer Connected(std::uint16_t port)
{
    Peer peer;
    EXPECT_TRUE(Soon([&] { return static_cast<bool>(peer = Peer::To(port)); }));
    return peer;
}

}  // namespace

TEST(Socket_Client_Server, tells_the_life_of_a_connection_in_order)
{
    Host host;
    Station station;
    EXPECT_STREQ(station.socket.GetRemoteName(), "");
    Peer peer = (station.To(host.Open().Port()), host.Accept());
    ASSERT_TRUE(station.Is_Up());
    EXPECT_TRUE(station.socket.IsBusy());
    const std::string where = Address(host.Port());
    EXPECT_EQ(station.socket.GetRemoteName(), where);
    peer.Say("abc");
    station.Expect_Pulled("abc");
    EXPECT_EQ(station.socket.GetBytesIn(), 3u);
    peer.Leave();
    EXPECT_TRUE(station.Ends());
    EXPECT_EQ(station.client.Story(), (Heard{140, 70, 70, 80, 70, 150}));
    EXPECT_EQ(station.socket.Statuses(), (std::vector<int>{103, 10, 12, 13}));
    EXPECT_EQ(station.Reported(), (Lines{"2,91 Successfully connected to host " + where + ".",
                                         "2,91 Client disconnected from host " + where + "."}));
}

TEST(Socket_Client_Server, serves_one_peer_at_a_time_and_then_the_next)
{
    Station station;
    const std::uint16_t port = station.Listen();
    Lines expected;
    for (const std::string so_far : {"x", "xx"}) {
        Peer peer = Connected(port);
        ASSERT_TRUE(Soon([&] { return station.socket.is_connected(); }));
        EXPECT_FALSE(Peer::To(port));
        EXPECT_EQ(station.socket.GetRemoteName(), Address(peer.Port()));
        expected.push_back("2,91 Client " + Address(peer.Port()) + " has connected.");
        expected.push_back("2,91 Client " + Address(peer.Port()) + " has disconnected.");
        peer.Say("x");
        station.Expect_Pulled(so_far);
        peer.Leave();
        ASSERT_TRUE(Soon([&] { return station.Reported() == expected; }));
    }
    station.socket.stop();
    EXPECT_EQ(station.client.Story(), (Heard{140, 70, 70, 80, 70, 150, 140, 70, 70, 80, 70, 150}));
    std::vector<int> statuses = station.socket.Statuses();
    statuses.resize(6);  // what stopping finds varies
    EXPECT_EQ(statuses, (std::vector<int>{11, 13, 1, 11, 13, 1}));
    EXPECT_FALSE(Peer::To(port));
}

TEST(Socket_Client_Server, moves_megabytes_both_ways_byte_for_byte)
{
    const std::string up = Pattern(3000017), down = Pattern(2500009);
    Station server, client;
    client.To(server.Listen());
    ASSERT_TRUE(server.Is_Up() && client.Is_Up());
    Feed to_server(up), to_client(down);
    std::mt19937 random(7);
    while (!to_server.Is_Empty() || !to_client.Is_Empty()) {
        const std::size_t n = 1 + random() % 3000;
        const bool sent = to_server.Give(client.socket, n);
        if (!to_client.Give(server.socket, n) && !sent) platform::sleep_ms(1);
    }
    server.Expect_Pulled(up);
    client.Expect_Pulled(down);
    EXPECT_EQ(server.socket.GetBytesIn(), up.size());
    EXPECT_EQ(client.socket.GetBytesOut(), up.size());
}

TEST(Socket_Client_Server, waits_for_a_host_that_refuses_and_connects_again_after_every_loss)
{
    Host host;
    Station station;
    station.To(host.Port(), 1);
    const std::string where = Address(host.Port());
    EXPECT_TRUE(station.Reports("0,91 Waiting for host " + where + " since ", 2));
    Peer peer = host.Open().Accept();
    ASSERT_TRUE(station.Is_Up());
    const std::function<void()> losses[] = {[&] { peer.Leave(); }, [&] { station.socket.Close(); },
                                            [&] { station.socket.Hang_Up(); },
                                            [&] {
                                                platform::fault::fail_after(platform::fault::Operation::read, 0, 10054);
                                                peer.Say(std::string(20000, 'x'));  // more than is under way already
                                            }};
    for (const auto &lose : losses) {
        lose();
        ASSERT_TRUE(station.Waits());
        platform::fault::clear();
        peer = host.Accept();
        ASSERT_TRUE(Soon([&] { return station.socket.GetStatus(nullptr) == 12; }));
    }
    EXPECT_EQ(station.Count("2,91 Successfully connected to host " + where + " after "), 5);
    EXPECT_EQ(station.Count("2,91 Hang-up done on Socket Client."), 1);
    EXPECT_EQ(station.Count("2,91 Client disconnected from host " + where + "."), 2);
}

TEST(Socket_Client_Server, looks_a_name_up_at_each_try_until_it_is_found)
{
    Host host;
    Station station;
    station.socket.Enable_Auto_Reconnect(1);
    platform::fault::plan_name("caster.test", 11001, 0);
    EXPECT_FALSE(station.socket.CreateClient("caster.test", host.Open().Port(), nullptr, 0));
    EXPECT_EQ(station.Count("3,89 Could not resolve host name caster.test to IP-address. Socket Error-Code: 11001"), 1);
    EXPECT_EQ(station.socket.Statuses(), (std::vector<int>{103, 13}));
    station.socket.Work();
    EXPECT_TRUE(station.Reports("3,89 Could not resolve host name caster.test to IP-address since ", 2));
    platform::fault::plan_name("caster.test", 0, test::loopback);
    EXPECT_TRUE(host.Accept());
    EXPECT_TRUE(station.Is_Up());
    platform::fault::clear();
}

TEST(Socket_Client_Server, tells_once_an_hour_that_a_host_cannot_be_reached)
{
    Station station;
    station.socket.Enable_Auto_Reconnect(1);
    // Loopback's broadcast address: connecting fails at once, and nothing leaves the machine.
    ASSERT_TRUE(station.socket.CreateClient("127.255.255.255", 9, nullptr, 0) && station.socket.Work());
    ASSERT_TRUE(Soon([&] { return station.socket.Statuses().size() >= 4; }));  // 103, and three tries
    const std::string text = "3,89 Connect to host 127.255.255.255:9 failed since ";
    EXPECT_EQ(station.Count(text), 1);
    platform::advance_clock(3601 * 1000);
    EXPECT_TRUE(station.Reports(text + "360", 1));
    station.socket.Disable_Auto_Reconnect();
    EXPECT_TRUE(station.Ends());
    EXPECT_EQ(station.Count(text), 2);
    EXPECT_EQ(station.Count("3,89 Could not connect to host 127.255.255.255:9 for socket client communication.\n"), 1);
}

TEST(Socket_Client_Server, silence_is_asked_about_after_a_minute)
{
    Host host;
    Station station;
    int asked = 0;
    station.client.On(Mesg_Status_50, [&](Byte_Server &) { return ++asked == 1; });
    Peer peer = (station.To(host.Open().Port()), host.Accept());
    EXPECT_TRUE(station.client.Hears(Mesg_Status_40) && station.client.Hears(Mesg_Second));
    EXPECT_EQ(station.client.Story(), (Heard{140, 70}));
    platform::advance_clock(60000);
    EXPECT_TRUE(station.client.Hears(Mesg_Status_50) && station.client.Hears(Mesg_Status_40, 2));
    platform::advance_clock(60000);
    EXPECT_TRUE(station.Ends());
    EXPECT_EQ(station.client.Story(), (Heard{140, 70, 50, 50, 110, 150, 150}));
    EXPECT_EQ(station.Count("3,91 " + Address(host.Port()) + " Socket timeout: no data since 12"), 1);
    EXPECT_TRUE(peer.Hears_The_End());
}

TEST(Socket_Client_Server, stops_at_once_wherever_it_is)
{
    const auto stops = [](Station &station) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(station.socket.is_running());
        station.socket.stop();
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
        return !station.socket.is_running() && !station.socket.is_connected();
    };
    Host refusing, full, open;
    const Peer filler = Peer::To(full.Open(0).Port());
    open.Open();
    Peer peer;
    Station listening, resolving, connecting, retrying, lost, waiting, delivering, stalled, asking;

    listening.Listen();
    EXPECT_TRUE(stops(listening));

    platform::fault::plan_name("hanging.test", 11001, 0);
    resolving.socket.Enable_Auto_Reconnect(100);
    EXPECT_FALSE(resolving.socket.CreateClient("hanging.test", 1, nullptr, 0));
    platform::fault::hang_name("hanging.test");
    resolving.socket.Work();
    EXPECT_TRUE(stops(resolving));
    platform::fault::clear();

    connecting.To(full.Port(), 100);
    platform::sleep_ms(50);  // until it is at it
    EXPECT_TRUE(stops(connecting));

    EXPECT_TRUE(retrying.To(refusing.Port(), 100).Reports("0,91 Waiting"));
    EXPECT_TRUE(stops(retrying));

    lost.To(open.Port(), 100);
    open.Accept().Leave();
    EXPECT_TRUE(lost.Waits() && stops(lost));

    peer = (waiting.To(open.Port()), open.Accept());
    EXPECT_TRUE(waiting.Is_Up() && stops(waiting));
    EXPECT_EQ(waiting.client.Story(), (Heard{140, 70, 150, 150}));
    EXPECT_EQ(waiting.Count("0,91 " + Address(open.Port()) + " Termination of Socket thread requested."), 1);
    peer = (waiting.To(open.Port()), open.Accept());  // and starts again
    peer.Say("abc");
    waiting.Expect_Pulled("abc");

    delivering.client.On(Mesg_Attached, [](Byte_Server &) { return platform::sleep_ms(300), true; });
    EXPECT_TRUE(delivering.To(open.Port()).Is_Up() && stops(delivering));
    open.Accept();

    peer = (stalled.To(open.Port()), open.Accept());
    EXPECT_TRUE(stalled.Is_Up());
    Feed feed(std::string(64 << 20, 'x'));  // more than the system takes for a peer that does not read
    const auto given = [&] { return feed.Give(stalled.socket, 4096); };
    while (Soon(given, 100)) continue;
    EXPECT_FALSE(feed.Is_Empty());
    EXPECT_TRUE(stops(stalled));

    asking.socket.Ask("M", "u", "p");
    EXPECT_TRUE(asking.To(open.Port()).Is_Up() && stops(asking));  // in the second before the request
}

TEST(Socket_Client_Server, its_client_may_stop_close_and_disconnect_it)
{
    struct Case {
        void (*act)(Test_Socket &);
        bool connects_again, keeps_client;
    };
    for (const Case &c : {Case{[](Test_Socket &s) { s.stop(); }, false, true},
                          Case{[](Test_Socket &s) { s.Disconnect(); }, false, false},
                          Case{[](Test_Socket &s) { s.Close(); }, true, true}}) {
        Host host;
        Station station;
        station.client.On(Mesg_Second, [&](Byte_Server &) { return c.act(station.socket), true; });
        Peer peer = (station.To(host.Open().Port(), 1), host.Accept());
        EXPECT_TRUE(station.Is_Up());
        platform::advance_clock(1000);
        EXPECT_TRUE(peer.Hears_The_End());
        EXPECT_TRUE(c.connects_again ? static_cast<bool>(host.Accept()) : station.Ends());
        EXPECT_EQ(station.socket.GetClient() != nullptr, c.keeps_client);
    }
}

TEST(Socket_Client_Server, a_client_that_refuses_ends_the_connection)
{
    struct Case {
        CL_Mesg refused;
        Heard story;
        int status;
    };
    Host host;
    host.Open();
    for (const Case &c : {Case{Mesg_Attached, {140}, 0}, Case{Mesg_Request_Invite, {140, 70, 150, 150}, 13},
                          Case{Mesg_Data_Ready, {140, 70, 70, 80, 150, 150}, 13}}) {
        Station station;
        station.client.refused = c.refused;
        Peer peer = (station.To(host.Port()), host.Accept());
        peer.Say("abc");
        EXPECT_TRUE(peer.Hears_The_End());
        EXPECT_TRUE(station.Ends());
        EXPECT_EQ(station.client.Story(), c.story);
        EXPECT_EQ(station.socket.Statuses().back(), c.status);
    }
    Station lonely;
    lonely.socket.Disconnect();
    EXPECT_TRUE(lonely.To(host.Port()).Ends());
    EXPECT_EQ(lonely.socket.Statuses(), (std::vector<int>{103, 0}));
}

TEST(Socket_Client_Server, what_came_before_the_end_can_be_pulled)
{
    Host host;
    Station station;
    Recording_Client patient;  // wants 100 bytes at a time
    patient.Dont_Delete_Me();
    patient.Pull(100).On(Mesg_Detached, [&](Byte_Server &server) {
        char rest[200];
        patient.pulled.append(rest, static_cast<std::size_t>(server.GetNBytes(rest, sizeof rest)));
        return true;
    });
    station.socket.Connect(&patient);
    Peer peer = (station.To(host.Open().Port()), host.Accept());
    peer.Say(Pattern(250));
    peer.Leave();
    EXPECT_TRUE(station.Ends());
    EXPECT_EQ(patient.pulled, Pattern(250));
    station.socket.Disconnect();
}

TEST(Socket_Client_Server, two_hundred_connections_leave_nothing_behind)
{
    const auto threads = [] {  // where the system shows them
        std::error_code none;
        const std::filesystem::directory_iterator tasks("/proc/self/task", none);
        return none ? 0 : std::distance(begin(tasks), end(tasks));
    };
    Station station;
    const std::uint16_t port = station.Listen();
    std::uintptr_t number = 0;  // of a socket: systems give the lowest free one
    std::ptrdiff_t running = 0;
    for (int i = 0; i < 200; ++i) {
        Peer peer = Connected(port);
        ASSERT_TRUE(Soon([&] { return station.socket.is_connected(); }));
        EXPECT_TRUE(Feed("hello").Give(station.socket, 5));
        EXPECT_EQ(peer.Hear(5), "hello");
        if (i == 10) number = peer.Socket().native(), running = threads();
        if (i < 199) continue;
        EXPECT_LT(peer.Socket().native(), number + 100);
        EXPECT_LE(threads(), running + 2);
    }
}

TEST(Socket_Client_Server, an_accepted_socket_is_served_to_its_end)
{
    Host host;
    Peer peer = Peer::To(host.Open().Port());
    static auto &handed_over = *new std::vector<Peer>;  // by number; never closed here
    const Peer &accepted = handed_over.emplace_back(host.Accept());
    sockaddr_in address;
    address.sin_port[0] = 0x12, address.sin_port[1] = 0x34, address.sin_addr[0] = 10, address.sin_addr[3] = 1;
    int owner = 0;
    auto *const multi_server = reinterpret_cast<Socket_Multi_Server *>(&owner);

    Station station;
    EXPECT_FALSE(station.socket.CreateServer(~0u, 7, address, multi_server));
    EXPECT_EQ(station.Count("3,89 Could not create socket server communication object.\n Socket Error"), 1);
    EXPECT_EQ(station.socket.Statuses(), std::vector<int>{0});
    const auto number = static_cast<unsigned int>(accepted.Socket().native());
    EXPECT_TRUE(station.socket.CreateServer(number, 7, address, multi_server) && station.socket.Work());
    ASSERT_TRUE(station.Is_Up());
    EXPECT_EQ(station.socket.GetPort(), 7);
    EXPECT_STREQ(station.socket.GetRemoteName(), "10.0.0.1:4660");
    EXPECT_TRUE(station.socket.Hang_Up());  // here it closes
    EXPECT_TRUE(peer.Hears_The_End());
    EXPECT_TRUE(station.Ends());
    EXPECT_EQ(station.client.Story(), (Heard{140, 70, 150}));
}

TEST(Socket_Client_Server, a_caster_is_asked_and_its_answer_judged)
{
    const std::string stream = "ICY 200 OK\r\n" + Pattern(500), agent = " HTTP/1.0\r\nUser-Agent: NtripClient1.0\r\n";
    const std::string table = "SOURCETABLE 200 OK\r\nServer: test\r\n\r\nENDSOURCETABLE\r\n";
    const std::string denied = "HTTP/1.0 401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"M\"\r\n\r\n";
    struct Case {
        const char *mountpoint, *user, *password;
        std::string answer, request, pulled, refusal;
    };
    const Case cases[] = {
        {"M", "a", "b", stream, "GET /M" + agent + "Authorization: Basic YTpi\r\n\r\n", stream, ""},
        {"N", "", "", table, "GET /N" + agent + "Authorization: Basic \r\n\r\n", "", "Mountpoint not available. "},
        {"O", "a", "b", denied, "GET /O" + agent + "Authorization: Basic YTpi\r\n\r\n", "",
         " Unauthorized.  Please check user name and password."},
        {nullptr, "", "", table, "GET /" + agent + "\r\n", table, ""},
    };
    std::deque<Caster> casters;
    std::deque<Station> stations;
    for (const Case &c : cases) {  // all at once: each waits a second
        casters.emplace_back([text = c.answer](Peer &client) {
            client.Say(text);
            client.Hears_The_End();
        });
        stations.emplace_back().socket.Ask(c.mountpoint, c.user, c.password);
        stations.back().To(casters.back().Port());
    }
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const Case &c = cases[i];
        Lines expected;
        if (!c.refusal.empty()) {
            EXPECT_TRUE(stations[i].Ends());
            expected.push_back("3,91 NTRIP error: " + c.refusal);
        }
        stations[i].Expect_Pulled(c.pulled);
        Lines errors = stations[i].Reported();
        std::erase_if(errors, [](const std::string &line) { return line.starts_with("2,"); });
        EXPECT_EQ(errors, expected);
        EXPECT_EQ(casters[i].Requests(), Lines{c.request});
    }
}

TEST(Socket_Client_Server, a_proxy_gets_the_whole_address_and_a_broken_answer_is_forgotten)
{
    int times = 0;
    Caster proxy([&](Peer &client) {
        client.Say(++times == 1 ? "HTTP/1.0 4" : "ICY 200 OK\r\n" + std::string(50, 'x'));
        if (times > 1) client.Hears_The_End();
    });
    Station station;
    station.socket.Ask("M", "", "");
    for (const std::string &bad : {std::string("A B"), std::string("A\r\nX: y"), std::string(256, 'M')})
        EXPECT_FALSE(station.socket.Set_Mountpoint(bad.c_str()));
    station.socket.Enable_Auto_Reconnect(1);
    EXPECT_TRUE(station.socket.CreateClient("caster.test", 2101, "127.0.0.1", proxy.Port()) && station.socket.Work());
    station.Expect_Pulled("HTTP/1.0 4ICY 200 OK\r\n" + std::string(50, 'x'));
    EXPECT_TRUE(proxy.Requests().at(0).starts_with("GET http://caster.test:2101/M HTTP/1.0\r\n"));
    EXPECT_EQ(station.Count("3,"), 0);
    EXPECT_EQ(station.Count("2,91 Successfully connected to host " + Address(proxy.Port())), 2);
}

TEST(Socket_Client_Server, a_refusal_is_told_in_the_casters_words)
{
    struct Case {
        std::string line, message;
    };
    const std::string filling(60, 'x');
    for (const Case &c : {Case{"HTTP/1.0 404 Not Found\r\n", " Not Found. "},
                          {"ERROR bad\r\n", "ERROR bad. "},
                          {"%s %n %s%n\r\n", " %s%n. "},
                          {"a b c\nLevel: \x1B[2J\r\n", " c?Level: ?[2J. "},
                          {std::string("a b c\0d\r\n", 9), " c. "},
                          {filling, filling + filling + ". "},
                          {"\r\n", ". "}}) {
        Ntrip_Answer answer;
        answer.Expect(true);
        std::string message;
        EXPECT_FALSE(answer.Accepts((c.line + filling).data(), c.line.size() + filling.size(), message));
        EXPECT_EQ(message, "NTRIP error: " + c.message);
    }
}

TEST(Socket_Client_Server, requests_and_bytes_given_back_have_their_limits)
{
    Station station;
    Test_Socket &socket = station.socket;
    EXPECT_FALSE(socket.Request(0) || socket.Request(10000));
    EXPECT_EQ(socket.GetByte(), No_Byte);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(socket.UnGetByte(static_cast<unsigned char>(200 + i)), 200 + i);
    EXPECT_EQ(socket.UnGetByte(static_cast<unsigned char>(1)), No_Byte);
    EXPECT_TRUE(socket.Request(16) && !socket.Request(17));
    for (int i = 15; i >= 0; --i) EXPECT_EQ(socket.GetByte(), 200 + i);
    EXPECT_EQ(socket.MinAvail(0), 0);
}

TEST(Socket_Client_Server, its_buffer_agrees_with_a_queue)
{
    Receive_Buffer buffer;
    std::deque<unsigned char> model;
    std::mt19937 random(1);
    for (int round = 0; round < 20000; ++round) {
        const auto byte = static_cast<unsigned char>(random());
        std::size_t n = random() % 5000;
        unsigned char block[5000];
        switch (random() % 3) {
        case 0:
            buffer.Compact();
            n = std::min(buffer.Room(), n);
            std::fill_n(buffer.End(), n, byte);
            buffer.Add(n);
            model.insert(model.end(), n, byte);
            break;
        case 1:
            n = buffer.Take(block, n);
            ASSERT_TRUE(std::equal(block, block + n, model.begin()));
            model.erase(model.begin(), model.begin() + static_cast<long>(n));
            break;
        default:
            for (n %= 20; n > 0; --n)
                if (buffer.Put_Back(byte)) model.push_front(byte);
        }
        ASSERT_EQ(buffer.Held(), model.size());
    }
}

TEST(Socket_Client_Server, errors_are_told_with_the_words_that_there_are)
{
    Station station;
    for (const unsigned long error : {0ul, 10054ul, 10069ul, 999999ul})  // no system here has words for 10069
        station.socket.ReportErrorIntern(error, "Write", 15, Error_Handler::ES_Error);
    const Lines &lines = station.Reported();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(lines[0].starts_with("3,15 Write Socket Error-Code: 10054 => ")) << lines[0];
    EXPECT_TRUE(lines[1].starts_with("3,15 Write Socket Error: WSAEDQUOT=10069 => WSAEDQUOT")) << lines[1];
    EXPECT_EQ(lines[2], "3,15 Write Unknown Socket Error-Code: 999999");
}
