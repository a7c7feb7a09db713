#include "kernel/SERVER.h"

#include "kernel/BYTE_SER.h"
#include "kernel/Error_Handler.h"

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
void Server::Disconnect()
{
    if (IsInheritedFrom(Byte_Server::Name)) {
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

void Server::Replace_Client(Client *old)
{
    bool may_delete = true;  // a client that is not valid, or of no known family, is not asked
    if (old->IsValid() && IsInheritedFrom(Byte_Server::Name)) {
        if (auto *bytes = dynamic_cast<Byte_Server *>(this)) may_delete = bytes->Tell(Mesg_Delete_Query);
    }
    if (may_delete)
        Object::Destruct(old);
    else
        Disconnect();
    SetClient(nullptr);
}

}  // namespace kernel
