#include "kernel/connections/SERVER.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/connections/BYTE_SER.h"
#include "kernel/connections/OBJ_SERV.h"
#include "kernel/connections/delivery_internal.h"

#include <cstring>

namespace kernel {

namespace {

const char unit[] = "kernel/SERVER";

}  // namespace

const char Server::Name[] = "Basisklasse Server";

Server::Server() : Object(nullptr) {}

bool Server::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Client_Server::IsInheritedFrom(name);
}

bool Server::Request(long)
{
    Report_Missing(unit, __LINE__, "Request()", "Server");
    return false;
}

bool Server::IsConnected() { return GetClient() != nullptr; }

// The base knows its families by name; each has its own way to disconnect. The calls are qualified, because the virtual
// Disconnect may be the override that has called this. An object of both families counts as a server of records. A name
// without the family behind it does nothing.
void Server::Disconnect()
{
    if (IsInheritedFrom(Object_Server::Name)) {
        if (auto *records = dynamic_cast<Object_Server *>(this)) records->Object_Server::Disconnect();
    } else if (IsInheritedFrom(Byte_Server::Name)) {
        if (auto *bytes = dynamic_cast<Byte_Server *>(this)) bytes->Byte_Server::Disconnect();
    }
}

bool Server::Work()
{
    Report_Missing(unit, __LINE__, "Work()", "Server");
    return false;
}

bool Server::Connect(Client *client)
{
    if (!client) {
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, 21, "Called with NULL-Pointer for client");
        return false;
    }
    if (Byte_Server *const bytes = As_Byte_Server()) {
        auto *const next = dynamic_cast<Byte_Client *>(client);
        // Again when another thread has changed the client meanwhile.
        while (!Replace_Byte_Client(*bytes, bytes->Get_Byte_Client(), next)) continue;
    } else {
        Replace_Client(GetClient(), client);
    }
    return true;
}

// This object as a server of bytes; null when this base is another family's: an object may belong to both.
Byte_Server *Server::As_Byte_Server()
{
    auto *const bytes = dynamic_cast<Byte_Server *>(this);
    return bytes && static_cast<Server *>(bytes) == this ? bytes : nullptr;
}

// The client that is connected already goes through the same questions if it may not be deleted. One that may be
// deleted is not asked: it would agree to its own end, and an object in the middle takes its client along when it is
// asked.
bool Server::Stays(const Client *old, const Client *client) { return old && old == client && client->Delete_Me(); }

// For a family whose lock the caller holds.
void Server::Replace_Client(Client *old, Client *client)
{
    if (Stays(old, client)) return;
    if (old && May_Delete(old)) {
        SetClient(nullptr);
        if (old != client) Object::Destruct(old);
    } else if (old) {
        Disconnect();
    }
    // Also when it refused both questions: it loses its place, lives on and is its owner's.
    SetClient(client);
}

// False: `former` is not the client any more, and nothing was done. It may be deleted then: before the visit nothing
// but its address is used. The new client has the place before the old one is deleted: a thread that delivers meanwhile
// never finds it empty, which would read as a refusal and end a transport.
bool Server::Replace_Byte_Client(Byte_Server &server, Byte_Client *former, Byte_Client *next)
{
    if (Stays(former, next)) return true;
    if (!former) return server.Replace(nullptr, next);
    // Held until the return: no other thread destroys the client meanwhile, and it stays the one that was asked.
    const Deliveries::Visit visit(*server.deliveries_, former);
    if (!visit) return false;
    const bool goes = May_Delete(former);
    if (server.Get_Byte_Client() != former) return false;  // Disconnect would meet another
    if (!goes) Disconnect();
    if (!server.Replace(former, next) && (goes || !server.Replace(nullptr, next))) return false;
    if (goes && former != next) Object::Destruct(former);
    return true;
}

// Asks through the family that both belong to: an object may be a server of records and of bytes. Without such a
// family, and for a client that is not valid, the answer is true, also after Dont_Delete_Me.
bool Server::May_Delete(Client *old)
{
    if (!old->IsValid()) return true;
    if (IsInheritedFrom(Object_Server::Name)) {
        auto *records = dynamic_cast<Object_Server *>(this);
        auto *taker = dynamic_cast<Object_Client *>(old);
        if (records && taker) return taker->Send(*records, Mesg_Delete_Query);
    }
    if (IsInheritedFrom(Byte_Server::Name)) {
        auto *bytes = dynamic_cast<Byte_Server *>(this);
        auto *puller = dynamic_cast<Byte_Client *>(old);
        if (bytes && puller) return puller->Send(*bytes, Mesg_Delete_Query);
    }
    return true;
}

}  // namespace kernel
