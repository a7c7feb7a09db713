// One stream for many clients: a main client and any number of additional ones, each with a buffer of its own.
#pragma once

#include "kernel/bytes/String_Byte_Server.h"

#include <cstdint>

namespace kernel {

class S_AVL_WorkFunc;

// The client of an upstream byte server. For each Mesg_Data_Ready it takes up to 2000 bytes and puts them into the
// buffer of each additional client (in the order of their addresses) and then into its own, which is the main client's;
// what is left waits for the next message. A client that is slower than the stream loses what its buffer no longer
// holds; the others notice nothing. The answer to Mesg_Data_Ready is the main client's: false without one.
//
// Other messages go to all clients with the upstream server as their server. Mesg_Detached empties the main client's
// buffer and is not passed on; Mesg_Attached empties it and is. Minutes: the connector counts the ticks itself. Each
// client hears Mesg_Minute, Mesg_Hour and Mesg_Day once, when they are due by this count; what the clients derive from
// their own counts is dropped.
//
// A client may disconnect itself or others, connect and switch from inside any message. Who is connected while data are
// handed out hears the next block first.
//
// Threads:   any; each operation holds the object's Semaphore, also while clients are asked and while they pull. A
//            client must not wait, inside a message, for a thread that calls the connector. The order of locks: this
//            one's, then the client's. Destruction is for a time when no other thread calls.
// Ownership: owns its clients as a Byte_Server owns its client. Additional clients that disconnected are deleted when
//            the Semaphore is free again, if they refused to be disconnected but agree to be deleted.
// Errors:    kernel/Byte_T_Connector, level 4, code 24: "This client %s is already connected!", "This client %s is
//            already connected as additional client!", "Data structures for clients %s invalid" (no memory); level 1,
//            code 0: "Removed additional Client %s!". And those of Byte_Server. A failed connection changes nothing,
//            and the client stays the caller's.
class KERNEL_API Byte_T_Connector : public Byte_Client, public String_Byte_Server {
public:
    static const char Name[];  // "Byte-T-Connector"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // size: bytes of each buffer, which holds one less. Null when size < 2 or memory is short.
    static Byte_T_Connector *Construct(unsigned int size);
    static void Destruct(Byte_T_Connector *object) { Object::Destruct(object); }
    ~Byte_T_Connector() override;

    bool IsValid() const override;

    // The first client becomes the main client, the others additional ones.
    bool Connect(Byte_Client *client) override;
    // Asks the main client and all additional ones.
    void Disconnect() override;
    // One of them. An additional client's buffer goes with it, also when it refuses.
    void Disconnect(Byte_Client *client);
    bool PreDisconnect() override;  // would all of them let go?
    bool PreDisconnect(Byte_Client *client);
    // `client` takes the place of `old`, and its buffer; as Byte_Server::Switch, but the caller knows what is his:
    // `old`, if it was connected and `client` takes bytes. A null client disconnects an additional one; the main client
    // stays.
    void Switch(Byte_Client *old, Byte_Client *client);
    Byte_Client *Switch(Byte_Client *client) override;  // the main client
    bool Work() override;                               // of all buffers; false when one of them answered so

    bool Send(Byte_Server &server, CL_Mesg message) override;

protected:
    explicit Byte_T_Connector(unsigned int size);

private:
    class Additional_Client;
    class Visit;

    bool Forward_Send(Byte_Server &server, CL_Mesg message) override;
    bool Distribute(Byte_Server &server);
    bool Connect_Main(Byte_Client *client);
    bool Connect_Additional(Byte_Client *client);
    bool Is_Taken(const Byte_Client *client);
    void Set_Key(Additional_Client &node, Byte_Client *client);
    Additional_Client *Find(const Byte_Client *client) const;
    void Retire(Additional_Client *node);
    template <class Action>
    void For_Each(Action action) const;

    const unsigned int size_;
    S_AVL_WorkFunc *const tree_;            // of Additional_Client, by client
    Additional_Client *leaving_ = nullptr;  // taken out of the tree, perhaps still at work
    int visits_ = 0;                        // operations under way; these are the locking thread's
    std::uint64_t pass_ = 0;                // number of the block that is handed out
    bool replaces_main_ = false;  // Byte_Server connects or switches: its Disconnect means the main client alone
    bool passes_tick_ = false;    // the clients hear Mesg_Second
};

}  // namespace kernel
