#include "kernel/transports/Socket_Client_Server.h"

#include "kernel/transports/Message_Window.h"
#include "kernel/transports/ntrip_answer_internal.h"
#include "kernel/transports/receive_buffer_internal.h"

#include "platform/fault.h"

#include "tests/support/caster.h"
#include "tests/support/folder.h"
#include "tests/support/full_window.h"
#include "tests/support/messages.h"
#include "tests/support/peer.h"
#include "tests/support/recorder.h"
#include "tests/support/reports.h"
#include "tests/support/upstream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <span>
#include <thread>
#include <utility>
#include <variant>

using namespace kernel;
using namespace std::string_literals;

namespace {

using Statuses = std::vector<int>;
using Lines = std::vector<std::string>;

class Test_Socket : public Socket_Client_Server {
public:
    explicit Test_Socket(Error_Handler &handler) : Object("station", &handler), Socket_Client_Server(handler, 65536) {}
    ~Test_Socket() override { Stop_Threads(); }
    void Sleep(unsigned long ms) override { Socket_Client_Server::Sleep(ms / 10); }  // shorter, for the test
    void SetStatus(Status status) override
    {
        Socket_Client_Server::SetStatus(status);
        statuses.Add({static_cast<int>(status)});
        if (on_status) on_status(status);
    }
    void Ask(const char *mountpoint, const char *user, const char *password)
    {
        Set_Ntrip_Mode(true);
        Set_Stream_Wanted(true);
        EXPECT_TRUE(Set_Mountpoint(mountpoint) && Set_User(user) && Set_Password(password));
    }
    using Socket_Client_Server::ReportErrorIntern;
    using Socket_Client_Server::Set_Mountpoint;
    Shared<Statuses> statuses;
    std::function<void(Status)> on_status;  // set before Work
};

// One end of a connection. Its client pulls everything; messages and reports are kept.
struct Station {
    Station() { socket.Connect(&client); }
    Station &To(std::uint16_t port, unsigned long reconnect = 0)
    {
        socket.Enable_Auto_Reconnect(reconnect);
        EXPECT_TRUE(socket.CreateClient("127.0.0.1", port, nullptr, 0) && socket.Work());
        return *this;
    }
    Peer To(Host &host, unsigned long reconnect = 0) { return To(host.Port(), reconnect), host.Accept(); }
    void Turn_To(const Host &host) { EXPECT_TRUE(socket.CreateClient("127.0.0.1", host.Port(), nullptr, 0)); }
    std::uint16_t Listen()
    {
        EXPECT_TRUE(socket.CreateServer(0) && socket.Work());
        EXPECT_TRUE(Soon([&] { return socket.GetPort() != 0; }));
        return socket.GetPort();
    }
    bool Is_Up() { return client.Hears(Mesg_Attached); }
    bool Gets(int status)
    {
        return Soon([&] { return static_cast<int>(socket.GetStatus(nullptr)) == status; });
    }
    bool Reports(const std::string &beginning, int times = 1)
    {
        return Soon([&] { return Count(beginning) >= times; });
    }
    bool Ends()
    {
        return Soon([&] { return !socket.is_running(); });
    }
    void Expect_Pulled(const std::string &bytes)
    {
        EXPECT_TRUE(Soon([&] { return client.pulled.Now().size() >= bytes.size(); }));
        EXPECT_TRUE(client.pulled.Now() == bytes) << client.pulled.Now().substr(0, 1000);
    }
    const Lines &Reported()  // "level,code text" of this unit
    {
        for (const ::Reported &line : reports.Take()) {
            if (line.unit != "kernel/Socket_Client_Server") continue;
            reported.push_back(std::to_string(line.level) + ',' + std::to_string(line.code) + ' ' + line.text);
        }
        return reported;
    }
    std::ptrdiff_t Count(const std::string &beginning)
    {
        const Lines &lines = Reported();
        return std::count_if(lines.begin(), lines.end(), [&](auto &line) { return line.starts_with(beginning); });
    }

    Capturing_Handler reports;
    Recorder client;
    Test_Socket socket{reports};
    Lines reported;
};

// Accepts a peer that is waiting; an empty Peer when none is.
Peer Waiting_At(Host &host)
{
    platform::Event at_once;
    at_once.set();
    return host.Accept(at_once);
}

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
    Peer peer = station.To(host.Open());
    EXPECT_TRUE(station.Is_Up() && station.socket.IsBusy());
    const std::string where = Address(host.Port());
    EXPECT_EQ(station.socket.GetRemoteName(), where);
    peer.Say("abc");
    station.Expect_Pulled("abc");
    EXPECT_EQ(station.socket.GetBytesIn(), 3u);
    peer.Leave();
    EXPECT_TRUE(station.Ends());
    EXPECT_EQ(station.client.Story(), (Heard{Mesg_Attached, Mesg_Request_Invite, Mesg_Request_Invite, Mesg_Data_Ready,
                                             Mesg_Request_Invite, Mesg_Detached}));
    EXPECT_EQ(station.socket.statuses.Now(), (Statuses{103, 10, 12, 13}));
    EXPECT_EQ(station.Reported(), (Lines{"2,91 Successfully connected to host " + where + ".",
                                         "2,91 Client disconnected from host " + where + "."}));
    peer = station.To(host);
    EXPECT_TRUE(station.client.Hears(Mesg_Request_Invite, 4));
    station.socket.stop();
    EXPECT_EQ(station.client.Story(),
              (Heard{Mesg_Attached, Mesg_Request_Invite, Mesg_Request_Invite, Mesg_Data_Ready, Mesg_Request_Invite,
                     Mesg_Detached, Mesg_Attached, Mesg_Request_Invite, Mesg_Detached, Mesg_Detached}));
    EXPECT_EQ(station.Count("0,91 " + where + " Termination of Socket thread requested."), 1);
}

TEST(Socket_Client_Server, statuses_and_messages_of_a_loss_come_in_one_order)
{
    using Event = std::variant<Remote_Control::Status, CL_Mesg>;
    using Story = std::vector<Event>;
    constexpr auto ready = Remote_Control::Status_Client_Target_Set, waiting = Remote_Control::Status_Waiting,
                   connecting = Remote_Control::Status_Connecting, up = Remote_Control::Status_Connected_As_Client,
                   down = Remote_Control::Status_Disconnected;
    const struct {
        std::uint32_t error;      // of the receive under way; 0: the end of the stream
        unsigned long reconnect;  // [s]
        Story story;              // behind the connection
    } cases[] = {
        {0, 0, {down, Mesg_Detached}},
        {10054, 0, {Mesg_Detached, down, down, Mesg_Detached, down, Mesg_Detached}},  // Close sends the last two
        {0, 1, {down, Mesg_Detached, waiting, connecting, up, Mesg_Attached}},
        {10054, 1, {Mesg_Detached, down, down, Mesg_Detached, waiting, connecting, up, Mesg_Attached}}};
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        Host host;
        Shared<Story> events;  // outlives the station, whose end tells one more
        Station station;
        station.socket.on_status = [&](Remote_Control::Status status) { events.Add({status}); };
        station.client.on_message = [&](CL_Mesg message) {
            if (message == Mesg_Attached || message == Mesg_Detached) events.Add({message});
        };
        if (c.error) platform::fault::fail_after(platform::fault::Operation::read, 1, c.error);
        Peer peer = station.To(host.Open(), c.reconnect);
        ASSERT_TRUE(station.client.Hears(Mesg_Request_Invite));
        platform::sleep_ms(20);  // for the receive to begin
        peer.Leave();
        ASSERT_TRUE(c.reconnect ? station.Gets(1) : station.Ends());
        platform::fault::clear();
        ASSERT_TRUE(!c.reconnect || (host.Accept() && station.client.Hears(Mesg_Attached, 2)));
        Story heard = events.Now(), expected{ready, connecting, up, Mesg_Attached};
        expected.insert(expected.end(), c.story.begin(), c.story.end());
        heard.resize(expected.size());
        EXPECT_EQ(heard, expected);
    }
}

TEST(Socket_Client_Server, work_brings_a_connection_back_whose_thread_is_about_to_end)
{
    Host host;
    platform::Event end_told;  // outlives the station, whose end tells it once more
    Station station;
    station.client.answers[Mesg_Attached] = [&] { return station.socket.Work(); };  // on the reader: no effect
    station.client.answers[Mesg_Detached] = [&] { return end_told.set(), platform::sleep_ms(20), true; };
    Peer peer = station.To(host.Open());
    for (int round = 0; round < 20; ++round) {
        peer.Leave();
        ASSERT_TRUE(end_told.wait(10000));
        EXPECT_TRUE(station.socket.is_running() && station.socket.Work());
        ASSERT_TRUE(peer = host.Accept()) << round;
        ASSERT_TRUE(station.client.Hears(Mesg_Attached, round + 2));
    }
}

TEST(Socket_Client_Server, turns_to_a_new_target_at_once_and_never_again_to_the_old_one)
{
    constexpr unsigned long long_pause = 10000;  // [s]
    Peer left;                                   // the other end of the first connection
    const auto connected = [&](Station &s, Host &old) { left = s.To(old.Open(), long_pause), s.Is_Up(); };
    const auto single_try = [&](Station &s, Host &old) { left = s.To(old.Open()), s.Is_Up(); };
    const auto refused = [](Station &s, Host &old) { s.To(old.Port(), long_pause).Reports("0,91 Waiting"); };
    const auto connecting = [&](Station &s, Host &old) {
        const Peer filler = Peer::To(old.Open(0).Port());
        s.To(old.Port());
        platform::sleep_ms(50);
        if (!s.socket.is_running()) {  // this system refuses connections to a full host
            s.Reported();
            s.To(old.Port(), long_pause).reported.clear();
        }
        left = old.Accept();  // the filler
    };
    const auto listening = [](Station &s, Host &) { s.Listen(); };
    const auto serving = [&](Station &s, Host &) { left = Connected(s.Listen()); };
    const auto to_client = [](Station &s, Host &next) { return s.Turn_To(next.Open()), next.Accept(); };
    const auto to_server = [](Station &s, Host &) {
        EXPECT_TRUE(s.socket.CreateServer(0) && Soon([&] { return s.socket.GetPort() != 0; }));
        return Connected(s.socket.GetPort());
    };
    const struct {
        std::function<void(Station &, Host &)> begin;
        std::function<Peer(Station &, Host &)> turn;
        int status;
    } cases[] = {{connected, to_client, 12},  {single_try, to_client, 12}, {refused, to_client, 12},
                 {connecting, to_client, 12}, {listening, to_client, 12},  {serving, to_client, 12},
                 {connected, to_server, 11},  {refused, to_server, 11},    {listening, to_server, 11},
                 {serving, to_server, 11}};
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        Host old, next;
        Station station;
        c.begin(station, old);
        const std::uint16_t left_port = station.socket.GetPort();
        const bool was_server = left_port != old.Port();
        Peer peer = c.turn(station, next);
        ASSERT_TRUE(peer && station.Gets(c.status));
        peer.Say("new");
        station.Expect_Pulled("new");
        EXPECT_EQ(station.Count("3,"), 0) << testing::PrintToString(station.Reported());
        EXPECT_FALSE(was_server ? Peer::To(left_port) : Waiting_At(old));
        EXPECT_EQ(station.client.Story().front(), Mesg_Attached);  // no end of what was never up
    }
}

TEST(Socket_Client_Server, a_target_given_from_inside_a_status_holds_for_the_try_that_follows)
{
    Host old, next;
    next.Open();
    Station station;
    bool has_turned = false;
    station.socket.on_status = [&](int status) {
        if (status == 10 && !std::exchange(has_turned, true)) station.Turn_To(next);
    };
    station.To(old.Open().Port());
    const Peer peer = next.Accept();  // stays: its end would be reported, too
    EXPECT_TRUE(peer && station.Is_Up());
    EXPECT_EQ(station.Reported(), Lines{"2,91 Successfully connected to host " + Address(next.Port()) + "."});
    EXPECT_FALSE(Waiting_At(old));
}

TEST(Socket_Client_Server, does_not_go_back_to_the_old_target_while_the_new_name_is_looked_up)
{
    Host old, next;
    Station station;
    station.client.answers[Mesg_Request_Invite] = [&] { return station.socket.Request(4), true; };
    std::atomic<long> left{0};
    station.client.answers[Mesg_Detached] = [&] { return left = station.socket.MinAvail(0), true; };
    Peer peer = station.To(old.Open(), 1);
    ASSERT_TRUE(station.client.Hears(Mesg_Request_Invite));
    peer.Say("old");  // less than requested: it stays, and is none of the new target's data
    platform::sleep_ms(100);
    platform::fault::hang_name("slow.test");
    std::thread host([&] { EXPECT_TRUE(station.socket.CreateClient("slow.test", next.Open().Port(), nullptr, 0)); });
    EXPECT_TRUE(peer.Hears_The_End());
    platform::sleep_ms(300);
    EXPECT_FALSE(Waiting_At(old));
    platform::fault::plan_name("slow.test", 0, test::loopback);
    peer = next.Accept();
    host.join();
    platform::fault::clear();
    ASSERT_TRUE(peer && station.Gets(12));
    peer.Say("new!");
    station.Expect_Pulled("new!");
    EXPECT_EQ(left, 3);
    EXPECT_FALSE(Waiting_At(old));
}

TEST(Socket_Client_Server, what_it_closes_itself_while_connecting_or_listening_is_no_error)
{
    Host full;
    const Peer filler = Peer::To(full.Open(0).Port());
    Station client, server;
    client.To(full.Port(), 1);
    server.Listen();
    for (int round = 0; round < 5; ++round) {
        platform::sleep_ms(50);
        client.socket.Close();
        platform::sleep_ms(50);
        client.socket.Hang_Up();
        server.socket.Close();
    }
    EXPECT_TRUE(server.socket.is_running() && Connected(server.socket.GetPort()) && server.Is_Up());
    client.socket.Disable_Auto_Reconnect();
    EXPECT_TRUE(Soon([&] { return client.socket.Close(), !client.socket.is_running(); }));
    for (Station *station : {&client, &server})
        EXPECT_EQ(station->Count("3,"), 0) << testing::PrintToString(station->Reported());
}

TEST(Socket_Client_Server, is_asked_and_ordered_by_threads_at_any_moment_and_works_afterwards)
{
    Host host;
    Station station;
    Test_Socket &socket = station.socket;
    host.Open();
    const std::function<void()> orders[] = {[&] { station.Turn_To(host); },
                                            [&] { EXPECT_TRUE(socket.CreateServer(0)); },
                                            [&] { socket.Work(); },
                                            [&] { socket.Close(); },
                                            [&] { socket.Hang_Up(); },
                                            [&] { socket.stop(); },
                                            [&] { socket.Enable_Auto_Reconnect(1); },
                                            [&] { socket.Disable_Auto_Reconnect(); }};
    std::atomic<bool> over{false};
    std::vector<std::thread> threads;
    for (unsigned int seed = 1; seed <= 2; ++seed) {
        threads.emplace_back([&, random = std::mt19937(seed)]() mutable {
            for (int i = 0; i < 60; ++i) {
                orders[random() % std::size(orders)]();
                platform::sleep_ms(random() % 8);
            }
        });
    }
    threads.emplace_back([&] {
        while (!over) {
            unsigned long changes = 0;
            EXPECT_STRNE(socket.GetRemoteName(), nullptr);
            socket.GetStatus(&changes), socket.IsBusy(), socket.is_connected(), socket.GetPort(), socket.GetBytesIn();
        }
    });
    threads.emplace_back([&] {  // the peer: sends something and leaves
        while (!over) {
            if (Peer peer = Waiting_At(host)) peer.Say("hello");
            platform::sleep_ms(1);
        }
    });
    threads[0].join(), threads[1].join();
    over = true;
    threads[2].join(), threads[3].join();
    socket.stop();
    while (Waiting_At(host)) continue;
    const std::size_t pulled = station.client.pulled.Now().size();
    Peer peer = station.To(host);
    ASSERT_TRUE(peer && station.Gets(12));
    peer.Say("end");
    EXPECT_TRUE(Soon([&] { return station.client.pulled.Now().substr(pulled) == "end"; }));
    for (const std::string &line : station.Reported()) EXPECT_NE(line.substr(0, 2), "3,") << line;
}

TEST(Socket_Client_Server, a_stop_ends_the_wait_for_a_full_window)
{
    Host host;
    Message_Window window;
    if (!Fill(window.GetHandle())) GTEST_SKIP() << "no limit here";
    Station stopped;
    Peer peer = stopped.To(host.Open());
    ASSERT_TRUE(stopped.Is_Up());
    stopped.socket.SetMessage(window.GetHandle(), 1, 2);
    peer.Leave();
    EXPECT_TRUE(Soon([&] {
        return stopped.reports.Has("Driver tried 10 times without success to post a message "
                                   "(status 13).\n");
    }));
    EXPECT_TRUE(stopped.socket.is_running());  // without a stop it would try for ever
    EXPECT_LT(Elapsed([&] { stopped.socket.stop(); }), 3000u);
    EXPECT_FALSE(stopped.socket.is_running());
    Capturing_Handler reports;
    EXPECT_LT(Elapsed([&] {
                  Station destroyed;  // while its socket is open
                  destroyed.socket.Set_Error_Handler(&reports);
                  destroyed.client.answers[Mesg_Attached] = [] { return false; };
                  peer = destroyed.To(host);
                  EXPECT_TRUE(destroyed.Ends());
                  destroyed.socket.SetMessage(window.GetHandle(), 1, 2);
              }),
              3000u);
    EXPECT_TRUE(reports.Has("Driver tried 1 times without success to post a message (status 13).\n"));  // and gave up
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
    EXPECT_EQ(station.client.Story(),
              (Heard{Mesg_Attached, Mesg_Request_Invite, Mesg_Request_Invite, Mesg_Data_Ready, Mesg_Request_Invite,
                     Mesg_Detached, Mesg_Attached, Mesg_Request_Invite, Mesg_Request_Invite, Mesg_Data_Ready,
                     Mesg_Request_Invite, Mesg_Detached}));
    Statuses statuses = station.socket.statuses.Now();
    statuses.resize(6);  // what stopping finds varies
    EXPECT_EQ(statuses, (Statuses{11, 13, 1, 11, 13, 1}));
    EXPECT_FALSE(Peer::To(port));
}

TEST(Socket_Client_Server, a_server_whose_port_is_taken_says_why_and_tries_again)
{
    Host taken;
    Station station;
    EXPECT_TRUE(station.socket.CreateServer(taken.Open().Port()) && station.socket.Work());
    // 10048, or 10013 where the other one does not share its port (Windows).
    EXPECT_TRUE(station.Reports("3,89 Error accepting inbound connection. Socket Error-Code: 100", 2))
        << testing::PrintToString(station.Reported());
    EXPECT_EQ(station.Reported().at(0), "3,89 Could not bind socket server communication object.\n");
    const Statuses statuses = station.socket.statuses.Now();
    EXPECT_TRUE(std::ranges::equal(Statuses{0, 13, 13, 1, 0}, std::span(statuses).first(5)));
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
    const auto fails = [&] {
        platform::fault::fail_after(platform::fault::Operation::read, 0, 10054);
        peer.Say(std::string(20000, 'x'));  // more than the receive under way takes
    };
    const std::function<void()> losses[] = {[&] { peer.Leave(); }, [&] { station.socket.Close(); },
                                            [&] { station.socket.Hang_Up(); }, fails};
    for (const auto &lose : losses) {
        lose();
        ASSERT_TRUE(station.Gets(1));
        platform::fault::clear();
        peer = host.Accept();
        ASSERT_TRUE(station.Gets(12));
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
    station.socket.Work();
    EXPECT_TRUE(station.Reports("3,89 Could not resolve host name caster.test to IP-address since ", 2));
    platform::fault::plan_name("caster.test", 0, test::loopback);
    EXPECT_TRUE(host.Accept() && station.Is_Up());
    platform::fault::clear();
}

TEST(Socket_Client_Server, tells_once_an_hour_that_a_host_cannot_be_reached)
{
    Station station;
    station.socket.Enable_Auto_Reconnect(1);
    // Loopback's broadcast address: connecting fails at once, and nothing leaves the machine.
    ASSERT_TRUE(station.socket.CreateClient("127.255.255.255", 9, nullptr, 0) && station.socket.Work());
    ASSERT_TRUE(Soon([&] { return station.socket.statuses.Now().size() >= 4; }));  // 103, and three tries
    const std::string text = "3,89 Connect to host 127.255.255.255:9 failed since ";
    EXPECT_EQ(station.Count(text), 1);
    for (int i = 0; i < 2; ++i) {  // more than an hour since the report, and less since the last failure
        platform::advance_clock(2000 * 1000);
        const std::size_t tries = station.socket.statuses.Now().size();
        ASSERT_TRUE(Soon([&] { return station.socket.statuses.Now().size() >= tries + 2; }));
        EXPECT_EQ(station.Count(text), 1);
    }
    platform::advance_clock(3601 * 1000);
    EXPECT_TRUE(station.Reports(text + "760"));
    EXPECT_EQ(station.Count(text), 2);
    ASSERT_TRUE(station.socket.CreateClient("127.255.255.255", 10, nullptr, 0));  // a new target has its own hour
    EXPECT_TRUE(station.Reports("3,89 Connect to host 127.255.255.255:10 failed since 1 sec."));
    station.socket.Disable_Auto_Reconnect();
    EXPECT_TRUE(station.Ends());
    EXPECT_EQ(station.Count("3,89 Could not connect to host 127.255.255.255:10 for socket client communication.\n"), 1);
}

TEST(Socket_Client_Server, silence_is_asked_about_after_a_minute)
{
    Host host;
    Station patient, impatient;
    impatient.client.answers[Mesg_Status_50] = [] { return false; };
    const Peer quiet = patient.To(host.Open());
    Peer lost = impatient.To(host);
    EXPECT_TRUE(patient.client.Hears(Mesg_Request_Invite) && impatient.client.Hears(Mesg_Request_Invite));
    platform::advance_clock(60000);
    EXPECT_TRUE(lost.Hears_The_End() && impatient.Ends());
    EXPECT_EQ(impatient.client.Story(), (Heard{Mesg_Attached, Mesg_Request_Invite, Mesg_Status_50, Mesg_Status_110,
                                               Mesg_Detached, Mesg_Detached}));
    EXPECT_EQ(impatient.Count("3,91 " + Address(host.Port()) + " Socket timeout: no data since 6"), 1);
    EXPECT_TRUE(patient.client.Hears(Mesg_Status_40) && patient.client.Hears(Mesg_Second));
    EXPECT_EQ(patient.client.Story(), (Heard{Mesg_Attached, Mesg_Request_Invite, Mesg_Status_50}));  // once a minute
}

TEST(Socket_Client_Server, a_time_out_tells_the_seconds_since_the_last_data)
{
    Host host;
    Station station;
    station.client.answers[Mesg_Status_50] = [] { return false; };
    Peer peer = station.To(host.Open());
    ASSERT_TRUE(station.client.Hears(Mesg_Request_Invite));
    platform::advance_clock(30000);
    peer.Say("x");
    ASSERT_TRUE(station.client.Hears(Mesg_Data_Ready));
    platform::sleep_ms(100);  // for the next wait to begin
    platform::advance_clock(30000);
    EXPECT_TRUE(station.Ends());
    EXPECT_EQ(station.Count("3,91 " + Address(host.Port()) + " Socket timeout: no data since 3"), 1);
}

TEST(Socket_Client_Server, stops_at_once_wherever_it_is)
{
    Host refusing, full, open;
    const Peer filler = Peer::To(full.Open(0).Port());
    Peer peer;
    open.Open();
    const auto listen = [](Station &station) { return station.Listen() != 0; };
    const auto resolve = [](Station &station) {
        platform::fault::plan_name("hanging.test", 11001, 0);
        station.socket.Enable_Auto_Reconnect(100);
        EXPECT_FALSE(station.socket.CreateClient("hanging.test", 1, nullptr, 0));
        platform::fault::hang_name("hanging.test");
        return station.socket.Work();
    };
    const auto connect = [&](Station &station) { return station.To(full.Port(), 100), platform::sleep_ms(50), true; };
    const auto retry = [&](Station &station) { return station.To(refusing.Port(), 100).Reports("0,91 Waiting"); };
    const auto lose = [&](Station &station) { return station.To(open, 100).Leave(), station.Gets(1); };
    const auto wait = [&](Station &station) { return peer = station.To(open), station.Is_Up(); };
    const auto deliver = [&](Station &station) {
        station.client.answers[Mesg_Attached] = [] { return platform::sleep_ms(300), true; };
        return wait(station);
    };
    const auto stall = [&](Station &station) {
        Upstream upstream(station.socket);
        const auto given = [&] { return station.socket.Room() >= 4096 && upstream.Give(std::string(4096, 'x')); };
        int blocks = wait(station) ? 0 : 16384;
        while (blocks < 16384 && Soon(given, 100)) ++blocks;
        return blocks < 16384;  // a system takes less than 64 MiB
    };
    const auto ask = [&](Station &station) { return station.socket.Ask("M", "u", "p"), wait(station); };
    const std::function<bool(Station &)> states[] = {listen, resolve, connect, retry, lose, wait, deliver, stall, ask};
    for (const auto &enter : states) {
        SCOPED_TRACE(&enter - states);
        Station station;
        EXPECT_TRUE(enter(station) && station.socket.is_running());
        const auto start = std::chrono::steady_clock::now();
        station.socket.stop();
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
        EXPECT_FALSE(station.socket.is_running() || station.socket.is_connected());
        platform::fault::clear();
    }
}

TEST(Socket_Client_Server, its_client_may_refuse_stop_close_and_disconnect_it)
{
    constexpr auto refuse = [](Station &) { return false; };
    const struct {
        CL_Mesg message;
        bool (*answer)(Station &);
        Heard beginning;
    } cases[] = {{Mesg_Attached, refuse, {Mesg_Attached}},
                 {Mesg_Request_Invite, refuse, {Mesg_Attached, Mesg_Request_Invite, Mesg_Detached}},
                 {Mesg_Data_Ready,
                  refuse,
                  {Mesg_Attached, Mesg_Request_Invite, Mesg_Request_Invite, Mesg_Data_Ready, Mesg_Detached}},
                 {Mesg_Data_Ready,
                  [](Station &s) { return s.socket.stop(), true; },
                  {Mesg_Attached, Mesg_Request_Invite, Mesg_Request_Invite, Mesg_Data_Ready, Mesg_Detached}},
                 {Mesg_Data_Ready,
                  [](Station &s) { return s.socket.Disconnect(), true; },
                  {Mesg_Attached, Mesg_Request_Invite, Mesg_Request_Invite, Mesg_Data_Ready}},
                 {Mesg_Data_Ready,
                  [](Station &s) { return s.client.Pull(s.socket), s.socket.Close(), true; },
                  {Mesg_Attached, Mesg_Request_Invite, Mesg_Request_Invite, Mesg_Data_Ready, Mesg_Detached,
                   Mesg_Request_Invite, Mesg_Detached, Mesg_Attached}}};
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        Host host;
        Station station;
        station.client.answers[c.message] = [&] { return c.answer(station); };
        Peer peer = station.To(host.Open(), 1);
        peer.Say("abc");
        EXPECT_TRUE(peer.Hears_The_End());
        const bool connects_again = c.beginning.back() == Mesg_Attached && c.beginning.size() > 1;
        EXPECT_TRUE(connects_again ? host.Accept() && station.client.Hears(Mesg_Attached, 2) : station.Ends());
        Heard story = station.client.Story();
        story.resize(c.beginning.size());
        EXPECT_EQ(story, c.beginning);
    }
    Station lonely;
    lonely.socket.Disconnect();
    EXPECT_TRUE(lonely.To(9).Ends());
    EXPECT_EQ(lonely.socket.statuses.Now(), (Statuses{103, 0}));
}

TEST(Socket_Client_Server, limits_what_is_asked_for_and_leaves_the_rest_for_the_end)
{
    Host host;
    Station station;
    Test_Socket &socket = station.socket;
    for (int i = 0; i < 17; ++i) EXPECT_EQ(socket.UnGetByte('x') == 'x', i < 16);
    EXPECT_TRUE(socket.Request(16) && !socket.Request(17) && !socket.Request(0));
    for (int i = 0; i < 17; ++i) EXPECT_EQ(socket.GetByte(), i < 16 ? 'x' : No_Byte);
    station.client.answers[Mesg_Request_Invite] = [&] { return socket.Request(10000), true; };
    station.client.answers[Mesg_Detached] = [&] { return station.client.Pull(socket); };
    Peer peer = station.To(host.Open());
    peer.Say(Pattern(9000));
    peer.Leave();
    EXPECT_TRUE(station.Ends());
    EXPECT_EQ(station.client.Story(),
              (Heard{Mesg_Attached, Mesg_Request_Invite, Mesg_Request_Invite, Mesg_Data_Ready, Mesg_Request_Invite,
                     Mesg_Request_Invite, Mesg_Data_Ready, Mesg_Request_Invite, Mesg_Detached}));
    EXPECT_TRUE(station.client.pulled.Now() == Pattern(9000));
}

TEST(Socket_Client_Server, a_hundred_connections_leave_nothing_behind)
{
    const auto threads = [] {  // 0 where the system does not list them
        std::error_code none;
        const std::filesystem::directory_iterator tasks("/proc/self/task", none);
        return none ? 0 : std::distance(begin(tasks), end(tasks));
    };
    Station station;
    const std::uint16_t port = station.Listen();
    std::uintptr_t number = 0;  // of a socket: systems give the lowest free one
    std::ptrdiff_t running = 0;
    for (int i = 0; i < 100; ++i) {
        Peer peer = Connected(port);
        ASSERT_TRUE(Soon([&] { return station.socket.is_connected(); }));
        EXPECT_TRUE(Upstream(station.socket).Give("hello"));
        EXPECT_EQ(peer.Hear(5), "hello");
        if (i == 10) number = peer.Socket().native(), running = threads();
        if (i < 99) continue;
        EXPECT_LT(peer.Socket().native(), number + 50);
        EXPECT_LE(threads(), running + 2);
    }
}

// All are asked before the first is waited for.
TEST(Socket_Client_Server, many_are_taken_down_at_once)
{
#ifdef _WIN32
    GTEST_SKIP() << "under Wine the end of a thread takes some milliseconds, many more on a loaded machine";
#endif
    std::uint64_t fastest = 10000;
    for (int i = 0; i < 3; ++i) {
        Host host;
        host.Open();
        std::vector<std::unique_ptr<Station>> stations;
        std::vector<Peer> peers;
        for (int n = 0; n < 50; ++n) {
            peers.push_back(stations.emplace_back(std::make_unique<Station>())->To(host));
            ASSERT_TRUE(peers.back() && stations.back()->Is_Up());
            EXPECT_TRUE(Upstream(stations.back()->socket).Give("a") && peers.back().Hear(1) == "a");
        }
        fastest = std::min(fastest, Elapsed([&] {
                               for (const auto &station : stations) station->socket.pre_stop();
                               stations.clear();
                           }));
    }
    EXPECT_LT(fastest, 60u);
}

TEST(Socket_Client_Server, an_accepted_socket_is_served_to_its_end)
{
    Host host;
    Peer peer = Peer::To(host.Open().Port());
    const auto number = static_cast<unsigned int>(host.Accept().Socket().release());
    const sockaddr_in address{2, {0x12, 0x34}, {10, 0, 0, 1}};
    int owner = 0;
    auto *const multi_server = reinterpret_cast<Socket_Multi_Server *>(&owner);
    Station station;
    EXPECT_FALSE(station.socket.CreateServer(~0u, 7, address, multi_server));
    EXPECT_EQ(station.Count("3,89 Could not create socket server communication object.\n"), 1);
    EXPECT_TRUE(station.socket.CreateServer(number, 7, address, multi_server) && station.socket.Work());
    EXPECT_TRUE(station.Is_Up() && station.socket.GetPort() == 7);
    EXPECT_STREQ(station.socket.GetRemoteName(), "10.0.0.1:4660");
    EXPECT_TRUE(station.socket.Hang_Up());  // closes an accepted socket for good
    EXPECT_TRUE(peer.Hears_The_End() && station.Ends());
    EXPECT_EQ(station.client.Story(), (Heard{Mesg_Attached, Mesg_Request_Invite, Mesg_Detached}));
}

TEST(Socket_Client_Server, asks_a_caster_through_a_proxy_and_judges_each_answer_by_itself)
{
    const std::string table = "SOURCETABLE 200 OK\r\nServer: test\r\n\r\nENDSOURCETABLE\r\n";
    const std::string answers[] = {"HTTP/1.0 4", table, "ICY 200 OK\r\n" + Pattern(50)};
    Caster proxy([&, times = 0](Peer &client) mutable {
        client.Say(answers[times]);
        if (++times > 1) client.Hears_The_End();
    });
    Station station;
    station.socket.Ask("M", "a", "b");
    for (const std::string &bad : {"A B"s, "A\r\nX: y"s, "/A"s, std::string(256, 'M')})
        EXPECT_FALSE(station.socket.Set_Mountpoint(bad.c_str()));
    station.socket.Enable_Auto_Reconnect(1);
    EXPECT_TRUE(station.socket.CreateClient("caster.test", 2101, "127.0.0.1", proxy.Port()) && station.socket.Work());
    station.Expect_Pulled(answers[0] + answers[2]);  // a refusal is no data
    EXPECT_EQ(proxy.Requests().at(0), "GET http://caster.test:2101/M HTTP/1.0\r\nUser-Agent: NtripClient1.0\r\n"
                                      "Authorization: Basic YTpi\r\n\r\n");
    EXPECT_EQ(station.Count("3,"), 1);
    EXPECT_EQ(station.Count("3,91 NTRIP error: Mountpoint not available. "), 1);
    EXPECT_EQ(station.Count("2,91 Successfully connected to host " + Address(proxy.Port())), 3);
}

TEST(Socket_Client_Server, a_refusal_is_told_in_the_casters_words)
{
    const std::string filling(60, 'x');
    const std::pair<std::string, std::string> cases[] = {
        {"HTTP/1.0 401 Unauthorized\r\n", " Unauthorized.  Please check user name and password."},
        {"%s %n %s%n\r\n", " %s%n. "},
        {"a b c\nLevel: \x1B[2J\0d\r\n"s, " c?Level: ?[2J. "},
        {filling, filling + filling + ". "}};
    for (const auto &[line, told] : cases) {
        Ntrip_Answer answer;
        answer.Expect(true);
        std::string message;
        EXPECT_FALSE(answer.Accepts((line + filling).data(), line.size() + filling.size(), message));
        EXPECT_EQ(message, "NTRIP error: " + told);
    }
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
        const auto what = random() % 3;
        if (what == 0) {
            buffer.Compact();
            n = std::min(buffer.Room(), n);
            std::fill_n(buffer.End(), n, byte);
            buffer.Add(n);
            model.insert(model.end(), n, byte);
        } else if (what == 1) {
            n = buffer.Take(block, n);
            ASSERT_TRUE(std::equal(block, block + n, model.begin()));
            model.erase(model.begin(), model.begin() + static_cast<long>(n));
        } else {
            for (n %= 20; n > 0 && buffer.Put_Back(byte); --n) model.push_front(byte);
        }
        ASSERT_EQ(buffer.Held(), model.size());
    }
}

TEST(Socket_Client_Server, errors_are_told_with_the_words_that_there_are)
{
    Station station;
    for (const unsigned long error : {0ul, 10054ul, 10069ul, 999999ul})  // the systems have no text for 10069
        station.socket.ReportErrorIntern(error, "Write", 15, Error_Handler::ES_Error);
    const Lines &lines = station.Reported();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].find("3,15 Write Socket Error-Code: 10054 => "), 0u) << lines[0];
    EXPECT_EQ(lines[1].find("3,15 Write Socket Error: WSAEDQUOT=10069 => WSAEDQUOT"), 0u) << lines[1];
    EXPECT_EQ(lines[2], "3,15 Write Unknown Socket Error-Code: 999999");
}
