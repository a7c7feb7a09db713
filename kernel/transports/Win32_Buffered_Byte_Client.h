// The sending half of sockets and pipes: a double buffer and a thread that writes it out, and the requests of NTRIP.
#pragma once

#include "kernel/base/Base_Thread.h"
#include "kernel/base/Error_Handler.h"
#include "kernel/connections/BYTE_SER.h"
#include "kernel/transports/Remote_Control.h"
#include "kernel/transports/WinSock_Loader.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace platform {
class Event;
class Stream;
class Transfer;
}  // namespace platform

namespace kernel {

// Takes bytes from the server that it is connected to into one buffer while the other is on its way. The producer never
// waits: when the peer is slower, whole buffers are discarded and reported.
//
// The writer starts with the first data and ends when a write fails, the connection is gone, or Mesg_Attached,
// Mesg_Detached or Stop_Writer comes; the next data start it again. Fewer than 64 bytes wait 10 ms for more.
//
// Bytes go out in the order in which they came, and through the connection for which they came: what a lost or stopped
// one leaves in the buffers is dropped as a whole, and nothing of it gets into the next one. A block that fails is
// lost, and what waits behind it as well. A failure with error 6, 232, 233 or 536 (nobody has opened the other end yet,
// or no more) is not reported: the reading side tells it. Nor is one reported that comes of closing the transport on
// this side.
//
// Threads:   the producer's thread calls Send, the derived class's reader the NTRIP requests; the writer thread writes,
//            and calls is_connected with the lock held and ReportErrorIntern without it. Buffers, writer state and
//            handle are guarded by the object's Semaphore; a block that is on its way is touched by nobody.
//            Mesg_Attached, Mesg_Detached and Stop_Writer wait for the writer: never with the Semaphore held. The
//            writer itself may call them, from a report: it ends after that anyhow, unless new data come.
// Ownership: the transport handle, given by the derived class, is released here at the latest. A derived class calls
//            Stop_Writer in its destructor: the writer calls is_connected and ReportErrorIntern, which are gone here.
// Errors:    kernel/Win32_Buffered_Byte_Client: buffer sizes (1 to 3, 89); "Buffer with %u bytes overrun in %s, data
//            discarded!" (2, 15); "Could not start thread for data transfer in %s" (4, 15): the data stay for the next
//            try; a failed write by ReportErrorIntern (3, 15); "%s: Unexpected wait return value '%lx'." (3, 91): the
//            system refused to wait. Credentials appear in no report.
class KERNEL_API Win32_Buffered_Byte_Client : public Byte_Client, public WinSock_Loader, public Remote_Control {
public:
    static const char Name[];  // "Win32_Buffered_Byte_Client"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // 256 to 1048576 bytes; others are reported and brought into that range. What waits in the buffers is discarded,
    // what is on its way goes out whole. False when memory is short: a buffer that could not be had takes
    // nothing, as one that is full.
    bool SetBufferSize(unsigned int size);
    unsigned int GetBufferSize() const;  // of each of the two; 0 when there is none

    // For producers that can wait: the free bytes of the buffer that is being filled. More than that at once would
    // overrun it.
    unsigned int Room() const;
    // Bytes taken that the writer has yet to hand to the system; a block on its way counts in full until it is through.
    // 0 when no writer runs, so also without a connection: nothing goes out then before the next data.
    unsigned int Unsent() const;
    std::uint64_t GetBytesOut() const;  // handed to the system; a transport may start again at 0 with each connection

    // Takes what is there (at most a buffer at a time) when told; without a connection that is dropped, and the answer
    // is false. A buffer that is full already is thrown away whole and reported. Mesg_Type_10140: is it a socket?
    // Mesg_Type_10110: is it something else?
    bool Send(Byte_Server &server, CL_Mesg message) override;
    bool IsValid() const override;

protected:
    // Says what went wrong in the transport's own words; nothing for error 0.
    virtual void ReportErrorIntern(unsigned long error, const char *operation, Err_Code code,
                                   Error_Handler::Enum_Status status) = 0;

public:
    virtual void Close() = 0;
    virtual bool is_connected() = 0;

    ~Win32_Buffered_Byte_Client() override;

protected:
    // is_socket: not 0 for sockets; fixed for life.
    Win32_Buffered_Byte_Client(Error_Handler &handler, unsigned int buffer_size, int is_socket);

    // Put a request into the buffer and have it written at once; without a writer they start it and give the connection
    // a second first, which a stop of the writer cuts short. A request that does not fit behind what waits in the
    // buffer overruns it, as data would: that is discarded and reported. One that is longer than the whole buffer is
    // not sent at all: half a credential never leaves.
    //   user_password  "user:password", or empty; the very pointer No_Authorisation sends no authorisation line
    //   absolute_url   for a proxy: the address of the caster is in the request
    void NTRIPSendStreamRequest(char *mountpoint, char *user_password, const char *host, int port, bool absolute_url);
    void NTRIPSendSourceTableRequest(const char *host, int port, bool absolute_url);
    // Writes the request and its terminator to `out`, which has room for it, and answers `out`. auth_line: a line
    // without its end; null or No_Authorisation: none.
    char *GenerateGETRequest(char *out, const char *path, const char *auth_line, const char *host, int port,
                             bool absolute_url);
    static char No_Authorisation[1];  // ""

    // As before construction: no events, no buffers, not valid. No writer may run.
    void ResetVariables();
    // Ends the writer and waits for that, a few milliseconds as a rule; what is on its way is cancelled, what waits in
    // the buffer that is being filled stays. No other writer begins meanwhile.
    void Stop_Writer();

    // The transport: another stream for each connection, which is how the data of one are told from those of the next.
    // The derived class sets and clears it, with the object's Semaphore held.
    std::shared_ptr<platform::Stream> handle_;
    // For the reading side of the derived class.
    std::unique_ptr<platform::Event> reader_stop_event_;
    std::unique_ptr<platform::Transfer> receive_;
    std::unique_ptr<platform::Event> stop_event_;        // the writer's
    std::unique_ptr<platform::Event> write_done_event_;  // write at once, without gathering
    std::unique_ptr<platform::Event> data_event_;        // there is data
    // 1 while the reader is in accept: the writer is then not to be waited for by its thread's own stop(). Stop_Writer
    // needs no such flag.
    std::atomic<std::int32_t> terminate_refused_{0};
    std::atomic<std::uint64_t> bytes_out_{0};

    bool Is_Socket() const { return is_socket_ != 0; }
    // Forgets whatever the events still tell of an earlier connection, but not that data waits for a running writer.
    void Reset_Events();

private:
    enum class State : std::uint32_t { idle, waiting, data_signalled, write_pending };
    enum class Filled { done, unconnected, overrun, without_writer };
    enum class Next { wait, gather, write, end };  // what the writer does next

    struct Buffer {
        std::shared_ptr<unsigned char[]> base;  // shared with the transfer that takes it out; null: no memory for it
        std::size_t size = 0;
        std::size_t fill = 0;

        unsigned char *End() const { return base.get() + fill; }
        std::size_t Room() const { return base ? size - fill : 0; }
    };

    struct Block {
        std::shared_ptr<unsigned char[]> base;
        std::size_t size = 0;
        std::weak_ptr<platform::Stream>
            to;  // its last holder may take its time to close it, which must not happen here
    };

    struct Writer : Member_Thread<Win32_Buffered_Byte_Client> {
        using Base_Thread::Is_Own_Thread;
        using Base_Thread::Request_Stop;
        using Base_Thread::Stop_Requested;
    };

    bool Allocate(unsigned int size);
    void Free_Buffer();
    unsigned int cache_avail() const;  // bytes in the buffer that is being filled
    void Forget_Data();
    void Drop() KERNEL_REQUIRES(this);
    void Drop_Former_Connection() KERNEL_REQUIRES(this);
    void Stop(bool go_on);
    bool Go_On() KERNEL_REQUIRES(this);

    bool Take(Byte_Server &server);
    Filled Fill(Byte_Server &server);
    bool Begin_Request();
    void Send_Request(const std::string &request);
    bool Start_Writer() KERNEL_REQUIRES(this);
    void Report_Overrun(unsigned int line) const;
    void Report_No_Writer(unsigned int line) const;

    unsigned long overlapped_thread();
    unsigned long overlapped_terminate();
    void overlapped_pre_stop();
    Next Write();
    Next Block_Ended(Next next);  // next: where it was written and more waits
    Next Report_Failed_Write(std::uint32_t error);
    unsigned long End_Writer(unsigned long exit_code);
    std::uint32_t Take_Result() KERNEL_REQUIRES(this);

    const std::int32_t is_socket_;
    std::uint32_t last_error_ KERNEL_GUARDED_BY(this) = 0;
    State state_ KERNEL_GUARDED_BY(this) = State::idle;
    int stopping_ KERNEL_GUARDED_BY(this) = 0;           // those who are at it now; no writer begins meanwhile
    std::uint32_t current_ KERNEL_GUARDED_BY(this) = 0;  // index of the buffer that Send fills; the other one is empty
    std::array<Buffer, 2> buffers_ KERNEL_GUARDED_BY(this);
    std::weak_ptr<platform::Stream> data_of_ KERNEL_GUARDED_BY(this);  // the connection for which they were filled
    Block in_flight_ KERNEL_GUARDED_BY(this);                          // empty unless a write is under way
    std::unique_ptr<platform::Transfer> write_;
    Writer writer_;
};

}  // namespace kernel
