#include "kernel/OBJ_SERV.h"

#include "kernel/BYTE_SER.h"

#include "tests/support/records.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <map>
#include <memory>
#include <set>
#include <thread>

using namespace kernel;
using namespace std::literals;

namespace {

using Taker = Taking_Client<>;

// Serves numbers, and keeps the books on them.
class Number_Server : public Object_Server {
public:
    explicit Number_Server(int &live) : Object("numbers"), Object_Server(Mesg_Type_20000), live_(live) {}
    ~Number_Server() override { End(); }

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

    bool short_of_memory = false;

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

// A server of numbers with a client that stays when it goes.
class Chain {
public:
    explicit Chain(bool takes_ownership)
    {
        client.Dont_Delete_Me();
        if (!takes_ownership) client.Answer_With(Mesg_Object_Connect, false);
        EXPECT_TRUE(server->Connect(&client));
        client.Take();
    }
    ~Chain()
    {
        server.reset();
        EXPECT_EQ(live, 0) << "records left";
    }
    int Last() const { return *static_cast<int *>(client.last); }

    int live = 0;
    Taker client;
    std::unique_ptr<Number_Server> server = std::make_unique<Number_Server>(live);
};

Reports Said(int code, const char *text) { return {{3, code, text, "kernel/OBJ_SERV"}}; }

}  // namespace

TEST(Object_Server, connects_in_a_fixed_order)
{
    struct Case {
        std::map<CL_Mesg, bool> answers;
        bool short_of_memory, connected, is_static;
        Heard heard;
        Reports reports;
    };
    const Reports no_answer = Said(25, "Client taker didn't answer");
    const Reports no_type = Said(26, "Client taker couldn't work with type 20000.");
    const Case cases[] = {
        {{}, false, true, false, {1010, 130, 10}, {}},
        {{}, true, true, false, {1010, 130, 10}, {}},  // dynamic mode needs no record yet
        {{{Mesg_Object_Connect, false}}, false, true, true, {1010, 130, 10}, {}},
        {{{Mesg_Reset_Counters, false}}, false, true, false, {1010, 130, 10}, no_answer},
        {{{Mesg_Object_Type, false}}, false, false, false, {1010, 20}, no_type},
        {{{Mesg_Object_Type, false}, {Mesg_Disconnect_Query, false}},
         false,
         false,
         false,
         {1010, 20},
         {no_answer[0], no_type[0]}},
        {{{Mesg_Object_Connect, false}},
         true,
         false,
         false,
         {1010, 130, 20},
         Said(18, "No memory for static data of numbers.")},
    };
    for (const Case &c : cases) {
        const testing::Message trace = testing::Message() << "case " << (&c - cases);
        Heard_Reports reports;
        int live = 0;
        Taker client;
        {
            Number_Server server(live);
            server.short_of_memory = c.short_of_memory;
            client.Dont_Delete_Me();
            for (const auto &[message, answer] : c.answers) client.Answer_With(message, answer);
            EXPECT_EQ(server.Connect(&client), c.connected) << trace;
            EXPECT_EQ(server.IsConnected(), c.connected) << trace;
            EXPECT_EQ(server.StaticAlloc(), c.is_static) << trace;
            EXPECT_EQ(live, c.is_static) << trace;
            EXPECT_EQ(client.Take(), c.heard) << trace;
            EXPECT_EQ(reports->Take(), c.reports) << trace;
        }
        EXPECT_EQ(live, 0) << trace;
    }
}

TEST(Object_Server, connects_to_nobody_with_a_report_and_true)
{
    Heard_Reports reports;
    int live = 0;
    Number_Server server(live);
    EXPECT_TRUE(server.Connect(nullptr));
    EXPECT_TRUE(server.Connect_Typed(nullptr, "%s %d", "kernel/mine", 1));
    const Reported null_client = {3, 21, "Called with NULL-Pointer for client", "kernel/SERVER"};
    EXPECT_EQ(reports->Take(), (Reports{null_client, null_client}));
    EXPECT_FALSE(server.IsConnected());
}

TEST(Object_Server, a_typed_server_asks_for_its_type_last)
{
    Heard_Reports reports;
    int live = 0;
    Number_Server server(live);
    auto *client = new Taker;
    client->Answer_With(Mesg_Type_20000, true);
    EXPECT_TRUE(server.Connect_Typed(client, "", "", 0));
    EXPECT_EQ(client->Take(), (Heard{1010, 130, 10, 20000}));
    client->Answer_With(Mesg_Type_20000, false);
    EXPECT_FALSE(server.Connect_Typed(client, "%s: not %d", "kernel/mine", 1));
    EXPECT_EQ(client->Take(), (Heard{1010, 130, 10, 20000, 20}));
    EXPECT_EQ(reports->Take(), (Reports{{3, 26, "taker: not 20000", "kernel/mine"}}));
    EXPECT_FALSE(server.IsConnected());
    client->Answer_With(Mesg_Object_Type, false);
    EXPECT_FALSE(server.Connect_Typed(client, "", "", 0));
    EXPECT_EQ(client->Take(), (Heard{1010, 20}));  // not asked for its type any more
    Taker::Destruct(client);
}

TEST(Object_Server, offers_a_record_until_it_is_taken)
{
    Chain chain(true);
    auto &client = chain.client;
    EXPECT_TRUE(chain.server->Give(1));
    EXPECT_EQ(client.Take(), (Heard{70, 80}));
    EXPECT_EQ(chain.Last(), 1);
    EXPECT_EQ(chain.server->GetCount(), 1u);
    chain.server->Drop(client.last);

    client.Answer_With(Mesg_Request_Invite, false);  // not now: it stays, until there is a newer one
    void *record = chain.server->Make(2), *again = record;
    EXPECT_FALSE(chain.server->Send_Data(record));
    EXPECT_FALSE(chain.server->Send_Data(again));  // the same one is not freed for itself
    EXPECT_FALSE(chain.server->Give(3));
    EXPECT_EQ(client.Take(), (Heard{70, 70, 70}));
    EXPECT_EQ(chain.live, 1);
    client.Answer_With(Mesg_Request_Invite, true);
    EXPECT_TRUE(chain.server->Work());
    EXPECT_EQ(chain.Last(), 3);
    EXPECT_TRUE(chain.server->Work());  // nothing to do
    EXPECT_EQ(client.Take(), (Heard{70, 80}));
    chain.server->Drop(client.last);

    int told = 0;  // a slow taker
    client.On(Mesg_Data_Ready, [&](Object_Server &server) {
        if (++told == 3) client.last = server.Get_Object();
        return false;
    });
    EXPECT_TRUE(chain.server->Give(4));
    EXPECT_EQ(client.Take(), (Heard{70, 80, 70, 80, 70, 80}));
    EXPECT_EQ(chain.server->GetCount(), 5u);
    chain.server->Drop(client.last);
    EXPECT_EQ(chain.server->Get_Object(), nullptr);
    EXPECT_TRUE(chain.server->Request(0) && !chain.server->Request(1));
}

TEST(Object_Server, frees_what_nobody_takes)
{
    int live = 0;
    Number_Server server(live);
    EXPECT_FALSE(server.Give(1));
    EXPECT_FALSE(server.Work());
    EXPECT_EQ(live, 0);
    auto *client = new Taker;
    client->On(Mesg_Request_Invite, [](Object_Server &from) {
        from.Disconnect();  // in the middle of a delivery
        return true;
    });
    server.Connect(client);
    client->Dont_Delete_Me();
    EXPECT_TRUE(server.Give(2));
    EXPECT_EQ(live, 0);
    EXPECT_EQ(client->Take(), (Heard{1010, 130, 10, 70, 20}));
    Taker::Destruct(client);
}

TEST(Object_Server, reports_a_failed_allocation)
{
    Heard_Reports reports;
    for (const bool dynamic : {true, false}) {
        Chain chain(dynamic);
        chain.server->Reset_Data();
        chain.server->short_of_memory = true;
        EXPECT_EQ(chain.server->Make(1), nullptr);
        EXPECT_EQ(reports->Take(), Said(18, "Client taker couldn't work with type 20000."));
    }
}

TEST(Object_Server, static_mode_uses_one_record)
{
    Chain chain(false);
    int *const record = chain.server->Make(1);
    EXPECT_EQ(chain.server->Make(2), record);
    chain.server->Drop(record);
    for (int value = 0; value < 3; ++value) {
        EXPECT_TRUE(chain.server->Give(value));
        EXPECT_EQ(chain.client.last, record);
        EXPECT_EQ(chain.Last(), value);
    }
    chain.client.Answer_With(Mesg_Request_Invite, false);
    EXPECT_FALSE(chain.server->Give(3));
    EXPECT_FALSE(chain.server->Give(4));  // the pending record is the same one
    EXPECT_EQ(chain.live, 1);
    EXPECT_EQ(chain.server->GetCount(), 3u);
}

TEST(Object_Server, changes_mode_with_a_record_pending)
{
    for (const bool first_owns : {true, false}) {
        Chain chain(first_owns);
        chain.client.Answer_With(Mesg_Request_Invite, false);
        chain.server->Give(1);
        Taker other;
        other.Dont_Delete_Me();
        other.Answer_With(Mesg_Object_Connect, !first_owns);
        EXPECT_TRUE(chain.server->Connect(&other));
        EXPECT_EQ(chain.client.Take(), (Heard{70, 120, 20}));
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

TEST(Object_Server, its_end_is_its_clients_end_unless_that_refuses)
{
    int live = 0;
    bool deleted = false;
    Heard heard;
    auto *client = new Taker(&deleted);
    client->On(Mesg_Delete_Query, [&](Object_Server &) {
        heard = client->heard;
        return true;
    });
    // An owner may give back its record as late as this: the server that can release it is still there.
    client->On(Mesg_Disconnect_Query, [&](Object_Server &server) {
        dynamic_cast<Number_Server &>(server).Drop(client->last);
        return true;
    });
    Taker kept;
    kept.Dont_Delete_Me();
    kept.Answer_With(Mesg_Request_Invite, false);
    {
        Number_Server a(live), b(live);
        a.Connect(client);
        b.Connect(&kept);
        a.Give(1);
        b.Give(2);
        client->Take();
        kept.Take();
        EXPECT_EQ(live, 2);
    }
    EXPECT_TRUE(deleted);
    EXPECT_EQ(heard, (Heard{20, 120}));
    EXPECT_EQ(kept.Take(), (Heard{20, 120}));
    EXPECT_EQ(live, 0);
}

TEST(Object_Server, a_subclass_that_forgets_End_loses_its_record_and_no_more)
{
    class Forgetful : public Object_Server {
    public:
        Forgetful() : Object("forgetful") {}
        void Keep()
        {
            void *pending = &record;
            Send_Data(pending);
        }

    private:
        void *_Alloc_Object() override { return &record; }
        void _Free_Object(void *) override {}
        int record = 0;
    };
    bool deleted = false;
    auto *client = new Taker(&deleted);
    client->Answer_With(Mesg_Request_Invite, false);
    {
        Forgetful server;
        server.Connect(client);
        server.Keep();
    }
    EXPECT_TRUE(deleted);
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

TEST(Object_Server, is_reconnected_while_another_thread_produces)
{
    constexpr int rounds = 400;
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
            auto *client = new Taker;
            if (i % 2) {
                client->Answer_With(Mesg_Object_Connect, false);
            } else {
                client->On(Mesg_Data_Ready, [](Object_Server &from) {
                    static_cast<Number_Server &>(from).Drop(from.Get_Object());
                    return true;
                });
            }
            server.Connect(client);
        }
        producer.join();
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
    for (auto &client : records) client.Dont_Delete_Me();
    for (auto &client : bytes) client.Dont_Delete_Me();
    for (auto &client : records) EXPECT_TRUE(both.Number_Server::Connect(&client));
    for (auto &client : bytes) EXPECT_TRUE(both.Bare_Server::Connect(&client));
    EXPECT_EQ(records[0].Take(), (Heard{1010, 130, 10, 120, 20}));
    EXPECT_EQ(records[1].Take(), (Heard{1010, 130, 10}));
    EXPECT_EQ(bytes[0].Take(), (Heard{1000, 120, 20}));
    static_cast<Number_Server &>(both).Server::Disconnect();  // the base finds the family's way
    EXPECT_EQ(records[1].Take(), (Heard{20}));
    EXPECT_FALSE(both.Number_Server::IsConnected());
    EXPECT_EQ(both.Bare_Server::GetClient(), &bytes[1]);
}

TEST(Object_Client, takes_records_and_owns_them)
{
    int live = 0;
    Number_Server server(live);
    auto *client = Object_Client::Construct();
    ASSERT_TRUE(client);
    EXPECT_STREQ(client->GetName(), "Object_Client");
    EXPECT_TRUE(server.Connect(client));
    EXPECT_FALSE(server.StaticAlloc());
    EXPECT_FALSE(server.Give(1));  // without a typed Send it never wants one
    EXPECT_FALSE(server.Tell(Mesg_Byte_Type));
    EXPECT_TRUE(server.Tell(Mesg_Login));
}

TEST(Object_Client, derives_minutes_hours_and_days_from_attached_ticks)
{
    Chain chain(true);
    auto &client = chain.client;
    const auto ticks = [&](int n) {
        client.Take();
        for (int i = 0; i < n; ++i) EXPECT_TRUE(chain.server->Tell(Mesg_Second));
        return client.Take();
    };
    EXPECT_EQ(ticks(2), (Heard{200, 201, 202, 203, 200, 201, 202, 203}));  // not attached: the count rests at 0
    chain.server->Tell(Mesg_Attached);
    EXPECT_EQ(ticks(59), Heard(59, 200));
    EXPECT_EQ(ticks(1), (Heard{200, 201}));
    chain.server->Tell(Mesg_Detached);
    EXPECT_EQ(ticks(1), (Heard{200, 201}));  // it rests at 60
    chain.server->Tell(Mesg_Attached);
    const Heard day = ticks(86400);
    EXPECT_EQ(std::count(day.begin(), day.end(), 201), 1440);
    EXPECT_EQ(std::count(day.begin(), day.end(), 202), 24);
    EXPECT_EQ(Heard(day.end() - 4, day.end()), (Heard{200, 201, 202, 203}));
}

TEST(Object_Client_NULL, accepts_one_type_or_any)
{
    Heard_Reports reports;
    int live = 0;
    Number_Server server(live);
    const std::set<int> types = {10000, 10010, 10020, 10030, 10040, 10041, 10050, 10060, 10070, 10080, 10090};
    const std::set<int> refused = {0, 80, 1000, 1011, 10045, 10081, 10100, 20000};
    for (const int type : refused)
        EXPECT_EQ(Object_Client_NULL::Construct(static_cast<CL_Mesg>(type)), nullptr) << type;
    for (const int type : {1010, 10000, 10010, 10020, 10030, 10040, 10041, 10050, 10060, 10070, 10080, 10090}) {
        auto *client = Object_Client_NULL::Construct(static_cast<CL_Mesg>(type));
        ASSERT_TRUE(client) << type;
        for (const int asked : types)
            EXPECT_EQ(client->Send(server, static_cast<CL_Mesg>(asked)), type == 1010 || asked == type) << type;
        EXPECT_FALSE(client->Send(server, Mesg_Type_Event));
        EXPECT_FALSE(client->Send(server, Mesg_Byte_Type));
        Object_Client_NULL::Destruct(client);
    }
    EXPECT_EQ(reports->Take(), Reports{});
}

TEST(Object_Client_NULL, drops_what_it_takes)
{
    int live = 0;
    {
        Number_Server server(live);
        auto *client = Object_Client_NULL::Construct(Mesg_Object_Type);
        EXPECT_STREQ(client->GetName(), "Object_Client_NULL");
        EXPECT_TRUE(server.Connect(client));
        EXPECT_TRUE(server.StaticAlloc());
        for (int i = 0; i < 3; ++i) EXPECT_TRUE(server.Give(i));
        EXPECT_EQ(server.GetCount(), 3u);
        EXPECT_EQ(live, 1);
        EXPECT_TRUE(server.Tell(Mesg_Data_Ready));  // nothing pending: nothing to wait for
    }
    EXPECT_EQ(live, 0);
}
