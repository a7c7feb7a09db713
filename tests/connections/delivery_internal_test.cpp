// Clients that are taken away, and destroyed, while other threads deliver to them.
#include "kernel/connections/delivery_internal.h"

#include "kernel/base/Base_Thread.h"
#include "kernel/bytes/String_Byte_Server.h"

#include "tests/support/clients.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>

using namespace kernel;
using namespace std::literals;

namespace {

// Stays inside Mesg_Second until it is let go.
class Lingering_Client : public Byte_Client {
public:
    explicit Lingering_Client(std::atomic<bool> *deleted = nullptr) : Object("lingering"), deleted_(deleted) {}
    ~Lingering_Client() override
    {
        if (deleted_) *deleted_ = true;
    }
    bool Send(Byte_Server &server, CL_Mesg message) override
    {
        if (message != Mesg_Second) return Byte_Client::Send(server, message);
        ++inside;
        if (leaves_its_server) server.Disconnect();
        EXPECT_TRUE(Soon([this] { return let_go.load(); }));
        --inside;
        return true;
    }
    bool Is_Inside(int threads = 1)
    {
        return Soon([&] { return inside == threads; });
    }

    std::atomic<bool> let_go{false}, leaves_its_server{false};
    std::atomic<int> inside{0};

private:
    std::atomic<bool> *const deleted_;
};

std::future<void> Tick(Bare_Server &server)
{
    return std::async(std::launch::async, [&server] { server.Tell(Mesg_Second); });
}

// Runs on a thread of its own; whether it waits, until the client is let go and no longer.
template <class Change>
bool Waits_For(Lingering_Client &client, Change change)
{
    auto done = std::async(std::launch::async, [&] {
        change();
        EXPECT_EQ(client.inside, 0);
    });
    const bool waits = done.wait_for(30ms) == std::future_status::timeout;
    client.let_go = true;
    EXPECT_EQ(done.wait_for(10s), std::future_status::ready);
    return waits;
}

}  // namespace

TEST(Deliveries, a_client_is_taken_away_when_nobody_else_is_inside)
{
    const std::pair<const char *, void (*)(Bare_Server &, Byte_Client &)> ways[] = {
        {"Disconnect", [](Bare_Server &server, Byte_Client &) { server.Disconnect(); }},
        {"SetClient", [](Bare_Server &server, Byte_Client &) { server.SetClient(nullptr); }},
        {"Switch", [](Bare_Server &server, Byte_Client &other) { server.Switch(&other); }},
        {"Switch to none", [](Bare_Server &server, Byte_Client &) { server.Switch(nullptr); }},
        {"Connect", [](Bare_Server &server, Byte_Client &other) { server.Connect(&other); }},
    };
    for (const auto &[name, way] : ways) {
        SCOPED_TRACE(name);
        Bare_Server server;
        Lingering_Client client;
        auto *const other = new Recording_Client;
        other->Dont_Delete_Me();
        const std::unique_ptr<Recording_Client> owned(other);
        client.Dont_Delete_Me();
        server.Connect(&client);
        const auto tick = Tick(server), second_tick = Tick(server);
        EXPECT_TRUE(client.Is_Inside(2));  // deliveries do not exclude each other
        EXPECT_TRUE(Waits_For(client, [&, way = way] { way(server, *other); }));
        EXPECT_NE(server.GetClient(), &client);
        server.SetClient(nullptr);
    }
}

TEST(Deliveries, a_client_is_deleted_when_nobody_is_inside)
{
    for (const bool server_ends : {false, true}) {
        std::atomic<bool> deleted{false};
        auto server = std::make_unique<Bare_Server>();
        auto *const client = new Lingering_Client(&deleted);
        client->Disable_Disconnect();  // deleted all the same
        server->Connect(client);
        const auto tick = Tick(*server);
        EXPECT_TRUE(client->Is_Inside());
        auto done = std::async(std::launch::async, [&] {
            if (server_ends)
                server.reset();
            else
                server->Connect(new Recording_Client);
        });
        EXPECT_EQ(done.wait_for(30ms), std::future_status::timeout);
        EXPECT_FALSE(deleted);
        client->let_go = true;
        done.get();
        EXPECT_TRUE(deleted);
    }
}

TEST(Deliveries, a_client_leaves_from_inside_its_message)
{
    Bare_Server server;
    Lingering_Client client;
    client.Dont_Delete_Me();
    client.leaves_its_server = true;
    server.Connect(&client);
    const auto tick = Tick(server);
    EXPECT_TRUE(client.Is_Inside());
    EXPECT_TRUE(Soon([&] { return !server.IsConnected(); }));
    // It is still inside. Another thread that would have it disconnected finds nobody, and may destroy it all the same.
    EXPECT_TRUE(Waits_For(client, [&] { server.Disconnect(); }));
}

TEST(Deliveries, two_threads_leave_from_inside_the_same_client)
{
    class Meeting_Client : public Byte_Client {
    public:
        Meeting_Client() : Object("meeting") { Dont_Delete_Me(); }
        bool Send(Byte_Server &server, CL_Mesg message) override
        {
            if (message != Mesg_Second) return Byte_Client::Send(server, message);
            ++inside_;
            EXPECT_TRUE(Soon([this] { return inside_ == 2; }));
            server.Disconnect();
            return true;
        }

    private:
        std::atomic<int> inside_{0};
    };
    Bare_Server server;
    Meeting_Client client;
    server.Connect(&client);
    const auto tick = Tick(server), second_tick = Tick(server);
    EXPECT_EQ(tick.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(second_tick.wait_for(10s), std::future_status::ready);
    EXPECT_FALSE(server.IsConnected());
}

TEST(Deliveries, nobody_waits_for_a_killed_thread)
{
    struct Place {
        Bare_Server server;
        Lingering_Client client;
    };
    static Place &place = *new Place;  // the killed thread's for good
    place.client.Dont_Delete_Me();
    place.server.Connect(&place.client);
    Function_Thread thread;
    const auto tick = [](void *server) { return int{static_cast<Bare_Server *>(server)->Tell(Mesg_Second)}; };
    thread.Init(&place.server, tick, [](void *) { return -5; });  // killed at once
    ASSERT_TRUE(thread.start(false));
    EXPECT_TRUE(place.client.Is_Inside());
    thread.stop();
    EXPECT_LT(Elapsed([&] { place.server.Disconnect(); }), 5000u);
    EXPECT_FALSE(place.server.IsConnected());
}

namespace {

// Not destroyed, as long as it answers.
class Living_Client : public Byte_Client {
public:
    Living_Client() : Object("living") {}
    ~Living_Client() override { life_.assign("over"); }
    bool Send(Byte_Server &server, CL_Mesg message) override
    {
        if (life_ != "a text that is too long for the string's own place") std::abort();
        if (message == Mesg_Delete_Query) std::this_thread::sleep_for(20us);  // others ask meanwhile
        return Byte_Client::Send(server, message);
    }

private:
    std::string life_ = "a text that is too long for the string's own place";
};

// Connects and switches; what comes back is destroyed at once.
void Change_Clients(Bare_Server &server)
{
    for (int round = 0; round < 500; ++round) {
        server.Connect(new Living_Client);
        delete server.Switch(new Living_Client);
    }
}

}  // namespace

TEST(Deliveries, clients_come_and_go_while_threads_deliver)
{
    Bare_Server server;
    const auto deliver = [&server](const std::stop_token &over) {
        while (!over.stop_requested()) {
            for (const CL_Mesg message : {Mesg_Attached, Mesg_Second, Mesg_Start}) server.Tell(message);
        }
    };
    const std::jthread one(deliver), two(deliver);
    for (int round = 0; round < 500; ++round) {
        const auto client = std::make_unique<Living_Client>();
        delete server.Switch(client.get());
        server.Disconnect();
    }
    // What two threads connect at the same time is deleted once.
    std::thread other([&server] { Change_Clients(server); });
    Change_Clients(server);
    other.join();
}
