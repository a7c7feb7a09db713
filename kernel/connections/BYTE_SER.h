// Byte streams: the server that bytes are pulled from, the client that pulls, and a client that drains.
//
// A pulling client's cycle: the server sends Mesg_Request_Invite when it can serve; the client replies by calling
// Request(n); when data is there the server sends Mesg_Data_Ready and the client pulls, from inside that message, until
// it has what it asked for or gets No_Byte.
#pragma once

#include "kernel/connections/CLIENT.h"
#include "kernel/connections/SERVER.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace kernel {

class Byte_Client;
class Deliveries;

// How many bytes GetNBytes(buffer, n) has moved when it returned `result`: 0 for a result that is no count, see there.
constexpr long Bytes_Moved(long result, long n) { return result > 0 && result <= n ? result : 0; }

// What byte reads return when nothing is available (end of data, empty buffer, error); 0 to 255 is a byte.
constexpr unsigned short No_Byte = 0xFFFF;

// The producer end of a byte stream. Subclasses provide the pull operations and Work.
//
// Threads:   the pull operations take no lock: they belong inside the client's Send. Connect, Switch, Disconnect and
//            SetClient may come from any thread at any time, also while others deliver, and from inside the client's
//            Send. When they return, no other thread is inside the old client, and it hears nothing more. Destruction
//            waits for that as well; threads inside the server's own operations have left them before.
//            Deadlock hazards: do not call these while you hold a lock that the client's Send may want (this object's
//            Semaphore is one), nor on two threads that are each inside the other one's client. Handlers of
//            Mesg_Minute, Mesg_Hour and Mesg_Day run with the client's lock held, and Disconnect asks with the server's
//            lock held. If your client locks itself in Mesg_Disconnect_Query, do not call Disconnect from such a
//            handler.
// Ownership: owns the connected client (see Server); Switch hands the old one to the caller. A replaced client is
//            deleted when the new one has its place: its destructor must not disconnect. The caller's buffers are
//            filled before the call returns and not kept.
// Errors:    a base pull operation reports "Please implement ..." (4, 34); a refused stream type (3, 26); a value that
//            is no byte (3, 33).
class KERNEL_API Byte_Server : public Server {
public:
    static const char Name[];  // "Basisklasse Byte_Server"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // Asks the client; refused, the connection stays. Never deletes.
    void Disconnect() override;
    Client *GetClient() override;
    void SetClient(Client *client) override;  // anything but a Byte_Client clears
    // Replaces the client and asks the new one whether it takes bytes; refused: reported, disconnected, false.
    virtual bool Connect(Byte_Client *client);
    // Hands the stream to another client and the old one, untouched, to the caller. Null when there was none, when
    // `client` is the old one, when `client` is null (then the old one is disconnected), or when `client` takes no
    // bytes: then the old one is disconnected and `client` is deleted.
    virtual Byte_Client *Switch(Byte_Client *client);
    virtual bool PreDisconnect();  // would the client let go? True without one

    virtual unsigned short GetByte();                      // the next byte, or No_Byte
    virtual unsigned short UnGetByte(unsigned char byte);  // back in front: the byte, or No_Byte
    // Moves at most n bytes and returns their number. Exception: a File_Client_Server that is asked outside a message
    // of its upstream server returns 65535 and moves nothing, which may be more than n. Callers use Bytes_Moved for the
    // count.
    virtual long GetNBytes(unsigned char *buffer, long n);
    // Pulls n bytes, or what there is, and writes a zero after the last: buffer holds n + 1. It does not stop at line
    // ends.
    virtual long GetString(char *buffer, long n);
    virtual long MinAvail(long n);  // a number of bytes that can be pulled now

protected:
    // For objects in the middle of a chain: passes notices on to the own client in the name of the upstream server and
    // returns its reply. Returns true for other messages.
    virtual bool Forward_Send(Byte_Server &origin, CL_Mesg message);

public:
    unsigned short get(unsigned char &byte);  // GetByte; `byte` gets its low 8 bits, so 0xFF for No_Byte
    long GetNBytes(char *buffer, long n) { return GetNBytes(reinterpret_cast<unsigned char *>(buffer), n); }
    unsigned short UnGetByte(char byte) { return UnGetByte(static_cast<unsigned char>(byte)); }
    unsigned short
    UnGetByte(unsigned short byte);  // No_Byte is never pushed back; other values above 0xFF are reported

    // Cast a number to unsigned char to say which form is meant: UnGetByte(0x41) fits several, as does Sync_Byte(0xB5).

    // Scans. Bytes before the match, and those matched, are consumed. False or No_Byte as soon as GetByte has nothing.
    bool Sync_Byte(unsigned char byte);
    bool Sync_Byte(signed char byte);  // compared with its sign: 0x80 and above never match
    bool Sync_Byte(char byte) { return Sync_Byte(static_cast<signed char>(byte)); }
    unsigned short Sync_Bytes(const unsigned char *set);  // any byte of the set; a zero byte always is one
    unsigned short Sync_Bytes(const char *set);
    bool Sync_String(const char *text);        // the next bytes; a mismatch after the first character is pushed back
    bool Sync_String_Upper(const char *text);  // the same without regard to case, and nothing is pushed back

    // Send the message to the client and return its reply; false without one.
    bool MesgLogin() { return Tell(Mesg_Login); }
    bool MesgAskPassword() { return Tell(Mesg_Ask_Password); }
    bool MesgStart() { return Tell(Mesg_Start); }

    ~Byte_Server() override;

protected:
    Byte_Server();
    // Sends to the client. Returns its reply, or nothing without a client. Messages to the own client take this way, or
    // Tell, and no other: only then nobody destroys the client meanwhile.
    std::optional<bool> Ask(CL_Mesg message) { return Ask(*this, message); }
    std::optional<bool> Ask(Byte_Server &origin, CL_Mesg message);  // in the name of an upstream server
    bool Tell(CL_Mesg message) { return Ask(message).value_or(false); }
    Byte_Client *Get_Byte_Client() const;  // to look whether there is one
    // The client, which this server leaves without asking; the caller's now. Waits as SetClient does.
    Byte_Client *Take_Client();

private:
    friend class Byte_Client;  // passes minutes, hours and days to the server's client
    friend class Server;       // asks and replaces the old client

    bool Replace(Byte_Client *old, Byte_Client *client);

    const std::unique_ptr<Deliveries> deliveries_;  // the client, and who is inside it
};

// The consumer end of a byte stream.
//
// Threads:   Send runs on the server's delivering thread.
// Ownership: belongs to the server it is connected to (see Client_Server).
// Errors:    as Client.
class KERNEL_API Byte_Client : public Client {
public:
    static const char Name[];  // "Basisklasse Byte_Client"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // Takes bytes (Mesg_Byte_Type), no records, no login dialogue. At each 60th, 3600th and 86400th Mesg_Second the
    // server's client is sent Mesg_Minute, Mesg_Hour and Mesg_Day. A client that returns true for Mesg_Data_Ready must
    // have pulled at least one byte: the server sends it again while data is left.
    virtual bool Send(Byte_Server &server, CL_Mesg message);

protected:
    Byte_Client();
};

// Drains and counts a stream.
//
// Threads:   as Byte_Client; the counters are read when no thread sends.
// Ownership: its block buffer, freed when the server asks for disconnection.
// Errors:    data without a request is reported (3, 28). Invalid when the block buffer could not be had.
class KERNEL_API Byte_Client_NULL : public Byte_Client {
public:
    static const char Name[];  // "Byte_Client_NULL"; its objects are named "Basisklasse Byte_Client"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // request_size: 0 never requests, 1 pulls byte by byte, more is the block size in bytes.
    static Byte_Client_NULL *Construct(long request_size = 1);
    static void Destruct(Byte_Client_NULL *client) { Object::Destruct(client); }

    bool IsValid() const override;
    bool Send(Byte_Server &server, CL_Mesg message) override;

    std::uint32_t Message_Count() const { return messages_; }
    std::uint32_t Byte_Count() const { return bytes_; }

protected:
    explicit Byte_Client_NULL(long request_size = 1);

private:
    bool Drain(Byte_Server &server);

    std::uint32_t messages_ = 0;
    std::uint32_t bytes_ = 0;
    std::int32_t request_size_;
    std::unique_ptr<unsigned char[]> buffer_;
};

}  // namespace kernel
