#include "kernel/bytes/Byte_Client_Switch.h"

#include "kernel/bytes/String_Byte_Server.h"

#include "tests/support/clients.h"
#include "tests/support/random_clients.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <memory>

using namespace kernel;

namespace {

class Asked_Server : public String_Byte_Server {
public:
    Asked_Server() : Object("upstream"), String_Byte_Server(64, nullptr) {}
    bool Request(long n) override
    {
        requests.push_back(n);
        return String_Byte_Server::Request(n);
    }
    std::vector<long> requests;
};

// An upstream server that notes what it is asked for, a switch, and clients A, B and C, which live until the end.
class Fork {
public:
    explicit Fork(int connected)
    {
        the_switch->Dont_Delete_Me();
        upstream.Connect(the_switch.get());
        for (Recording_Client &client : clients) client.Dont_Delete_Me();
        for (int i = 0; i < connected; ++i) the_switch->Connect(&clients[i]);
        for (Recording_Client &client : clients) {
            client.Take();
            client.senders.clear();
        }
    }
    // "A:210 C:220", in the order of the clients.
    std::string Heard_By_All()
    {
        std::string text;
        for (int i = 0; i < 3; ++i)
            for (const int message : clients[i].Take())
                text += (text.empty() ? "" : " ") + std::string(1, static_cast<char>('A' + i)) + ':' +
                        std::to_string(message);
        return text;
    }
    std::string Send(CL_Mesg message)
    {
        const std::string answer = the_switch->Send(upstream, message) ? " +" : " -";
        return Heard_By_All() + answer;
    }
    std::string Order()  // the current client, then the parked ones
    {
        std::string text;
        for (int i = 0; Byte_Client *client = the_switch->Get_Client(i); ++i)
            text += static_cast<char>('A' + (static_cast<Recording_Client *>(client) - clients));
        return text;
    }

    Recording_Client clients[3];
    Recording_Client &a = clients[0], &b = clients[1], &c = clients[2];
    const std::unique_ptr<Byte_Client_Switch> the_switch{Byte_Client_Switch::Construct()};
    Asked_Server upstream;
};

}  // namespace

TEST(Byte_Client_Switch, connects_and_parks)
{
    Fork fork(0);
    EXPECT_FALSE(fork.the_switch->Connect(nullptr));
    EXPECT_TRUE(fork.the_switch->Connect(&fork.a) && fork.the_switch->Connect(&fork.a));
    EXPECT_EQ(fork.Heard_By_All(), "A:1000");
    EXPECT_TRUE(fork.the_switch->Connect(&fork.b) && fork.the_switch->Connect(&fork.c));
    EXPECT_EQ(fork.Heard_By_All(), "A:150 B:1000 B:150 C:1000");
    EXPECT_EQ(fork.Order(), "CAB");
    EXPECT_EQ(fork.the_switch->Get_Client(-1), nullptr);
    EXPECT_EQ(fork.the_switch->Get_Client(3), nullptr);
    EXPECT_TRUE(fork.the_switch->Connect(&fork.a));  // changes places with the current one; neither is told
    EXPECT_EQ(fork.Heard_By_All(), "");
    EXPECT_EQ(fork.Order(), "ACB");
    fork.the_switch->Disconnect();
    EXPECT_EQ(fork.Heard_By_All(), "A:20 B:20 C:20");
    EXPECT_EQ(fork.Order(), "");
    EXPECT_TRUE(fork.the_switch->IsInheritedFrom("Switch for Byte Clients"));
    EXPECT_STREQ(fork.the_switch->GetName(), "Switch for Byte Clients");
}

TEST(Byte_Client_Switch, keeps_its_clients_when_a_new_one_refuses)
{
    Heard_Reports reports;
    Fork fork(2);
    fork.c.Answer_With(Mesg_Byte_Type, false);
    EXPECT_FALSE(fork.the_switch->Connect(&fork.c));
    EXPECT_EQ(fork.Heard_By_All(), "B:150 C:1000 C:20");
    EXPECT_EQ(fork.Order(), "BA");
    EXPECT_EQ(reports->Take(), (Reports{{3, 26, "Client recorder couldn't work with type 1000.", "kernel/BYTE_SER"}}));
    // From the base, which hands the stream over: the current client leaves, the parked one stays.
    bool gone = false;
    auto *refusing = new Recording_Client(&gone);
    refusing->Answer_With(Mesg_Byte_Type, false);
    EXPECT_EQ(fork.the_switch->Switch(refusing), nullptr);
    EXPECT_TRUE(gone);
    EXPECT_EQ(fork.Heard_By_All(), "B:20");
    EXPECT_EQ(fork.the_switch->Get_Client(1), &fork.a);
    fork.the_switch->Connect(&fork.b);
    EXPECT_EQ(fork.the_switch->Switch(&fork.a), &fork.b);  // parked until now, and not any more
    EXPECT_EQ(fork.Order(), "A");
}

TEST(Byte_Client_Switch, passes_messages_to_whom_they_are_meant_for)
{
    Fork fork(3);  // C is the current one
    for (const CL_Mesg message : {Mesg_Attached, Mesg_Detached, Mesg_Start, Mesg_Second, Mesg_Minute, Mesg_Hour,
                                  Mesg_Day, Mesg_Status_220, Mesg_Status_230, Mesg_Byte_Type}) {
        const std::string m = std::to_string(message);
        EXPECT_EQ(fork.Send(message), "A:" + m + " B:" + m + " C:" + m + " +");
    }
    EXPECT_EQ(fork.Send(Mesg_Login), "C:160 -");  // the first to refuse ends it
    fork.c.Answer_With(Mesg_Login, true);
    EXPECT_EQ(fork.Send(Mesg_Login), "A:160 C:160 -");
    for (const CL_Mesg message : {Mesg_Reset_Counters, Mesg_Disconnect_Query, Mesg_Status_40, Mesg_Status_50,
                                  Mesg_Status_90, Mesg_Status_210, Mesg_Status_250})
        EXPECT_EQ(fork.Send(message), "C:" + std::to_string(message) + " +");
    for (Byte_Server *server : fork.c.senders) EXPECT_NE(server, fork.the_switch.get());
    fork.the_switch->Disconnect();
    EXPECT_EQ(Fork(0).Send(Mesg_Attached), " +");
    EXPECT_EQ(Fork(0).Send(Mesg_Data_Ready), " -");  // the base's answers, without anybody
}

TEST(Byte_Client_Switch, hands_over_when_the_current_client_refuses)
{
    Fork fork(3);
    fork.a.Answer_With(Mesg_Status_210, false);
    EXPECT_EQ(fork.Send(Mesg_Request_Invite), "A:210 B:210 B:220 C:70 C:230 +");
    EXPECT_EQ(fork.Order(), "BAC");
    EXPECT_EQ(fork.upstream.requests, std::vector<long>{0});
    fork.c.Answer_With(Mesg_Status_210, false);
    EXPECT_EQ(fork.Send(Mesg_Request_Invite), "A:210 B:70 B:210 C:210 +");  // nobody else: it goes on itself
    fork.b.Answer_With(Mesg_Status_210, false);
    EXPECT_EQ(fork.Send(Mesg_Request_Invite), "A:210 B:70 B:210 C:210 -");
    EXPECT_EQ(fork.Order(), "BAC");
    EXPECT_FALSE(Fork(0).the_switch->FindNewClient());
}

TEST(Byte_Client_Switch, does_not_offer_for_ever_what_nobody_takes)
{
    Fork fork(3);
    for (Recording_Client &client : fork.clients)
        client.On(Mesg_Request_Invite, [](Byte_Server &s) { return s.Request(1), true; });
    fork.upstream.PutStr("ab");
    EXPECT_FALSE(fork.upstream.Work());
    std::ptrdiff_t offers = 0;
    for (Recording_Client &client : fork.clients)
        offers += std::count(client.heard.begin(), client.heard.end(), static_cast<int>(Mesg_Data_Ready));
    EXPECT_EQ(offers, 4);
    Recording_Client taker;
    taker.Dont_Delete_Me();
    taker.Pull(1);
    fork.the_switch->Connect(&taker);
    EXPECT_TRUE(fork.upstream.Work());
    EXPECT_EQ(taker.pulled, "ab");
    fork.the_switch->Disconnect();
}

TEST(Byte_Client_Switch, deletes_parked_clients_that_agree_although_it_refuses_itself)
{
    bool gone[3] = {};
    Bare_Server upstream;
    auto *the_switch = Byte_Client_Switch::Construct("mine");
    the_switch->Dont_Delete_Me();
    Recording_Client *clients[3];
    for (int i = 0; i < 3; ++i) the_switch->Connect(clients[i] = new Recording_Client(&gone[i]));
    clients[0]->Answer_With(Mesg_Delete_Query, false);
    const std::unique_ptr<Recording_Client> kept(clients[0]);
    EXPECT_FALSE(the_switch->Send(upstream, Mesg_Delete_Query));
    EXPECT_TRUE(!gone[0] && gone[1] && !gone[2]);
    EXPECT_EQ(kept->senders.back(), &upstream);
    EXPECT_EQ(the_switch->Get_Client(1), nullptr);
    bool late_gone = false;
    the_switch->Connect(new Recording_Client(&late_gone));  // parks the current one
    Byte_Client_Switch::Destruct(the_switch);
    EXPECT_TRUE(gone[2] && late_gone);
}

TEST(Byte_Client_Switch, every_client_hears_one_minute_a_minute)
{
    Fork fork(3);
    for (int tick = 1; tick <= 7200; ++tick) fork.the_switch->Send(fork.upstream, Mesg_Second);
    for (Recording_Client &client : fork.clients) {
        const auto heard = client.Take();
        EXPECT_EQ(std::count(heard.begin(), heard.end(), 200), 7200);
        EXPECT_EQ(std::count(heard.begin(), heard.end(), 201), 120);
        EXPECT_EQ(std::count(heard.begin(), heard.end(), 202), 2);
    }
}

TEST(Byte_Client_Switch, ends_the_process_when_it_is_asked_for_data)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // Without a handler Wine starts its debugger.
    const auto ask = [] {
        std::signal(SIGSEGV, [](int) { std::_Exit(1); });
        Fork(1).the_switch->Request(1);
    };
    EXPECT_DEATH(ask(), "");
}

namespace {

// What a random client does inside a message, to the switch or to its model.
template <class A_Switch>
void Act_On(A_Switch &s, unsigned int action, unsigned int number)
{
    switch (action) {
    case 0: s.Disconnect(); break;
    case 1: s.Query_Deletion(); break;
    case 2: s.FindNewClient(); break;
    case 3: s.Reconnect(number); break;
    case 4: s.PreDisconnect(); break;
    default: s.Pass(number % 2 == 0 ? Mesg_Data_Ready : Mesg_Status_50);
    }
}

// The switch as it is described, with numbers for clients.
class Switch_Model {
public:
    explicit Switch_Model(unsigned int seed) : play(seed) {}

    bool Ask(int client, int message)
    {
        return play.Hear(client, message, [this](unsigned int a, unsigned int n) { Act_On(*this, a, n); });
    }
    bool Is_Parked(int client) const { return std::find(parked.begin(), parked.end(), client) != parked.end(); }
    bool Connect_Base(int client)
    {
        const bool nested = std::exchange(connecting, true);
        current = client;
        const bool accepted = Ask(client, Mesg_Byte_Type);
        if (!accepted) Disconnect();
        connecting = nested;
        return accepted;
    }
    bool Connect(int client)
    {
        if (connecting) return false;
        if (client == current) return true;
        if (!current) return Connect_Base(client);
        for (int &place : parked)
            if (place == client) return std::swap(place, current), true;
        Ask(current, Mesg_Detached);
        const int old = current;
        const bool connected = Connect_Base(client);
        if (!old) return connected;
        if (connected && current)
            parked.push_back(old);
        else
            current = old;
        return connected;
    }
    void Disconnect_Base()
    {
        const int asked = current;
        if (asked && Ask(asked, Mesg_Disconnect_Query) && current == asked) current = 0;
    }
    void Disconnect()
    {
        Disconnect_Base();
        if (connecting) return;
        for (const int client : std::exchange(parked, {})) {
            current = client;
            Disconnect_Base();
        }
    }
    bool PreDisconnect()
    {
        bool answer = !current || Ask(current, Mesg_PreDisconnect_Query);
        for (std::size_t i = 0; i < parked.size(); ++i) answer = Ask(parked[i], Mesg_PreDisconnect_Query) && answer;
        return answer;
    }
    bool FindNewClient()
    {
        if (!current || connecting) return false;
        for (std::size_t i = 0; i < parked.size(); ++i) {
            const int client = parked[i];
            if (!Ask(client, Mesg_Status_210)) continue;
            if (!current || !Is_Parked(client)) return false;
            Ask(current, Mesg_Status_230);
            if (!Is_Parked(client)) return false;
            Ask(client, Mesg_Status_220);
            if (!Is_Parked(client)) return false;
            if (current)
                std::swap(*std::find(parked.begin(), parked.end(), client), current);
            else
                parked.erase(std::find(parked.begin(), parked.end(), client)), current = client;
            return true;
        }
        return current && Ask(current, Mesg_Status_210);
    }
    bool Query_Deletion()
    {
        for (const int client : std::exchange(parked, {}))
            if (Ask(client, Mesg_Delete_Query)) play.happened.emplace_back(client, deleted);
        return false;
    }
    bool Broadcast(int message)
    {
        if (!current) return true;
        if (!Ask(current, message)) return false;
        for (std::size_t i = 0; i < parked.size(); ++i)
            if (!Ask(parked[i], message)) return false;
        return true;
    }
    bool Pass(int message)
    {
        if (message == Mesg_Attached) return Broadcast(message);
        if (!current) return message != Mesg_Data_Ready;
        if (Ask(current, message)) return refusals = message == Mesg_Data_Ready ? 0 : refusals, true;
        if (message == Mesg_Data_Ready && ++refusals > parked.size() + 1) return refusals = 0, false;
        return FindNewClient();
    }
    void Reconnect(unsigned int number)
    {
        if (current && !parked.empty()) Connect(parked[number % parked.size()]);
    }

    Play play;
    int current = 0;
    std::vector<int> parked;
    std::size_t refusals = 0;
    bool connecting = false;
};

class Real_Switch {
public:
    explicit Real_Switch(unsigned int seed) : play(seed)
    {
        the_switch->Dont_Delete_Me();
        upstream.Connect(the_switch.get());
    }

    ~Real_Switch() { play.End(); }
    bool Connect(int client) { return the_switch->Connect(alive.contains(client) ? alive[client] : New(client)); }
    void Disconnect() { the_switch->Disconnect(); }
    bool PreDisconnect() { return the_switch->PreDisconnect(); }
    bool FindNewClient() { return the_switch->FindNewClient(); }
    bool Query_Deletion() { return the_switch->Send(upstream, Mesg_Delete_Query); }
    bool Pass(int message) { return the_switch->Send(upstream, static_cast<CL_Mesg>(message)); }
    void Reconnect(unsigned int number)
    {
        const std::vector<int> order = Order();
        if (order.size() > 1 && order[0]) Connect(order[1 + number % (order.size() - 1)]);
    }
    std::vector<int> Order() const
    {
        std::vector<int> order;
        for (int i = 0; i == 0 || the_switch->Get_Client(i); ++i) {
            const auto *client = static_cast<Random_Client *>(the_switch->Get_Client(i));
            order.push_back(client ? client->Number() : 0);
        }
        return order;
    }
    // Clients that are nobody's any more.
    void Tidy()
    {
        const std::vector<int> order = Order();
        for (auto next = alive.begin(); next != alive.end();) {
            Random_Client *client = (next++)->second;
            if (std::find(order.begin(), order.end(), client->Number()) == order.end()) delete client;
        }
    }

    Play play;
    Random_Client::Alive alive;
    const std::unique_ptr<Byte_Client_Switch> the_switch{Byte_Client_Switch::Construct()};
    Asked_Server upstream;

private:
    class Client : public Random_Client {
    public:
        Client(Real_Switch &real, int number)
            : Object("random"), Random_Client(real.play, real.alive, number), real_(real)
        {
        }
        bool Send(Byte_Server &, CL_Mesg message) override
        {
            Real_Switch &real = real_;
            return play_.Hear(Number(), message, [&](unsigned int a, unsigned int n) { Act_On(real, a, n); });
        }

    private:
        Real_Switch &real_;
    };
    Random_Client *New(int number) { return new Client(*this, number); }
};

}  // namespace

TEST(Byte_Client_Switch, agrees_with_a_model_whatever_clients_do_inside_their_messages)
{
    Heard_Reports reports;
    int count = 0;
    for (unsigned int seed = 1; seed <= 400; ++seed) {
        Real_Switch real(seed);
        Switch_Model model(seed);
        for (int step = 0; step < 250; ++step) {
            const unsigned int operation = model.play.Dice(12, 5), number = model.play.Dice(1000, 6);
            const auto both = [&](auto run) {
                const bool answer = run(real);
                ASSERT_EQ(run(model), answer) << seed << ' ' << step << ' ' << operation;
            };
            switch (operation) {
            case 0: both([](auto &s) { return s.Disconnect(), true; }); break;
            case 1: both([](auto &s) { return s.Query_Deletion(); }); break;
            case 2: both([](auto &s) { return s.PreDisconnect(); }); break;
            case 3: both([](auto &s) { return s.FindNewClient(); }); break;
            case 4: both([=](auto &s) { return s.Reconnect(number), true; }); break;
            case 5: both([](auto &s) { return s.Pass(Mesg_Attached); }); break;
            case 6: both([](auto &s) { return s.Pass(Mesg_Data_Ready); }); break;
            case 7: both([](auto &s) { return s.Pass(Mesg_Status_90); }); break;
            default: ++count; both([=](auto &s) { return s.Connect(count); });
            }
            std::vector<int> order{model.current};
            order.insert(order.end(), model.parked.begin(), model.parked.end());
            ASSERT_EQ(real.Order(), order) << seed << ' ' << step << ' ' << operation;
            ASSERT_EQ(Difference(real.play.happened, model.play.happened), "")
                << seed << ' ' << step << ' ' << operation;
            real.Tidy();
            real.play.Turn();
            model.play.Turn();
        }
        reports->Take();
    }
}
