// A byte stream over one TCP connection: as client (also of an NTRIP caster, and through a proxy) or as server of one
// peer at a time.
#pragma once

#include "kernel/base/Base_Thread.h"
#include "kernel/connections/BYTE_SER.h"
#include "kernel/transports/Win32_Buffered_Byte_Client.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kernel {

class Socket_Multi_Server;
class Socket_Reader;

// An IPv4 address, laid out as the socket interfaces do.
//
//   offset  bytes
//        0      2  sin_family: 2 (IPv4), in the machine's byte order
//        2      2  sin_port, most significant byte first
//        4      4  sin_addr, in the order in which it is written: 127, 0, 0, 1
//        8      8  sin_zero
struct sockaddr_in {
    std::uint16_t sin_family = 2;
    std::uint8_t sin_port[2] = {};
    std::uint8_t sin_addr[4] = {};
    std::uint8_t sin_zero[8] = {};
};
static_assert(sizeof(sockaddr_in) == 16 && offsetof(sockaddr_in, sin_port) == 2 &&
              offsetof(sockaddr_in, sin_addr) == 4);

// Received bytes are offered to the connected Byte_Client. Bytes that a server above gives are sent to the peer. Work
// starts the reader thread, which connects or accepts, delivers and reports. When the connection is lost, a server
// begins again; a client does so if an auto-reconnect time is set.
//
// The client hears:
//   Mesg_Attached         a connection is up
//   Mesg_Request_Invite   it may ask for bytes; Mesg_Data_Ready: they are there
//   Mesg_Status_40        a second of waiting has passed without data
//   Mesg_Second           about once a second while it waits for data
//   Mesg_Status_50        in place of Mesg_Status_40, when a minute is over. The minute begins with the connection and
//                         again with each Mesg_Status_50 that was accepted; data do not move it. Refused:
//                         Mesg_Status_110 follows, and the thread ends.
//   Mesg_Detached         the connection is gone; perhaps more than once
// If a lost connection brought fewer bytes than the client had asked for, these bytes stay. The client can pull them
// from inside Mesg_Detached. Otherwise they stand in front of what the next connection to the same target brings. A
// caster's refusal is dropped.
//
// Status (see Remote_Control): 103 after CreateClient, 10 connecting, 12 connected as client, 11 connected as server,
// 13 disconnected, 1 waiting to begin again, 0 failed or no client.
//
// Threads:   the reader thread runs the client's Send; call the pull operations from inside that. Call everything else
//            from any thread. On the reader's own thread (from the client's Send) stop and Disconnect only ask the
//            thread to end. CreateClient and CreateServer close what is open and set the new target in one step. A
//            running reader turns to the new target at once, without the pause for reconnecting, and never returns to
//            the old one. A reader that is about to end does end; the next Work begins with the new target. Close and
//            Hang_Up end the connection; only stop ends the thread. While the reader runs, it alone tells the client
//            Mesg_Detached, so that no two threads talk to the client. A stop ends every wait at once, also the wait
//            for a window whose queue is full.
//            Connect, Switch, Disconnect and destruction wait until nobody is inside the old client: see Byte_Server
//            for what they promise and forbid.
//            A subclass calls Stop_Threads first in its destructor, because both threads call virtual operations.
// Ownership: the client as Byte_Server; host names and credentials are copied. GetRemoteName's text is valid until its
//            next call. The accepted socket given to CreateServer belongs to this object.
// Errors:    kernel/Socket_Client_Server: code 89 for sockets that cannot be made, bound, resolved or connected (level
//            3), code 91 for the rest: connections and their end (2), waiting for a host (0), timeouts, accept and
//            NTRIP errors (3). A report with an error number of the system contains the system's words ("Connection
//            reset by peer"). A server that cannot listen reports the step that failed, then the cause ("Error
//            accepting inbound connection."). It tries again after a quarter of a second and the auto-reconnect time.
//            The effects of closing on this side (Close, Hang_Up, a new target) are not reported. A host that
//            cannot be reached is reported once as long as the tries come less than an hour apart. "since %u sec." and
//            that hour begin anew with each loss and with each target. No report contains credentials.
class KERNEL_API Socket_Client_Server : public Byte_Server, public Win32_Buffered_Byte_Client, public Base_Thread {
public:
    static const char Name[];  // "Client/Server class for Sockets": also the name of each object
    static const char *ClassName() { return "Socket_Client_Server"; }
    bool IsInheritedFrom(const char *name) const override;  // of either text

    // buffer_size: of the writer, see SetBufferSize.
    static Socket_Client_Server *Construct(Error_Handler &handler, unsigned int buffer_size);
    static void Destruct(Socket_Client_Server *object) { Object::Destruct(object); }

    // At most 4096 bytes; true when n are held already.
    bool Request(long n) override;
    void Disconnect() override;  // stops the thread first
    // Starts the thread if it does not run; returns whether it runs. A thread that is about to end gets 0.1 s to do so
    // and is started anew, so that a host may reply to status 13 with Work. A thread that does not end costs these 0.1
    // s as well. On the reader's own thread: true, and nothing is done.
    bool Work() override;
    unsigned short GetByte() override;
    using Byte_Server::UnGetByte;
    // Gives back what was taken, and up to 16 bytes more.
    unsigned short UnGetByte(unsigned char byte) override;
    using Byte_Server::GetNBytes;
    long GetNBytes(unsigned char *buffer, long n) override;
    long MinAvail(long) override;  // bytes held; the argument is ignored

    // A client of host:port. With a proxy host (may be null) it connects to the proxy, and NTRIP requests name the
    // host. False: a null host, or a name that is not resolved now. The look-up may take as long as the system does.
    // The thread looks such a name up again at each try; an address once found is kept.
    virtual bool CreateClient(const char *host, int port, const char *proxy_host, int proxy_port);
    // A server around an accepted socket, given by its number, for one client of a multi-server. The loss of the
    // connection ends the thread. False: not a TCP socket, or no memory; reported, status 0, and what was open is
    // closed.
    virtual bool CreateServer(unsigned int socket, int port, sockaddr_in peer, Socket_Multi_Server *server);
    // A server on all addresses. Port 0: the system chooses a free port when the server first listens, and GetPort
    // returns it from then on. While a peer is served the port is closed.
    virtual bool CreateServer(int port);
    virtual unsigned short GetPort() const;  // the port to connect to (not the proxy's), or to listen on

    // The time between two tries [s]. 0, as at first: a client tries once, a server begins again without a pause.
    void Enable_Auto_Reconnect(unsigned long seconds);
    void Disable_Auto_Reconnect() { auto_reconnect_ms_.store(0, std::memory_order_relaxed); }
    // [ms]
    unsigned long Get_Auto_Reconnect_Time() const { return auto_reconnect_ms_.load(std::memory_order_relaxed); }
    // Bytes handed to the client since the connection was made.
    std::uint64_t GetBytesIn() const;

    bool Send(Byte_Server &server, CL_Mesg message) override;  // Mesg_Type_11000: returns what Set_Answer_11000 has set
    // Closes what is open: connection, listener, socket that connects. A running reader then goes on as after a loss.
    void Close() override;
    bool is_connected() override;          // to a peer
    bool Hang_Up() override;               // true; the reader then goes on as after a loss
    bool IsBusy() override;                // the thread runs, and it is connected (server) or has a socket (client)
    const char *GetRemoteName() override;  // "host:port" of the other end; "" when there is none

    ~Socket_Client_Server() override;

    void pre_stop() override;  // wakes the reader wherever it waits

protected:
    Socket_Client_Server(Error_Handler &handler, unsigned int buffer_size);

    using Win32_Buffered_Byte_Client::handle_;  // Base_Thread has one, too: its thread
    using Win32_Buffered_Byte_Client::stop_event_;

    void Stop_Threads();  // reader and writer; waits for both

    // NTRIP, in the client role. After connecting, a request is sent: for the stream of a mountpoint, whose answer is
    // then judged, or for the source table. The answer's own bytes stay in the stream, in front of the data. Texts have
    // at most 255 characters; a mountpoint has no blanks and no leading '/'. Other texts and null return false and
    // change nothing.
    void Set_Ntrip_Mode(bool on);
    void Set_Stream_Wanted(bool stream);  // false: the source table
    bool Set_Mountpoint(const char *mountpoint);
    bool Set_User(const char *user);  // "" sends empty credentials
    bool Set_Password(const char *password);
    void Set_Answer_11000(bool answer) { answer_11000_.store(answer, std::memory_order_relaxed); }

    bool CreateServerSocket();  // makes the listener; false: reported, and status 0
    // Ends the connection. In the client role the socket still counts as open (IsBusy) until Close or Close_Handle.
    void FreeAcceptSocket();
    bool Close_Handle();  // whether a socket was open
    // 1 after a stop or after the last connection, 0 when there was no connection or no client.
    unsigned long thread() override;
    unsigned long threadFunc();
    unsigned long terminate() override;
    bool NtripSendRequest();
    bool NtripCheckRequestResponse(int n, char *data);  // false: refused, and reported
    // Reports "host:port", the text and the system's words. The prefix is left out while no socket is open; a server's
    // is ":port".
    void ReportErrorIntern(unsigned long error, const char *text, Err_Code code,
                           Error_Handler::Enum_Status status) override;
    bool Gives_Up_Posting() const override;

private:
    friend class Socket_Reader;

    const std::unique_ptr<Socket_Reader> reader_;
    std::atomic<std::uint32_t> auto_reconnect_ms_{0};
    std::atomic<bool> answer_11000_{false};
    std::string remote_name_ KERNEL_GUARDED_BY(this);
    bool is_destroyed_ = false;  // set and asked on the thread that destroys
};

}  // namespace kernel
