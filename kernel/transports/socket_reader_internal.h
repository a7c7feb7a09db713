// The reader of a socket: its target, the way to a connection, and what it does with one. Not installed.
#pragma once

#include "kernel/transports/Socket_Client_Server.h"
#include "kernel/transports/ntrip_answer_internal.h"
#include "kernel/transports/stream_reader_internal.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace platform {
class Socket;
}

namespace kernel {

// What Socket_Client_Server describes; the object itself is the interface, and the place of the virtual operations.
//
// Threads:   the first part for all threads, under the owner's Semaphore; the rest is the reader's.
// Ownership: belongs to the socket object, and outlives its threads. Streams are shared with those who are inside a
//            call.
// Errors:    reported in the owner's name.
class Socket_Reader : public Stream_Reader {
public:
    // What to connect to or to listen on. Never changed once it is set, but for the two that are found out later.
    struct Target {
        bool is_server = false;
        Socket_Multi_Server *multi_server = nullptr;
        std::string host;
        std::atomic<std::uint16_t> port{0};
        bool via_proxy = false;
        std::string proxy_host;
        int proxy_port = 8080;
        std::atomic<std::uint32_t> address{no_address};  // client: to connect to, host byte order

        // As in the socket interfaces: 255.255.255.255 is none, and here one that is not found yet.
        static constexpr std::uint32_t no_address = 0xFFFFFFFF;
        std::string Where() const { return via_proxy ? proxy_host : host; }
        std::uint16_t Door() const { return via_proxy ? static_cast<std::uint16_t>(proxy_port) : port.load(); }
        bool Resolve(platform::Event &stop);  // finds the address; false: not now, with the platform's last error
    };
    // A target, and the connection that is there already when it is one of a multi-server.
    struct Opening {
        std::shared_ptr<Target> target;
        std::shared_ptr<platform::Socket> accepted = nullptr;
        sockaddr_in peer = {};
    };
    struct Ntrip {
        bool mode = false;
        bool stream_wanted = false;
        std::string mountpoint, user, password;
    };
    struct Remote {
        std::string host;
        int port;
    };

    explicit Socket_Reader(Socket_Client_Server &owner) : Stream_Reader(Kind::connection), owner_(owner) {}

    // For all threads.
    std::shared_ptr<Target> Get_Target() const;
    // While the reader runs on another thread it sees to status and messages itself: a late 13 would hide what it does
    // next.
    bool Is_Seen_To() const;
    void Close(const Opening *next);
    bool Close_Handle(const Opening *next);  // whether a socket was open
    void Close_Socket();
    bool Is_Open() const;             // there is a socket: client: connected or not; server: that listens
    std::string Prefix() const;       // "host:port" for reports while it is open
    std::string Remote_Name() const;  // "" when there is none
    Ntrip Get_Ntrip() const;
    void Set_Ntrip(bool Ntrip::*field, bool value);
    bool Set_Ntrip(std::string Ntrip::*field, const char *text);  // false: null, or too long

    // The reader's.
    unsigned long Work();  // the thread's result
    bool Listen();         // makes the listener; false: reported, and status 0
    Ntrip_Answer &Answer() { return answer_; }
    Error_Handler &Report(unsigned int line) const { return owner_.Report("kernel/Socket_Client_Server", line); }

private:
    using Owner = Socket_Client_Server;
    struct Tries;
    // Where the thread goes on.
    enum class Next {
        pass,       // the next one: tell the client, pause, and
        establish,  // get a connection
        serve,      // it is there, or still good
        finish,     // the last connection is over: close and end
        stopped,    // end, with 1
        failed,     // end, with 0
    };

    Remote The_Other_End(const Target &target) const;
    bool Is_Current() const;  // false: there is another target than the one that is served

    // The way to a connection.
    std::shared_ptr<platform::Socket> New_Socket();  // takes the place of socket_; null: none left, or not current
    void Close_Left_Over();
    bool Fail_To_Listen(std::uint32_t error, const char *text);
    void Pause(unsigned long slice);
    Next Begin_Again();
    void Turn_To(std::shared_ptr<Target> target);
    Next Establish();
    Next Connect_As_Client();
    Next Try_To_Connect(Tries &tries);
    Next Connected_As_Client(const Tries &tries);
    Next Failed_To_Connect(Tries &tries, bool resolved, unsigned long error);
    void Report_Failed_Look_Up(const Tries &tries, unsigned long error);
    void Report_Failed_Try(Tries &tries, unsigned long error);
    Next Accept_As_Server();
    std::shared_ptr<platform::Socket> Wait_For_Peer(sockaddr_in &peer, unsigned long &error);
    Next Failed_To_Accept(unsigned long error);
    Next Stopped();
    void Finish();

    // And through it: the steps of the loop note in next_ how the thread goes on.
    Next Serve();
    bool Go_On(Next next) { return (next_ = next) == Next::serve; }
    bool Tell(CL_Mesg message) override { return owner_.Tell(message); }
    bool Is_Stopping() const override { return owner_.Stop_Requested(); }
    long Available() override { return owner_.MinAvail(0); }
    bool Invite() override;
    bool Receive() override;
    bool Refused() override { return Go_On(Next::finish); }
    bool Unwanted(double silent_seconds) override;
    bool Read_Ended(Read_End end) override;
    bool Read_Failed(const platform::Stream &stream, std::uint32_t error) override;
    bool Stop_Seen() override;
    bool Wait_Failed(std::uint32_t error) override;
    Next Judge(std::size_t n, Read_End end);
    Next Peer_Closed();
    Next Receive_Failed(unsigned long error);
    std::optional<Remote> Lose_Connection();  // whose it was; nothing when it was closed on this side before
    Next After_Loss();
    void Report_Lost_Host();

    Socket_Client_Server &owner_;
    std::shared_ptr<platform::Socket>
        socket_ KERNEL_GUARDED_BY(owner_);  // client: the connection; server: the listener
    // The owner's handle_, socket_ and peer_ belong to it.
    std::shared_ptr<Target> target_ KERNEL_GUARDED_BY(owner_) = std::make_shared<Target>();
    sockaddr_in peer_ KERNEL_GUARDED_BY(owner_);  // server: who is connected
    Ntrip ntrip_ KERNEL_GUARDED_BY(owner_);
    std::shared_ptr<Target> serving_;  // what the reader is at; the reader's, as are the next
    Next next_ = Next::serve;
    int accept_errors_ = 0;           // in a row
    std::uint32_t listen_error_ = 0;  // why there is nothing to accept from
    Ntrip_Answer answer_;
};

}  // namespace kernel
