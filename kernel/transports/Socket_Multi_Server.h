// Distributes one byte stream to any number of TCP clients on one port.
#pragma once

#include "kernel/base/Base_Thread.h"
#include "kernel/base/Error_Handler.h"
#include "kernel/base/Semaphore.h"
#include "kernel/connections/BYTE_SER.h"
#include "kernel/transports/Remote_Control.h"
#include "kernel/transports/Socket_Client_Server.h"
#include "kernel/transports/WinSock_Loader.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace platform {
class Event;
class Socket;
}  // namespace platform

namespace kernel {

class Multicast_Client_Identifier;
class Multicast_Ring;

template <class T>
using SP = std::shared_ptr<T>;

// A client of the byte server that produces the stream. Every byte that it pulls goes into one ring. For each TCP
// client that connects it makes a Socket_Client_Server with a writer buffer of 8,192 bytes and a position of its own in
// the ring: a client hears what comes after it has connected. What clients send is thrown away. Typical use: Construct,
// CreateServer(port), Work(), and Connect of the producer.
//
// Every 200 ms a pass fills each client's writer buffer from the ring. A client thus gets at most 8,192 bytes per pass,
// 41 kB/s; a faster stream runs over in the ring. The ring must hold what comes in 200 ms, and what comes while a slow
// client does not read. A client whose writer buffer is full keeps its place in the ring; what the ring overwrites
// meanwhile is lost for that client alone, and reported. A client is never cut for being slow.
//
// drop_when_read selects how a position in the ring is kept. With false each client hears the stream byte for byte as
// long as it is less than a ring behind; after that it goes on with the newest bytes. An insert of a whole ring at once
// (ring_size bytes) is lost for clients that had read everything. With true a client that had read everything gets any
// insert, but a client that is behind when the ring wraps may go back to the oldest byte and hear bytes twice.
//
// Status (see Remote_Control): 11 after each client, 13 when the port was closed, 0 when it could not be opened.
//
// Threads:   one thread waits for clients, from the first CreateServer to destruction. It also destroys the objects of
//            clients that have gone. One thread (Work) makes the passes. Each client has two more. Any thread may call
//            any operation at any time. Nothing waits for a client's end but destruction, which asks all threads to
//            end before it waits for the first. No lock is held while a thread is started or stopped, nor while a
//            client takes bytes. Lock order: this object's Semaphore, a client's Semaphore, then the lock of ring and
//            list, which is a leaf: a client pulls with its own lock held.
//            A subclass calls Stop_Threads first in its destructor, because the threads call virtual operations.
// Ownership: belongs to its producer as any Byte_Client; owns ring, port and the objects of its clients. These report
//            to the handler that this object has when the client connects: it outlives this object.
// Errors:    kernel/Socket_Multi_Server: code 89 for a port that cannot be opened (3); code 91 for the rest: clients
//            that come (1), failed accepts and clients that cannot be served (3), bytes that a client has lost (2, at
//            most once a minute for each client). When descriptors or memory are used up, clients wait: accepting is
//            tried again every 250 ms and as soon as a client has gone, and the same failure is reported once a minute.
//            Closing the port on this side is not reported.
class KERNEL_API Socket_Multi_Server : public Byte_Server,
                                       public Byte_Client,
                                       public WinSock_Loader,
                                       public Base_Thread,
                                       public Remote_Control {
public:
    static const char Name[];  // "Socket_Multi_Server"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // ring_size: 1 to 2^31 - 1 bytes. Null for other sizes, and without memory or descriptors.
    static Socket_Multi_Server *Construct(Error_Handler *const handler, bool drop_when_read, unsigned int ring_size);
    static void Destruct(Socket_Multi_Server *object) { Object::Destruct(object); }
    ~Socket_Multi_Server() override;

    bool IsValid() const override;

    // Closes what is open (port and clients) and listens on all addresses. Port 0: the system chooses a free port.
    // False: reported, status 0.
    bool CreateServer(int port);
    unsigned short GetPort() const;  // 0 before CreateServer
    int GetNumConnections() const;   // clients that are served
    bool is_connected() const { return GetNumConnections() > 0; }
    bool IsBusy() override;  // listens, and makes passes
    // Ends the connections to all clients; they may connect again. Always true.
    bool Hang_Up() override;
    // Starts the thread that makes the passes if it does not run; returns whether it runs.
    bool Work() override;
    bool Request(long) override { return false; }  // nothing is delivered to a client of this object

    // Mesg_Request_Invite: asks for whatever there is. Mesg_Data_Ready: one block of up to 4,096 bytes goes into the
    // ring.
    bool Send(Byte_Server &server, CL_Mesg message) override;

    using Byte_Server::GetNBytes;
    // What the client of this identifier has not read yet, at most n bytes. 0 without such a client.
    long GetNBytes(Multicast_Client_Identifier *identifier, unsigned char *buffer, long n);

    std::uint64_t GetBytesIn() const;  // all bytes that went into the ring

protected:
    // One client. The lock of ring and list guards it, except for what never changes.
    //
    // Threads:   destroyed by the thread that waits for clients, or by the destructor of the server.
    // Ownership: owns identifier and line.
    // Errors:    none.
    struct SockConnection;
    class Line;

    Socket_Multi_Server(Error_Handler *handler, bool drop_when_read, unsigned int ring_size);

    void Stop_Threads();  // all of them; waits, and destroys the clients' objects

    // Null or n < 1: nothing.
    void InsertData(char *data, int n);
    // For positions in the ring see Multicast_Ring; these are its operations for this ring.
    int AdaptReadPointer(bool wraps, int old_head, int new_head, int old_tail, int new_tail, int position) const;
    int GetFromPointerToTail(int position, unsigned char *buffer, int n, int &got) const;
    bool EndReached(int position, int tail) const;
    // Whether every client has read everything.
    bool CheckIfAllClientsAreSynchronized() const;
    SP<SockConnection> GetConnection(Multicast_Client_Identifier *identifier) const;

    void MarkThreadDead(Socket_Client_Server *line);  // the client has gone; its object is destroyed later
    void RunGarbageCollection();                      // on the thread that waits for clients
    unsigned long WaitForClientsThread();
    unsigned long WaitForClientsThreadTerminate();  // makes it end; the next CreateServer starts it anew
    unsigned long thread() override;                // makes the passes
    void Close();                                   // port and clients; status 13 if the port was open
    bool Close_Handle();                            // whether the port was open
    void Disconnect() override;                     // ends the passes, too
    void DumpBuffer() {}                            // part of the interface
    // Reports ":port", the text and the system's words. Level 4 closes.
    virtual void ReportErrorIntern(unsigned long error, const char *text, Err_Code code,
                                   Error_Handler::Enum_Status status);
    bool Gives_Up_Posting() const override;

private:
    friend class Multicast_Client_Identifier;

    using Connections = std::vector<SP<SockConnection>>;

    struct Acceptor : Member_Thread<Socket_Multi_Server> {
        using Base_Thread::Is_Own_Thread, Base_Thread::Stop_Requested;
        explicit Acceptor(Socket_Multi_Server &owner) : owner_(owner) {}
        void pre_stop() override;

    private:
        unsigned long terminate() override;
        Socket_Multi_Server &owner_;
    };
    // A failure that is reported once a minute.
    struct Throttle {
        std::uint32_t error = 0;
        std::uint64_t told = 0;  // [ms] of clock_ms; 0: never
        bool Is_Due(std::uint32_t of);
    };
    // A client that was accepted and is not served yet.
    struct Accepted {
        SP<platform::Socket> listener, socket;
        sockaddr_in peer;
    };

    bool Fail_To_Listen(std::uint32_t error, const char *text);
    bool Is_Current(const Accepted &client) const;  // of the port that is open now
    void Accept_And_Serve();
    void Accept();
    void Failed_To_Accept(std::uint32_t error);
    bool Serve();
    void Make_Room();
    SP<SockConnection> Made_Connection() const;
    void Failed_To_Serve();
    bool Add(const SP<SockConnection> &connection);
    void Push();
    void Note_Loss(SockConnection &connection) const KERNEL_REQUIRES(lock_);
    void Report_Loss(SockConnection &connection);
    void Hang_Up_All();
    void Hang_Up(Multicast_Client_Identifier *identifier);
    Connections::const_iterator Place_Of(const Multicast_Client_Identifier *identifier) const KERNEL_REQUIRES(lock_);
    template <class Wanted>
    SP<SockConnection> Next_After(const Multicast_Client_Identifier *last, Wanted wanted) const;
    void Released();

    std::atomic<std::uint16_t> port_{0};
    std::atomic<bool> stop_accepting_{false};
    const std::unique_ptr<platform::Event> wake_;  // for the thread that waits for clients: look what is to be done

    const Semaphore lock_;  // of ring and list
    const std::unique_ptr<Multicast_Ring> ring_;
    std::uint64_t bytes_in_ KERNEL_GUARDED_BY(lock_) = 0;
    bool synchronized_ KERNEL_GUARDED_BY(lock_) = true;  // nothing to pass on
    bool has_marked_ KERNEL_GUARDED_BY(lock_) = false;   // the list has clients that have gone
    Connections connections_ KERNEL_GUARDED_BY(lock_);   // in the order of the identifiers' addresses
    SP<platform::Socket> listener_ KERNEL_GUARDED_BY(lock_);
    std::atomic<bool> has_dead_{false};  // dead_ is not empty; whoever releases a connection then wakes its owner

    Connections dead_;  // the waiting thread's, as are the next: taken off the list, perhaps still in use
    Accepted held_;
    Throttle accept_failure_, serve_failure_;
    Acceptor acceptor_;
};

// The stream as one TCP client of a Socket_Multi_Server reads it: a byte server above the sending half of that client's
// socket.
//
// Threads:   any, at any time but during destruction.
// Ownership: of its client as Byte_Server. The server that it reads from outlives it.
// Errors:    as Byte_Server and Byte_Client.
class KERNEL_API Multicast_Client_Identifier : public Byte_Server, public Byte_Client {
public:
    static const char Name[];  // "Multicast_Client_Identifier"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // A null owner: detached, there is nothing to read.
    static Multicast_Client_Identifier *Construct(Socket_Multi_Server *owner, Error_Handler *handler);
    static void Destruct(Multicast_Client_Identifier *object) { Object::Destruct(object); }

    using Byte_Server::GetNBytes;
    long GetNBytes(unsigned char *buffer, long n) override;  // of the owner's ring
    bool Request(long) override { return false; }            // the owner sends when it has something
    // Mesg_Data_Ready goes to the own client, which pulls.
    bool Send(Byte_Server &server, CL_Mesg message) override;
    bool Hang_Up();  // ends the connection to this client; false when detached

protected:
    Multicast_Client_Identifier(Socket_Multi_Server *owner, Error_Handler *handler);

private:
    Socket_Multi_Server *const owner_;
};

}  // namespace kernel
