#include "kernel/bytes/Byte_Client_Switch.h"

#include "kernel/bytes/relay_support_internal.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace kernel {

namespace {

// Messages that go to all clients, the parked ones included.
bool Is_For_All(CL_Mesg message)
{
    switch (message) {
    case Mesg_Attached:
    case Mesg_Detached:
    case Mesg_Login:
    case Mesg_Ask_Password:
    case Mesg_Start:
    case Mesg_Second:
    case Mesg_Minute:
    case Mesg_Hour:
    case Mesg_Day:
    case Mesg_Status_220:
    case Mesg_Status_230:
    case Mesg_Byte_Type: return true;
    default: return false;
    }
}

// Every message to a parked client goes through this function.
bool Ask_Parked(Byte_Client &client, Byte_Server &origin, CL_Mesg message) { return client.Send(origin, message); }

}  // namespace

const char Byte_Client_Switch::Name[] = "Switch for Byte Clients";

Byte_Client_Switch::Byte_Client_Switch(const char *name) : Object(name) {}

Byte_Client_Switch::Byte_Client_Switch() : Byte_Client_Switch(Name) {}

Byte_Client_Switch *Byte_Client_Switch::Construct(const char *name)
{
    return Constructed([&] { return new Byte_Client_Switch(name); });
}

// The destructor of the base class releases the current client.
Byte_Client_Switch::~Byte_Client_Switch() { Delete_Parked(*this); }

bool Byte_Client_Switch::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Server::IsInheritedFrom(name) ||
           Byte_Client::IsInheritedFrom(name);
}

bool Byte_Client_Switch::Is_Parked(const Byte_Client *client) const
{
    return std::find(parked_.begin(), parked_.end(), client) != parked_.end();
}

void Byte_Client_Switch::Unpark(const Byte_Client *client)
{
    parked_.erase(std::remove(parked_.begin(), parked_.end(), client), parked_.end());
}

// Empties the list before the clients are asked, because a client may call the switch from inside the message.
std::vector<Byte_Client *> Byte_Client_Switch::Take_Parked() { return std::exchange(parked_, {}); }

void Byte_Client_Switch::Delete_Parked(Byte_Server &server)
{
    for (Byte_Client *client : Take_Parked())
        if (Ask_Parked(*client, server, Mesg_Delete_Query)) Object::Destruct(client);
}

bool Byte_Client_Switch::Connect(Byte_Client *client)
{
    Byte_Client *current = Get_Byte_Client();
    if (!client || replaces_current_) return false;
    if (client == current) return true;
    const auto place = std::find(parked_.begin(), parked_.end(), client);
    if (current && place != parked_.end()) {
        *place = current;
        SetClient(client);
        return true;
    }
    Unpark(client);  // it may be parked without a current client, if that was taken away alone
    if (current) {
        Tell(Mesg_Detached);
        current = Get_Byte_Client();  // it may have left inside the message
        SetClient(nullptr);
    }
    const Held_Flag replaces(replaces_current_);
    const bool connected = Byte_Server::Connect(client);
    if (!current) return connected;
    if (connected && Get_Byte_Client())
        parked_.push_back(current);
    else
        SetClient(current);
    return connected;
}

Byte_Client *Byte_Client_Switch::Switch(Byte_Client *client)
{
    if (replaces_current_) return nullptr;
    Unpark(client);  // it is current afterwards, or deleted
    const Held_Flag replaces(replaces_current_);
    return Byte_Server::Switch(client);
}

Byte_Client *Byte_Client_Switch::Get_Client(int i)
{
    if (i == 0) return Get_Byte_Client();
    return i > 0 && static_cast<std::size_t>(i) <= parked_.size() ? parked_[static_cast<std::size_t>(i) - 1] : nullptr;
}

void Byte_Client_Switch::Disconnect()
{
    if (Get_Byte_Client()) Byte_Server::Disconnect();
    if (replaces_current_) return;
    for (Byte_Client *client : Take_Parked()) {
        SetClient(client);
        Byte_Server::Disconnect();
    }
}

bool Byte_Client_Switch::PreDisconnect()
{
    bool answer = Byte_Server::PreDisconnect();
    for (std::size_t i = 0; i < parked_.size(); ++i)
        if (!Ask_Parked(*parked_[i], *this, Mesg_PreDisconnect_Query)) answer = false;
    return answer;
}

bool Byte_Client_Switch::FindNewClient()
{
    if (!Get_Byte_Client() || replaces_current_) return false;
    for (std::size_t i = 0; i < parked_.size(); ++i) {
        Byte_Client *candidate = parked_[i];
        if (Ask_Parked(*candidate, *this, Mesg_Status_210)) return Hand_Over(candidate);
    }
    return Tell(Mesg_Status_210);
}

// Both clients may leave inside their messages and be deleted. Each is therefore looked up again before it is used.
bool Byte_Client_Switch::Hand_Over(Byte_Client *candidate)
{
    Byte_Client *current = Get_Byte_Client();
    if (!current || !Is_Parked(candidate)) return false;
    Tell(Mesg_Status_230);
    if (!Is_Parked(candidate)) return false;
    Ask_Parked(*candidate, *this, Mesg_Status_220);
    const auto place = std::find(parked_.begin(), parked_.end(), candidate);
    if (place == parked_.end()) return false;
    current = Get_Byte_Client();
    if (current)
        *place = current;
    else
        parked_.erase(place);
    SetClient(candidate);
    return true;
}

bool Byte_Client_Switch::Send(Byte_Server &server, CL_Mesg message)
{
    if (message == Mesg_Delete_Query) {
        const bool answer = Byte_Client::Send(server, message);
        // The parked clients are deleted whatever the base replies.
        Delete_Parked(server);
        return answer;
    }
    if (message == Mesg_Second) return Tick(server);
    if (Is_Derived_Tick(message) && passes_tick_) return true;
    if (Is_For_All(message)) return Broadcast(server, message);
    return Offer(server, message);
}

// Clients may come and go inside the message, so the loop uses an index and no iterator.
bool Byte_Client_Switch::Broadcast(Byte_Server &server, CL_Mesg message)
{
    const std::optional<bool> answer = Ask(server, message);
    if (!answer) return true;  // no current client
    if (!*answer) return false;
    for (std::size_t i = 0; i < parked_.size(); ++i)
        if (!Ask_Parked(*parked_[i], server, message)) return false;
    return true;
}

// The base derives the minutes and sends them to the upstream server's client, which passes them on to this switch.
bool Byte_Client_Switch::Tick(Byte_Server &server)
{
    bool answer = true;
    {
        const Held_Flag passes(passes_tick_);
        answer = Broadcast(server, Mesg_Second);
    }
    return Byte_Client::Send(server, Mesg_Second) && answer;
}

bool Byte_Client_Switch::Offer(Byte_Server &server, CL_Mesg message)
{
    const std::optional<bool> answer = Ask(server, message);
    if (!answer) return Byte_Client::Send(server, message);  // no current client
    if (*answer) {
        if (message == Mesg_Data_Ready) refusals_ = 0;
        return true;
    }
    if (message == Mesg_Data_Ready && ++refusals_ > parked_.size() + 1) {
        refusals_ = 0;
        return false;
    }
    if (!FindNewClient()) return false;
    server.Request(0);
    return true;
}

// Writes through a null pointer; no compiler may leave this store out.
bool Byte_Client_Switch::Request(long)
{
    volatile int *volatile nowhere = nullptr;
    *nowhere = 42;
    return true;
}

}  // namespace kernel
