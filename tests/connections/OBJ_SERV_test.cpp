#include "kernel/connections/OBJ_SERV.h"

#include "kernel/connections/BYTE_SER.h"

#include "tests/support/records.h"
#include "tests/support/reports.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <set>
#include <thread>
#include <vector>

using namespace kernel;
using namespace std::literals;

namespace {

using Taker = Taking_Client<>;

// Serves numbers, and keeps the books on them.
class Number_Server : public Object_Server {
public:
    explicit Number_Server(int &live) : Object("numbers"), Object_Server(Mesg_Type_20000), live_(live) {}
    ~Number_Server() override
    {
        if (!forgets_end) End();
    }

    int *Make(int value)
    {
        auto *record = static_cast<int *>(Malloc());
        if (record) *record = value;
        return record;
    }
    bool Give(int value)
    {
        void *record = Make(value);
        const bool taken = Send_Data(record);
        EXPECT_EQ(record, nullptr);
        return taken;
    }
    void Drop(void *record) { Free(record); }
    using Object_Server::Connect_Typed;
    using Object_Server::Send_Data;
    using Object_Server::Tell;

    bool short_of_memory = false, forgets_end = false;

private:
    void *_Alloc_Object() override
    {
        if (short_of_memory) return nullptr;
        ++live_;
        return new int(0);
    }
    void _Free_Object(void *record) override
    {
        --live_;
        delete static_cast<int *>(record);
    }

    int &live_;
};

// A server of numbers with a client that stays when it goes, and what was reported.
class Chain {
public:
    explicit Chain(const std::vector<CL_Mesg> &refuses = {}, bool short_of_memory = false)
    {
        client.Dont_Delete_Me();
        for (const CL_Mesg message : refuses) client.Answer_With(message, false);
        server->short_of_memory = short_of_memory;
        connected = server->Connect(&client);
        heard = client.Take();
    }
    ~Chain()
    {
        server.reset();
        EXPECT_EQ(live, 0) << "records left";
    }
    int Last() const { return *static_cast<int *>(client.last); }

    Heard_Reports reports;
    int live = 0;
    Taker client;
    std::unique_ptr<Number_Server> server = std::make_unique<Number_Server>(live);
    bool connected = false;
    Heard heard;  // while they connected
};

Reports Said(int code, const char *text) { return {{3, code, text, "kernel/OBJ_SERV"}}; }

}  // namespace

TEST(Object_Server, connects_in_a_fixed_order)
{
    const Reports no_answer = Said(25, "Client taker didn't answer");
    const Reports no_type = Said(26, "Client taker couldn't work with type 20000.");
    const Reports no_memory = Said(18, "No memory for static data of numbers.");
    const struct {
        std::vector<CL_Mesg> refuses;
        bool short_of_memory, connected, is_static;
        Heard heard;
        Reports reports;
    } cases[] = {
        {{},
         true,
         true,
         false,
         {Mesg_Object_Type, Mesg_Object_Connect, Mesg_Reset_Counters},
         {}},  // dynamic mode needs no record yet
        {{Mesg_Object_Connect}, false, true, true, {Mesg_Object_Type, Mesg_Object_Connect, Mesg_Reset_Counters}, {}},
        {{Mesg_Reset_Counters},
         false,
         true,
         false,
         {Mesg_Object_Type, Mesg_Object_Connect, Mesg_Reset_Counters},
         no_answer},
        {{Mesg_Object_Type, Mesg_Disconnect_Query},
         false,
         false,
         false,
         {Mesg_Object_Type, Mesg_Disconnect_Query},
         {no_answer[0], no_type[0]}},
        {{Mesg_Object_Connect},
         true,
         false,
         false,
         {Mesg_Object_Type, Mesg_Object_Connect, Mesg_Disconnect_Query},
         no_memory},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << (&c - cases));
        Chain chain(c.refuses, c.short_of_memory);
        EXPECT_EQ(chain.connected, c.connected);
        EXPECT_EQ(chain.server->IsConnected(), c.connected);
        EXPECT_EQ(chain.server->StaticAlloc(), c.is_static);
        EXPECT_EQ(chain.live, c.is_static);
        EXPECT_EQ(chain.heard, c.heard);
        EXPECT_EQ(chain.reports->Take(), c.reports);
    }
}

TEST(Object_Server, asks_for_its_type_last_when_typed)
{
    Chain chain;
    Taker &client = chain.client;
    Number_Server &server = *chain.server;
    client.Answer_With(Mesg_Type_20000, true);
    EXPECT_TRUE(server.Connect_Typed(&client, "", "", 0));
    EXPECT_EQ(client.Take(), (Heard{Mesg_Delete_Query, Mesg_Disconnect_Query, Mesg_Object_Type, Mesg_Object_Connect,
                                    Mesg_Reset_Counters, Mesg_Type_20000}));  // it was connected already
    client.Answer_With(Mesg_Type_20000, false);
    EXPECT_FALSE(server.Connect_Typed(&client, "%s: not %d", "kernel/mine", 1));
    EXPECT_EQ(client.Take(), (Heard{Mesg_Delete_Query, Mesg_Disconnect_Query, Mesg_Object_Type, Mesg_Object_Connect,
                                    Mesg_Reset_Counters, Mesg_Type_20000, Mesg_Disconnect_Query}));
    EXPECT_EQ(chain.reports->Take(), (Reports{{3, 26, "taker: not 20000", "kernel/mine"}}));
    client.Answer_With(Mesg_Object_Type, false);
    EXPECT_FALSE(server.Connect_Typed(&client, "", "", 0));
    EXPECT_EQ(client.Take(), (Heard{Mesg_Object_Type, Mesg_Disconnect_Query}));  // not asked for its type any more
    chain.reports->Take();

    EXPECT_TRUE(server.Connect(nullptr) && server.Connect_Typed(nullptr, "%s %d", "kernel/mine", 1));
    const Reported null_client = {3, 21, "Called with NULL-Pointer for client", "kernel/SERVER"};
    EXPECT_EQ(chain.reports->Take(), (Reports{null_client, null_client}));
}

TEST(Object_Server, offers_a_record_until_it_is_taken)
{
    Chain chain;
    auto &client = chain.client;
    EXPECT_TRUE(chain.server->Give(1));
    EXPECT_EQ(client.Take(), (Heard{Mesg_Request_Invite, Mesg_Data_Ready}));
    EXPECT_EQ(chain.Last(), 1);
    EXPECT_EQ(chain.server->GetCount(), 1u);
    chain.server->Drop(client.last);

    client.Answer_With(Mesg_Request_Invite, false);  // not now: it stays, until there is a newer one
    void *record = chain.server->Make(2), *again = record;
    EXPECT_FALSE(chain.server->Send_Data(record));
    EXPECT_FALSE(chain.server->Send_Data(again));  // the same one is not freed for itself
    EXPECT_FALSE(chain.server->Give(3));
    EXPECT_EQ(client.Take(), (Heard{Mesg_Request_Invite, Mesg_Request_Invite, Mesg_Request_Invite}));
    EXPECT_EQ(chain.live, 1);
    client.Answer_With(Mesg_Request_Invite, true);
    EXPECT_TRUE(chain.server->Work());
    EXPECT_EQ(chain.Last(), 3);
    EXPECT_TRUE(chain.server->Work());  // nothing to do
    EXPECT_EQ(client.Take(), (Heard{Mesg_Request_Invite, Mesg_Data_Ready}));
    chain.server->Drop(client.last);

    int told = 0;  // a slow taker
    client.On(Mesg_Data_Ready, [&](Object_Server &server) {
        if (++told == 3) client.last = server.Get_Object();
        return false;
    });
    EXPECT_TRUE(chain.server->Give(4));
    EXPECT_EQ(client.Take(), (Heard{Mesg_Request_Invite, Mesg_Data_Ready, Mesg_Request_Invite, Mesg_Data_Ready,
                                    Mesg_Request_Invite, Mesg_Data_Ready}));
    EXPECT_EQ(chain.server->GetCount(), 5u);
    chain.server->Drop(client.last);
    EXPECT_EQ(chain.server->Get_Object(), nullptr);
}

TEST(Object_Server, frees_what_nobody_takes)
{
    Chain chain;
    chain.client.On(Mesg_Request_Invite, [](Object_Server &from) {
        from.Disconnect();  // in the middle of a delivery
        return true;
    });
    EXPECT_TRUE(chain.server->Give(1));
    EXPECT_EQ(chain.live, 0);
    EXPECT_EQ(chain.client.Take(), (Heard{Mesg_Request_Invite, Mesg_Disconnect_Query}));
    EXPECT_FALSE(chain.server->Give(2));
    EXPECT_FALSE(chain.server->Work());
    EXPECT_EQ(chain.live, 0);
}

TEST(Object_Server, lets_a_client_leave_from_inside_the_question_whether_it_may)
{
    for (const bool brings_another : {false, true}) {
        Chain chain;
        Taker other;
        other.Dont_Delete_Me();
        bool is_first = true;
        chain.client.On(Mesg_Disconnect_Query, [&](Object_Server &from) {
            if (!std::exchange(is_first, false)) return true;
            if (brings_another)
                from.Connect(&other);
            else
                from.Disconnect();
            return false;
        });
        chain.server->Disconnect();
        EXPECT_EQ(chain.client.Take(), brings_another
                                           ? (Heard{Mesg_Disconnect_Query, Mesg_Delete_Query, Mesg_Disconnect_Query})
                                           : (Heard{Mesg_Disconnect_Query, Mesg_Disconnect_Query}));
        EXPECT_EQ(chain.server->GetClient(), brings_another ? &other : nullptr);
        EXPECT_EQ(chain.reports->Take(), Said(25, "Client taker didn't answer"));
        chain.server->SetClient(nullptr);
    }
}

TEST(Object_Server, uses_one_record_in_static_mode)
{
    Chain chain({Mesg_Object_Connect});
    int *const record = chain.server->Make(1);
    EXPECT_EQ(chain.server->Make(2), record);
    chain.server->Drop(record);
    EXPECT_TRUE(chain.server->Give(3));
    EXPECT_EQ(chain.client.last, record);
    EXPECT_EQ(chain.Last(), 3);
    chain.client.Answer_With(Mesg_Request_Invite, false);
    EXPECT_FALSE(chain.server->Give(4));
    EXPECT_FALSE(chain.server->Give(5));  // the pending record is the same one
    EXPECT_EQ(chain.live, 1);
    chain.server->Reset_Data();
    chain.server->short_of_memory = true;
    EXPECT_EQ(chain.server->Make(6), nullptr);
    EXPECT_EQ(chain.reports->Take(), Said(18, "Client taker couldn't work with type 20000."));
}

TEST(Object_Server, changes_mode_with_a_record_pending)
{
    for (const bool first_owns : {true, false}) {
        Chain chain(first_owns ? std::vector<CL_Mesg>{} : std::vector{Mesg_Object_Connect});
        chain.client.Answer_With(Mesg_Request_Invite, false);
        chain.server->Give(1);
        Taker other;
        other.Dont_Delete_Me();
        other.Answer_With(Mesg_Object_Connect, !first_owns);
        EXPECT_TRUE(chain.server->Connect(&other));
        EXPECT_EQ(chain.client.Take(), (Heard{Mesg_Request_Invite, Mesg_Delete_Query, Mesg_Disconnect_Query}));
        EXPECT_EQ(chain.server->StaticAlloc(), first_owns);
        EXPECT_EQ(chain.live, first_owns);
        EXPECT_TRUE(chain.server->Give(2));
        chain.server->Drop(other.last);
        chain.server->Disconnect();
        EXPECT_EQ(chain.live, 0);
        EXPECT_EQ(chain.server->GetCount(), 0u);
        EXPECT_FALSE(chain.server->StaticAlloc());
    }
    // The old client is deleted rather than disconnected: its mode still rules when its records go.
    int live = 0;
    Number_Server server(live);
    auto *old = new Taker;
    old->Answer_With(Mesg_Object_Connect, false).Answer_With(Mesg_Request_Invite, false);
    server.Connect(old);
    server.Give(1);
    server.Connect(new Taker);
    EXPECT_EQ(live, 0);
}

TEST(Object_Server, takes_its_client_along_unless_that_refuses)
{
    int live = 0;
    bool deleted = false;
    auto *client = new Taker(&deleted);
    // An owner may give back its record as late as this: the server that can release it is still there.
    client->On(Mesg_Disconnect_Query, [&](Object_Server &server) {
        dynamic_cast<Number_Server &>(server).Drop(client->last);
        return true;
    });
    {
        Number_Server server(live);
        server.Connect(client);
        server.Give(1);
        EXPECT_EQ(live, 1);
    }
    EXPECT_TRUE(deleted);
    EXPECT_EQ(live, 0);
    Chain kept({Mesg_Request_Invite});
    kept.server->Give(2);
    kept.server.reset();
    EXPECT_EQ(kept.client.Take(), (Heard{Mesg_Request_Invite, Mesg_Disconnect_Query, Mesg_Delete_Query}));
}

TEST(Object_Server, loses_a_record_and_no_more_when_a_subclass_forgets_End)
{
    int live = 0;
    bool deleted = false;
    auto *client = new Taker(&deleted);
    client->Answer_With(Mesg_Request_Invite, false);
    std::unique_ptr<void, void (*)(void *)> lost(nullptr, [](void *record) { delete static_cast<int *>(record); });
    {
        Number_Server server(live);
        server.forgets_end = true;
        server.Connect(client);
        void *record = server.Make(1);
        lost.reset(record);
        server.Send_Data(record);
    }
    EXPECT_TRUE(deleted && live == 1);
}

TEST(Object_Server, sends_with_its_lock_held_and_reports_a_failed_connection_without)
{
    // Another thread asks; one that has to wait is waited for when the lock is free again.
    std::vector<std::future<unsigned long>> others;
    const auto is_free = [&](Object_Server &server, std::chrono::milliseconds limit) {
        others.push_back(std::async(std::launch::async, [&server] { return server.GetCount(); }));
        return others.back().wait_for(limit) == std::future_status::ready;
    };
    class Asking_Handler : public Error_Handler {
    public:
        std::function<void()> ask;

    private:
        void Do_Print(Enum_Status, Err_Code, const char *) override { ask(); }
    };
    int live = 0;
    Asking_Handler handler;
    Number_Server server(live);
    server.Set_Error_Handler(handler);
    Taker client;
    client.Dont_Delete_Me();
    bool free_in_message = true, free_in_report = false;
    client.On(Mesg_Object_Type, [&](Object_Server &) {
        free_in_message = is_free(server, 30ms);
        return false;
    });
    handler.ask = [&] { free_in_report = is_free(server, 10s); };
    EXPECT_FALSE(server.Connect(&client));
    others.clear();
    EXPECT_FALSE(free_in_message);
    EXPECT_TRUE(free_in_report);
}

namespace {

// Frees what it takes.
Taker *Make_Freeing_Client()
{
    auto *const client = new Taker;
    client->Answer_With(Mesg_Type_20000, true).On(Mesg_Data_Ready, [](Object_Server &from) {
        static_cast<Number_Server &>(from).Drop(from.Get_Object());
        return true;
    });
    return client;
}

}  // namespace

TEST(Object_Server, is_reconnected_while_another_thread_produces)
{
    constexpr int rounds = 200;
    int live = 0;
    {
        Number_Server server(live);
        std::thread producer([&] {
            for (int value = 0; value < rounds; ++value) {
                const Semaphore_Guard guard(server);  // nobody connects between the two
                server.Give(value);
            }
        });
        for (int i = 0; i < rounds; ++i) {
            auto *client = Make_Freeing_Client();
            if (i % 2) client->Answer_With(Mesg_Object_Connect, false);
            server.Connect(client);
        }
        producer.join();
    }
    EXPECT_EQ(live, 0);
}

// For the thread sanitizer: each operation from a second thread, while records flow.
TEST(Object_Server, stands_every_operation_from_another_thread)
{
    using Operation = void (*)(Number_Server &);
    constexpr Operation operations[] = {
        [](Number_Server &server) { server.Connect(Make_Freeing_Client()); },
        [](Number_Server &server) { server.Connect_Typed(Make_Freeing_Client(), "%s %d", "kernel/mine", 1); },
        [](Number_Server &server) { server.IsConnected(); },
        [](Number_Server &server) { server.GetCount(); },
        [](Number_Server &server) { server.StaticAlloc(); },
        [](Number_Server &server) { server.Work(); },
        [](Number_Server &server) { server.Tell(Mesg_Second); },
        [](Number_Server &server) { server.Drop(server.Get_Object()); },
        [](Number_Server &server) { server.Reset_Data(); },
        [](Number_Server &server) {
            void *record = server.Make(1);
            server.Send_Data(record);
        },
    };
    const Heard_Reports reports;
    int live = 0;
    {
        Number_Server server(live);
        std::atomic<int> given{0};
        const std::jthread producer([&](const std::stop_token &over) {
            while (!over.stop_requested()) server.Give(++given);
        });
        for (int round = 0; round < 100; ++round) {
            const int before = given;
            EXPECT_TRUE(Soon([&] { return given != before; }));
            for (const Operation operation : operations) operation(server);
            auto *const client = new Taker;
            client->Dont_Delete_Me();
            client->Answer_With(Mesg_Request_Invite, false).Answer_With(Mesg_Delete_Query, false);
            server.Connect(client);
            if (round % 2)
                server.Disconnect();
            else
                server.SetClient(nullptr);
            delete client;  // it hears nothing more
        }
    }
    EXPECT_EQ(live, 0);
}

TEST(Server, asks_a_replaced_client_through_its_own_family)
{
    // Records on one side, bytes on the other; by name it is a server of records.
    class Both : public Number_Server, public Bare_Server {
    public:
        explicit Both(int &live) : Object("both"), Number_Server(live) {}
        bool IsInheritedFrom(const char *name) const override
        {
            return Number_Server::IsInheritedFrom(name) || Bare_Server::IsInheritedFrom(name);
        }
    };
    int live = 0;
    Taker records[2];
    Recording_Client bytes[2];
    Both both(live);
    for (int i = 0; i < 2; ++i) {
        records[i].Dont_Delete_Me();
        bytes[i].Dont_Delete_Me();
        EXPECT_TRUE(both.Number_Server::Connect(&records[i]) && both.Bare_Server::Connect(&bytes[i]));
    }
    EXPECT_EQ(records[0].Take(), (Heard{Mesg_Object_Type, Mesg_Object_Connect, Mesg_Reset_Counters, Mesg_Delete_Query,
                                        Mesg_Disconnect_Query}));
    EXPECT_EQ(bytes[0].Take(), (Heard{Mesg_Byte_Type, Mesg_Delete_Query, Mesg_Disconnect_Query}));
    records[1].Take();
    static_cast<Number_Server &>(both).Server::Disconnect();  // the base finds the family's way
    EXPECT_EQ(records[1].Take(), (Heard{Mesg_Disconnect_Query}));
    EXPECT_FALSE(both.Number_Server::IsConnected());
    EXPECT_EQ(both.Bare_Server::GetClient(), &bytes[1]);
}

TEST(Object_Client, derives_minutes_hours_and_days_from_attached_ticks)
{
    Chain chain;
    const auto ticks = [&](int n) {
        chain.client.Take();
        for (int i = 0; i < n; ++i) EXPECT_TRUE(chain.server->Tell(Mesg_Second));
        return chain.client.Take();
    };
    EXPECT_EQ(ticks(2), (Heard{Mesg_Second, Mesg_Minute, Mesg_Hour, Mesg_Day, Mesg_Second, Mesg_Minute, Mesg_Hour,
                               Mesg_Day}));  // not attached: the count rests at 0
    chain.server->Tell(Mesg_Attached);
    EXPECT_EQ(ticks(59), Heard(59, Mesg_Second));
    EXPECT_EQ(ticks(1), (Heard{Mesg_Second, Mesg_Minute}));
    chain.server->Tell(Mesg_Detached);
    EXPECT_EQ(ticks(1), (Heard{Mesg_Second, Mesg_Minute}));  // it rests at 60
    chain.server->Tell(Mesg_Attached);
    const Heard day = ticks(86400);
    EXPECT_TRUE(std::count(day.begin(), day.end(), Mesg_Minute) == 1440 &&
                std::count(day.begin(), day.end(), Mesg_Hour) == 24);
    EXPECT_EQ(Heard(day.end() - 4, day.end()), (Heard{Mesg_Second, Mesg_Minute, Mesg_Hour, Mesg_Day}));
    EXPECT_FALSE(chain.server->Tell(Mesg_Byte_Type));
}

TEST(Object_Client_NULL, accepts_one_type_or_any)
{
    Chain chain;
    const std::set<int> types = {Mesg_Type_Obs,     Mesg_Type_Eph,     Mesg_Type_Pos,  Mesg_Type_Alm,
                                 Mesg_Type_UTC,     Mesg_Type_Voltage, Mesg_Type_IONO, Mesg_Type_10060,
                                 Mesg_Type_Glo_Eph, Mesg_Type_Met,     Mesg_Type_RTCM};
    for (int type = 0; type <= Mesg_Type_20000; ++type) {
        auto *client = Object_Client_NULL::Construct(static_cast<CL_Mesg>(type));
        ASSERT_EQ(client != nullptr, type == Mesg_Object_Type || types.count(type) == 1) << type;
        // Events and WAAS records are left out.
        for (int asked = Mesg_Type_Obs; client && asked <= Mesg_Type_10100; ++asked)
            EXPECT_EQ(client->Send(*chain.server, static_cast<CL_Mesg>(asked)),
                      types.count(asked) == 1 && (type == Mesg_Object_Type || asked == type));
        Object_Client_NULL::Destruct(client);
    }
}

TEST(Object_Client_NULL, drops_what_it_takes)
{
    Chain chain;
    EXPECT_TRUE(chain.server->Connect(Object_Client_NULL::Construct(Mesg_Object_Type)));
    EXPECT_TRUE(chain.server->StaticAlloc());
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(chain.server->Give(i));
    EXPECT_EQ(chain.server->GetCount(), 3u);
    EXPECT_EQ(chain.live, 1);
    EXPECT_TRUE(chain.server->Tell(Mesg_Data_Ready));  // nothing pending: nothing to wait for
}
