#include "kernel/file_server.h"

#include "kernel/file_list_server.h"

#include "platform/clock.h"
#include "platform/fault.h"
#include "platform/file.h"
#include "platform/message_box.h"
#include "platform/named_lock.h"

#include "tests/support/clients.h"
#include "tests/support/folder.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

using namespace kernel;

namespace {

std::vector<std::string> boxes;

// A file server with a client that pulls everything; reports and message boxes are kept.
template <class T>
class Replay {
public:
    Replay()
    {
        boxes.clear();
        platform::set_message_box(
            [](const char *text, const char *title) { boxes.push_back(std::string(title) + ": " + text); });
        if constexpr (std::is_same_v<T, File_Server>)
            server.reset(T::Construct(nullptr, false));
        else
            server.reset(T::Construct(nullptr));
        client->Dont_Delete_Me();
        client->records = false;
        server->Connect(&client->Pull_All());
    }
    ~Replay()
    {
        server.reset();
        platform::set_message_box(nullptr);
        platform::fault::clear();
    }
    // Steps until the last file ends.
    std::string All(unsigned long step = 5000)
    {
        while (server->GetFilename() && server->Work(step)) continue;
        return client->pulled;
    }
    bool Thread_Ends()
    {
        for (int i = 0; i < 2000 && server->is_running(); ++i) platform::sleep_ms(5);
        return !server->is_running();
    }

    Heard_Reports reports;
    const std::unique_ptr<Recording_Client> client = std::make_unique<Recording_Client>();  // outlives the server
    std::unique_ptr<T> server;
};

const char unit[] = "kernel/file_server";
const char list_unit[] = "kernel/file_list_server";

Reported Eof(const std::string &name) { return {2, 16, "EOF of file \"" + name + "\"", unit}; }
Reported Opened(const std::string &name) { return {1, 8, "Opened next file \"" + name + "\".", list_unit}; }
const Reported end_of_list = {1, 0, "Reached end of list file.", list_unit};

}  // namespace

TEST(File_Server, replays_exactly_what_is_granted)
{
    Test_Folder folder;
    const std::string bytes = Pattern(10000);
    Replay<File_Server> replay;
    File_Server &server = *replay.server;
    EXPECT_STREQ(server.GetName(), "Server for File Communication");
    EXPECT_EQ(server.GetFilePos(), 0xFFFFFFFFu);
    const std::string name = folder.Write("a", bytes);
    ASSERT_TRUE(server.Create(name.c_str(), 0));
    EXPECT_EQ(server.GetFilename(), name);
    EXPECT_TRUE(server.Work(1));
    EXPECT_TRUE(server.Work(4999));
    EXPECT_EQ(replay.client->pulled, bytes.substr(0, 5000));
    EXPECT_EQ(server.GetFilePos(), 5000u);
    EXPECT_TRUE(server.Work(5000));  // the end is seen by the read that comes back short
    EXPECT_FALSE(server.Work(1));
    EXPECT_EQ(replay.client->pulled, bytes);
    EXPECT_EQ(server.GetBytesIn(), 10000);
    EXPECT_EQ(replay.reports->Take(), Reports{Eof(name)});

    ASSERT_TRUE(server.Create(name.c_str(), 0));
    EXPECT_FALSE(server.Work(20000));
    EXPECT_EQ(server.GetBytesIn(), 20000);  // never reset
    EXPECT_TRUE(server.Create(nullptr, 0));
    EXPECT_EQ(server.GetFilename(), nullptr);
}

TEST(File_Server, its_thread_serves_grants_and_ends_with_the_file)
{
    Test_Folder folder;
    const std::string bytes = Pattern(9000);
    const std::string name = folder.Write("a", bytes);
    Replay<File_Server> replay;
    File_Server &server = *replay.server;
    ASSERT_TRUE(server.Create(name.c_str(), 0));
    EXPECT_TRUE(server.Work());
    EXPECT_TRUE(server.Work());  // runs already
    platform::sleep_ms(120);
    EXPECT_EQ(server.GetBytesIn(), 0);
    server.Insert(5000);
    for (int i = 0; i < 2000 && server.GetBytesIn() < 5000; ++i) platform::sleep_ms(5);
    EXPECT_EQ(server.GetBytesIn(), 5000);
    EXPECT_TRUE(server.is_running());
    server.Insert(5000);
    EXPECT_TRUE(replay.Thread_Ends());
    EXPECT_EQ(replay.client->pulled, bytes);
    EXPECT_EQ(replay.reports->Take(), Reports{Eof(name)});

    EXPECT_TRUE(server.Create("", 0));  // nothing to read: the thread ends at once
    EXPECT_STREQ(server.GetFilename(), "");
    server.Work();
    EXPECT_TRUE(replay.Thread_Ends());
    server.stop();
    EXPECT_EQ(replay.reports->Take(), Reports{});
}

TEST(File_Server, without_a_client_nothing_is_read)
{
    Test_Folder folder;
    std::unique_ptr<File_Server> server(File_Server::Construct("own name", false));
    EXPECT_STREQ(server->GetName(), "own name");
    ASSERT_TRUE(server->Create(folder.Write("a", "abc").c_str(), 0));
    EXPECT_EQ(server->thread(), ~0UL);
    EXPECT_TRUE(server->Work(10));
    EXPECT_EQ(server->GetBytesIn(), 0);
}

TEST(File_Server, says_what_it_cannot_open)
{
    Test_Folder folder;
    const std::string busy = folder.Write("busy", "abc");
    const auto writer = platform::File::open(busy.c_str(), platform::File::Mode::append);
    struct Case {
        std::string name, cause;
    };
    for (const Case &c : {Case{folder / "missing", "file not found"},
                          {folder / "", "access denied"},
                          {busy, "NT ErrorCode: 32 = 0x00000020"}}) {
        Replay<File_Server> replay;
        EXPECT_FALSE(replay.server->Create(c.name.c_str(), 0));
        const std::string text = "Initialization Error\nCode: " + c.cause;
        EXPECT_EQ(replay.reports->Take(),
                  (Reports{{3, 9, "Could not open file " + c.name, unit}, {3, 15, text, unit}}));
        EXPECT_EQ(boxes, std::vector<std::string>{"Error: " + text});
        EXPECT_EQ(replay.server->GetFilename(), nullptr);
    }
}

TEST(File_Server, keeps_its_pace)
{
    Test_Folder folder;
    const std::string name = folder.Write("a", Pattern(2000000));
    Replay<File_Server> replay;
    File_Server &server = *replay.server;
    constexpr double rate = 20000;  // bytes per second
    ASSERT_TRUE(server.Create(name.c_str(), static_cast<unsigned long>(rate)));
    const std::uint64_t begin = platform::clock_ms();
    server.AutoRun(static_cast<unsigned long>(rate));
    server.Work();
    // Never ahead of the rate, and after ten seconds behind it by a pass of 50 ms at most; the least of several looks, since
    // a busy machine may be late itself.
    double least_behind = 1e9;
    for (double now = 0; now < 10.5;) {
        platform::sleep_ms(now < 10 ? 100 : 5);
        const double bytes = static_cast<double>(server.GetBytesIn());
        now = static_cast<double>(platform::clock_ms() - begin) / 1000;
        EXPECT_LE(bytes, rate * now);
        if (now >= 10) least_behind = std::min(least_behind, (rate * now - bytes) / (rate * now));
    }
    EXPECT_LT(least_behind, 0.01);

    const auto pushed = static_cast<std::int64_t>(30 * rate);
    platform::advance_clock(20000);  // the pace follows the clock, not the passes
    for (int i = 0; i < 2000 && server.GetBytesIn() < pushed; ++i) platform::sleep_ms(5);
    EXPECT_GE(server.GetBytesIn(), pushed);
    server.AutoRun(0);
    platform::sleep_ms(150);
    const std::int64_t ended = server.GetBytesIn();
    platform::sleep_ms(150);
    EXPECT_EQ(server.GetBytesIn(), ended);
}

TEST(File_Server, reads_byte_by_byte_for_those_who_want_it)
{
    Test_Folder folder;
    Replay<File_Server> replay;
    File_Server::IsUsedByOrgScan = true;
    Heard pulls;
    ASSERT_TRUE(replay.server->Create(folder.Write("a", "abc").c_str(), 0));
    replay.client->records = true;
    EXPECT_TRUE(replay.server->Work(3));
    EXPECT_EQ(replay.client->Take(), (Heard{70, 80, 70, 80, 70, 80}));
    delete File_Server::Construct(nullptr, false);  // sets it for all
    EXPECT_FALSE(File_Server::IsUsedByOrgScan);
}

TEST(File_Server, a_new_file_starts_with_nothing_granted)
{
    Test_Folder folder;
    const std::string bytes = Pattern(60000), name = folder.Write("a", bytes), other = folder.Write("b", bytes);
    Replay<File_Server> replay;
    File_Server &server = *replay.server;
    ASSERT_TRUE(server.Create(name.c_str(), 0));
    server.Insert(50000);
    ASSERT_TRUE(server.Create(other.c_str(), 0));  // the grant was for the old one
    server.Work();
    platform::sleep_ms(120);
    EXPECT_EQ(server.GetBytesIn(), 0);
    server.Insert(1000);
    for (int i = 0; i < 2000 && server.GetBytesIn() < 1000; ++i) platform::sleep_ms(5);

    // The same with a running thread, which goes on with the new file from its start.
    ASSERT_TRUE(server.Create(name.c_str(), 0));
    EXPECT_TRUE(server.is_running());
    server.Insert(5000);
    for (int i = 0; i < 2000 && server.GetBytesIn() < 6000; ++i) platform::sleep_ms(5);
    platform::sleep_ms(120);
    EXPECT_TRUE(server.is_running());
    server.stop();
    EXPECT_EQ(replay.client->pulled, bytes.substr(0, 1000) + bytes.substr(0, 5000));
}

TEST(File_Server, a_new_rate_counts_from_its_own_start)
{
    Test_Folder folder;
    const std::string name = folder.Write("a", Pattern(3000000));
    Replay<File_Server> replay;
    File_Server &server = *replay.server;
    ASSERT_TRUE(server.Create(name.c_str(), 100000));
    server.Work();
    platform::advance_clock(5000);
    while (server.GetBytesIn() < 500000) platform::sleep_ms(5);
    platform::advance_clock(5000);
    server.AutoRun(20000);  // neither the five seconds before it nor what was granted then count
    const std::int64_t before = server.GetBytesIn();
    platform::sleep_ms(300);
    EXPECT_GT(server.GetBytesIn(), before);
    EXPECT_LT(server.GetBytesIn(), before + 60000);
    // A lower rate through Create puts the target behind what was granted: it goes on slowly, and not all at once.
    ASSERT_TRUE(server.Create(name.c_str(), 10000));
    const std::int64_t changed = server.GetBytesIn();
    platform::sleep_ms(300);
    EXPECT_LT(server.GetBytesIn(), changed + 60000);
    EXPECT_TRUE(server.is_running());
}

TEST(File_Server, a_stopped_one_is_closed_and_stays_quiet)
{
    Test_Folder folder;
    const std::string name = folder.Write("a", Pattern(2000000));
    Replay<File_Server> replay;
    File_Server &server = *replay.server;
    ASSERT_TRUE(server.Create(name.c_str(), 1000000));
    server.Work();
    while (server.GetBytesIn() == 0) platform::sleep_ms(5);
    server.stop();
    EXPECT_EQ(server.GetFilename(), nullptr);
    EXPECT_TRUE(platform::File::open(name.c_str(), platform::File::Mode::append));  // nobody reads it any more

    ASSERT_TRUE(server.Create(name.c_str(), 1000000));
    EXPECT_TRUE(server.Work(10));  // a step ends auto-run
    const std::int64_t before = server.GetBytesIn();
    server.Work();
    platform::sleep_ms(200);
    EXPECT_EQ(server.GetBytesIn(), before);
}

TEST(File_Server, its_control_operations_wait_for_the_lock_of_the_file)
{
    Test_Folder folder;
    const std::string name = folder.Write("a", Pattern(100));
    Replay<File_Server> replay;
    ASSERT_TRUE(replay.server->Create(name.c_str(), 0));
    platform::Named_Lock lock(name);  // as another process would hold it
    lock.lock();
    std::atomic<bool> done{false};
    std::thread control([&] {
        replay.server->Insert(10);
        done = true;
    });
    platform::sleep_ms(50);
    EXPECT_FALSE(done);
    lock.unlock();
    control.join();
    EXPECT_TRUE(done);
}

TEST(File_Server, runs_again_after_its_reader_was_given_up_on)
{
    Test_Folder folder;
    const std::string name = folder.Write("a", Pattern(9000));
    Replay<File_Server> replay;
    File_Server &server = *replay.server;
    static std::atomic<bool> holds;
    static std::atomic<bool> held;
    holds = true;
    held = false;
    Recording_Client stuck;
    stuck.Dont_Delete_Me();
    stuck.On(Mesg_Request_Invite, [](Byte_Server &) {
        held = true;
        while (holds) platform::sleep_ms(1);
        return false;
    });
    server.Connect(&stuck);
    ASSERT_TRUE(server.Create(name.c_str(), 0));
    server.Insert(100);
    server.Work();
    while (!held) platform::sleep_ms(1);
    server.stop();  // ten seconds
    EXPECT_FALSE(server.is_running());
    server.SetClient(replay.client.get());
    ASSERT_TRUE(server.Create(name.c_str(), 0));
    EXPECT_FALSE(server.Work(10000));
    EXPECT_EQ(replay.client->pulled.size(), 9100u);  // with the hundred that nobody pulled
    holds = false;
}

TEST(File_Server, retries_a_failing_read)
{
    Test_Folder folder;
    const std::string bytes = Pattern(10000);
    Replay<File_Server> replay;
    File_Server &server = *replay.server;
    ASSERT_TRUE(server.Create(folder.Write("a", bytes).c_str(), 0));
    platform::fault::fail_after(platform::fault::Operation::read, 6000, 31);
    server.Work();
    server.Insert(9000);
    for (int i = 0; i < 2000 && server.GetBytesIn() < 6000; ++i) platform::sleep_ms(5);
    platform::sleep_ms(30);
    EXPECT_TRUE(server.is_running());
    platform::fault::clear();
    EXPECT_TRUE(replay.Thread_Ends());  // a failure ends the run when the budget is spent
    server.stop();
    EXPECT_EQ(replay.client->pulled, bytes.substr(0, 9000));

    ASSERT_TRUE(server.Create(folder.Write("b", bytes).c_str(), 0));
    platform::fault::fail_after(platform::fault::Operation::read, 0, 31);
    server.Work();
    server.Insert(9000);
    platform::sleep_ms(30);
    server.stop();  // a read that never comes back to life does not hold the end up
    EXPECT_FALSE(server.is_running());
    EXPECT_EQ(replay.reports->Take(), Reports{});
}

TEST(File_Server, can_be_stopped_from_anywhere_at_any_time)
{
    Test_Folder folder;
    const std::string name = folder.Write("a", Pattern(1000000));
    const std::uint64_t begin = platform::clock_ms();
    for (int i = 0; i < 5; ++i) {
        Replay<File_Server> replay;
        File_Server &server = *replay.server;
        ASSERT_TRUE(server.Create(name.c_str(), 0));
        server.Work();
        server.Insert(i % 2 ? 1000000 : 500000);
        std::thread other([&] {
            for (int n = 0; n < 50; ++n) {
                server.AutoRun(100000);
                server.Insert(100);
                server.GetFilePos();
            }
        });
        switch (i) {
        case 0: server.Disconnect(); break;
        case 1: server.Close(false); break;
        case 2: server.Create(nullptr, 0); break;
        case 3: server.stop(); break;
        default: break;
        }
        other.join();
    }
    EXPECT_LT(platform::clock_ms() - begin, 5 * 2000u);  // nobody was waited out
}

TEST(File_Server, its_client_may_stop_it)
{
    Test_Folder folder;
    const std::string name = folder.Write("a", Pattern(20000));
    const std::function<void(File_Server &)> actions[] = {
        [](File_Server &s) { s.stop(); },
        [](File_Server &s) { s.Close(false); },
        [](File_Server &s) { s.Disconnect(); },
    };
    for (const auto &action : actions) {
        Replay<File_Server> replay;
        File_Server &server = *replay.server;
        auto *client = new Recording_Client;
        client->Dont_Delete_Me();
        client->On(Mesg_Request_Invite, [&](Byte_Server &s) {
            action(server);
            return s.Request(1), true;
        });
        client->On(Mesg_Data_Ready, [](Byte_Server &s) {
            unsigned char block[8192];
            return s.GetNBytes(block, sizeof block) > 0;
        });
        server.Connect(client);
        ASSERT_TRUE(server.Create(name.c_str(), 0));
        server.Insert(4096);
        server.Work();
        EXPECT_TRUE(replay.Thread_Ends());
        server.stop();
        server.Disconnect();
        delete client;
    }
}

TEST(File_Server, work_with_a_running_thread_waits_for_it)
{
    Test_Folder folder;
    const std::string bytes = Pattern(100000);
    Replay<File_Server> replay;
    ASSERT_TRUE(replay.server->Create(folder.Write("a", bytes).c_str(), 0));
    replay.server->Work();
    replay.server->Insert(50000);
    while (replay.server->GetBytesIn() == 0) platform::sleep_ms(1);
    EXPECT_FALSE(replay.server->Work(200000));
    EXPECT_EQ(replay.client->pulled, bytes);
}

TEST(File_List_Server, replays_its_entries_in_turn)
{
    Test_Folder folder;
    const std::string a = folder.Write("a", "first "), b = folder.Write("b", "second "), c = folder.Write("c", "third");
    const std::string list = folder.Write("list", "// recordings\r\n\r\n \t" + a + "  \r\n" + b + "\n   \n" + c);
    Replay<File_List_Server> replay;
    EXPECT_STREQ(replay.server->GetName(), "Server for File Communication from List");
    ASSERT_TRUE(replay.server->Create(list.c_str(), 0));
    EXPECT_EQ(replay.All(), "first second third");
    EXPECT_EQ(replay.reports->Take(), (Reports{Opened(a), Opened(b), Opened(c), end_of_list, Eof(c)}));
    EXPECT_EQ(replay.server->GetFilename(), nullptr);

    EXPECT_TRUE(replay.server->Next_File());
    EXPECT_EQ(replay.reports->Take(), (Reports{{3, 12, "List file not open.", list_unit}}));
    ASSERT_TRUE(replay.server->Create(list.c_str(), 0));
    EXPECT_TRUE(replay.server->Create(nullptr, 0));
    EXPECT_EQ(replay.server->GetFilename(), nullptr);
    replay.reports->Take();
    replay.server->Next_File();  // the list is closed, too
    EXPECT_EQ(replay.reports->Take().at(0).code, 12);
}

TEST(File_List_Server, its_thread_runs_through_the_list_at_a_rate)
{
    Test_Folder folder;
    const std::string a = folder.Write("a", Pattern(20000)), b = folder.Write("b", Pattern(30000));
    const std::string missing = folder / "missing";
    const std::string list = folder.Write("list", a + "\n" + missing + "\n" + b + "\n");
    Replay<File_List_Server> replay;
    ASSERT_TRUE(replay.server->Create(list.c_str(), 200000));
    replay.server->Work();
    EXPECT_TRUE(replay.Thread_Ends());
    replay.server->stop();
    EXPECT_EQ(replay.client->pulled, Pattern(20000) + Pattern(30000));
    EXPECT_EQ(replay.reports->Take(), (Reports{Opened(a),
                                               {3, 9, "Could not open file " + missing, unit},
                                               {3, 15, "Initialization Error\nCode: file not found", unit},
                                               Opened(b),
                                               end_of_list,
                                               Eof(b)}));
}

TEST(File_List_Server, takes_lists_as_they_come)
{
    Test_Folder folder;
    const std::string a = folder.Write("a", "A");
    const auto current = std::filesystem::current_path();
    std::filesystem::current_path(std::filesystem::path(a).parent_path());  // names without a slash
    struct Case {
        const char *what;
        std::string list;
        std::string pulled;
        std::vector<std::string> opened;
    };
    const Case cases[] = {
        {"Ctrl-Z ends it", "a\n\x1A\na\n", "A", {"a"}},
        {"Ctrl-Z behind a name", "a\x1Az\na\n", "A", {"a"}},
        {"only comments", "// x\n\n  \t\r\n//y", "", {}},
        {"empty", "", "", {}},
        {"a trailing comment", "a  // the first\n", "A", {"a"}},
        {"a comment behind a slash hides", "./a // none\na\n", "A", {"a"}},
        {"a NUL ends its line", std::string("a\0b\na", 5), "AA", {"a", "a"}},
        {"a line of NULs", std::string("\0\0\n", 3) + "a", "A", {"a"}},
        {"CR LF and LF", "a\r\na\na", "AAA", {"a", "a", "a"}},
        {"256 characters", std::string(255, ' ') + "a\n", "A", {"a"}},
        {"a longer line counts as two", std::string(256, ' ') + "a\n", "A", {"a"}},
        {"a long name", std::string(300, 'x') + "\na\n", "A", {"a"}},
    };
    for (const Case &c : cases) {
        Replay<File_List_Server> replay;
        replay.server->Create(folder.Write("list", c.list).c_str(), 0);
        EXPECT_EQ(replay.All(), c.pulled) << c.what;
        std::vector<std::string> opened;
        for (const Reported &r : replay.reports->Take()) {
            if (r.level == 1 && r.code == 8) opened.push_back(r.text.substr(18, r.text.size() - 20));
        }
        EXPECT_EQ(opened, c.opened) << c.what;
    }
    std::filesystem::current_path(current);

    Replay<File_List_Server> replay;
    for (const std::string &name : {folder / "missing", folder / ""}) {
        EXPECT_FALSE(replay.server->Create(name.c_str(), 0));
        EXPECT_EQ(replay.reports->Take(), (Reports{{3, 8, "Cannot open list file \"" + name + "\".", list_unit}}));
    }
}

TEST(Simulator_File_Server, has_a_switch_and_a_master)
{
    Test_Folder folder;
    const std::string bytes = Pattern(50000);
    const std::string a = folder.Write("a", bytes), list = folder.Write("list", a + "\n" + a + "\n");
    Replay<Simulator_File_Server> replay;
    Simulator_File_Server &server = *replay.server;
    EXPECT_EQ(server.GetBytesPerSec(), 1000u);
    ASSERT_TRUE(server.Create(list.c_str(), true, 100));
    EXPECT_EQ(replay.All(), bytes + bytes);
    replay.client->pulled.clear();
    ASSERT_TRUE(server.Create(a.c_str(), false, 100));
    EXPECT_EQ(replay.All(), bytes);

    ASSERT_TRUE(server.Create(a.c_str(), false, 77));
    EXPECT_EQ(server.GetBytesPerSec(), 77u);
    ASSERT_TRUE(server.Create(a.c_str(), false, 0));
    server.SetBytesPerSec(100000);
    server.Work();
    const auto moves = [&] {
        const std::int64_t before = server.GetBytesIn();
        platform::sleep_ms(250);
        return server.GetBytesIn() > before;
    };
    EXPECT_FALSE(moves());
    server.Enable();
    EXPECT_TRUE(moves());
    server.SetWorkingAsMaster(1);
    server.Disable();  // the master goes on
    EXPECT_EQ(server.IsWorkingAsMaster(), 1);
    EXPECT_TRUE(moves() || !server.is_running());
    server.SetWorkingAsMaster(0);
    server.Disable();
    platform::sleep_ms(120);
    EXPECT_FALSE(moves());
}
