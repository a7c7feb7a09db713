// Typed records: the server that makes and hands them over, the client that takes them, and a client that drops them.
//
// A record's way: the producer calls Malloc, fills the record and hands it to Send_Data; the server sends
// Mesg_Request_Invite and Mesg_Data_Ready; the client takes the record with Get_Object from inside the latter. Whose it
// is then was settled by the client's answer to Mesg_Object_Connect:
//   true   dynamic mode: each record is a new one; the client owns what it took and frees it, with the server's Free
//          while it is connected, with delete at any time;
//   false  static mode: there is one record, the server's, filled again and again; the client reads it inside
//          Mesg_Data_Ready and never frees it.
#pragma once

#include "kernel/connections/CLIENT.h"
#include "kernel/connections/SERVER.h"

#include <cstdint>

namespace kernel {

class Object_Client;

// The producer end for records of one type. A typed server allocates and releases its record, wraps Malloc, Send_Data,
// Free and Get_Object in functions of that type, asks for the type in Connect (Connect_Typed) and calls End() first
// thing in its destructor.
//
// Threads:   every operation holds the object's Semaphore, also while messages are sent and while a replaced client is
//            deleted: what the client does there must not wait for another lock's holder, nor for a thread that may
//            want this one. So Connect, Disconnect and SetClient wait for a thread that is inside the client; when they
//            return, the old client hears nothing more and may be destroyed. Connect and Disconnect belong to the
//            producer's thread, or to a time when it holds no record from Malloc: the mode changes, and the static
//            record goes with its connection.
// Ownership: owns its client (see Server), the pending and the static record. A record from Malloc is the producer's
//            until Send_Data or Free takes it back; a static one stays the server's all along.
// Errors:    a refused type (3, 26), an allocation that failed (3, 18), a client that does not answer
//            Mesg_Reset_Counters or Mesg_Disconnect_Query (3, 25) are reported.
class KERNEL_API Object_Server : public Server {
public:
    static const char Name[];  // "Basisklasse Object_Server"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    bool Request(long n) override;  // records cannot be asked for: true only for n < 1
    // Tells the client, which cannot prevent it (refusal is reported), and releases the records. Never deletes the
    // client.
    void Disconnect() override;
    // Offers the pending record until the client has taken it. False: no client (the record is freed), or the client
    // did not want it now (it stays pending). A client that answers Mesg_Data_Ready without taking the record is told
    // again, for ever: to take it is its part of the contract.
    bool Work() override;
    Client *GetClient() override;
    void SetClient(Client *client) override;  // anything but an Object_Client clears
    // Replaces the client, asks whether it takes records (Mesg_Object_Type), settles the mode and resets its counters.
    // False: refused, or no memory for the static record. A null client is reported, yet the answer is true.
    virtual bool Connect(Object_Client *client);
    virtual void *Get_Object();  // the pending record, now the caller's; null when there is none
    virtual void Reset_Data();   // releases the pending and the static record; the count is 0

protected:
    virtual void *_Alloc_Object() = 0;            // a new record of the server's type, or null
    virtual void _Free_Object(void *record) = 0;  // never null

public:
    unsigned long GetCount() const;  // records delivered since Connect
    bool StaticAlloc() const;        // static mode?

    ~Object_Server() override;

protected:
    // The type is what refusals and failed allocations report.
    explicit Object_Server(CL_Mesg record_type = Mesg_Object_Type);
    // Ends the connection (the client is deleted when it agrees) and releases the records. For the destructor of each
    // class that implements _Alloc_Object and _Free_Object: afterwards nobody can release a record, and this base does
    // not try.
    void End();

    // A new record, or the static one: the same each time. Null when memory is short.
    void *Malloc();
    void Free(void *&record);       // releases a record that is not the static mode's; the pointer becomes null
    bool Send_Data(void *&record);  // hands over, in place of a record still pending; the pointer becomes null. As Work
    // Connect for a typed server: asks for the record type as well. Refused: `refusal` ("%s" the client's name, "%d"
    // the type) is reported for `unit` and `line`, the client disconnected, the answer false.
    bool Connect_Typed(Object_Client *client, const char *refusal, const char *unit, unsigned int line);
    bool Tell(CL_Mesg message);  // sends to the client; false without one

private:
    friend class Object_Client;       // passes minutes, hours and days to the server's client
    friend class Object_Client_NULL;  // looks whether a record is left to take

    enum class Handshake { Done, No_Answer, Wrong_Type, No_Memory };
    Handshake Shake_Hands(Object_Client &client) KERNEL_REQUIRES(this);
    void *Static_Record() KERNEL_REQUIRES(this);
    bool Tell_Locked(CL_Mesg message) KERNEL_REQUIRES(this);

    Object_Client *client_ KERNEL_GUARDED_BY(this) = nullptr;
    void *static_ KERNEL_GUARDED_BY(this) = nullptr;  // null outside static mode
    bool static_mode_ KERNEL_GUARDED_BY(this) = false;
    std::uint32_t count_ KERNEL_GUARDED_BY(this) = 0;
    void *pending_ KERNEL_GUARDED_BY(this) = nullptr;
    const CL_Mesg record_type_;
};

// The consumer end for records; takes them, ownership included. A typed client answers its record type with true and
// Mesg_Data_Ready by taking the record.
//
// Threads:   Send runs on the producer's thread, inside the server's lock. Deriving Mesg_Minute, Mesg_Hour and Mesg_Day
//            takes the server's lock, then the client's.
// Ownership: belongs to the server it is connected to (see Client_Server).
// Errors:    as Client.
class KERNEL_API Object_Client : public Client {
public:
    static const char Name[];  // "Object_Client"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    static Object_Client *Construct();
    static void Destruct(Object_Client *client) { Object::Destruct(client); }

    // Takes records (Mesg_Object_Type) and owns them (Mesg_Object_Connect), no bytes. At Mesg_Second the server's
    // client is sent Mesg_Minute, Mesg_Hour and Mesg_Day when the count of attached ticks is a multiple of 60, 3600 and
    // 86400. The count is taken as it stands: while it rests at 0 (never attached), every tick brings all three.
    virtual bool Send(Object_Server &server, CL_Mesg message);

protected:
    Object_Client();
};

// Takes the records of one type, or of any, and drops them. Its server works in static mode.
//
// Threads:   as Object_Client.
// Ownership: nothing; a record it took stays the server's.
// Errors:    as Object_Client. Invalid for a type that it cannot take.
class KERNEL_API Object_Client_NULL : public Object_Client {
public:
    static const char Name[];  // "Object_Client_NULL"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // A record type, or Mesg_Object_Type for any; null for any other. Events and WAAS records cannot be taken.
    static Object_Client_NULL *Construct(CL_Mesg type);
    static void Destruct(Object_Client_NULL *client) { Object::Destruct(client); }

    bool IsValid() const override;
    bool Send(Object_Server &server, CL_Mesg message) override;

protected:
    explicit Object_Client_NULL(CL_Mesg type);

private:
    const CL_Mesg type_;
};

}  // namespace kernel
