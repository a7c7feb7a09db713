// The reader of a named pipe: its ends, and what it does with a connection. Not installed.
#pragma once

#include "kernel/transports/Named_Pipe_Client_Server_Base.h"
#include "kernel/transports/stream_reader_internal.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace platform {
class Server_Pipe;
}

namespace kernel {

// What Named_Pipe_Client_Server_Base describes; the object itself is the interface, and the place of the virtual
// operations.
//
// Threads:   the first part for all threads, under the owner's Semaphore; the rest is the reader's.
// Ownership: belongs to the pipe object, and outlives its threads. Streams are shared with those who are inside a call.
// Errors:    reported in the owner's name.
class Pipe_Reader : public Stream_Reader {
public:
    using Stream_Reader::Woken;

    explicit Pipe_Reader(Named_Pipe_Client_Server_Base &owner) : Stream_Reader(Kind::connection), owner_(owner) {}

    // For all threads.
    void Listen(std::shared_ptr<platform::Server_Pipe> pipe);    // of a server, from Create to Close
    bool Connect(std::shared_ptr<platform::Stream> connection);  // false: a server that is closed
    std::shared_ptr<platform::Server_Pipe> Pipe() const;         // null when closed, and for a client
    bool Is_Connected() const;                                   // to the other process
    bool End_Connection();                                       // whether there was one
    void Close();

    // The reader's.
    void Renew_Stop_Signal();  // forgets the signal of an earlier run
    unsigned long Serve();     // the data phase
    // by_signal: there is a client, or null for a failure with the platform's last error.
    Woken Wait_For_Client(platform::Server_Pipe &pipe, std::shared_ptr<platform::Stream> &client);
    // Sleeps in slices, so that the flag is checked even if another sleep has taken the signal of the stop.
    void Pause(unsigned long ms);

private:
    using Owner = Named_Pipe_Client_Server_Base;

    bool Tell(CL_Mesg message) override { return owner_.Tell(message); }
    bool Is_Stopping() const override { return owner_.Stop_Requested(); }
    long Available() override { return owner_.MinAvail(0); }
    bool Invite() override;
    bool Receive() override;
    bool Refused() override { return Finish(); }
    bool Unwanted(double silent_seconds) override;
    bool Read_Ended(Read_End end) override;
    bool Read_Failed(const platform::Stream &stream, std::uint32_t error) override;
    bool Stop_Seen() override;
    bool Wait_Failed(std::uint32_t error) override;
    bool Finish();
    bool Lost(std::uint32_t error, Read_End end);
    void Report_Loss(std::uint32_t error, Read_End end);
    void Detach();

    Owner &owner_;
    // The owner's handle_ belongs to it: the connection, or a server's pipe while nobody is connected.
    std::shared_ptr<platform::Server_Pipe> pipe_ KERNEL_GUARDED_BY(owner_);
    bool connected_ KERNEL_GUARDED_BY(owner_) = false;
    std::atomic<bool> attached_{false};  // the client has accepted Mesg_Attached, and has not heard Mesg_Detached
    bool waits_for_client_ = false;      // the reader's: selects the texts
};

}  // namespace kernel
