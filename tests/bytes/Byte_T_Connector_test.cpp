#include "kernel/bytes/Byte_T_Connector.h"

#include "tests/support/clients.h"
#include "tests/support/random_clients.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <thread>

using namespace kernel;

namespace {

const char unit[] = "kernel/Byte_T_Connector";

// A server with bytes, a connector, and clients whose order in the tree is that of their numbers. 0 is the main client.
class Tee {
public:
    explicit Tee(int connected, unsigned int size = 4096) : connector(Byte_T_Connector::Construct(size))
    {
        connector->Dont_Delete_Me();
        upstream->Connect(connector.get());
        for (Recording_Client &client : clients) {
            client.Dont_Delete_Me();
            client.Pull_All();
        }
        for (int i = 0; i < connected; ++i) EXPECT_TRUE(connector->Connect(&clients[i]));
        Heard_By_All();
    }
    std::string Heard_By_All()  // "0:140 2:70"
    {
        std::string text;
        for (int i = 0; i < 4; ++i)
            for (const int message : clients[i].Take())
                text += (text.empty() ? "" : " ") + std::to_string(i) + ':' + std::to_string(message);
        return text;
    }
    bool Feed(const std::string &bytes)
    {
        upstream->PutBin(reinterpret_cast<const unsigned char *>(bytes.data()),
                         static_cast<unsigned int>(bytes.size()));
        return connector->Send(*upstream, Mesg_Data_Ready);
    }

    Recording_Client clients[4];
    const std::unique_ptr<Byte_T_Connector> connector;
    const std::unique_ptr<String_Byte_Server> upstream{String_Byte_Server::Construct(65536, nullptr)};
};

}  // namespace

TEST(Byte_T_Connector, connects_a_main_client_and_additional_ones)
{
    Heard_Reports reports;
    for (const unsigned int size : {0U, 1U}) EXPECT_EQ(Byte_T_Connector::Construct(size), nullptr);
    Tee tee(2);
    Byte_T_Connector &connector = *tee.connector;
    EXPECT_FALSE(connector.Connect(&tee.clients[0]) || connector.Connect(&tee.clients[1]) ||
                 connector.Connect(nullptr));
    tee.clients[2].Answer_With(Mesg_Byte_Type, false);
    tee.clients[2].Answer_With(Mesg_Disconnect_Query, false);
    bool asked = false;
    tee.clients[2].On(Mesg_Delete_Query, [&](Byte_Server &) { return asked = true; });
    EXPECT_FALSE(connector.Connect(&tee.clients[2]));
    EXPECT_FALSE(asked);  // it stays its owner's
    connector.Disconnect(&tee.clients[1]);
    connector.Disconnect(&tee.clients[1]);  // of nobody
    EXPECT_EQ(reports->Take(),
              (Reports{{4, 24, "This client recorder is already connected!", unit},
                       {4, 24, "This client recorder is already connected as additional client!", unit},
                       {3, 21, "Called with NULL-Pointer for client", "kernel/SERVER"},
                       {3, 26, "Client recorder couldn't work with type 1000.", "kernel/BYTE_SER"},
                       {1, 0, "Removed additional Client recorder!", unit}}));
    EXPECT_EQ(tee.Heard_By_All(), "1:20 2:1000 2:20");
    EXPECT_TRUE(connector.IsValid() && connector.IsInheritedFrom("Byte-T-Connector"));

    // A main client that refuses leaves the additional ones alone.
    connector.Connect(&tee.clients[1]);
    connector.Disconnect(&tee.clients[0]);
    EXPECT_FALSE(connector.Connect(&tee.clients[1]));  // not both
    EXPECT_FALSE(connector.IsConnected());
    bool gone = false;
    auto *refusing = new Recording_Client(&gone);
    refusing->Answer_With(Mesg_Byte_Type, false);
    EXPECT_FALSE(connector.Connect(refusing));
    EXPECT_FALSE(gone);
    connector.Connect(&tee.clients[0]);
    tee.Heard_By_All();
    EXPECT_EQ(static_cast<Byte_Server &>(connector).Switch(refusing), nullptr);
    EXPECT_TRUE(gone);
    EXPECT_EQ(tee.Heard_By_All(), "0:20");
}

TEST(Byte_T_Connector, refuses_a_client_that_has_connected_itself_meanwhile)
{
    Heard_Reports reports;
    Tee tee(1);
    bool inner = false;
    tee.clients[1].On(Mesg_Byte_Type, [&](Byte_Server &) {
        return std::exchange(inner, true) || tee.connector->Connect(&tee.clients[1]);
    });
    EXPECT_FALSE(tee.connector->Connect(&tee.clients[1]));
    EXPECT_EQ(reports->Take(), (Reports{{4, 24, "Data structures for clients recorder invalid", unit}}));
    EXPECT_EQ(tee.Heard_By_All(), "1:1000 1:1000");  // and is connected
    EXPECT_TRUE(tee.Feed("ab"));
    EXPECT_EQ(tee.clients[1].pulled, "ab");
}

TEST(Byte_T_Connector, copies_blocks_to_every_client)
{
    Heard_Reports reports;
    Tee tee(3);
    EXPECT_TRUE(tee.connector->Send(*tee.upstream, Mesg_Request_Invite));
    const std::string bytes(5000, 'x');
    EXPECT_TRUE(tee.Feed(bytes));
    EXPECT_EQ(tee.Heard_By_All(), "0:70 0:80 1:70 1:80 2:70 2:80");
    for (int i = 0; i < 3; ++i) EXPECT_EQ(tee.clients[i].pulled.size(), 2000U);
    EXPECT_TRUE(tee.upstream->Work());  // by way of the connector's own request
    for (int i = 0; i < 3; ++i) EXPECT_EQ(tee.clients[i].pulled, bytes);

    // One that does not pull loses what its buffer does not hold, and nobody else does.
    bool slow = true;
    Recording_Client late;
    late.Dont_Delete_Me();
    late.On(Mesg_Request_Invite, [&](Byte_Server &server) { return !slow && (server.Request(1), true); });
    late.Pull_All();
    EXPECT_TRUE(tee.connector->Connect(&late));
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(tee.Feed(std::string(1500, static_cast<char>('a' + i))));
    EXPECT_EQ(tee.clients[2].pulled.size(), 12500U);
    EXPECT_EQ(late.pulled, "");
    EXPECT_FALSE(tee.connector->Work());
    slow = false;
    EXPECT_TRUE(tee.connector->Work());
    EXPECT_EQ(late.pulled, std::string(1500, 'a') + std::string(1500, 'b') + std::string(1095, 'c'));
    tee.connector->Disconnect(&tee.clients[0]);
    EXPECT_FALSE(tee.Feed("y"));  // the answer is the main client's
    EXPECT_EQ(late.pulled.back(), 'y');
    tee.connector->Disconnect(&late);
}

// A tap without an upstream of its own answers more than was asked for.
TEST(Byte_T_Connector, takes_an_impossible_count_for_nothing)
{
    class Tap : public Bare_Server {
    public:
        Tap() : Object("tap") {}
        long GetNBytes(unsigned char *, long) override { return 65535; }
    } tap;
    Tee tee(2);
    EXPECT_TRUE(tee.connector->Send(tap, Mesg_Data_Ready));
    EXPECT_EQ(tee.clients[0].pulled + tee.clients[1].pulled, "");
}

TEST(Byte_T_Connector, passes_notices_and_ticks)
{
    Tee tee(3);
    Bare_Server upstream;
    const auto send = [&](CL_Mesg message) {
        const bool answer = tee.connector->Send(upstream, message);
        return tee.Heard_By_All() + (answer ? " +" : " -");
    };
    tee.connector->PutStr("left");
    EXPECT_EQ(send(Mesg_Detached), " +");
    EXPECT_EQ(tee.connector->MinAvail(0), 0);
    tee.connector->PutStr("left");
    EXPECT_EQ(send(Mesg_Attached), "0:140 1:140 2:140 +");
    EXPECT_EQ(tee.connector->MinAvail(0), 0);
    EXPECT_EQ(send(Mesg_Type_10150), " +");
    for (const CL_Mesg message : {Mesg_Reset_Counters, Mesg_Disconnect_Query, Mesg_Status_250, Mesg_Byte_Type})
        EXPECT_EQ(send(message), " +");
    EXPECT_EQ(send(Mesg_Object_Type), " -");
    EXPECT_EQ(send(Mesg_Login), "0:160 1:160 2:160 -");  // all are asked, whatever the first says
    EXPECT_EQ(tee.clients[1].senders.back(), &upstream);
    tee.connector->Send(*tee.upstream, Mesg_Reset_Counters);
    for (int tick = 0; tick < 7200; ++tick) tee.connector->Send(*tee.upstream, Mesg_Second);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(tee.clients[i].Ticks(), 7200U);
        const Heard heard = tee.clients[i].Take();
        EXPECT_EQ(std::count(heard.begin(), heard.end(), 201), 120);  // one minute a minute
        EXPECT_EQ(std::count(heard.begin(), heard.end(), 202), 2);
    }
}

TEST(Byte_T_Connector, finds_clients_after_switching_and_disconnecting)
{
    Heard_Reports reports;
    Tee tee(3);
    Byte_T_Connector &connector = *tee.connector;
    connector.Switch(&tee.clients[1], &tee.clients[3]);
    EXPECT_EQ(tee.Heard_By_All(), "1:150 3:1000 3:140");
    EXPECT_FALSE(connector.Connect(&tee.clients[3]));
    connector.Switch(&tee.clients[0], &tee.clients[3]);  // would be fed twice
    connector.Switch(&tee.clients[2], &tee.clients[0]);
    EXPECT_EQ(reports->Take(),
              (Reports{{4, 24, "This client recorder is already connected as additional client!", unit},
                       {4, 24, "This client recorder is already connected as additional client!", unit},
                       {4, 24, "This client recorder is already connected!", unit}}));
    EXPECT_FALSE(connector.PreDisconnect(&tee.clients[1]));
    EXPECT_TRUE(connector.PreDisconnect(&tee.clients[3]) && connector.PreDisconnect(&tee.clients[0]));
    EXPECT_TRUE(connector.PreDisconnect());
    EXPECT_EQ(tee.Heard_By_All(), "0:21 0:21 2:21 3:21 3:21");
    connector.Disconnect();
    EXPECT_EQ(tee.Heard_By_All(), "0:20 2:20 3:20");
    EXPECT_FALSE(connector.Work());  // the additional clients' buffers are still there
    for (Recording_Client &client : tee.clients) EXPECT_TRUE(connector.Connect(&client));
    EXPECT_TRUE(tee.Feed("z"));
    for (Recording_Client &client : tee.clients) EXPECT_EQ(client.pulled, "z");
    connector.Switch(&tee.clients[0], nullptr);  // the main client stays
    EXPECT_TRUE(connector.IsConnected());
    EXPECT_EQ(reports->Take(), Reports{});
}

// What the thread sanitizer is for: others connect and disconnect while data run.
TEST(Byte_T_Connector, stands_connections_from_other_threads)
{
    Heard_Reports reports;
    Tee tee(2);
    std::atomic<bool> stop{false};
    std::thread host([&] {
        for (int i = 0; i < 300 && !stop; ++i) {
            EXPECT_TRUE(tee.connector->Connect(&tee.clients[2]));
            EXPECT_TRUE(tee.connector->PreDisconnect());
            tee.connector->Switch(&tee.clients[2], &tee.clients[3]);
            tee.connector->Disconnect(&tee.clients[3]);
        }
        stop = true;
    });
    std::string fed;
    while (!stop) {
        tee.Feed("0123456789");
        fed += "0123456789";
        tee.connector->Send(*tee.upstream, Mesg_Second);
    }
    host.join();
    for (int i = 0; i < 2; ++i) EXPECT_EQ(tee.clients[i].pulled, fed);
    for (int i = 2; i < 4; ++i) EXPECT_EQ(tee.clients[i].pulled.size() % 10, 0U);
}

namespace {

constexpr unsigned int ring_size = 64;

template <class A_Connector>
void Switch_To_New(A_Connector &c, unsigned int number)
{
    const int old = c.Pick(number);
    c.Switch(old, c.New());
}

// What a random client does inside a message, to the connector or to its model.
template <class A_Connector>
void Act_On(A_Connector &c, unsigned int action, unsigned int number)
{
    switch (action) {
    case 0:
    case 1: c.Disconnect(c.Pick(number)); break;
    case 2: Switch_To_New(c, number); break;
    case 3: c.Connect(c.New()); break;
    case 4: c.Disconnect(); break;
    case 5: c.PreDisconnect(); break;
    default: c.Pass();
    }
}

// The connector, with clients that ask for a byte and pull all there is, when they agree to that.
class Real_Connector {
public:
    explicit Real_Connector(unsigned int seed) : play(seed)
    {
        the_connector->Dont_Delete_Me();
        upstream->Connect(the_connector.get());
    }
    ~Real_Connector() { play.End(); }

    int New()
    {
        auto *client = new A_Client(*this, ++count);
        addresses[count] = static_cast<Byte_Client *>(client);
        return count;
    }
    Byte_Client *At(int client) { return alive.contains(client) ? alive[client] : nullptr; }
    int Pick(unsigned int number) const
    {
        return alive.empty() ? 0 : std::next(alive.begin(), static_cast<long>(number % alive.size()))->first;
    }
    bool Connect(int client) { return the_connector->Connect(At(client)); }
    void Disconnect(int client) { the_connector->Disconnect(At(client)); }
    void Disconnect() { the_connector->Disconnect(); }
    bool PreDisconnect() { return the_connector->PreDisconnect(); }
    void Switch(int old, int client) { the_connector->Switch(At(old), At(client)); }
    bool Work() { return the_connector->Work(); }
    bool Pass() { return the_connector->Send(*upstream, Mesg_Status_50); }
    bool Feed(const std::string &bytes)
    {
        upstream->PutStr(bytes.c_str());
        return the_connector->Send(*upstream, Mesg_Data_Ready);
    }

    Play play;
    int count = 0;
    std::map<int, const Byte_Client *> addresses;
    std::map<int, std::string> pulled;
    Random_Client::Alive alive;
    const std::unique_ptr<Byte_T_Connector> the_connector{Byte_T_Connector::Construct(ring_size)};
    const std::unique_ptr<String_Byte_Server> upstream{String_Byte_Server::Construct(4096, nullptr)};

private:
    class A_Client : public Random_Client {
    public:
        A_Client(Real_Connector &real, int number)
            : Object("random"), Random_Client(real.play, real.alive, number), real_(real)
        {
        }
        // It may be deleted inside.
        bool Send(Byte_Server &server, CL_Mesg message) override
        {
            Real_Connector &real = real_;
            const int number = Number();
            if (message == Mesg_Request_Invite) server.Request(1);
            const bool answer =
                play_.Hear(number, message, [&](unsigned int a, unsigned int n) { Act_On(real, a, n); });
            char block[ring_size];
            if (message == Mesg_Data_Ready && answer)
                real.pulled[number].append(block, static_cast<std::size_t>(server.GetNBytes(block, ring_size)));
            return answer;
        }

    private:
        Real_Connector &real_;
    };
};

// The connector as it is described, with numbers for clients; their addresses are the real ones'.
class Connector_Model {
public:
    using Addresses = std::map<int, const Byte_Client *>;
    struct Ring {
        int client = 0;
        std::string held = {};
        int pass = 0;
        std::size_t requested = 0;
    };
    using Node = std::shared_ptr<Ring>;

    Connector_Model(unsigned int seed, const Addresses &addresses) : play(seed), addresses_(addresses) {}

    int New()
    {
        alive.insert(++count);
        return count;
    }
    int Pick(unsigned int number) const
    {
        return alive.empty() ? 0 : *std::next(alive.begin(), static_cast<long>(number % alive.size()));
    }
    bool Connect(int client)
    {
        return Visit([&] {
            if (Is_Taken(client)) return false;
            if (!main.client) return Replacing([&] { return Connect_To(main, client); });
            for (const auto &[address, node] : std::map(nodes_))
                if (!node->client) Retire(address);
            const auto node = std::make_shared<Ring>(Ring{.pass = pass_});
            if (!Connect_To(*node, client) || Find(client)) return false;
            nodes_[At(client)] = node;
            return true;
        });
    }
    void Disconnect()
    {
        Visit([&] {
            Let_Go(main);
            if (!replaces_) For_Each([this](Ring &ring) { Let_Go(ring); });
            return true;
        });
    }
    void Disconnect(int client)
    {
        Visit([&] {
            const Node node = Find(client);
            if (!node && client && client == main.client) Let_Go(main);
            if (node) Let_Go(*node);
            if (node && Find(client) == node) Retire(At(client));
            return true;
        });
    }
    void Switch(int old, int client)
    {
        Visit([&] {
            const Node node = Find(old);
            if ((!node && (!old || old != main.client)) || Is_Taken(client)) return false;
            if (!node) return Replacing([&] { return Switch_To(main, client); });
            Switch_To(*node, client);
            const auto under = std::find_if(nodes_.begin(), nodes_.end(), [&](auto &n) { return n.second == node; });
            if (under == nodes_.end() || !node->client || under->first == At(node->client)) return false;
            const Node other = Find(node->client);
            if (other && other->client) {
                node->client = 0;
                Retire(under->first);
                return false;
            }
            if (other) Retire(At(node->client));
            Erase(under->first);
            nodes_[At(node->client)] = node;
            return true;
        });
    }
    bool PreDisconnect() { return All(Mesg_PreDisconnect_Query); }
    bool Pass() { return All(Mesg_Status_50); }
    bool Work()
    {
        return Visit([&] {
            bool answer = Work(main);
            For_Each([&](Ring &ring) { answer = Work(ring) && answer; });
            return answer;
        });
    }
    bool Feed(const std::string &bytes)
    {
        return Visit([&] {
            const int pass = ++pass_;
            For_Each([&](Ring &ring) {
                if (std::exchange(ring.pass, pass) != pass) Put(ring, bytes), Work(ring);
            });
            return Put(main, bytes), Work(main);
        });
    }
    std::set<int> Connected() const
    {
        std::set<int> connected{main.client};
        for (const auto &[address, node] : nodes_) connected.insert(node->client);
        return connected;
    }

    Play play;
    int count = 0;
    std::set<int> alive;
    std::map<int, std::string> pulled;
    Ring main;

private:
    const Byte_Client *At(int client) const { return client ? addresses_.at(client) : nullptr; }
    Node Find(int client) const
    {
        const auto found = nodes_.find(At(client));
        return found == nodes_.end() ? nullptr : found->second;
    }
    bool Is_Taken(int client) const { return client == main.client || (Find(client) && Find(client)->client); }
    bool Ask(int client, int message)
    {
        return client && play.Hear(client, message, [this](unsigned int a, unsigned int n) { Act_On(*this, a, n); });
    }
    void Let_Go(Ring &ring)
    {
        const int asked = ring.client;
        if (Ask(asked, Mesg_Disconnect_Query) && ring.client == asked) ring.client = 0;
    }
    bool Connect_To(Ring &ring, int client)
    {
        ring.client = client;
        if (Ask(client, Mesg_Byte_Type)) return true;
        Let_Go(ring);
        return false;
    }
    bool Switch_To(Ring &ring, int client)
    {
        // Again when the client has changed inside the messages.
        for (;;) {
            const int old = ring.client;
            if (!old) return Connect_To(ring, client);
            if (!Ask(client, Mesg_Byte_Type)) {
                Let_Go(ring);
                Delete(client);
                return false;
            }
            Ask(old, Mesg_Detached);
            if (ring.client != old) continue;
            ring.client = client;
            Ask(client, Mesg_Attached);
            return true;
        }
    }
    void Delete(int client)
    {
        play.happened.emplace_back(client, deleted);
        alive.erase(client);
    }
    void Retire(const Byte_Client *address)
    {
        leaving_.push_back(nodes_.at(address));
        Erase(address);
    }
    void Put(Ring &ring, const std::string &bytes) { ring.held += bytes.substr(0, ring_size - 1 - ring.held.size()); }
    // The invitation, and the pull of all there is.
    bool Work(Ring &ring)
    {
        if (!ring.client) return false;
        while (!ring.held.empty()) {
            if (!Ask(ring.client, Mesg_Request_Invite)) return false;
            const int client = ring.client;
            if (!Ask(client, Mesg_Data_Ready)) return false;
            pulled[client] += std::exchange(ring.held, {});
        }
        return true;
    }
    bool All(int message)
    {
        return Visit([&] {
            bool answer = !main.client || Ask(main.client, message);
            For_Each([&](Ring &ring) {
                if (ring.client && !Ask(ring.client, message)) answer = false;
            });
            return answer;
        });
    }
    // What a walk comes to next; when that goes, what followed it then.
    const Byte_Client *After(const Byte_Client *address) const
    {
        const auto next = nodes_.upper_bound(address);
        return next == nodes_.end() ? nullptr : next->first;
    }
    void Erase(const Byte_Client *address)
    {
        for (const Byte_Client **next : walks_)
            if (*next == address) *next = After(address);
        nodes_.erase(address);
    }
    template <class Action>
    void For_Each(Action action)
    {
        const Byte_Client *next = After(nullptr);
        walks_.push_back(&next);
        while (next) {
            const Node node = nodes_.at(next);
            next = After(next);
            action(*node);
        }
        walks_.pop_back();
    }
    template <class Action>
    bool Replacing(Action action)
    {
        const bool nested = std::exchange(replaces_, true);
        const bool answer = action();
        replaces_ = nested;
        return answer;
    }
    // Nodes that were taken out go at the end of the outermost operation, the last one first.
    template <class Operation>
    bool Visit(Operation operation)
    {
        ++visits_;
        const bool answer = operation();
        if (--visits_ > 0) return answer;
        std::vector<Node> leaving = std::exchange(leaving_, {});
        for (; !leaving.empty(); leaving.pop_back()) {
            const int client = leaving.back()->client;
            Let_Go(*leaving.back());
            if (Ask(client, Mesg_Delete_Query)) Delete(client);
        }
        return answer;
    }

    const Addresses &addresses_;
    std::map<const Byte_Client *, Node, std::less<>> nodes_;
    std::vector<Node> leaving_;
    std::vector<const Byte_Client **> walks_;
    int visits_ = 0;
    int pass_ = 0;
    bool replaces_ = false;
};

}  // namespace

TEST(Byte_T_Connector, agrees_with_a_model_whatever_clients_do_inside_their_messages)
{
    Heard_Reports reports;
    for (unsigned int seed = 1; seed <= 400; ++seed) {
        Real_Connector real(seed);
        Connector_Model model(seed, real.addresses);
        for (int step = 0; step < 250; ++step) {
            const unsigned int operation = model.play.Dice(16, 5), number = model.play.Dice(1000, 6);
            const std::string bytes(1 + number % 40, static_cast<char>('a' + step % 26));
            const auto both = [&](auto run) {
                const bool answer = run(real);
                ASSERT_EQ(run(model), answer) << seed << ' ' << step << ' ' << operation;
            };
            switch (operation) {
            case 0: both([](auto &c) { return c.Disconnect(), true; }); break;
            case 1: both([](auto &c) { return c.PreDisconnect(); }); break;
            case 2: both([=](auto &c) { return c.Disconnect(c.Pick(number)), true; }); break;
            case 3: both([=](auto &c) { return Switch_To_New(c, number), true; }); break;
            case 4: both([](auto &c) { return c.Work(); }); break;
            case 5:
            case 6:
            case 7:
            case 8:
            case 9: both([](auto &c) { return c.Connect(c.New()); }); break;
            default: both([=](auto &c) { return c.Feed(bytes); });
            }
            ASSERT_EQ(Difference(real.play.happened, model.play.happened), "")
                << seed << ' ' << step << ' ' << operation;
            ASSERT_EQ(real.pulled, model.pulled) << seed << ' ' << step << ' ' << operation;
            // Clients that are nobody's any more.
            const std::set<int> connected = model.Connected();
            for (const int client : std::set<int>(model.alive))
                if (!connected.contains(client)) model.alive.erase(client), delete real.alive[client];
            real.play.Turn();
            model.play.Turn();
        }
        reports->Take();
    }
}
