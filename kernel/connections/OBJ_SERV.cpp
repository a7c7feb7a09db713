#include "kernel/connections/OBJ_SERV.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/connections/family_internal.h"
#include "kernel/connections/message_groups_internal.h"

#include <cstring>
#include <utility>

namespace kernel {

namespace {

const char unit[] = "kernel/OBJ_SERV";
// Reported when a client returns false for Mesg_Reset_Counters or Mesg_Disconnect_Query. Neither may be refused here.
constexpr const char *no_answer = "Client %s didn't answer";

bool Is_Droppable(CL_Mesg type) { return Group_Of(type) == Message_Group::Record_Type; }

}  // namespace

const char Object_Server::Name[] = "Basisklasse Object_Server";

Object_Server::Object_Server(CL_Mesg record_type) : Object(nullptr), record_type_(record_type) {}

// The subclass, which could release a record, is destroyed already. A record that it left by not calling End() is lost.
Object_Server::~Object_Server()
{
    pending_ = static_ = nullptr;
    End();
}

bool Object_Server::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Server::IsInheritedFrom(name);
}

// Called twice, by the subclass's destructor and by this base's. The second call finds nothing left to do.
void Object_Server::End()
{
    const auto leave = [this] {
        const Semaphore_Guard guard(*this);
        Object_Client *const former = client_;
        if (former) Object_Server::Disconnect();
        // Also without a client: SetClient takes it away and leaves its records here.
        Object_Server::Reset_Data();
        return former;
    };
    // The client is deleted outside the lock: that may wait for a thread of the client's.
    End_Connection(*this, leave, [](const Object_Client *) {});
}

bool Object_Server::Request(long n) { return n < 1; }

bool Object_Server::Tell_Locked(CL_Mesg message) { return client_ && client_->Send(*this, message); }

bool Object_Server::Tell(CL_Mesg message)
{
    const Semaphore_Guard guard(*this);
    return Tell_Locked(message);
}

Client *Object_Server::GetClient()
{
    const Semaphore_Guard guard(*this);
    return client_;
}

void Object_Server::SetClient(Client *client)
{
    const Semaphore_Guard guard(*this);
    client_ = dynamic_cast<Object_Client *>(client);
}

void Object_Server::Disconnect()
{
    const Semaphore_Guard guard(*this);
    Object_Client *const client = client_;
    // One that is not valid is not told: its Send may need what it never got. The name is taken first: from inside the
    // message the client may leave, or connect another, which then stays.
    const char *const name = client ? client->GetName() : nullptr;
    if (Object::valid(client) && !client->Send(*this, Mesg_Disconnect_Query))
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, 25, no_answer, name);
    if (client_ && client_ != client) return;
    client_ = nullptr;
    Reset_Data();  // before the mode is forgotten: a static record may also be the pending one
    static_mode_ = false;
}

bool Object_Server::Connect(Object_Client *client)
{
    Handshake result = Handshake::Done;
    const char *name = nullptr;  // later another thread may have replaced the client, and deleted it
    {
        const Semaphore_Guard guard(*this);
        // False for a null client alone. The one that is connected already goes on from here: it shakes hands again,
        // and the mode may change.
        if (!Server::Connect(client)) return true;
        name = client->GetName();
        result = Shake_Hands(*client);
    }
    if (result == Handshake::Done) return true;
    // Reported without the lock: a host's handler may wait for a thread that wants it.
    Error_Handler &report = Report(unit, __LINE__);
    switch (result) {
    case Handshake::Done: break;
    case Handshake::No_Answer: report.Print_Out(Error_Handler::ES_Error, 25, no_answer, name); break;
    case Handshake::Wrong_Type:
        report.Print_Out(Error_Handler::ES_Error, 26, "Client %s couldn't work with type %d.", name,
                         static_cast<int>(record_type_));
        break;
    case Handshake::No_Memory:
        report.Print_Out(Error_Handler::ES_Error, 18, "No memory for static data of %s.", GetName());
        break;
    }
    // Without Mesg_Reset_Counters the client's counts may be off; records flow all the same.
    return result == Handshake::No_Answer;
}

Object_Server::Handshake Object_Server::Shake_Hands(Object_Client &client)
{
    if (!client.Send(*this, Mesg_Object_Type)) {
        Disconnect();
        return Handshake::Wrong_Type;
    }
    // Before the mode changes: a record that the former client left (it may have been deleted, and never disconnected)
    // goes by the rules of its own mode.
    Reset_Data();
    static_mode_ = !client.Send(*this, Mesg_Object_Connect);
    // Made now, so that Connect can still fail when memory is short.
    if (static_mode_ && !Static_Record()) {
        Disconnect();
        return Handshake::No_Memory;
    }
    return client.Send(*this, Mesg_Reset_Counters) ? Handshake::Done : Handshake::No_Answer;
}

bool Object_Server::Connect_Typed(Object_Client *client, const char *refusal, const char *source, unsigned int line)
{
    // Qualified: the caller is the subclass's Connect.
    if (!Object_Server::Connect(client)) return false;
    if (!client) return true;
    const char *name = nullptr;
    {
        const Semaphore_Guard guard(*this);
        if (client_ != client) return false;  // another thread has taken it away since; it may be deleted
        name = client->GetName();
        if (client->Send(*this, record_type_)) return true;
    }
    Report(source, line).Print_Out(Error_Handler::ES_Error, 26, refusal, name, static_cast<int>(record_type_));
    const Semaphore_Guard guard(*this);
    if (client_ == client) Disconnect();
    return false;
}

bool Object_Server::Work()
{
    const Semaphore_Guard guard(*this);
    if (!client_) {
        Free(pending_);
        return false;
    }
    while (pending_) {
        if (!Tell_Locked(Mesg_Request_Invite)) return false;
        // The answer does not count: whether the record was taken is seen in pending_.
        Tell_Locked(Mesg_Data_Ready);
        if (client_) ++count_;  // it may have disconnected: the count is 0 then
    }
    return true;
}

bool Object_Server::Send_Data(void *&record)
{
    const Semaphore_Guard guard(*this);
    // The same one again is no change of records: in static mode there is only one, and a producer may repeat what was
    // not wanted.
    if (pending_ != record) Free(pending_);
    pending_ = std::exchange(record, nullptr);
    return Work();
}

void *Object_Server::Get_Object()
{
    const Semaphore_Guard guard(*this);
    return std::exchange(pending_, nullptr);
}

void *Object_Server::Malloc()
{
    const Semaphore_Guard guard(*this);
    // The text is that of a refused type: part of the interface. The code says that memory was short.
    void *const record = static_mode_ ? Static_Record() : _Alloc_Object();
    if (!record)
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Error, 18, "Client %s couldn't work with type %d.",
                       client_ ? client_->GetName() : "(none)", static_cast<int>(record_type_));
    return record;
}

void *Object_Server::Static_Record()
{
    if (!static_) static_ = _Alloc_Object();
    return static_;
}

void Object_Server::Free(void *&record)
{
    const Semaphore_Guard guard(*this);
    void *const old = std::exchange(record, nullptr);
    if (old && !static_mode_) _Free_Object(old);
}

void Object_Server::Reset_Data()
{
    const Semaphore_Guard guard(*this);
    // In static mode Free only forgets the pending record: it is the static one, which is released once, below.
    Free(pending_);
    count_ = 0;
    if (static_) _Free_Object(std::exchange(static_, nullptr));
}

unsigned long Object_Server::GetCount() const
{
    const Semaphore_Guard guard(*this);
    return count_;
}

bool Object_Server::StaticAlloc() const
{
    const Semaphore_Guard guard(*this);
    return static_mode_;
}

const char Object_Client::Name[] = "Object_Client";

Object_Client::Object_Client() : Object(ClassName()) {}

Object_Client *Object_Client::Construct()
{
    return Constructed([&] { return new Object_Client; });
}

bool Object_Client::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Client::IsInheritedFrom(name);
}

bool Object_Client::Send(Object_Server &server, CL_Mesg message)
{
    switch (message) {
    case Mesg_Byte_Type: return false;
    case Mesg_Object_Type:
    case Mesg_Object_Connect: return true;
    case Mesg_Second: break;
    default: return Client::Send(server, message);
    }
    if (!Client::Send(server, message)) return false;
    const std::uint32_t ticks = Attached_Ticks();
    if (!Is_Minute(ticks)) return true;
    const Semaphore_Guard server_guard(server);  // in the order in which deliveries take the two
    const Semaphore_Guard guard(*this);
    Tell_Minute(ticks, [&server](CL_Mesg later) { server.Tell(later); });
    return true;
}

const char Object_Client_NULL::Name[] = "Object_Client_NULL";

Object_Client_NULL::Object_Client_NULL(CL_Mesg type) : Object(ClassName()), type_(type) {}

Object_Client_NULL *Object_Client_NULL::Construct(CL_Mesg type)
{
    return Constructed([&] { return new Object_Client_NULL(type); });
}

bool Object_Client_NULL::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Object_Client::IsInheritedFrom(name);
}

bool Object_Client_NULL::IsValid() const
{
    return (type_ == Mesg_Object_Type || Is_Droppable(type_)) && Client_Server::IsValid();
}

bool Object_Client_NULL::Send(Object_Server &server, CL_Mesg message)
{
    switch (message) {
    case Mesg_Request_Invite: server.Request(1); return true;
    case Mesg_Data_Ready: {
        const Semaphore_Guard guard(server);
        while (!server.Get_Object() && server.pending_) continue;  // with nothing pending there is nothing to wait for
        return true;
    }
    case Mesg_Object_Connect: return false;
    default:
        // Events and WAAS records get the base's replies: false, and false with a report.
        if (Is_Droppable(message)) return type_ == Mesg_Object_Type || type_ == message;
        return Object_Client::Send(server, message);
    }
}

}  // namespace kernel
