#include "kernel/files/file_server.h"

#include "kernel/files/file_list_server.h"

#include "platform/fault.h"
#include "platform/file.h"
#include "platform/message_box.h"
#include "platform/named_lock.h"

#include "tests/support/clients.h"
#include "tests/support/folder.h"
#include "tests/support/reports.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#ifndef _WIN32
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>
#endif

using namespace kernel;

namespace {

std::vector<std::string> boxes;

File_Server *Plain() { return File_Server::Construct(nullptr, false); }

// Gives up on its reader after 0.2 s and not after ten.
template <class Base>
struct Impatient : Base {
    Impatient() : Object("impatient"), Base("impatient") {}
    ~Impatient() override { Base::Close(false); }
    void Sleep(unsigned long) override { platform::sleep_ms(1); }
};

// A file server with a client that pulls everything; reports and message boxes are kept.
template <class T>
class Replay {
public:
    explicit Replay(T *made) : server(made)
    {
        boxes.clear();
        platform::set_message_box(
            [](const char *text, const char *title) { boxes.push_back(std::string(title) + ": " + text); });
        made->Set_Error_Handler(&reports);
        client.Dont_Delete_Me();
        client.records = false;
        server->Connect(&client.Pull_All());
    }
    ~Replay()
    {
        server.reset();
        platform::set_message_box(nullptr);
        platform::fault::clear();
    }
    T *operator->() const { return server.get(); }
    // Opens a new file with these bytes; its name.
    std::string Open(const std::string &bytes, unsigned long rate = 0)
    {
        const std::string name = folder.Write("file" + std::to_string(++files_), bytes);
        EXPECT_TRUE(server->Create(name.c_str(), rate));
        return name;
    }
    // Steps until the last file ends; what was pulled.
    std::string All()
    {
        while (server->GetFilename() && server->Work(5000)) continue;
        return std::exchange(client.pulled, {});
    }
    bool Brings(std::int64_t n) const
    {
        return Soon([&] { return server->GetBytesIn() >= n; });
    }
    bool Rests() const
    {
        const std::int64_t before = server->GetBytesIn();
        platform::sleep_ms(120);
        return server->GetBytesIn() == before;
    }
    bool Ends() const
    {
        return Soon([&] { return !server->is_running(); });
    }

    const Test_Folder folder;
    Capturing_Handler reports;
    Recording_Client client;
    std::unique_ptr<T> server;

private:
    int files_ = 0;
};

const char unit[] = "kernel/file_server";
const char list_unit[] = "kernel/file_list_server";

Reported Eof(const std::string &name) { return {2, 16, "EOF of file \"" + name + "\"", unit}; }

}  // namespace

TEST(File_Server, replays_exactly_what_is_granted)
{
    Replay replay(Plain());
    EXPECT_EQ(replay->GetFilePos(), 0xFFFFFFFFu);
    const std::string bytes = Pattern(10000), name = replay.Open(bytes);
    EXPECT_TRUE(replay->Work(1) && replay->Work(4999));
    EXPECT_EQ(replay.client.pulled, bytes.substr(0, 5000));
    EXPECT_EQ(replay->GetFilePos(), 5000u);
    EXPECT_TRUE(replay->Work(5000));  // the end is seen by the read that comes back short
    EXPECT_FALSE(replay->Work(1));
    EXPECT_EQ(replay.client.pulled, bytes);
    EXPECT_EQ(replay.reports.Take(), Reports{Eof(name)});
    replay.Open(bytes);
    EXPECT_FALSE(replay->Work(20000));
    EXPECT_EQ(replay->GetBytesIn(), 20000);  // never reset
    replay.Open(bytes);
    File_Server::IsUsedByOrgScan = replay.client.records = true;
    EXPECT_TRUE(replay->Work(2));
    EXPECT_EQ(replay.client.Take(),
              (Heard{Mesg_Request_Invite, Mesg_Data_Ready, Mesg_Request_Invite, Mesg_Data_Ready}));  // byte by byte
    delete Plain();                                                                                  // sets it for all
    EXPECT_FALSE(File_Server::IsUsedByOrgScan);
    replay->SetClient(nullptr);
    EXPECT_TRUE(replay->Work(10) && replay.Rests());  // no client to read for
    EXPECT_TRUE(replay->Create(nullptr, 0));
    EXPECT_EQ(replay->GetFilename(), nullptr);
}

TEST(File_Server, its_thread_serves_grants_and_ends_with_the_file)
{
    Replay replay(Plain());
    const std::string bytes = Pattern(9000);
    replay.Open(bytes);
    replay->Insert(50000);
    replay.Open(bytes);  // the grant was for the old one
    EXPECT_TRUE(replay->Work() && replay->Work());
    EXPECT_TRUE(replay.Rests());
    replay->Insert(1000);
    EXPECT_TRUE(replay.Brings(1000));
    const std::string last = replay.Open(bytes);  // the thread goes on with it, from its start
    replay->Insert(5000);
    EXPECT_TRUE(replay.Brings(6000) && replay.Rests() && replay->is_running());
    replay->Insert(5000);
    EXPECT_TRUE(replay.Ends());
    EXPECT_EQ(replay.client.pulled, bytes.substr(0, 1000) + bytes);
    EXPECT_EQ(replay.reports.Take(), Reports{Eof(last)});
    EXPECT_TRUE(replay->Create("", 0) && replay->Work() && replay.Ends());  // nothing to read
    EXPECT_EQ(replay.reports.Take(), Reports{});

    const std::string more = Pattern(100000);
    replay.Open(more);
    replay->Work();
    replay->Insert(50000);
    EXPECT_TRUE(replay.Brings(10001));
    EXPECT_FALSE(replay->Work(200000));  // waits for the thread to leave
    EXPECT_EQ(replay.client.pulled, bytes.substr(0, 1000) + bytes + more);
}

TEST(File_Server, says_what_it_cannot_open)
{
    Replay replay(Plain());
    const std::string busy = replay.folder.Write("busy", "abc");
    const auto writer = platform::File::open(busy.c_str(), platform::File::Mode::append);
    replay.Open("");
    replay->Work();
    replay->stop();  // a stop of the past keeps no box back
    replay.reports.Take();
    const std::pair<std::string, std::string> cases[] = {{replay.folder / "missing", "file not found"},
                                                         {replay.folder / "", "access denied"},
#ifndef _WIN32
                                                         {"/dev/null", "no regular file"},
#endif
                                                         {busy, "NT ErrorCode: 32 = 0x00000020"}};
    for (const auto &[name, cause] : cases) {
        EXPECT_FALSE(replay->Create(name.c_str(), 0));
        const std::string text = "Initialization Error\nCode: " + cause;
        EXPECT_EQ(replay.reports.Take(), (Reports{{3, 9, "Could not open file " + name, unit}, {3, 15, text, unit}}));
        EXPECT_EQ(std::exchange(boxes, {}), std::vector<std::string>{"Error: " + text});
        EXPECT_EQ(replay->GetFilename(), nullptr);
    }
}

TEST(File_Server, keeps_the_pace_of_the_clock)
{
    Replay replay(Plain());
    const std::string name = replay.Open(Pattern(3000000), 100000);
    replay->Work();
    ASSERT_TRUE(replay.Brings(1));  // only now the run has surely begun
    platform::advance_clock(5000);  // the pace follows the clock, not the passes
    ASSERT_TRUE(replay.Brings(500000));
    replay->AutoRun(0);
    platform::sleep_ms(250);
    ASSERT_TRUE(replay.Rests());

    // A new rate counts from its own start. Never ahead of it, and after 20 s behind it by a pass of 50 ms at most: the
    // least of several looks, since a busy machine may be late itself.
    const std::int64_t before = replay->GetBytesIn();
    const std::uint64_t begin = platform::clock_ms();
    replay->AutoRun(20000);
    platform::advance_clock(20000);
    double least_behind = 1;
    for (int look = 0; look < 80; ++look) {
        platform::sleep_ms(5);
        const auto bytes = static_cast<double>(replay->GetBytesIn() - before);
        const double due = 20.0 * static_cast<double>(platform::clock_ms() - begin);
        EXPECT_LE(bytes, due);
        least_behind = std::min(least_behind, (due - bytes) / due);
    }
    EXPECT_LT(least_behind, 0.01);

    // A lower rate through Create puts the target behind what was granted: it goes on slowly, and not all at once.
    ASSERT_TRUE(replay->Create(name.c_str(), 10000));
    const std::int64_t changed = replay->GetBytesIn();
    platform::sleep_ms(300);
    EXPECT_LT(replay->GetBytesIn(), changed + 60000);
    EXPECT_TRUE(replay->is_running());
    replay->stop();
    ASSERT_TRUE(replay->Create(name.c_str(), 10000));
    EXPECT_TRUE(replay->Work(10) && replay->Work() && replay.Rests());  // a step ends auto-run
}

TEST(File_Server, its_control_operations_wait_for_the_lock_of_the_file)
{
    Replay replay(Plain());
    platform::Named_Lock lock(replay.Open(Pattern(100)));  // as another process would hold it
    lock.lock();
    std::atomic<bool> done{false};
    std::thread control([&] {
        replay->Insert(10);
        done = true;
    });
    platform::sleep_ms(50);
    EXPECT_FALSE(done);
    lock.unlock();
    control.join();
}

TEST(File_Server, its_reader_ends_although_another_has_the_lock_of_the_file)
{
    Replay replay(Plain());
    const std::string name = replay.Open(Pattern(100000));
    platform::Named_Lock lock(name);
    replay->AutoRun(1000);
    replay->Work();
    ASSERT_TRUE(replay.Brings(1));
    lock.lock();
    EXPECT_TRUE(replay.Rests());  // the reader wants the lock to grant itself more
    // On the thread that has the lock: stopping takes it as well.
    EXPECT_LT(Elapsed([&] { replay->stop(); }), 4000u);
    lock.unlock();
    ASSERT_TRUE(replay->Create(name.c_str(), 0));  // no thread was killed while it held the lock
    EXPECT_TRUE(replay->Work(10));
}

TEST(File_Server, can_be_ordered_about_while_the_system_opens)
{
    Replay replay(Plain());
    const std::string name = replay.folder.Write("a", Pattern(100));
    void (*const orders[])(File_Server &) = {
        [](File_Server &s) { s.Close(false); },
        [](File_Server &s) { s.Close(true); },
        [](File_Server &s) { s.Insert(10), s.AutoRun(10), s.Close(false); },
        [](File_Server &s) { s.Create(nullptr, 0); },
    };
    for (const auto &order : orders) {
        platform::fault::hold_opens();
        std::atomic<bool> created{false}, result{true};
        std::thread creates([&] {
            result = replay->Create(name.c_str(), 0);
            created = true;
        });
        platform::sleep_ms(50);
        EXPECT_LT(Elapsed([&] { order(*replay.server); }), 1000u);
        EXPECT_FALSE(created);
        platform::fault::release_opens();
        creates.join();
        EXPECT_FALSE(result);  // the order came later, and holds
        EXPECT_EQ(replay->GetFilename(), nullptr);
    }
    EXPECT_TRUE(replay->Create(name.c_str(), 0) && replay->Work(10));
    EXPECT_EQ(replay.reports.Take(), Reports{});
}

TEST(File_Server, runs_again_after_its_reader_was_given_up_on)
{
    static std::atomic<bool> holds, held;
    holds = true;
    held = false;
    Replay replay(new Impatient<File_Server>);
    Recording_Client stuck;
    stuck.On(Mesg_Request_Invite, [](Byte_Server &) {
        for (held = true; holds;) platform::sleep_ms(1);
        return false;
    });
    replay.Open(Pattern(9000));
    replay->SetClient(&stuck);
    replay->Insert(100);
    replay->Work();
    EXPECT_TRUE(Soon([] { return held.load(); }));
    replay->stop();
    replay->SetClient(&replay.client);
    replay.Open(Pattern(9000));
    EXPECT_FALSE(replay->Work(10000));
    EXPECT_EQ(replay.client.pulled.size(), 9100u);  // includes the hundred left in the ring
    holds = false;
}

TEST(File_Server, retries_a_failing_read_and_says_so_at_the_end)
{
    Replay replay(Plain());
    const std::string bytes = Pattern(10000), text = "Initialization Error\nCode: NT ErrorCode: 31 = 0x0000001F";
    const Reports once{{3, 15, text, unit}};
    replay.Open(bytes);
    platform::fault::fail_after(platform::fault::Operation::read, 6000, 31);
    replay->Work();
    replay->Insert(9000);
    EXPECT_TRUE(replay.Brings(6000) && replay.Rests() && replay->is_running());
    EXPECT_EQ(replay.reports.Take(), Reports{});  // not with each try
    platform::fault::clear();
    EXPECT_TRUE(replay.Ends());  // a failure ends the run when the budget is spent
    EXPECT_EQ(replay.client.pulled, bytes.substr(0, 9000));
    EXPECT_EQ(replay.reports.Take(), once);
    EXPECT_EQ(std::exchange(boxes, {}), std::vector<std::string>{"Error: " + text});
    EXPECT_TRUE(replay->Work(1));  // a failure of the run before is no failure of this one
    EXPECT_EQ(replay.reports.Take(), Reports{});

    void (*const ends[])(File_Server &) = {
        [](File_Server &s) { s.stop(); },
        [](File_Server &s) { s.pre_stop(); },
        [](File_Server &s) { s.Close(true); },
        [](File_Server &s) { s.Create(nullptr, 0); },
    };
    for (const auto &end : ends) {  // a read that never comes back to life does not hold the end up
        replay.Open(bytes);
        platform::fault::fail_after(platform::fault::Operation::read, 0, 31);
        replay->Work();
        replay->Insert(9000);
        EXPECT_TRUE(replay.Rests());
        end(*replay.server);
        EXPECT_TRUE(replay.Ends());
        EXPECT_EQ(replay.reports.Take(), once);
        platform::fault::clear();
    }
    replay.Open(bytes);
    platform::fault::fail_after(platform::fault::Operation::read, 0, 31);
    std::thread closes([&] {
        platform::sleep_ms(50);
        replay->Close(true);
    });
    EXPECT_TRUE(replay->Work(10));  // on this thread; false would be the end of the file
    closes.join();
    EXPECT_EQ(replay.reports.Take(), once);
}

TEST(File_Server, tells_a_failure_once_when_its_client_opens_the_file)
{
    Replay replay(Plain());
    const std::string missing = replay.folder / "missing";
    Recording_Client client;
    client.On(Mesg_Request_Invite, [&](Byte_Server &) { return replay->Create(missing.c_str(), 0); });
    replay->SetClient(&client);
    replay.Open(Pattern(100));
    replay->Insert(10);
    replay->Work();
    EXPECT_TRUE(replay.Ends());
    EXPECT_EQ(replay.reports.Take(), (Reports{{3, 9, "Could not open file " + missing, unit},
                                              {3, 15, "Initialization Error\nCode: file not found", unit}}));
    EXPECT_EQ(boxes.size(), 1u);
    replay->SetClient(nullptr);
}

TEST(File_Server, moves_blocks_of_4096_bytes_and_grants_itself_more_every_50_ms)
{
    Replay replay(Plain());
    std::vector<std::size_t> blocks;
    Recording_Client client;
    client.On(Mesg_Request_Invite, [&](Byte_Server &s) { return s.Request(s.MinAvail(0)), true; });
    client.On(Mesg_Data_Ready, [&](Byte_Server &s) {
        unsigned char block[9000];
        blocks.push_back(static_cast<std::size_t>(s.GetNBytes(block, sizeof block)));
        return true;
    });
    replay->SetClient(&client);
    const std::string name = replay.Open(Pattern(100000));
    EXPECT_TRUE(replay->Work(10000));
    EXPECT_EQ(blocks, (std::vector<std::size_t>{4096, 4096, 1808}));
    blocks.clear();
    ASSERT_TRUE(replay->Create(name.c_str(), 1000));
    platform::advance_clock(5000);  // the pace begins with the run, not with the file
    replay->Work();
    platform::sleep_ms(1000);
    replay->stop();
    EXPECT_GT(blocks.size(), 4u);
    EXPECT_LT(blocks.size(), 22u);
    for (const std::size_t block : blocks) EXPECT_LT(block, 1000u);
    replay->SetClient(nullptr);
}

TEST(File_Server, a_budget_does_not_wrap)
{
    Replay replay(Plain());
    replay.Open(Pattern(10000));
    for (const unsigned long n : {static_cast<unsigned long>(-1), 1UL}) replay->Insert(n);
    replay->Work();
    EXPECT_TRUE(replay.Ends());
    EXPECT_EQ(replay.client.pulled, Pattern(10000));
}

TEST(File_Server, disconnect_stops_the_reader_first)
{
    for (const bool agrees : {true, false}) {
        Replay replay(Plain());
        Recording_Client client;
        bool ran = true;
        client.On(Mesg_Disconnect_Query, [&](Byte_Server &) { return ran = replay->is_running(), agrees; });
        replay->SetClient(&client);
        replay.Open(Pattern(100));
        ASSERT_TRUE(replay->Work() && replay->is_running());
        replay->Disconnect();
        EXPECT_FALSE(ran || replay->is_running());
        EXPECT_EQ(replay->GetClient() == nullptr, agrees);
        EXPECT_EQ(client.Take(), Heard{Mesg_Disconnect_Query});
        replay->SetClient(nullptr);
    }
}

#ifndef _WIN32
TEST(File_Server, does_what_it_can_without_descriptors)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the check of virtual calls looks at memory through a pipe, and takes a failure for a fault";
#endif
    const Test_Folder folder;
    const std::string name = folder.Write("a", Pattern(1000));
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const int next = open("/dev/null", O_RDONLY);
    close(next);
    const auto leave = [&](int free) {
        const rlimit few{static_cast<rlim_t>(next + free), before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
    };
    leave(0);
    Replay replay(Plain());  // without an event for its stop
    EXPECT_FALSE(replay->Create(name.c_str(), 0));
    EXPECT_EQ(replay.reports.Take(), (Reports{{3, 18, "new ipcMutexSemaphore(" + name + ") failed", unit}}));
    leave(1);
    EXPECT_FALSE(replay->Create(name.c_str(), 0));
    EXPECT_EQ(replay.reports.Take(), (Reports{{3, 9, "Could not open file " + name, unit},
                                              {3, 15, "Initialization Error\nCode: too many open files", unit}}));
    leave(2);
    EXPECT_TRUE(replay->Create(name.c_str(), 0) && replay->Work());
    replay->Insert(500);
    EXPECT_TRUE(replay.Brings(500));
    EXPECT_LT(Elapsed([&] { replay->stop(); }), 2000u);
    setrlimit(RLIMIT_NOFILE, &before);
}
#endif

TEST(File_Server, can_be_stopped_from_anywhere_at_any_time)
{
    void (*const ends[])(File_Server &) = {
        [](File_Server &s) { s.stop(); },
        [](File_Server &s) { s.Close(false); },
        [](File_Server &s) { s.Disconnect(); },
        [](File_Server &s) { s.Create(nullptr, 0); },
    };
    const std::string bytes = Pattern(1000000);
    for (const auto &end : ends) {
        Replay replay(Plain());
        replay.Open(bytes);
        replay->Work();
        replay->Insert(500000);
        std::thread other([&] {
            for (int n = 0; n < 50; ++n) {
                replay->AutoRun(100000);
                replay->Insert(100);
                replay->GetFilePos();
            }
        });
        EXPECT_LT(Elapsed([&] { end(*replay.server); }), 4000u);  // no time-out is waited for
        EXPECT_EQ(replay->GetFilename(), nullptr);
        other.join();
    }
    for (const auto &end : ends) {  // by its client
        Replay replay(Plain());
        Recording_Client client;
        client.On(Mesg_Request_Invite, [&](Byte_Server &s) { return end(*replay.server), s.Request(1), true; });
        replay->SetClient(&client.Pull(8192));
        replay.Open(bytes);
        replay->Insert(4096);
        replay->Work();
        EXPECT_TRUE(replay.Ends());
        replay->stop();
        replay->SetClient(nullptr);
    }
}

TEST(File_List_Server, replays_its_entries_in_turn)
{
    Replay replay(File_List_Server::Construct(nullptr));
    const Test_Folder &folder = replay.folder;
    const std::string a = folder.Write("a", Pattern(20000)), b = folder.Write("b", Pattern(30000));
    const std::string missing = folder / "missing";
    const std::string list = folder.Write("list", a + "\n" + missing + "\n" + b);
    const auto opened = [](const std::string &name) {
        return Reported{1, 8, "Opened next file \"" + name + "\".", list_unit};
    };
    for (const unsigned long rate : {0, 200000}) {  // stepwise, and by the thread
        ASSERT_TRUE(replay->Create(list.c_str(), rate));
        if (rate > 0) replay->Work();
        EXPECT_TRUE(rate == 0 || replay.Ends());
        EXPECT_EQ(replay.All(), Pattern(20000) + Pattern(30000));
        EXPECT_EQ(replay.reports.Take(), (Reports{opened(a),
                                                  {3, 9, "Could not open file " + missing, unit},
                                                  {3, 15, "Initialization Error\nCode: file not found", unit},
                                                  opened(b),
                                                  {1, 0, "Reached end of list file.", list_unit},
                                                  Eof(b)}));
        EXPECT_EQ(replay->GetFilename(), nullptr);
    }
    ASSERT_TRUE(replay->Create(list.c_str(), 0) && replay->Create(nullptr, 0));
    EXPECT_EQ(replay->GetFilename(), nullptr);
    replay.reports.Take();
    EXPECT_TRUE(replay->Next_File());  // the list is closed, too
    EXPECT_FALSE(replay->Create(missing.c_str(), 0) || replay->Create((folder / "").c_str(), 0));
    EXPECT_EQ(replay.reports.Take(), (Reports{{3, 12, "List file not open.", list_unit},
                                              {3, 8, "Cannot open list file \"" + missing + "\".", list_unit},
                                              {3, 8, "Cannot open list file \"" + folder / "" + "\".", list_unit}}));
}

TEST(File_List_Server, a_search_for_a_file_sees_a_stop)
{
    const struct {
        const char *what;
        void (*end)(File_List_Server &);
    } ends[] = {{"stop", [](File_List_Server &s) { s.stop(); }},
                {"Close", [](File_List_Server &s) { s.Close(false); }},
                {"Create", [](File_List_Server &s) { s.Create(nullptr, 0); }},
                {"Disconnect", [](File_List_Server &s) { s.Disconnect(); }}};
    for (const auto &c : ends) {
        SCOPED_TRACE(c.what);
        Replay replay(File_List_Server::Construct(nullptr));
        const Test_Folder &folder = replay.folder;
        std::string list = folder.Write("a", "abc") + "\n";
        for (int i = 0; i < 20000; ++i) list += folder / "missing" + "\n";
        static std::atomic<int> failures;
        failures = 0;
        platform::set_message_box([](const char *, const char *) {
            ++failures;
            platform::sleep_ms(1);  // a typical time for a server's reply
        });
        ASSERT_TRUE(replay->Create(folder.Write("list", list).c_str(), 0));
        replay->Insert(10);
        replay->Work();
        ASSERT_TRUE(Soon([&] { return failures > 10; }));
        EXPECT_LT(Elapsed([&] { c.end(*replay.server); }), 3000u);
        EXPECT_FALSE(replay->is_running());
        EXPECT_LT(failures, 10000);
        const Reports heard = replay.reports.Take();
        EXPECT_EQ(heard.front().text, "Opened next file \"" + (folder / "a") + "\".");
        for (std::size_t i = 1; i < heard.size(); ++i)  // neither an end of a file nor a file that was found
            EXPECT_TRUE(heard[i].code == (i % 2 == 1 ? 9 : 15)) << heard[i];
        const std::string other = folder.Write("other", "x");
        EXPECT_TRUE(replay->Create(folder.Write("others", other).c_str(), 0));
    }
}

TEST(File_List_Server, a_search_ends_when_a_stepping_host_closes)
{
    Replay replay(File_List_Server::Construct(nullptr));
    std::string list = replay.folder.Write("a", "abc") + "\n";
    for (int i = 0; i < 20000; ++i) list += replay.folder / "missing" + "\n";
    platform::set_message_box([](const char *, const char *) { platform::sleep_ms(1); });
    ASSERT_TRUE(replay->Create(replay.folder.Write("list", list).c_str(), 0));
    std::thread closes([&] {
        EXPECT_TRUE(Soon([&] { return !replay.reports.Take().empty(); }));
        platform::sleep_ms(50);
        replay->Close(true);
    });
    EXPECT_LT(Elapsed([&] { replay->Work(10); }), 3000u);
    closes.join();
    EXPECT_EQ(replay.client.pulled, "abc");
}

TEST(File_List_Server, goes_on_with_its_list_after_a_reader_that_only_was_asked_to_end)
{
    Replay replay(File_List_Server::Construct(nullptr));
    std::string list = replay.folder.Write("a", "abc") + "\n";
    for (int i = 0; i < 50; ++i) list += replay.folder / "missing" + "\n";
    list += replay.folder.Write("b", "def");
    ASSERT_TRUE(replay->Create(replay.folder.Write("list", list).c_str(), 0));
    platform::set_message_box([](const char *, const char *) { platform::sleep_ms(2); });
    replay->Insert(10);
    replay->Work();
    ASSERT_TRUE(replay.Brings(3));
    replay->pre_stop();
    EXPECT_TRUE(replay.Ends());
    EXPECT_EQ(replay.All(), "abcdef");  // steps see nothing of that old request
}

TEST(File_List_Server, opens_files_again_after_its_reader_was_killed_in_an_open)
{
    Replay replay(new Impatient<File_List_Server>);
    const std::string b = replay.folder.Write("b", "b");
    const std::string list = replay.folder.Write("list", replay.folder.Write("a", "a") + "\n" + b + "\n" + b);
    ASSERT_TRUE(replay->Create(list.c_str(), 0));
    platform::fault::hold_opens();
    replay->Insert(10);
    replay->Work();
    ASSERT_TRUE(replay.Brings(1));
    platform::sleep_ms(100);
    std::thread([&] { replay->stop(); }).join();
    EXPECT_FALSE(replay->is_running());
    platform::fault::release_opens();
    ASSERT_TRUE(replay->Create(list.c_str(), 0));
    EXPECT_EQ(replay.All(), "aabb");
}

TEST(File_List_Server, takes_lists_as_they_come)
{
    const struct {
        const char *what;
        std::string list, pulled;  // of files that hold their names
    } cases[] = {
        {"Ctrl-Z ends it", "a\n\x1A\na\n", "a"},
        {"Ctrl-Z behind a name", "b\x1Az\na\n", "b"},
        {"comments and blanks", "// x\n\n  \t\r\n\ta  // the first\n//y", "a"},
        {"empty", "", ""},
        {"a comment behind a slash hides", "./a // none\nb\n", "b"},
        {"a NUL ends its line", std::string("a\0a\nb", 5), "ab"},
        {"a line of NULs", std::string("\0\0\n", 3) + "a", "a"},
        {"CR LF and LF", "a\r\nb\na", "aba"},
        {"a longer line counts as two", std::string(255, ' ') + "ab\n", "ab"},
        {"names in UTF-8", "запись\n", "з"},
        {"a byte order mark",
         "\xEF\xBB\xBF"
         "a\nb\n",
         "ab"},
        {"nothing but a byte order mark", "\xEF\xBB\xBF", ""},
        {"a second mark is no mark",
         "a\n\xEF\xBB\xBF"
         "b\nb",
         "ab"},
        {"longer than a block", std::string(700, '\n') + "a\n//" + std::string(250, 'x') + "\nb", "ab"},
    };
    Replay replay(File_List_Server::Construct(nullptr));
    replay.folder.Write("a", "a");
    replay.folder.Write("b", "b");
    replay.folder.Write("запись", "з");
    const auto current = std::filesystem::current_path();
    std::filesystem::current_path(replay.folder / "");  // names without a slash
    for (const auto &c : cases) {
        replay->Create(replay.folder.Write("list", c.list).c_str(), 0);
        EXPECT_EQ(replay.All(), c.pulled) << c.what;
    }
    std::filesystem::current_path(current);
}

TEST(Simulator_File_Server, has_a_switch_and_a_master)
{
    Replay replay(Simulator_File_Server::Construct(nullptr));
    const std::string bytes = Pattern(50000), a = replay.folder.Write("a", bytes);
    const std::string list = replay.folder.Write("list", a + "\n" + a + "\n");
    EXPECT_EQ(replay->GetBytesPerSec(), 1000u);
    ASSERT_TRUE(replay->Create(list.c_str(), true, 100));
    EXPECT_EQ(replay.All(), bytes + bytes);
    ASSERT_TRUE(replay->Create(a.c_str(), false, 77));
    EXPECT_EQ(replay->GetBytesPerSec(), 77u);
    EXPECT_EQ(replay.All(), bytes);

    ASSERT_TRUE(replay->Create(a.c_str(), false, 0));
    replay->SetBytesPerSec(20000);
    replay->Work();
    EXPECT_TRUE(replay.Rests());
    replay->Enable();
    replay->SetWorkingAsMaster(1);
    replay->Disable();  // the master goes on
    EXPECT_TRUE(replay.Brings(150001));
    replay->SetWorkingAsMaster(0);
    replay->Disable();
    platform::sleep_ms(250);
    EXPECT_TRUE(replay.Rests() && replay->is_running());

    std::thread other([&] {  // for the thread sanitizer
        for (unsigned long rate = 0; rate < 100; ++rate) replay->SetBytesPerSec(rate), replay->SetWorkingAsMaster(1);
    });
    for (int i = 0; i < 100; ++i) replay->Enable(), replay->Disable(), replay->IsWorkingAsMaster();
    other.join();
    EXPECT_EQ(replay->GetBytesPerSec(), 99u);
}
