// A byte stream between two processes of a machine over a named pipe: what the client and the server role share.
#pragma once

#include "kernel/base/Base_Thread.h"
#include "kernel/connections/BYTE_SER.h"
#include "kernel/transports/Win32_Buffered_Byte_Client.h"

#include <cstdint>
#include <memory>
#include <string>

namespace kernel {

class Pipe_Reader;

// Received bytes are offered to the connected Byte_Client. Bytes that a server above gives are sent to the other
// process; while nobody is connected to a server they are taken and dropped. A host makes the client or the server
// role; Create opens the pipe, and Work starts the thread.
//
// Names are those of platform/pipe.h: `\\.\pipe\NAME` or NAME alone, in any case, at most 247 bytes.
//
// The client hears:
//   Mesg_Attached         a connection is up
//   Mesg_Request_Invite   it may ask for bytes; Mesg_Data_Ready: they are there
//   Mesg_Status_40        a second of waiting has passed without data, or without a client of the server
//   Mesg_Second           about once a second while the thread waits
//   Mesg_Status_50        in place of Mesg_Status_40, when a minute is over. The minute begins with the connection, or
//                         with the server's wait for a client, and again with each Mesg_Status_50 that was accepted;
//                         data do not move it. Refused: Mesg_Status_110 follows, the pipe is closed, the thread ends.
//   Mesg_Status_100       a host has called Dial
//   Mesg_Detached         the connection is gone: once for each Mesg_Attached that was accepted
// Bytes that came before the loss can be pulled from inside Mesg_Detached. The next connection begins without them.
//
// Status (see Remote_Control): 10 opening, 106 waiting on a busy pipe, 11 connected as server, 12 connected as client,
// 13 disconnected, 1 a server waits for a client, or the client's thread has ended, 0 failed or no client, 150 the
// system refuses the handle.
//
// Threads:   the reader thread runs the client's Send; call the pull operations from inside that. Call everything else
//            from any thread. On the reader's own thread (from the client's Send) stop and Disconnect only ask the
//            thread to end, and Create does nothing and returns 0. Close closes the pipe, and a server's name with it;
//            the thread then ends, but for a client with an auto-reconnect time. A stop ends every wait at once; it
//            also closes the pipe, so that Create comes before the next Work.
//            Connect, Switch, Disconnect and destruction wait until nobody is inside the old client: see Byte_Server.
//            A subclass calls Stop_Threads first in its destructor, because both threads call virtual operations.
// Ownership: the client as Byte_Server; names are copied. GetRemoteName's text is valid until its next call,
//            GetPipeName's until the next Create.
// Errors:    kernel/Named_Pipe_Client_Server_Base: "%s Pipe %s Error-Code: ..." with the system's words; "Named Pipe
//            ..." for the data phase (0 to 3, 91). The roles add theirs. The effects of closing on this side (Close,
//            Hang_Up) are not reported.
class KERNEL_API Named_Pipe_Client_Server_Base : public Byte_Server,
                                                 public Win32_Buffered_Byte_Client,
                                                 public Base_Thread {
public:
    static const char Name[];  // "Baseclass Client/Server for Named Pipes"
    static const char *ClassName() { return "Named_Pipe_Client_Server_Base"; }
    bool IsInheritedFrom(const char *name) const override;  // of either text

    const char *GetPipeName() const;  // null before the first Create

    // At most 4096 bytes; true when n are held already.
    bool Request(long n) override;
    void Disconnect() override;  // stops the thread first
    bool Work() override;        // starts the thread if it does not run; returns whether it runs
    unsigned short GetByte() override;
    using Byte_Server::UnGetByte;
    unsigned short UnGetByte(unsigned char byte) override;  // gives back what was taken, and up to 16 bytes more
    using Byte_Server::GetNBytes;
    long GetNBytes(unsigned char *buffer, long n) override;
    long MinAvail(long) override;      // bytes held; the argument is ignored
    std::uint64_t GetBytesIn() const;  // bytes handed to the client

    void Close() override;
    bool is_connected() override;  // the pipe is open; a server's also while nobody is connected to it
    // Ends the connection: a server waits for the next client, a client reconnects if it has a time for that. Returns
    // whether there was one.
    bool Hang_Up() override;
    // Tells the client Mesg_Status_100, on the calling thread; returns its reply. The arguments are ignored.
    bool Dial(const char *number, const char *user, const char *password) override;
    bool IsBusy() override;  // the thread runs, and the other process is connected

    ~Named_Pipe_Client_Server_Base() override;

    void pre_stop() override;  // wakes the reader wherever it waits

protected:
    Named_Pipe_Client_Server_Base(Error_Handler &handler, unsigned int buffer_size, const char *name);
    Named_Pipe_Client_Server_Base(unsigned int buffer_size, const char *name);

    using Win32_Buffered_Byte_Client::handle_;  // Base_Thread has one, too: its thread
    using Win32_Buffered_Byte_Client::stop_event_;

    void Stop_Threads();  // reader and writer; waits for both

    // The data phase, from Mesg_Attached to Mesg_Detached: 0 without a client or a pipe, else 1.
    unsigned long thread() override;
    unsigned long terminate() override;
    // Reports the text, the pipe's name and the system's words; nothing for error 0.
    void ReportErrorIntern(unsigned long error, const char *text, Err_Code code,
                           Error_Handler::Enum_Status status) override;
    bool Gives_Up_Posting() const override;

    // For the roles.
    virtual bool Is_Server() const = 0;
    std::string Pipe_Name() const;         // "" without one
    bool Set_Pipe_Name(const char *name);  // null: none; false: no memory for it
    // Before Create opens a pipe: closes what is open and ends the thread. False on the reader's own thread.
    bool Make_Way();
    const char *Remote_Name(const char *role);  // "Idle Named Pipe %s %s" or "Working Named Pipe %s %s"

    const std::unique_ptr<Pipe_Reader> reader_;

private:
    friend class Pipe_Reader;

    std::string pipe_name_ KERNEL_GUARDED_BY(this);
    std::string remote_name_ KERNEL_GUARDED_BY(this);
    bool is_destroyed_ = false;  // set and asked on the thread that destroys
};

}  // namespace kernel
