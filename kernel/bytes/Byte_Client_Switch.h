// One of several clients at a time gets the stream; when it refuses a message, another one takes over.
#pragma once

#include "kernel/connections/BYTE_SER.h"

#include <vector>

namespace kernel {

// The client of an upstream byte server, and the server of one current client. The others are parked.
//
// What the upstream server sends goes to the current client with the upstream server as its server, so that the client
// requests and pulls there. Notices of the line (Mesg_Attached, Mesg_Detached, logins, ticks, Mesg_Status_220,
// Mesg_Status_230, Mesg_Byte_Type) go to the parked ones, too, until one refuses. When the current client refuses
// another message, the first parked client that accepts Mesg_Status_210 takes over, and upstream is asked Request(0):
// the next thing it sends is an invitation. A current client that refuses a message but accepts Mesg_Status_210 goes
// on, if no parked one accepts it. When Mesg_Data_Ready was refused more often than there are clients, and none has
// taken data in between, the switch refuses as well: otherwise upstream would offer the same bytes for ever.
//
// Minutes: the switch counts the ticks itself. Each client hears Mesg_Minute, Mesg_Hour and Mesg_Day once, when they
// are due by this count; what the clients derive from their own counts is dropped.
//
// From inside its answer to Mesg_Byte_Type a client can connect, switch and hand over nothing: that is refused;
// Disconnect then means this client alone.
//
// Threads:   no lock of its own. Messages run on the upstream server's thread; Connect, Disconnect, Switch and
//            FindNewClient are for that thread (also from inside a message) or for a time when upstream is idle.
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

    // Makes `client` the current one and parks the former, which is sent Mesg_Detached before the new one is asked. If
    // that one takes no bytes, the former stays, without a Mesg_Attached. A parked client changes places with the
    // current one, and neither is told. False: null, or refused.
    bool Connect(Byte_Client *client) override;
    // As Byte_Server: the current client goes to the caller, the parked ones stay. A parked `client` leaves its place.
    Byte_Client *Switch(Byte_Client *client) override;
    // 0: the current client; from 1: the parked ones. Null when there is none.
    Byte_Client *Get_Client(int i);
    // Asks the current client and then all that are parked. The last one asked stays connected if it refuses; earlier
    // ones lose their place even so, are not deleted, and are their owner's from then on.
    void Disconnect() override;
    bool PreDisconnect() override;  // would all of them let go?
    // Offers the place of the current client to the parked ones. The one that takes over hears Mesg_Status_220, the
    // former Mesg_Status_230. Without one: whether the current client accepts Mesg_Status_210 itself.
    bool FindNewClient();

    bool Send(Byte_Server &server, CL_Mesg message) override;
    // Nobody asks a switch for data: its clients know the server above. Ends the process, so that a chain that is built
    // wrongly fails at once.
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
    // Byte_Server connects or switches: its Disconnect means the current client alone, and no other one takes the
    // place.
    bool replaces_current_ = false;
    bool passes_tick_ = false;  // the clients hear Mesg_Second
    std::size_t refusals_ = 0;  // of Mesg_Data_Ready, since a client took data
};

}  // namespace kernel
