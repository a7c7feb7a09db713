// One stream for many clients: a main client and any number of additional ones, each with a buffer of its own.
#pragma once

#include "kernel/bytes/String_Byte_Server.h"

#include <cstdint>

namespace kernel {

class S_AVL_WorkFunc;

// The client of an upstream byte server. For each Mesg_Data_Ready it takes up to 2000 bytes and puts them into the
// buffer of each additional client (in the order of their addresses) and then into its own buffer, which serves the
// main client. The rest waits for the next message. A client that is slower than the stream loses the bytes for which
// its buffer has no room; the others lose nothing. The reply to Mesg_Data_Ready is the main client's; it is false
// without a main client.
//
// Other messages go to all clients with the upstream server as sender. Mesg_Detached empties the main client's buffer
// and is not passed on. Mesg_Attached empties it as well and is passed on. Minutes: the connector counts the ticks
// itself. Each client gets Mesg_Minute, Mesg_Hour and Mesg_Day once when they are due by this count. The connector
// drops the ones that clients derive from counts of their own.
//
// A client may disconnect itself or others, connect and switch from inside any message. A client that is connected
// while a block is handed out gets the next block as its first.
//
// Threads:   any thread may call. Each operation holds the object's Semaphore, also while clients are asked and while
//            they pull. Deadlock hazard: inside a message a client must not wait for a thread that calls the connector.
//            Lock order: the connector's lock first, the client's second. No other thread may call during destruction.
// Ownership: owns its clients as a Byte_Server owns its client. An additional client that was removed although it
//            refused Mesg_Disconnect_Query is deleted if it accepts Mesg_Delete_Query, once the Semaphore is free
//            again.
// Errors:    kernel/Byte_T_Connector, level 4, code 24: "This client %s is already connected!", "This client %s is
//            already connected as additional client!", "Data structures for clients %s invalid" (no memory); level 1,
//            code 0: "Removed additional Client %s!". Those of Byte_Server as well. A failed Connect changes nothing,
//            and the client stays the caller's.
class KERNEL_API Byte_T_Connector : public Byte_Client, public String_Byte_Server {
public:
    static const char Name[];  // "Byte-T-Connector"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // size: bytes of each buffer; a buffer holds size - 1. Null when size < 2 or memory is short.
    static Byte_T_Connector *Construct(unsigned int size);
    static void Destruct(Byte_T_Connector *object) { Object::Destruct(object); }
    ~Byte_T_Connector() override;

    bool IsValid() const override;

    // The first client becomes the main client, the others additional ones.
    bool Connect(Byte_Client *client) override;
    // Asks the main client and all additional ones.
    void Disconnect() override;
    // Disconnects one client. An additional client's buffer is removed with it, even if it refuses.
    void Disconnect(Byte_Client *client);
    bool PreDisconnect() override;  // would all clients let go?
    bool PreDisconnect(Byte_Client *client);
    // `client` takes the place and the buffer of `old`, as in Byte_Server::Switch. Nothing is returned: `old` is the
    // caller's afterwards if it was connected and `client` takes bytes. A null `client` disconnects an additional
    // client; the main client stays.
    void Switch(Byte_Client *old, Byte_Client *client);
    Byte_Client *Switch(Byte_Client *client) override;  // switches the main client
    bool Work() override;                               // serves all buffers; false when one returned false

    bool Send(Byte_Server &server, CL_Mesg message) override;

protected:
    explicit Byte_T_Connector(unsigned int size);

private:
    class Additional_Client;
    class Visit;
    struct Walk;

    bool Forward_Send(Byte_Server &server, CL_Mesg message) override;
    bool Distribute(Byte_Server &server);
    bool Connect_Main(Byte_Client *client);
    bool Connect_Additional(Byte_Client *client);
    bool Is_Taken(const Byte_Client *client);
    void Set_Key(Additional_Client &node, Byte_Client *client);
    Additional_Client *Find(const Byte_Client *client) const;
    bool Enter(Additional_Client &node);
    void Leave(Additional_Client &node);
    Additional_Client *&Place_Of(const Byte_Client *client);
    void Retire(Additional_Client *node);
    template <class Action>
    void For_Each(Action action) const;

    const unsigned int size_;
    S_AVL_WorkFunc *const tree_;            // of Additional_Client, by client
    Additional_Client *first_ = nullptr;    // a chain of the tree's nodes in their order: quicker to walk than the tree
    mutable Walk *walks_ = nullptr;         // along the chain, the innermost first
    Additional_Client *leaving_ = nullptr;  // taken out of the tree, perhaps still in use
    int visits_ = 0;                        // operations under way, all of the thread that holds the lock
    std::uint64_t pass_ = 0;                // number of the block that is handed out
    bool replaces_main_ = false;  // Byte_Server connects or switches: Disconnect then concerns the main client only
    bool passes_tick_ = false;    // Mesg_Second is being sent to the clients
};

}  // namespace kernel
