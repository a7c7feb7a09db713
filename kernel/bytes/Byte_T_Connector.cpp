#include "kernel/bytes/Byte_T_Connector.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/bytes/relay_support_internal.h"
#include "kernel/tables/ordered_tree_internal.h"

#include <cstring>
#include <functional>
#include <utility>

namespace kernel {

namespace {

const char unit[] = "kernel/Byte_T_Connector";
constexpr long block_size = 2000;
constexpr Err_Code not_connected = 24;

}  // namespace

// The buffer of one additional client, and its node in the tree.
class Byte_T_Connector::Additional_Client : public String_Byte_Server {
public:
    static const AVL_NodeFunc functions;

    Additional_Client(const Byte_T_Connector &connector, Byte_Client *client)
        : Object("Byte-T-Connector::Additional_Client", nullptr),
          String_Byte_Server(nullptr, static_cast<long>(connector.size_), nullptr), key(client), pass(connector.pass_)
    {
        // The default handler is not set explicitly: an object that uses it as the default notices its end.
        Error_Handler *handler = connector.Get_Error_Handler();
        if (handler != Get_Error_Handler()) Set_Error_Handler(handler);
    }

    using Byte_Server::Forward_Send;
    Byte_Client *Served() const { return Get_Byte_Client(); }

    // Takes no lock, because the caller holds the connector's. A client that took the place inside the message keeps
    // it.
    void Disconnect() override
    {
        const Byte_Client *asked = Served();
        if (Tell(Mesg_Disconnect_Query) && Served() == asked) SetClient(nullptr);
    }
    // Does what a server's destructor does, but without the node's lock. A client that calls the connector from inside
    // these messages takes the connector's lock, which comes before the node's. No other thread knows the node any
    // more.
    static void Let_Go(Additional_Client *node)
    {
        if (Byte_Client *former = node->Served()) {
            node->Tell(Mesg_Disconnect_Query);
            const bool deletes = node->Tell(Mesg_Delete_Query);
            node->SetClient(nullptr);
            if (deletes) Object::Destruct(former);
        }
        Object::Destruct(node);
    }

    static int Compare(const void *node, const void *client)
    {
        const Byte_Client *a = static_cast<const Additional_Client *>(node)->key;
        const auto *b = static_cast<const Byte_Client *>(client);
        return std::less<>()(a, b) ? 1 : a == b ? 0 : -1;
    }

    Byte_Client *key;
    Additional_Client *next = nullptr;           // in the connector's chain
    std::uint64_t pass;                          // the last block that it got or was too late for
    Additional_Client *next_to_leave = nullptr;  // in the connector's list
};

const AVL_NodeFunc Byte_T_Connector::Additional_Client::functions = {
    AVL_Malloc_RetHandleDirekt,
    [](void *, const void *, const void *) -> void * { return nullptr; },  // the connector's affair, see Leave
    [](void *, const void *) {},
};

// Holds the lock for one operation. A node that was taken out of the tree may still be in use by an outer operation of
// this thread. Such nodes are therefore deleted when the outermost operation ends. That happens after the lock is
// released, because deleting a client may wait for a thread of that client.
class KERNEL_SCOPED_CAPABILITY Byte_T_Connector::Visit {
public:
    explicit Visit(Byte_T_Connector &connector) KERNEL_ACQUIRE(connector) : connector_(connector)
    {
        connector_.Semaphore::Request();
        ++connector_.visits_;
    }
    ~Visit() KERNEL_RELEASE()
    {
        const bool outermost = --connector_.visits_ == 0;
        Additional_Client *next = outermost ? std::exchange(connector_.leaving_, nullptr) : nullptr;
        connector_.Semaphore::Release();
        while (next) Additional_Client::Let_Go(std::exchange(next, next->next_to_leave));
    }
    Visit(const Visit &) = delete;
    Visit &operator=(const Visit &) = delete;

private:
    Byte_T_Connector &connector_;
};

struct Byte_T_Connector::Walk {
    Additional_Client *next;
    Walk *outer;
};

// The action may change the chain, because a client may call the connector inside a message. The next node is known
// before the action; when it leaves, Leave sets the walk to the one behind it.
template <class Action>
void Byte_T_Connector::For_Each(Action action) const
{
    Walk walk{first_, walks_};
    walks_ = &walk;
    while (Additional_Client *node = walk.next) {
        walk.next = node->next;
        action(*node);
    }
    walks_ = walk.outer;
}

const char Byte_T_Connector::Name[] = "Byte-T-Connector";

Byte_T_Connector::Byte_T_Connector(unsigned int size)
    : Object(Name, nullptr), String_Byte_Server(Name, static_cast<long>(size), nullptr), size_(size),
      tree_(AVL_Konstruktor(Additional_Client::functions, Additional_Client::Compare))
{
}

Byte_T_Connector *Byte_T_Connector::Construct(unsigned int size)
{
    return Constructed([&] { return new Byte_T_Connector(size); });
}

Byte_T_Connector::~Byte_T_Connector()
{
    if (!tree_) return;
    Byte_T_Connector::PreDisconnect();
    while (Additional_Client *node = first_) {
        Leave(*node);
        Additional_Client::Let_Go(node);
    }
    AVL_Destruktor(tree_);
}

bool Byte_T_Connector::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Client::IsInheritedFrom(name) ||
           String_Byte_Server::IsInheritedFrom(name);
}

bool Byte_T_Connector::IsValid() const
{
    const Semaphore_Guard guard(*this);
    bool valid = tree_ && String_Byte_Server::IsValid();
    if (valid) For_Each([&](const Additional_Client &node) { valid = valid && node.IsValid(); });
    return valid;
}

Byte_T_Connector::Additional_Client *Byte_T_Connector::Find(const Byte_Client *client) const
{
    return static_cast<Additional_Client *>(AVL_SearchKey(tree_, client));
}

// Where the chain holds the first node that is not before this client.
Byte_T_Connector::Additional_Client *&Byte_T_Connector::Place_Of(const Byte_Client *client)
{
    auto *before = static_cast<Additional_Client *>(AVL_SearchPred(tree_, client));
    return before ? before->next : first_;
}

bool Byte_T_Connector::Enter(Additional_Client &node)
{
    if (!AVL_InsertUnique(tree_, node.key, &node)) return false;
    node.next = std::exchange(Place_Of(node.key), &node);
    return true;
}

void Byte_T_Connector::Leave(Additional_Client &node)
{
    Place_Of(node.key) = node.next;
    AVL_GetPfad(tree_, AVL_MakeKey(tree_, node.key));
    for (Walk *walk = walks_; walk; walk = walk->outer)
        if (walk->next == &node) walk->next = node.next;
}

void Byte_T_Connector::Retire(Additional_Client *node)
{
    if (Find(node->key) == node) Leave(*node);
    node->next_to_leave = std::exchange(leaving_, node);
}

// A node without a client does not count: its client was disconnected without being removed, and another client may
// have that address by now.
bool Byte_T_Connector::Is_Taken(const Byte_Client *client)
{
    if (client == Get_Byte_Client()) {
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Fatal, not_connected, "This client %s is already connected!",
                       client->GetName());
        return true;
    }
    Additional_Client *node = Find(client);
    if (!node || !node->IsConnected()) return false;
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Fatal, not_connected, "This client %s is already connected as additional client!",
                   client->GetName());
    return true;
}

bool Byte_T_Connector::Connect(Byte_Client *client)
{
    const Visit visit(*this);
    if (!client) return Connect_Main(client);
    if (Is_Taken(client)) return false;
    return Get_Byte_Client() ? Connect_Additional(client) : Connect_Main(client);
}

bool Byte_T_Connector::Connect_Main(Byte_Client *client)
{
    const Held_Flag replaces(replaces_main_);
    return Byte_Server::Connect(client);
}

bool Byte_T_Connector::Connect_Additional(Byte_Client *client)
{
    // Removes the nodes without a client, none of which will ever get one again.
    For_Each([this](Additional_Client &node) {
        if (!node.IsConnected()) Retire(&node);
    });
    auto *node = Constructed([&] { return new Additional_Client(*this, client); });
    if (!node) return false;
    const bool connected = node->Connect(client);
    if (connected && Enter(*node)) return true;
    if (connected)
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Fatal, not_connected, "Data structures for clients %s invalid",
                       client->GetName());
    node->SetClient(nullptr);  // the client stays the caller's: no Mesg_Delete_Query
    Retire(node);
    return false;
}

void Byte_T_Connector::Disconnect()
{
    const Visit visit(*this);
    Byte_Server::Disconnect();
    if (replaces_main_) return;
    For_Each([](Additional_Client &node) { node.Disconnect(); });
}

void Byte_T_Connector::Disconnect(Byte_Client *client)
{
    const Visit visit(*this);
    Additional_Client *node = Find(client);
    if (!node) {
        if (client && client == Get_Byte_Client()) Byte_Server::Disconnect();
        return;
    }
    node->Disconnect();
    if (Find(client) != node) return;  // the client removed the node itself inside the message
    Retire(node);
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Information, 0, "Removed additional Client %s!", client->GetName());
}

bool Byte_T_Connector::PreDisconnect()
{
    const Visit visit(*this);
    bool answer = Byte_Server::PreDisconnect();
    For_Each([&](Additional_Client &node) {
        if (!node.PreDisconnect()) answer = false;
    });
    return answer;
}

bool Byte_T_Connector::PreDisconnect(Byte_Client *client)
{
    const Visit visit(*this);
    if (Additional_Client *node = Find(client)) return node->PreDisconnect();
    return client && client == Get_Byte_Client() && Byte_Server::PreDisconnect();
}

Byte_Client *Byte_T_Connector::Switch(Byte_Client *client)
{
    const Visit visit(*this);
    Byte_Client *main = Get_Byte_Client();
    if (client && client != main && Is_Taken(client)) return nullptr;
    const Held_Flag replaces(replaces_main_);
    return Byte_Server::Switch(client);
}

void Byte_T_Connector::Switch(Byte_Client *old, Byte_Client *client)
{
    const Visit visit(*this);
    Additional_Client *node = Find(old);
    if (!node) {
        if (old && client && old == Get_Byte_Client()) Switch(client);
        return;
    }
    if (client && client != old && Is_Taken(client)) return;
    node->Switch(client);
    // A client may have switched or disconnected this node inside the messages, so its present state decides.
    if (Find(node->key) == node && node->IsConnected()) Set_Key(*node, node->Served());
}

// The new key may belong to a node without a client, or to one at which the client was connected inside a message. The
// latter keeps the client.
void Byte_T_Connector::Set_Key(Additional_Client &node, Byte_Client *client)
{
    if (client == node.key) return;
    Additional_Client *other = Find(client);
    if (other && other->IsConnected()) {
        node.SetClient(nullptr);
        return Retire(&node);
    }
    if (other) Retire(other);
    Leave(node);
    node.key = client;
    if (Enter(node)) return;
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Fatal, not_connected, "Data structures for clients %s invalid", client->GetName());
    Retire(&node);
}

bool Byte_T_Connector::Work()
{
    const Visit visit(*this);
    bool answer = String_Byte_Server::Work();
    For_Each([&](Additional_Client &node) {
        if (!node.Work()) answer = false;
    });
    return answer;
}

bool Byte_T_Connector::Forward_Send(Byte_Server &server, CL_Mesg message)
{
    bool answer = Byte_Server::Forward_Send(server, message);
    For_Each([&](Additional_Client &node) {
        if (!node.Forward_Send(server, message)) answer = false;
    });
    return answer;
}

bool Byte_T_Connector::Send(Byte_Server &server, CL_Mesg message)
{
    const Visit visit(*this);
    switch (message) {
    case Mesg_Request_Invite: server.Request(1); return true;
    case Mesg_Data_Ready: return Distribute(server);
    case Mesg_Detached: Clear(); return true;
    case Mesg_Type_10150: return true;
    case Mesg_Attached: Clear(); break;
    default: break;
    }
    if (passes_tick_ && Is_Derived_Tick(message)) return true;
    bool answer = true;
    {
        const Held_Flag passes(passes_tick_, message == Mesg_Second);
        answer = Forward_Send(server, message);
    }
    return Byte_Client::Send(server, message) && answer;
}

bool Byte_T_Connector::Distribute(Byte_Server &server)
{
    unsigned char block[block_size];
    long got = server.GetNBytes(block, block_size);
    if (got < 0 || got > block_size) got = 0;  // a tap outside a message of its upstream returns 65535
    const auto n = static_cast<unsigned int>(got);
    const std::uint64_t pass = ++pass_;
    For_Each([&](Additional_Client &node) {
        if (node.pass == pass) return;
        node.pass = pass;
        node.PutBin(block, n);
        node.String_Byte_Server::Work();
    });
    PutBin(block, n);
    return String_Byte_Server::Work();
}

}  // namespace kernel
