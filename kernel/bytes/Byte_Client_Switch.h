// One of several clients at a time gets the stream; when it refuses a message, another one takes over.
#pragma once

#include "kernel/connections/BYTE_SER.h"

#include <vector>

namespace kernel {

// The client of an upstream byte server, and the server of one current client. The other clients are parked.
//
// Messages of the upstream server go to the current client with the upstream server as sender, so that the client
// requests and pulls there. Notices of the line (Mesg_Attached, Mesg_Detached, logins, ticks, Mesg_Status_220,
// Mesg_Status_230, Mesg_Byte_Type) also go to the parked clients, until one returns false. When the current client
// returns false for any other message, the first parked client that accepts Mesg_Status_210 takes over. The switch then
// calls Request(0) upstream, so that the next message is Mesg_Request_Invite. If no parked client accepts, a current
// client that accepts Mesg_Status_210 itself goes on. When Mesg_Data_Ready was refused more often than there are
// clients, and no client took data in between, the switch returns false as well: otherwise upstream would offer the
// same bytes for ever.
//
// Minutes: the switch counts the ticks itself. Each client gets Mesg_Minute, Mesg_Hour and Mesg_Day once when they are
// due by this count. The switch drops the ones that clients derive from counts of their own.
//
// Connect, Switch and FindNewClient fail when a client calls them from inside Mesg_Byte_Type. Disconnect then asks the
// current client only.
//
// Threads:   no lock of its own. Messages run on the upstream server's thread. Call Connect, Disconnect, Switch and
//            FindNewClient on that thread (also from inside a message), or while upstream is idle.
// Ownership: owns current and parked clients as a Byte_Server owns its client. Clients do not know their server: a
//            parked client must outlive the switch or be deleted by it.
// Errors:    those of Byte_Server. A client that takes no bytes is reported (3, 26) and stays the caller's.
class KERNEL_API Byte_Client_Switch : public Byte_Server, public Byte_Client {
public:
    static const char Name[];  // "Switch for Byte Clients"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    static Byte_Client_Switch *Construct(const char *name);
    static Byte_Client_Switch *Construct() { return Construct(Name); }
    static void Destruct(Byte_Client_Switch *object) { Object::Destruct(object); }
    ~Byte_Client_Switch() override;

    // Makes `client` the current one and parks the former one, which gets Mesg_Detached before the new one is asked. If
    // the new one takes no bytes, the former one stays current and gets no Mesg_Attached. A parked `client` changes
    // places with the current one; neither gets a message. Returns false for null and when the connection is refused.
    bool Connect(Byte_Client *client) override;
    // As Byte_Server::Switch: the current client goes to the caller, the parked ones stay. A parked `client` is no
    // longer parked afterwards.
    Byte_Client *Switch(Byte_Client *client) override;
    // 0: the current client; from 1: the parked ones. Null when there is none.
    Byte_Client *Get_Client(int i);
    // Asks the current client and then all parked ones. The last one asked stays connected if it refuses. Earlier ones
    // that refuse lose their place all the same: they are not deleted, and belong to their owner from then on.
    void Disconnect() override;
    bool PreDisconnect() override;  // would all clients let go?
    // Offers the place of the current client to the parked ones. The one that takes over gets Mesg_Status_220, the
    // former one Mesg_Status_230. If none takes over, returns whether the current client accepts Mesg_Status_210
    // itself.
    bool FindNewClient();

    bool Send(Byte_Server &server, CL_Mesg message) override;
    // Not called in a correct chain, because the clients request from the server above. Ends the process, so that a
    // chain that is built wrongly fails at once.
    bool Request(long n) override;

protected:
    explicit Byte_Client_Switch(const char *name);
    Byte_Client_Switch();

private:
    bool Is_Parked(const Byte_Client *client) const;
    void Unpark(const Byte_Client *client);
    std::vector<Byte_Client *> Take_Parked();
    void Delete_Parked(Byte_Server &server);
    bool Hand_Over(Byte_Client *candidate);
    bool Broadcast(Byte_Server &server, CL_Mesg message);
    bool Tick(Byte_Server &server);
    bool Offer(Byte_Server &server, CL_Mesg message);

    std::vector<Byte_Client *> parked_;
    // True while Byte_Server connects or switches: Disconnect then concerns the current client only, and no other
    // client takes its place.
    bool replaces_current_ = false;
    bool passes_tick_ = false;  // Mesg_Second is being sent to the clients
    std::size_t refusals_ = 0;  // of Mesg_Data_Ready, since a client took data
};

}  // namespace kernel
