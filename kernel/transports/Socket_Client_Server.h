// A byte stream over one TCP connection, as client (also of an NTRIP caster, and through a proxy) or as server of one peer
// at a time.
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

// Received bytes are offered to the connected Byte_Client; bytes that a server above gives are sent to the peer. Work
// starts the reader thread. It connects or accepts, delivers, reports, and begins again when the connection is lost: a
// server always, a client when an auto-reconnect time is set.
//
// What the client hears: Mesg_Attached when a connection is up, Mesg_Request_Invite and Mesg_Data_Ready, while it waits
// for data Mesg_Status_40 and Mesg_Second about once a second, Mesg_Status_50 when there was silence at the end of a
// minute (refused: Mesg_Status_110, and the thread ends), Mesg_Detached, more than once perhaps, when the connection is
// gone. That minute begins with the connection and again with each Mesg_Status_50 that was accepted, whatever was
// received meanwhile. Bytes that a lost connection leaves, because the client asked for more than came, stay: they can
// be pulled from inside Mesg_Detached, and are otherwise in front of what the next connection to the same target
// brings. A caster's refusal is dropped.
//
// Status (see Remote_Control): 103 after CreateClient, 10 connecting, 12 and 11 connected as client and as server, 13
// disconnected, 1 waiting to begin again, 0 failed or no client.
//
// Threads:   the reader thread runs the client's Send, and the pull operations belong inside that. Everything else may
//            come from any thread; on the reader's own (from the client's Send) stop and Disconnect only ask.
//            CreateClient and CreateServer close what is open and give the new target in one step; a reader at work
//            turns to it at once, without the pause for reconnecting, and never again to the old one. A reader that is
//            about to end ends all the same: Work afterwards begins with the new target. Close and Hang_Up end the
//            connection, not the thread: that is stop's. The client hears Mesg_Detached from the reader alone while
//            that runs: no two threads talk to it. Stopping ends every wait at once, also for a window whose queue is
//            full. Connect, Switch, Disconnect and destruction wait until nobody is inside the old client: see
//            Byte_Server for what they promise and forbid. A subclass calls Stop_Threads first thing in its destructor:
//            both threads call virtual operations.
// Ownership: the client as Byte_Server; host names and credentials are copied. GetRemoteName's text is good until its
//            next call. The accepted socket given to CreateServer belongs to this object.
// Errors:    kernel/Socket_Client_Server: code 89 for sockets that cannot be made, bound, resolved or connected (level
//            3), code 91 for the rest: connections and their end (2), waiting for a host (0), timeouts, accept and
//            NTRIP errors (3). With a number of the system's: "Connection reset by peer" and the like are part of the
//            text. A server that cannot listen says what it could not do, then the cause ("Error accepting inbound
//            connection."), and tries again, four times a second where no auto-reconnect time is set. What comes of
//            closing on this side (Close, Hang_Up, a new target) is no error. A host that cannot be reached is reported
//            once as long as the tries come less than an hour apart; "since %u sec." and that hour begin anew with each
//            loss and with each target. Credentials are in no report.
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
    // Starts the thread if it does not run; whether it runs. A thread that is about to end gets 0.1 s for that and is
    // started anew, so that status 13 may be answered with Work; one that does not end takes these 0.1 s as well. On the
    // reader's own thread: true, and nothing is done.
    bool Work() override;
    unsigned short GetByte() override;
    using Byte_Server::UnGetByte;
    // What was taken, and up to 16 bytes more.
    unsigned short UnGetByte(unsigned char byte) override;
    using Byte_Server::GetNBytes;
    long GetNBytes(unsigned char *buffer, long n) override;
    long MinAvail(long) override;  // bytes held; the argument is ignored

    // A client of host:port; with a proxy host (may be null) it connects there and NTRIP requests name the host. False: a
    // null host, or a name that is not resolved now (it may take as long as the system does); the thread looks such a name
    // up again at each try. An address once found is kept.
    virtual bool CreateClient(const char *host, int port, const char *proxy_host, int proxy_port);
    // A server around an accepted socket, given by its number, for one client of a multi-server. Its loss ends the thread.
    virtual bool CreateServer(unsigned int socket, int port, sockaddr_in peer, Socket_Multi_Server *server);
    // A server on all addresses. Port 0 is a free one, chosen when it listens for the first time: GetPort then tells it.
    // While a peer is served the port is closed.
    virtual bool CreateServer(int port);
    virtual unsigned short GetPort() const;  // to connect to (not the proxy's), or to listen on

    // The time between two tries, in seconds; 0 (and at first): a client tries once, a server begins again without a pause.
    void Enable_Auto_Reconnect(unsigned long seconds);
    void Disable_Auto_Reconnect() { auto_reconnect_ms_.store(0, std::memory_order_relaxed); }
    // [ms]
    unsigned long Get_Auto_Reconnect_Time() const { return auto_reconnect_ms_.load(std::memory_order_relaxed); }
    // Handed to the client since the connection was made.
    std::uint64_t GetBytesIn() const;

    bool Send(Byte_Server &server, CL_Mesg message) override;  // Mesg_Type_11000: what Set_Answer_11000 has set
    // Closes what is open: connection, listener, socket that connects. A reader at work then goes on as after a loss.
    void Close() override;
    bool is_connected() override;          // to a peer
    bool Hang_Up() override;               // true; the connection is then made anew, as after a loss
    bool IsBusy() override;                // the thread runs, and it is connected (server) or has a socket (client)
    const char *GetRemoteName() override;  // "host:port" of the other end; "" when there is none

    ~Socket_Client_Server() override;

    void pre_stop() override;  // wakes the reader wherever it waits

protected:
    Socket_Client_Server(Error_Handler &handler, unsigned int buffer_size);

    using Win32_Buffered_Byte_Client::handle_;  // not the thread's
    using Win32_Buffered_Byte_Client::stop_event_;

    void Stop_Threads();  // reader and writer; waits for both

    // NTRIP, in the client role. After connecting a request is sent: for the stream of a mountpoint, whose answer is then
    // judged, or for the source table. The answer's own bytes stay in the stream, in front of the data. Texts have 255
    // characters at most, a mountpoint no blanks and no leading '/': false, and nothing changes, for others and for null.
    void Set_Ntrip_Mode(bool on);
    void Set_Stream_Wanted(bool stream);  // false: the source table
    bool Set_Mountpoint(const char *mountpoint);
    bool Set_User(const char *user);  // "" sends empty credentials
    bool Set_Password(const char *password);
    void Set_Answer_11000(bool answer) { answer_11000_.store(answer, std::memory_order_relaxed); }

    bool CreateServerSocket();  // makes the listener; false: reported, and status 0
    // Ends the connection; in the client role the socket still counts as open (IsBusy) until it is closed by its own name.
    void FreeAcceptSocket();
    bool Close_Handle();  // whether a socket was open
    unsigned long
    thread() override;  // 1 after a stop or a last connection, 0 when there was none or nobody to deliver to
    unsigned long threadFunc();
    unsigned long terminate() override;
    bool NtripSendRequest();
    bool NtripCheckRequestResponse(int n, char *data);  // false: refused, and reported
    // "host:port", the text and the system's words. The prefix is there while the socket is open; a server has no host
    // name, and ":port".
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
