#include "platform/pipe.h"

#include "platform/error.h"
#include "tests/support/pipes.h"

#include <atomic>
#include <functional>
#include <vector>

using namespace platform;
using namespace test;

namespace {

constexpr bool windows = std::filesystem::path::preferred_separator == '\\';

struct pipes : testing::Test, Pipe_Name {
    std::shared_ptr<Server_Pipe> server = Server_Pipe::create(name);
    Stream_Pointer client;

    Stream_Pointer Connected()  // the server's end of a new connection; `client` is the other
    {
        EXPECT_TRUE(server->listen());
        client = open_pipe(name);
        return Taken(*server);
    }
    // The error of something that fails; "done" when it does not.
    static std::string Error(bool done) { return done ? "done" : std::to_string(last_error()); }
    std::string Open_It() const { return Error(open_pipe(name) != nullptr); }
};

}  // namespace

TEST_F(pipes, has_one_client_from_the_moment_it_opens_to_the_next_listen)
{
    const std::string no_other = name + "x";
    EXPECT_EQ(Error(open_pipe(no_other) != nullptr), "2");
    EXPECT_LT(Elapsed([&] { EXPECT_EQ(Error(wait_for_pipe(no_other, 5000)), "2"); }), 2000u);
    EXPECT_EQ(Error(Server_Pipe::create(name) != nullptr), "231");

    // A client may come before the server looks. The first disconnect throws it out.
    EXPECT_EQ(Error(server->disconnect()), "536");
    EXPECT_EQ(Written(server, "a"), "error 536");
    EXPECT_EQ(Read(server), "error 536");
    client = open_pipe(name);
    ASSERT_TRUE(client);
    EXPECT_EQ(Open_It(), "231");
    EXPECT_EQ(Error(wait_for_pipe(name, 20)), "121");
    EXPECT_TRUE(server->disconnect());
    EXPECT_EQ(Read(client), "error 233");
    EXPECT_EQ(Written(client, "a"), "error 233");

    // Between a disconnect and listen it is busy.
    EXPECT_EQ(Error(server->disconnect()), "233");
    EXPECT_EQ(Written(server, "a"), "error 233");
    EXPECT_EQ(Open_It(), "231");
    for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(server->listen());
        EXPECT_TRUE(wait_for_pipe(name, 0));
        EXPECT_EQ(server->take(), nullptr);
        EXPECT_EQ(last_error(), error_io_pending);
        EXPECT_FALSE(server->arrival().wait(1));
        client = open_pipe(name);
        const Stream_Pointer taken = Taken(*server);
        ASSERT_TRUE(client && taken);
        EXPECT_EQ(Open_It(), "231");
        EXPECT_EQ(Written(server, "lost"), "error 536");  // never the client's, however late
        EXPECT_EQ(Written(client, "question"), "got 8");
        EXPECT_EQ(Read(taken, 4), "ques");
        EXPECT_EQ(Read(taken), "tion");
        EXPECT_EQ(Written(taken, "answer"), "got 6");
        EXPECT_EQ(Read(client), "answer");

        // A client that leaves: what it wrote, then the end. Nobody else comes before the disconnect.
        Written(client, "rest");
        client.reset();
        EXPECT_EQ(Read(taken), "rest");
        EXPECT_EQ(Read(taken), "");
        EXPECT_EQ(Written(taken, "a"), "error 232");
        EXPECT_EQ(Open_It(), "231");
        EXPECT_TRUE(server->disconnect());
        EXPECT_EQ(Read(taken), "error 233");
    }
}

TEST_F(pipes, a_client_that_came_and_left_is_one)
{
    open_pipe(name).reset();
    EXPECT_TRUE(server->listen());
    const Stream_Pointer taken = Taken(*server);
    ASSERT_TRUE(taken);
    EXPECT_EQ(Read(taken), "");
}

TEST_F(pipes, a_disconnect_drops_what_was_not_read_and_a_close_does_not)
{
    Stream_Pointer taken = Connected();
    Written(taken, "unread");
    Written(client, "unread");
    EXPECT_TRUE(server->disconnect());
    EXPECT_EQ(Read(client), "error 233");
    EXPECT_EQ(Read(taken), "error 233");

    // Reads that wait on both sides end as well.
    taken = Connected();
    char bytes[2];
    Transfer reads[2];
    EXPECT_FALSE(reads[0].read(taken, &bytes[0], 1));
    EXPECT_FALSE(reads[1].read(client, &bytes[1], 1));
    EXPECT_TRUE(server->disconnect());
    for (Transfer &read : reads) EXPECT_EQ(Awaited(read), "error 233");

    taken = Connected();
    Written(taken, "rest");
    taken->close();
    server->close();
    EXPECT_EQ(Written(client, "a"), "error 232");
    EXPECT_EQ(Read(client), "rest");
    EXPECT_EQ(Read(client), "");
    EXPECT_EQ(Open_It(), "2");
    server = Server_Pipe::create(name);  // although `taken` still stands for the former connection
    ASSERT_TRUE(server);
    EXPECT_TRUE(Connected());
}

TEST_F(pipes, a_close_wakes_the_wait_for_a_client)
{
    EXPECT_TRUE(server->listen());
    std::thread closer([&] {
        sleep_ms(10);
        server->close();
    });
    EXPECT_FALSE(Taken(*server));
    EXPECT_EQ(last_error(), error_operation_aborted);
    closer.join();
    EXPECT_EQ(Error(server->listen()), "6");
    EXPECT_EQ(Error(server->disconnect()), "6");
}

// One of many has it; the others find it busy. In between, clients that are thrown out before they are taken.
TEST_F(pipes, many_clients_at_once)
{
    constexpr int threads = 4, served = 300;
    std::atomic<bool> over{false};
    std::vector<std::thread> clients;
    for (int i = 0; i < threads; ++i) {
        clients.emplace_back([&] {
            while (!over) {
                const Stream_Pointer stream = open_pipe(name);
                if (!stream) continue;
                Written(stream, "x");
                const std::string end = Read(stream);
                EXPECT_TRUE(end == "y" || end == "error 233" || end.empty()) << end;
            }
        });
    }
    for (int i = 0; i < served; ++i) {
        ASSERT_TRUE(server->listen());
        if (i % 3 == 0) {
            server->disconnect();
            continue;
        }
        const Stream_Pointer taken = Taken(*server);
        ASSERT_TRUE(taken);
        EXPECT_EQ(Read(taken), "x");
        EXPECT_EQ(Written(taken, "y"), "got 1");
        EXPECT_TRUE(Soon([&] { return Read(taken).empty(); }));  // it has heard, and left
        EXPECT_TRUE(server->disconnect());
    }
    over = true;
    server->close();
    for (std::thread &thread : clients) thread.join();
}

TEST_F(pipes, a_name_is_the_same_in_any_case_and_with_or_without_its_prefix)
{
    server.reset();
    const std::string base = name, remote = windows ? "3" : "53";
    const struct {
        std::string made, opened, error;
    } cases[] = {
        {base, R"(\\.\pipe\)" + base, "done"},
        {R"(\\.\PIPE\)" + base + "Ab", base + "aB", "done"},
        {"/run/../" + base, "/RUN/../" + base, "done"},
        {std::string(247, 'n'), R"(\\.\pipe\)" + std::string(247, 'N'), "done"},
        {base, base + "x", "2"},
        {base, "", "123"},
        {base, R"(\\.\pipe\)", "123"},
        {base, std::string(248, 'n'), "206"},
        {base, R"(\\no.such.host\pipe\)" + base, remote},
    };
    for (const auto &[made, opened, error] : cases) {
        const auto pipe = Server_Pipe::create(made);
        ASSERT_TRUE(pipe) << made;
        EXPECT_EQ(Error(open_pipe(opened) != nullptr), error) << opened;
        if (error != "2" && error != "done") {
            EXPECT_FALSE(wait_for_pipe(opened, 0));
            EXPECT_FALSE(Server_Pipe::create(opened));
        }
    }
}

TEST_F(pipes, a_dead_process_is_neither_a_server_nor_a_client)
{
    server.reset();
    {
        const Pipe_Process process('s', name);
        client = Opened(name);
        ASSERT_TRUE(client);
        EXPECT_EQ(Read(client), "abc");
        EXPECT_EQ(Server_Pipe::create(name), nullptr);
        EXPECT_EQ(last_error(), error_pipe_busy);
        Written(client, "x");
        EXPECT_EQ(Read(client), "");
    }
    EXPECT_EQ(Open_It(), "2");
    EXPECT_EQ(Error(wait_for_pipe(name, 20)), "2");
    server = Server_Pipe::create(name);  // in place of what the dead one left
    ASSERT_TRUE(server);
    EXPECT_EQ(Written(client, "x"), "error 232");
    EXPECT_TRUE(server->listen());
    const Pipe_Process process('c', name);
    const Stream_Pointer taken = Taken(*server);
    ASSERT_TRUE(taken);
    EXPECT_EQ(Read(taken), "abc");
    Written(taken, "x");
    EXPECT_EQ(Read(taken), "");
    EXPECT_TRUE(server->disconnect());
    EXPECT_TRUE(Connected());
}

#ifndef _WIN32
TEST_F(pipes, live_in_the_runtime_folder_and_remove_nothing_but_their_own)
{
    namespace fs = std::filesystem;
    const std::string runtime = folder / "run";
    const auto files = [&] { return std::distance(fs::directory_iterator(runtime), {}); };
    EXPECT_EQ(files(), 2);
    const std::string file = runtime + "/" + [&] {
        for (const auto &entry : fs::directory_iterator(runtime))
            if (entry.is_regular_file()) return entry.path().filename().string();
        return std::string();
    }();
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    server.reset();
    EXPECT_EQ(files(), 0);
    for (const char *const suffix : {"", ".socket"}) {  // what has one of the names and is no pipe's
        const std::string foreign = file + suffix;
        if (*suffix)
            std::ofstream(foreign) << "mine";
        else
            fs::create_directory(foreign);
        EXPECT_EQ(Error(Server_Pipe::create(name) != nullptr), "5") << foreign;
        EXPECT_FALSE(open_pipe(name));
        EXPECT_TRUE(fs::exists(foreign) && files() == 1);
        fs::remove(foreign);
    }
    std::ofstream(file) << "x";  // a leftover that is too short
    EXPECT_EQ(Open_It(), "2");
    server = Server_Pipe::create(name);
    EXPECT_TRUE(server && Connected());

    const Environment_Setting deep("GNSS_KERNEL_RUNTIME_DIR", folder / std::string(120, 'd'));
    const auto pipe = Server_Pipe::create(name);
    ASSERT_TRUE(pipe) << last_error();
    EXPECT_TRUE(open_pipe(name));
    const Environment_Setting none("GNSS_KERNEL_RUNTIME_DIR", folder / "none/such");
    EXPECT_EQ(Open_It(), "2");
    const Environment_Setting closed("GNSS_KERNEL_RUNTIME_DIR", folder.Write("file", ""));
    EXPECT_EQ(Open_It(), "5");
}
#endif
