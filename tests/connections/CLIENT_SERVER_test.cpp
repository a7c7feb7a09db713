// The control messages, and who connects, disconnects and deletes whom.
#include "kernel/files/file_client_server.h"

#include "tests/support/clients.h"
#include "tests/support/reports.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

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

// A client that its server does not delete.
class Kept_Client : public Recording_Client {
public:
    Kept_Client() : Object("kept") { Dont_Delete_Me(); }
};

}  // namespace

TEST(Client, answers_every_message_as_the_base_does)
{
    // Here alone by number: the numbers are part of the interface, and this is where a changed one is seen.
    const std::set<int> answered_true = {10,  20,  21,  30,  40,  50,  90,  100, 110, 120, 140, 150,
                                         160, 170, 180, 200, 201, 202, 203, 210, 220, 230, 250};
    const std::set<int> answered_false = {70,    80,    1000,  1010,  10000, 10010, 10020, 10030,
                                          10040, 10041, 10045, 10050, 10060, 10070, 10080, 10090,
                                          10100, 10110, 10130, 10140, 10150, 11000, 20000};
    Heard_Reports reports;
    Bare_Server server;
    Plain_Client client;
    for (int m = -1; m <= 20001; ++m) {
        const bool known = answered_true.contains(m) || answered_false.contains(m);
        EXPECT_EQ(client.Send(server, static_cast<CL_Mesg>(m)), answered_true.contains(m)) << static_cast<CL_Mesg>(m);
        const Reported illegal{3, 31, "Illegal CL_Mesg " + std::to_string(m) + " from Server bare", "kernel/CLIENT"};
        EXPECT_EQ(reports->Take(), known ? Reports{} : Reports{illegal});
    }
    EXPECT_GE(Elapsed([&] { client.Send(server, Mesg_Pause); }), 39u);
    Recording_Client bytes;  // differs in five answers
    for (const auto &[message, answer] : std::map<CL_Mesg, bool>{{Mesg_Byte_Type, true},
                                                                 {Mesg_Object_Type, false},
                                                                 {Mesg_Login, false},
                                                                 {Mesg_Ask_Password, false},
                                                                 {Mesg_Start, true}})
        EXPECT_EQ(bytes.Send(server, message), answer) << message;
}

TEST(Client, refuses_disconnection_when_told_to)
{
    Bare_Server server;
    Kept_Client client;
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
    Bare_Server server;
    auto *client = new Recording_Client;
    server.Connect(client);
    const auto send = [&](std::initializer_list<CL_Mesg> messages) {
        for (const CL_Mesg m : messages) EXPECT_TRUE(client->Send(server, m));
    };
    send({Mesg_Attached, Mesg_Second, Mesg_Second, Mesg_Detached, Mesg_Second});
    EXPECT_EQ(client->Ticks(), 3u);
    EXPECT_EQ(client->Attached_Ticks(), 2u);
    send({Mesg_Attached, Mesg_Second, Mesg_Attached});
    EXPECT_EQ(client->Attached_Ticks(), 0u);  // each attachment counts afresh
    send({Mesg_Reset_Counters});
    EXPECT_EQ(client->Ticks() + client->Attached_Ticks(), 0u);

    client->Take();
    Heard expected;
    for (int n = 1; n <= 86400; ++n) {
        send({Mesg_Second});
        expected.push_back(Mesg_Second);
        if (n % 60 == 0) expected.push_back(Mesg_Minute);
        if (n % 3600 == 0) expected.push_back(Mesg_Hour);
    }
    expected.push_back(Mesg_Day);
    EXPECT_TRUE(client->Take() == expected);
}

TEST(Server, base_operations_ask_for_an_implementation)
{
    Heard_Reports reports;
    Bare_Server server("mine");
    EXPECT_FALSE(server.Work() || server.Request(1) || server.Connect(nullptr));
    EXPECT_EQ(reports->Take(),
              (Reports{{4, 34, "Please implement Work() in class mine inherited from Server", "kernel/SERVER"},
                       {4, 34, "Please implement Request() in class mine inherited from Server", "kernel/SERVER"},
                       {3, 21, "Called with NULL-Pointer for client", "kernel/SERVER"}}));
}

TEST(Server, a_new_client_replaces_the_old_one)
{
    bool deleted = false, invalid_deleted = false;
    Bare_Server server;
    auto *old = new Recording_Client(&deleted);
    EXPECT_TRUE(server.Connect(old) && server.Connect(old));  // the same again stays, unasked
    EXPECT_FALSE(deleted);
    EXPECT_EQ(old->Take(), (Heard{Mesg_Byte_Type, Mesg_Byte_Type}));
    Kept_Client kept, stubborn;  // the second refuses both: it loses its place all the same
    stubborn.Disable_Disconnect();
    for (Kept_Client *client : {&kept, &stubborn}) {
        EXPECT_TRUE(server.Connect(client));
        EXPECT_TRUE(deleted);
        EXPECT_TRUE(server.Connect(new Recording_Client));
        EXPECT_EQ(client->Take(), (Heard{Mesg_Byte_Type, Mesg_Delete_Query, Mesg_Disconnect_Query}));
        EXPECT_NE(server.GetClient(), client);
    }
    Kept_Client again;  // one that may not be deleted goes and comes back
    EXPECT_TRUE(server.Connect(&again) && server.Connect(&again));
    EXPECT_EQ(again.Take(), (Heard{Mesg_Byte_Type, Mesg_Delete_Query, Mesg_Disconnect_Query, Mesg_Byte_Type}));
    EXPECT_EQ(server.GetClient(), &again);
    auto *invalid = new Invalid_Client(&invalid_deleted);
    server.Connect(invalid);
    invalid->Answer_With(Mesg_Delete_Query, false);
    server.Connect(new Recording_Client);
    EXPECT_TRUE(invalid_deleted);  // one that is not valid is not asked
}

TEST(Server, a_client_that_takes_no_bytes_is_disconnected)
{
    Heard_Reports reports;
    Bare_Server server;
    Recording_Client client;
    client.Answer_With(Mesg_Byte_Type, false);
    EXPECT_FALSE(server.Connect(&client));
    EXPECT_EQ(client.Take(), (Heard{Mesg_Byte_Type, Mesg_Disconnect_Query}));
    EXPECT_FALSE(server.IsConnected());
    EXPECT_EQ(reports->Take(), (Reports{{3, 26, "Client recorder couldn't work with type 1000.", "kernel/BYTE_SER"}}));
}

TEST(Server, its_end_is_its_clients_end_unless_that_refuses)
{
    bool deleted = false;
    Heard heard;
    auto *stubborn = new Recording_Client(&deleted);
    stubborn->Disable_Disconnect();
    stubborn->On(Mesg_Delete_Query, [&](Byte_Server &) { return heard = stubborn->heard, true; });
    Kept_Client kept, end;
    {
        Bare_Server a, b, c;
        a.Connect(stubborn);
        b.Connect(&kept);
        auto *tap = File_Client_Server::Construct(nullptr);
        tap->Connect(&end);
        c.Connect(tap);
    }
    EXPECT_TRUE(deleted);  // who refuses disconnection is still asked, and may go
    EXPECT_EQ(heard, (Heard{Mesg_Byte_Type, Mesg_Disconnect_Query, Mesg_Delete_Query}));
    EXPECT_EQ(kept.Take(), (Heard{Mesg_Byte_Type, Mesg_Disconnect_Query, Mesg_Delete_Query}));
    EXPECT_EQ(end.heard.back(), Mesg_Delete_Query);  // it runs down a chain
}

TEST(Server, a_chain_goes_with_its_first_that_may_go)
{
    for (const bool tap_may_go : {true, false}) {
        bool deleted = false;
        auto *tap = File_Client_Server::Construct(nullptr);
        if (!tap_may_go) tap->Dont_Delete_Me();
        tap->Connect(new Recording_Client(&deleted));
        Bare_Server().Connect(tap);
        EXPECT_EQ(deleted, tap_may_go);
        if (!tap_may_go) delete tap;
        EXPECT_TRUE(deleted);
    }
}
