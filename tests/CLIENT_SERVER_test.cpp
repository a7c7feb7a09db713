// The control messages, and who connects, disconnects and deletes whom.
#include "kernel/String_Byte_Server.h"
#include "kernel/file_client_server.h"

#include "platform/clock.h"

#include "tests/support/clients.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>

using namespace kernel;

namespace {

// The base's own answers, made reachable.
class Plain_Client : public Client {
public:
    Plain_Client() : Object("plain") {}
    using Client::Send;
};

class Invalid_Client : public Recording_Client {
public:
    explicit Invalid_Client(bool *deleted) : Object("invalid"), Recording_Client(deleted) {}
    bool IsValid() const override { return false; }
};

// Keeps its client itself, as the virtual operations allow.
class Own_Server : public Bare_Server {
public:
    Own_Server() : Object("own") {}
    Client *GetClient() override { return own_; }
    void SetClient(Client *client) override { own_ = client; }

private:
    Client *own_ = nullptr;
};

class Ticking_Chain {
public:
    Ticking_Chain() { server.Connect(client); }
    void Ticks(int n)
    {
        for (int i = 0; i < n; ++i) client->Send(server, Mesg_Second);
    }
    // How often the client heard a message.
    std::ptrdiff_t Count(int message) const { return std::count(client->heard.begin(), client->heard.end(), message); }

    Recording_Client *client = new Recording_Client;  // the server's
    Bare_Server server;
};

}  // namespace

TEST(Client, answers_every_message_as_the_base_does)
{
    const std::set<int> answered_true = {10,  20,  21,  30,  40,  50,  90,  100, 110, 120, 140, 150,
                                         160, 170, 180, 200, 201, 202, 203, 210, 220, 230, 250};
    const std::set<int> answered_false = {70,    80,    1000,  1010,  10000, 10010, 10020, 10030,
                                          10040, 10041, 10045, 10050, 10060, 10070, 10080, 10090,
                                          10100, 10110, 10130, 10140, 10150, 11000, 20000};
    Heard_Reports reports;
    Bare_Server server;
    Plain_Client client;
    for (int m = -1; m <= 20001; ++m) {
        const bool answer = client.Send(server, static_cast<CL_Mesg>(m));
        EXPECT_EQ(answer, answered_true.contains(m)) << m;
        const Reports heard = reports->Take();
        if (answered_true.contains(m) || answered_false.contains(m))
            EXPECT_EQ(heard, Reports{}) << m;
        else
            EXPECT_EQ(heard, (Reports{{3, 31, "Illegal CL_Mesg " + std::to_string(m) + " from Server bare",
                                       "kernel/CLIENT"}}));
    }
}

TEST(Client, pauses_the_sender)
{
    Bare_Server server;
    Plain_Client client;
    const std::uint64_t begin = platform::clock_ms();
    EXPECT_TRUE(client.Send(server, Mesg_Pause));
    EXPECT_GE(platform::clock_ms() - begin, 39u);
}

TEST(Client, a_byte_client_differs_in_five_answers)
{
    Bare_Server server;
    Recording_Client client;
    const std::map<int, bool> expected = {{1000, true}, {1010, false}, {160, false}, {170, false}, {180, true}};
    for (const auto &[message, answer] : expected)
        EXPECT_EQ(client.Send(server, static_cast<CL_Mesg>(message)), answer) << message;
}

TEST(Client, refuses_disconnection_when_told_to)
{
    Bare_Server server;
    Recording_Client client;
    client.Dont_Delete_Me();
    client.Disable_Disconnect();
    for (const CL_Mesg query : {Mesg_Disconnect_Query, Mesg_PreDisconnect_Query, Mesg_Delete_Query})
        EXPECT_FALSE(client.Send(server, query)) << query;
    server.Connect(&client);
    EXPECT_FALSE(server.PreDisconnect());
    server.Disconnect();
    EXPECT_TRUE(server.IsConnected());
    client.Enable_Disconnect();
    EXPECT_TRUE(server.PreDisconnect());
    server.Server::Disconnect();  // the base finds the family's way
    EXPECT_FALSE(server.IsConnected());
    EXPECT_TRUE(server.PreDisconnect());
}

TEST(Client, counts_ticks_and_derives_minutes_hours_and_days)
{
    Ticking_Chain chain;
    auto &client = *chain.client;
    const auto send = [&](CL_Mesg message) { EXPECT_TRUE(client.Send(chain.server, message)); };
    for (const CL_Mesg m : {Mesg_Attached, Mesg_Second, Mesg_Second, Mesg_Detached, Mesg_Second}) send(m);
    EXPECT_EQ(client.Ticks(), 3u);
    EXPECT_EQ(client.Attached_Ticks(), 2u);
    for (const CL_Mesg m : {Mesg_Attached, Mesg_Second, Mesg_Attached}) send(m);
    EXPECT_EQ(client.Attached_Ticks(), 0u);  // each attachment counts afresh
    send(Mesg_Reset_Counters);
    EXPECT_EQ(client.Ticks() + client.Attached_Ticks(), 0u);

    client.Take();
    chain.Ticks(59);
    EXPECT_EQ(chain.Count(201), 0);
    chain.Ticks(1);
    EXPECT_EQ(client.heard.back(), 201);
    client.Take();
    chain.Ticks(86400 - 60);
    EXPECT_EQ(chain.Count(201), 1439);
    EXPECT_EQ(chain.Count(202), 24);
    EXPECT_EQ(chain.Count(203), 1);
    const Heard &heard = client.heard;
    EXPECT_EQ(Heard(heard.end() - 4, heard.end()), (Heard{200, 201, 202, 203}));
}

TEST(Server, base_operations_ask_for_an_implementation)
{
    Heard_Reports reports;
    Bare_Server server("mine");
    EXPECT_FALSE(server.Work());
    EXPECT_FALSE(server.Request(1));
    EXPECT_FALSE(server.Connect(nullptr));
    EXPECT_EQ(reports->Take(),
              (Reports{{4, 34, "Please implement Work() in class mine inherited from Server", "kernel/SERVER"},
                       {4, 34, "Please implement Request() in class mine inherited from Server", "kernel/SERVER"},
                       {3, 21, "Called with NULL-Pointer for client", "kernel/SERVER"}}));
}

TEST(Server, a_new_client_replaces_the_old_one)
{
    bool deleted = false;
    Bare_Server server;
    auto *old = new Recording_Client(&deleted);
    EXPECT_TRUE(server.Connect(old));
    EXPECT_EQ(old->Take(), (Heard{1000}));
    EXPECT_TRUE(server.Connect(old));  // the same again stays
    EXPECT_FALSE(deleted);
    EXPECT_EQ(old->Take(), (Heard{1000}));

    Recording_Client kept;
    kept.Dont_Delete_Me();
    EXPECT_TRUE(server.Connect(&kept));
    EXPECT_TRUE(deleted);
    EXPECT_TRUE(server.Connect(new Recording_Client));
    EXPECT_EQ(kept.Take(), (Heard{1000, 120, 20}));

    bool invalid_deleted = false;
    auto *invalid = new Invalid_Client(&invalid_deleted);
    server.Connect(invalid);
    invalid->Answer_With(Mesg_Delete_Query, false);
    server.Connect(new Recording_Client);
    EXPECT_TRUE(invalid_deleted);  // one that is not valid is not asked

    Recording_Client stubborn;  // refuses both: it loses its place all the same
    stubborn.Dont_Delete_Me();
    stubborn.Disable_Disconnect();
    server.Connect(&stubborn);
    server.Connect(new Recording_Client);
    EXPECT_EQ(stubborn.Take(), (Heard{1000, 120, 20}));
    EXPECT_NE(server.GetClient(), &stubborn);
}

TEST(Server, asks_the_client_that_it_says_it_has)
{
    bool deleted = false;
    Own_Server server;
    server.SetClient(new Recording_Client(&deleted));
    Recording_Client next;
    next.Dont_Delete_Me();
    server.Connect(&next);
    EXPECT_TRUE(deleted);
}

TEST(Server, a_client_that_takes_no_bytes_is_disconnected)
{
    Heard_Reports reports;
    Bare_Server server;
    Recording_Client client;
    client.Answer_With(Mesg_Byte_Type, false);
    EXPECT_FALSE(server.Connect(&client));
    EXPECT_EQ(client.Take(), (Heard{1000, 20}));
    EXPECT_FALSE(server.IsConnected());
    EXPECT_EQ(reports->Take(), (Reports{{3, 26, "Client recorder couldn't work with type 1000.", "kernel/BYTE_SER"}}));
}

TEST(Server, its_end_is_its_clients_end_unless_that_refuses)
{
    bool deleted = false, stubborn_deleted = false;
    auto *client = new Recording_Client(&deleted);
    auto *stubborn = new Recording_Client(&stubborn_deleted);
    Heard heard;
    client->On(Mesg_Delete_Query, [&](Byte_Server &) {
        heard = client->heard;
        return true;
    });
    stubborn->Disable_Disconnect();
    Recording_Client kept;
    kept.Dont_Delete_Me();
    {
        Bare_Server a, b, c;
        a.Connect(client);
        b.Connect(stubborn);
        c.Connect(&kept);
    }
    EXPECT_TRUE(deleted);
    EXPECT_EQ(heard, (Heard{1000, 20, 120}));
    EXPECT_TRUE(stubborn_deleted);  // who refuses disconnection is still asked, and may go
    EXPECT_EQ(kept.Take(), (Heard{1000, 20, 120}));
}

TEST(Server, its_end_runs_down_a_chain)
{
    Recording_Client kept;
    kept.Dont_Delete_Me();
    {
        Bare_Server server;
        auto *tap = File_Client_Server::Construct(nullptr);
        tap->Connect(&kept);
        server.Connect(tap);
    }
    EXPECT_EQ(kept.heard.back(), 120);  // asked, and it stays
    for (const bool tap_may_go : {true, false}) {
        bool deleted = false;
        auto *client = new Recording_Client(&deleted);
        auto *tap = File_Client_Server::Construct(nullptr);
        if (!tap_may_go) tap->Dont_Delete_Me();
        tap->Connect(client);
        {
            Bare_Server server;
            server.Connect(tap);
        }
        EXPECT_EQ(deleted, tap_may_go);
        if (tap_may_go) continue;
        EXPECT_EQ(tap->GetClient(), client);
        Object::Destruct(static_cast<Byte_Server *>(tap));
        EXPECT_TRUE(deleted);
    }
}
