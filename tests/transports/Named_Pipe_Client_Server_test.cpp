#include "kernel/transports/Named_Pipe_Client_Server_as_Client.h"
#include "kernel/transports/Named_Pipe_Client_Server_as_Server.h"

#include "platform/error.h"
#include "platform/fault.h"

#include "tests/support/pipes.h"
#include "tests/support/recorder.h"
#include "tests/support/reports.h"
#include "tests/support/upstream.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <vector>

using namespace kernel;
using namespace test;
using platform::Server_Pipe;

namespace {

using Lines = std::vector<std::string>;
using Statuses = std::vector<int>;

template <class Role>
class Test_Pipe : public Role {
public:
    explicit Test_Pipe(Error_Handler &handler) : Object("station", &handler), Role(handler, 65536) {}
    ~Test_Pipe() override { this->Stop_Threads(); }
    void Sleep(unsigned long ms) override { Role::Sleep(ms < 100 ? ms : ms / 10); }  // shorter, but not those of stop
    void SetStatus(Remote_Control::Status status) override
    {
        Role::SetStatus(status);
        statuses.Add({static_cast<int>(status)});
    }
    Shared<Statuses> statuses;
};

// One end of a pipe. Its client pulls everything; messages and reports are kept.
template <class Role>
struct Station {
    Station() { pipe.Connect(&client); }
    // "level,code text" of this family, the name of the pipe shown as N.
    Lines Reported(const std::string &name)
    {
        for (const ::Reported &line : reports.Take()) {
            if (!line.unit.starts_with("kernel/Named_Pipe")) continue;
            std::string text = line.text;
            if (const std::size_t at = text.find(name); at != std::string::npos) text.replace(at, name.size(), "N");
            reported.push_back(std::to_string(line.level) + ',' + std::to_string(line.code) + ' ' + text);
        }
        return reported;
    }
    bool Reports(const std::string &name, const std::string &beginning, int times = 1)
    {
        return Soon([&] {
            const Lines lines = Reported(name);
            return std::count_if(lines.begin(), lines.end(), [&](auto &l) { return l.starts_with(beginning); }) >=
                   times;
        });
    }
    bool Gets(int status)
    {
        return Soon([&] { return static_cast<int>(pipe.GetStatus(nullptr)) == status; });
    }
    bool Ends()
    {
        return Soon([&] { return !pipe.is_running(); });
    }
    bool Has_Pulled(const std::string &bytes)
    {
        return Soon([&] { return client.pulled.Now() == bytes; });
    }

    Capturing_Handler reports;
    Recorder client;
    Test_Pipe<Role> pipe{reports};
    Lines reported;
};
using As_Server = Station<Named_Pipe_Client_Server_as_Server>;
using As_Client = Station<Named_Pipe_Client_Server_as_Client>;

struct Named_Pipe : testing::Test, Pipe_Name {
    ~Named_Pipe() override { platform::fault::clear(); }

    As_Server &Served()  // a server that waits
    {
        server.Reported(name);
        server.reported.clear();
        EXPECT_EQ(server.pipe.Create(name.c_str()), 1);
        EXPECT_TRUE(server.pipe.Work() && server.Reports(name, "1,91 Named Pipe Server \"N\" waiting"));
        return server;
    }
    Stream_Pointer Bare_Client(int number = 1)
    {
        Stream_Pointer stream = Opened(name);
        EXPECT_TRUE(server.client.Hears(Mesg_Attached, number));
        return stream;
    }
    As_Client &Connected_To_Bare()  // a client whose server is the test
    {
        bare = Server_Pipe::create(name);
        EXPECT_EQ(client.pipe.Create(name.c_str()), 1);
        EXPECT_TRUE(bare->listen());
        taken = Taken(*bare);
        EXPECT_TRUE(client.pipe.Work() && client.client.Hears(Mesg_Attached));
        return client;
    }

    As_Server server;
    As_Client client;
    std::shared_ptr<Server_Pipe> bare;
    Stream_Pointer taken;
};

}  // namespace

TEST_F(Named_Pipe, a_server_serves_one_client_after_another)
{
    Served();
    Upstream up(server.pipe);
    EXPECT_TRUE(up.Give("nobody is there"));  // taken and dropped
    for (int i = 1; i <= 2; ++i) {
        Stream_Pointer peer = Bare_Client(i);
        Written(peer, "abc");
        EXPECT_TRUE(server.Has_Pulled(i == 1 ? "abc" : "abcabc"));
        EXPECT_TRUE(up.Give("answer"));
        EXPECT_EQ(Read(peer), "answer");
        EXPECT_EQ(platform::open_pipe(name), nullptr);
        EXPECT_STREQ(server.pipe.GetRemoteName(), ("Working Named Pipe Server " + name).c_str());
        peer.reset();
        EXPECT_TRUE(server.Gets(Remote_Control::Status_Waiting));
    }
    EXPECT_STREQ(server.pipe.GetRemoteName(), ("Idle Named Pipe Server " + name).c_str());
    EXPECT_LT(Elapsed([&] { server.pipe.stop(); }), 1000u);
    const Heard one{Mesg_Attached,   Mesg_Request_Invite, Mesg_Request_Invite,
                    Mesg_Data_Ready, Mesg_Request_Invite, Mesg_Detached};
    Heard both = one;
    both.insert(both.end(), one.begin(), one.end());
    EXPECT_EQ(server.client.Story(), both);
    EXPECT_EQ(server.pipe.statuses.Now(), (Statuses{1, 11, 11, 13, 13, 1, 11, 11, 13, 13, 1}));
    const Lines served{"1,91 Client connected with Named Pipe Server \"N\".",
                       "2,91 Named Pipe Server \"N\" disconnected.",
                       "1,91 Client disconnected from Named Pipe Server \"N\".",
                       "1,91 Named Pipe Server \"N\" waiting for new client."};
    Lines all{"1,89 Named Pipe Server \"N\" opened successfully.",
              "1,91 Named Pipe Server \"N\" waiting for new client."};
    for (int i = 0; i < 2; ++i) all.insert(all.end(), served.begin(), served.end());
    all.push_back("1,91 Termination of Named Pipe Server thread \"N\" requested.");
    EXPECT_EQ(server.Reported(name), all);
    EXPECT_EQ(platform::open_pipe(name), nullptr);
    EXPECT_EQ(platform::last_error(), platform::error_not_found);
}

TEST_F(Named_Pipe, a_client_says_why_it_does_not_open)
{
    const std::string no_server = name + "x", too_long(248, 'n');
    bare = Server_Pipe::create(name);
    const Stream_Pointer other = platform::open_pipe(name);
    const std::string words = " => " + platform::error_text(206);
    const struct {
        const std::string &name;
        unsigned long reconnect;
        int result, status;
        std::string report;
    } cases[] = {
        {no_server, 0, 0, 0, "3,89 No Server for Named Pipe \"N\" present."},
        {no_server, 1, 1, 10, "3,89 No Server for Named Pipe \"N\" present."},
        {name, 1, 1, 10, "2,89 Waiting on busy Named Pipe \"N\" (1. retry)."},
        {too_long, 1, 0, 0, "3,89 Open Client Pipe N Error-Code: 206=0x000000CE" + words},
    };
    EXPECT_EQ(client.pipe.Create(nullptr), 0);
    EXPECT_STREQ(client.pipe.GetRemoteName(), "Named Pipe Client (error)");
    for (const auto &[opened, reconnect, result, status, report] : cases) {
        As_Client one;
        one.pipe.Enable_Auto_Reconnect(reconnect);
        EXPECT_EQ(one.pipe.Create(opened.c_str()), result) << report;
        EXPECT_EQ(one.Reported(opened), Lines{report});
        EXPECT_EQ(static_cast<int>(one.pipe.GetStatus(nullptr)), status) << report;
        EXPECT_FALSE(one.pipe.is_connected());
        EXPECT_EQ(one.pipe.GetPipeName(), opened);
    }
    EXPECT_EQ(server.pipe.Create(name.c_str()), 0);
    EXPECT_TRUE(server.Reports(name, "3,89 Open Server Pipe N Error-Code: 231=0x000000E7 => "));
    EXPECT_EQ(server.pipe.GetPipeName(), nullptr);
    EXPECT_STREQ(server.pipe.GetRemoteName(), "Named Pipe Server (error)");
}

TEST_F(Named_Pipe, a_busy_pipe_is_tried_seven_times)
{
    bare = Server_Pipe::create(name);
    const Stream_Pointer other = platform::open_pipe(name);
    const std::uint64_t ms = Elapsed([&] { EXPECT_EQ(client.pipe.Create(name.c_str()), 0); });
    EXPECT_TRUE(ms >= 3400 && ms < 8000) << ms;
    Lines tries;
    for (int i = 1; i <= 7; ++i)
        tries.push_back("2,89 Waiting on busy Named Pipe \"N\" (" + std::to_string(i) + ". retry).");
    tries.push_back("3,89 Timeout opening Named Pipe Client \"N\".");
    EXPECT_EQ(client.Reported(name), tries);
    EXPECT_EQ(client.pipe.statuses.Now(), (Statuses{10, 106, 106, 106, 106, 106, 106, 106, 0}));
}

TEST_F(Named_Pipe, a_client_reconnects_until_it_is_stopped)
{
    client.pipe.Enable_Auto_Reconnect(1);
    Connected_To_Bare();
    Written(taken, "abc");
    EXPECT_TRUE(client.Has_Pulled("abc"));
    bare->disconnect();
    EXPECT_TRUE(client.Reports(name, "2,89 x", 0) &&
                client.Reports(name, "2,91 Named Pipe Client \"N\" disconnected."));
    EXPECT_TRUE(client.Reports(name, "1,89 Waiting on busy Named Pipe \"N\" since 1 sec."));
    EXPECT_TRUE(client.Gets(106));
    taken.reset();
    bare.reset();
    EXPECT_TRUE(client.Reports(name, "1,89 No Server for Named Pipe \"N\" present, waiting since 1 sec."));
    bare = Server_Pipe::create(name);
    EXPECT_TRUE(bare->listen());
    taken = Taken(*bare);
    EXPECT_TRUE(client.Reports(name, "1,89 Opened Named Pipe Client \"N\" after 1 sec was successfully."));
    EXPECT_TRUE(client.client.Hears(Mesg_Attached, 2));
    Written(taken, "def");
    EXPECT_TRUE(client.Has_Pulled("abcdef"));
    client.pipe.stop();
    EXPECT_TRUE(client.Reports(name, "0,91 Termination of Named Pipe \"N\" thread requested."));
    EXPECT_EQ(static_cast<int>(client.pipe.GetStatus(nullptr)), 1);
    const Heard story = client.client.Story();
    EXPECT_EQ(std::count(story.begin(), story.end(), Mesg_Detached), 2);
    EXPECT_EQ(Read(taken), "");
}

TEST_F(Named_Pipe, stops_within_a_second_in_every_state)
{
    const std::string no_server = name + "x";
    const auto fill = [](auto &station) {  // a writer that waits for a peer that does not read
        Upstream up(station.pipe);
        for (int i = 0; i < 60; ++i) up.Give(std::string(10000, 'x'));
    };
    const struct {
        const char *state;
        std::function<void()> enter;
    } states[] = {
        {"not started", [] {}},
        {"server waits", [&] { Served(); }},
        {"server connected", [&] { Served(), taken = Bare_Client(); }},
        {"server writes", [&] { Served(), taken = Bare_Client(), fill(server); }},
        {"client connected", [&] { Connected_To_Bare(); }},
        {"client writes", [&] { Connected_To_Bare(), fill(client); }},
        {"client reconnects",
         [&] {
             client.pipe.Enable_Auto_Reconnect(30);
             EXPECT_TRUE(client.pipe.Create(no_server.c_str()) && client.pipe.Work());
         }},
    };
    for (const auto &[state, enter] : states) {
        enter();
        EXPECT_LT(Elapsed([&] {
                      server.pipe.stop();
                      client.pipe.stop();
                  }),
                  1000u)
            << state;
        taken.reset();
        bare.reset();
        EXPECT_FALSE(server.pipe.is_connected() || client.pipe.is_connected()) << state;
    }
}

// Closing on this side is not reported, and the client hears of it once.
TEST_F(Named_Pipe, a_hang_up_ends_the_connection_and_a_close_ends_the_pipe)
{
    Served();
    EXPECT_FALSE(server.pipe.Hang_Up());
    Stream_Pointer peer = Bare_Client();
    EXPECT_TRUE(server.pipe.Hang_Up());
    EXPECT_EQ(Read(peer), "error 233");
    EXPECT_TRUE(server.client.Hears(Mesg_Detached));
    peer.reset();
    peer = Bare_Client(2);
    server.pipe.Close();
    EXPECT_EQ(Read(peer), "");
    EXPECT_TRUE(server.Ends());
    Connected_To_Bare();
    client.pipe.Close();
    EXPECT_TRUE(client.Ends());
    EXPECT_EQ(Read(taken), "");
    for (Recorder *heard : {&server.client, &client.client}) {
        const Heard story = heard->Story();
        EXPECT_EQ(std::count(story.begin(), story.end(), Mesg_Attached),
                  std::count(story.begin(), story.end(), Mesg_Detached));
    }
    for (const Lines &lines : {server.Reported(name), client.Reported(name)}) {
        for (const std::string &line : lines) EXPECT_TRUE(line.starts_with("1,")) << line;
    }
}

TEST_F(Named_Pipe, a_minute_without_anything_is_asked_about)
{
    server.client.answers[Mesg_Status_50] = [] { return false; };
    Served();
    EXPECT_TRUE(server.client.Hears(Mesg_Status_40));  // it waits: the clock runs on behind the beginning of the wait
    platform::advance_clock(61000);
    EXPECT_TRUE(server.Ends());
    EXPECT_TRUE(server.Reports(name, "3,91 Named Pipe Server \"N\" timeout: no data since 6"));
    EXPECT_EQ(server.client.Story(), (Heard{Mesg_Status_50, Mesg_Status_110}));
    EXPECT_FALSE(server.pipe.is_connected());
    int asked = 0;
    client.client.answers[Mesg_Status_50] = [&] { return ++asked == 1; };
    Connected_To_Bare();
    EXPECT_TRUE(client.client.Hears(Mesg_Status_40));
    platform::advance_clock(61000);
    EXPECT_TRUE(client.client.Hears(Mesg_Status_50));
    platform::advance_clock(61000);
    EXPECT_TRUE(client.Ends());
    EXPECT_TRUE(client.Reports(name, "3,91 Named Pipe \"N\" timeout: no data since 12"));
    EXPECT_EQ(client.client.Story(), (Heard{Mesg_Attached, Mesg_Request_Invite, Mesg_Status_50, Mesg_Status_50,
                                            Mesg_Status_110, Mesg_Detached}));
}

TEST_F(Named_Pipe, a_client_that_refuses_ends_its_connection)
{
    std::atomic<bool> attaches{false}, invites{true};
    server.client.answers[Mesg_Attached] = [&] { return attaches.load(); };
    server.client.answers[Mesg_Request_Invite] = [&] { return server.pipe.Request(1), invites.load(); };
    Served();
    Stream_Pointer peer = Bare_Client();
    EXPECT_EQ(Read(peer), "error 233");
    attaches = true;
    peer = Bare_Client(2);
    EXPECT_TRUE(server.client.Hears(Mesg_Request_Invite));
    invites = false;
    Written(peer, "a");
    EXPECT_EQ(Read(peer), "error 233");
    EXPECT_TRUE(server.client.Hears(Mesg_Detached));
    EXPECT_TRUE(server.Reports(name, "1,91 Named Pipe Server \"N\" waiting for new client.", 3));
    const Heard story = server.client.Story();
    EXPECT_EQ(std::count(story.begin(), story.end(), Mesg_Detached), 1);
}

TEST_F(Named_Pipe, a_read_that_fails_is_reported_and_an_invalid_handle_has_a_status_of_its_own)
{
    const struct {
        std::uint32_t error;
        std::string report;
        Statuses end;
    } cases[] = {{6, "3,91 Handle 0x", {12, 150, 1}}, {31, "3,91 Read Pipe N Error-Code: 31=0x0000001F => ", {12, 1}}};
    for (const auto &[error, report, end] : cases) {
        As_Client one;
        const auto pipe = Server_Pipe::create(name);
        EXPECT_EQ(one.pipe.Create(name.c_str()), 1);
        EXPECT_TRUE(pipe->listen());
        const Stream_Pointer peer = Taken(*pipe);
        platform::fault::fail_after(platform::fault::Operation::read, 0, error);
        EXPECT_TRUE(one.pipe.Work() && one.Ends());
        platform::fault::clear();
        EXPECT_TRUE(one.Reports(name, report)) << report;
        EXPECT_EQ(one.client.Story(), (Heard{Mesg_Attached, Mesg_Request_Invite, Mesg_Detached}));
        const Statuses all = one.pipe.statuses.Now();
        EXPECT_EQ(Statuses(all.end() - static_cast<std::ptrdiff_t>(end.size()), all.end()), end);
    }
}

TEST_F(Named_Pipe, survives_the_sudden_death_of_the_other_process)
{
    {
        const Pipe_Process process('s', name);
        EXPECT_TRUE(Soon([&] { return client.pipe.Create(name.c_str()) == 1; }));
        EXPECT_TRUE(client.pipe.Work() && client.Has_Pulled("abc"));
        EXPECT_TRUE(Upstream(client.pipe).Give("x"));
        EXPECT_TRUE(client.Ends());
        EXPECT_TRUE(client.Reports(name, "2,91 Named Pipe Client \"N\" disconnected."));
    }
    Served();
    const Pipe_Process process('c', name);
    EXPECT_TRUE(server.Has_Pulled("abc"));
    EXPECT_TRUE(Upstream(server.pipe).Give("x"));
    EXPECT_TRUE(server.Reports(name, "2,91 Named Pipe Server \"N\" disconnected."));
    EXPECT_TRUE(server.Gets(Remote_Control::Status_Waiting));
}

TEST_F(Named_Pipe, many_clients_one_after_another_leave_nothing_behind)
{
    const auto open_files = [] {
        std::error_code none;
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd", none), {});
    };
    Served();
    std::ptrdiff_t at_first = 0;
    for (int i = 1; i <= 300; ++i) {
        Stream_Pointer peer = Opened(name);
        ASSERT_TRUE(peer) << i;
        Written(peer, "x");
        peer.reset();
        if (i == 10) at_first = open_files();
    }
    EXPECT_TRUE(server.Has_Pulled(std::string(300, 'x')));
    EXPECT_TRUE(server.Gets(Remote_Control::Status_Waiting));
    EXPECT_LT(open_files(), at_first + 100);  // less than one for each client: Wine opens some of its own
}

TEST_F(Named_Pipe, carries_every_byte_both_ways)
{
    Served();
    EXPECT_EQ(client.pipe.Create(name.c_str()), 1);
    EXPECT_TRUE(client.pipe.Work() && client.client.Hears(Mesg_Attached) && server.client.Hears(Mesg_Attached));
    const std::string bytes = Pattern(3'000'000);
    const auto send = [&](auto &pipe) {
        Upstream up(pipe);
        for (std::size_t at = 0; at < bytes.size(); at += 4096) {
            EXPECT_TRUE(Soon([&] { return pipe.Room() > 4096; }));
            EXPECT_TRUE(up.Give(bytes.substr(at, 4096)));
        }
    };
    std::thread other([&] { send(server.pipe); });
    send(client.pipe);
    other.join();
    EXPECT_TRUE(server.Has_Pulled(bytes) && client.Has_Pulled(bytes));
    EXPECT_EQ(server.pipe.GetBytesIn(), bytes.size());
    EXPECT_EQ(client.pipe.GetBytesOut(), bytes.size());
}

TEST_F(Named_Pipe, has_its_names)
{
    const Heard_Reports heard;
    const std::unique_ptr<Named_Pipe_Client_Server_as_Client> one(Named_Pipe_Client_Server_as_Client::Construct(4096));
    const std::unique_ptr<Named_Pipe_Client_Server_as_Server> other(
        Named_Pipe_Client_Server_as_Server::Construct(server.reports, 4096));
    EXPECT_STREQ(one->GetName(), "Client/Server for Named Pipes as Client");
    EXPECT_STREQ(other->GetName(), "Client/Server for Named Pipes as Server");
    for (const char *base : {"Named_Pipe_Client_Server_Base", "Baseclass Client/Server for Named Pipes",
                             "Win32_Buffered_Byte_Client", "Remote_Control"})
        EXPECT_TRUE(one->IsInheritedFrom(base) && other->IsInheritedFrom(base)) << base;
    EXPECT_TRUE(other->IsInheritedFrom("Named_Pipe_Client_Server_as_Server"));
    EXPECT_FALSE(other->IsInheritedFrom("Named_Pipe_Client_Server_as_Client"));
}
