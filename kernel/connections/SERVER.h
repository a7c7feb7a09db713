// The producing end of a connection. It holds no client itself: the families do.
#pragma once

#include "kernel/connections/Client_Server.h"

namespace kernel {

class Byte_Client;
class Byte_Server;
class Client;

// The base of all servers.
//
// Threads:   connecting and disconnecting are settled by the family: see Byte_Server and Object_Server.
// Ownership: owns its connected client: replaced or left behind by the server's end, the client is asked
//            Mesg_Delete_Query and deleted when it agrees. Disconnect never deletes.
// Errors:    a null client is reported (level 3, code 21); base operations report "Please implement ...".
class KERNEL_API Server : public virtual Client_Server {
public:
    static const char Name[];  // "Basisklasse Server"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    virtual bool Request(long n);  // asks for n bytes or records to be delivered
    virtual bool IsConnected();
    virtual void Disconnect();  // the family's disconnection
    virtual bool Work();        // one step of work
    virtual Client *GetClient() = 0;
    virtual void SetClient(Client *client) = 0;

protected:
    Server();
    // The common part of connecting: the old client is asked whether it may be deleted, and deleted or disconnected.
    bool Connect(Client *client);

private:
    Byte_Server *As_Byte_Server();
    static bool Stays(const Client *old, const Client *client);
    void Replace_Client(Client *old, Client *client);
    bool Replace_Byte_Client(Byte_Server &server, Byte_Client *former, Byte_Client *next);
    bool May_Delete(Client *old);
};

}  // namespace kernel
