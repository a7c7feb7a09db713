#include "kernel/connections/SERVER.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/connections/BYTE_SER.h"
#include "kernel/connections/OBJ_SERV.h"

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

// The base knows its families by name; each has its own way to disconnect.
// Qualified, since the virtual one may be the override that has called this. An object of both families counts as a
// server of records. A name without the family behind it does nothing.
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
    Client *old = GetClient();
    if (old == client) return true;  // deleting it as the old one would connect a dangling pointer
    if (old) Replace_Client(old);
    SetClient(client);
    return true;
}

// Asks through the family that both belong to: an object may be a server of records and of bytes. Without one there is
// nobody to ask.
bool Server::May_Delete(Client *old)
{
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

void Server::Replace_Client(Client *old)
{
    // One that is not valid has no say, not even after Dont_Delete_Me. Nobody stops a delivering thread before the
    // deletion: that is why connecting belongs to that thread, or to a time without one.
    if (!old->IsValid() || May_Delete(old))
        Object::Destruct(old);
    else
        Disconnect();
    // Also when it refused both questions: it loses its place, lives on and is its owner's.
    SetClient(nullptr);
}

}  // namespace kernel
