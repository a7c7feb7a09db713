// The sending half of sockets and pipes: a double buffer, a thread that writes it out, and the NTRIP requests.
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

// One buffer takes bytes from the connected server while the other one is being written. The producer never waits: when
// the peer is slower than the producer, whole buffers are discarded and reported.
//
// The writer thread starts with the first data. It ends when a write fails, when the connection is gone, at
// Mesg_Attached and Mesg_Detached, and in Stop_Writer. The next data start it again. Fewer than 64 bytes wait 10 ms for
// more.
//
// Bytes go out in the order in which they came, through the connection for which they came. When a connection is lost
// or stopped, everything that it leaves in the buffers is dropped; none of it goes into the next connection. A block
// that fails is lost together with the data behind it. Failures with error 6, 232, 233 or 536 (the other end is not
// open yet, or not any more) are not reported here, because the reading side reports them. A failure caused by closing
// the transport on this side is not reported either.
//
// Threads:   the producer's thread calls Send; the derived class's reader calls the NTRIP requests. The writer thread
//            writes; it calls is_connected with the object's Semaphore held, and ReportErrorIntern without it. The
//            Semaphore guards buffers, writer state and handle. No thread changes a block while it is being written.
//            Send pulls from its server with the Semaphore held. A server that locks in its pulls holds that lock
//            around each message that it sends (the server's lock first, then the client's), or around none.
//            Mesg_Attached, Mesg_Detached and Stop_Writer wait for the writer: do not call them with the Semaphore
//            held. On the writer thread itself (from a report) they do not wait; the writer ends after the report,
//            unless new data come.
// Ownership: the derived class gives the transport handle; the destructor of this class releases it at the latest. A
//            derived class must call Stop_Writer in its destructor, because the writer calls its is_connected and
//            ReportErrorIntern.
// Errors:    kernel/Win32_Buffered_Byte_Client: buffer sizes (1 to 3, 89); "Buffer with %u bytes overrun in %s, data
//            discarded!" (2, 15); "Could not start thread for data transfer in %s" (4, 15): the data wait for the next
//            try; a failed write, through ReportErrorIntern (3, 15); "%s: Unexpected wait return value '%lx'." (3, 91):
//            the system refused to wait. No report contains credentials.
class KERNEL_API Win32_Buffered_Byte_Client : public Byte_Client, public WinSock_Loader, public Remote_Control {
public:
    static const char Name[];  // "Win32_Buffered_Byte_Client"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // size: 256 to 1048576 bytes; other values are reported and clamped to that range. A change discards the data in
    // the buffers; a block that is being written goes out whole. Returns false when memory is short: a buffer without
    // memory behaves like a full one.
    bool SetBufferSize(unsigned int size);
    unsigned int GetBufferSize() const;  // bytes of each of the two buffers; 0 without buffers

    // The free bytes of the buffer that is being filled, for producers that can wait. More data at once overrun it.
    unsigned int Room() const;
    // Bytes that the writer has not handed to the system yet; a block that is being written counts in full until it is
    // done. Returns 0 when no writer runs, and so without a connection: nothing goes out then before the next data
    // come.
    unsigned int Unsent() const;
    std::uint64_t GetBytesOut() const;  // handed to the system; a transport may start again at 0 with each connection

    // Mesg_Data_Ready: takes what is there, at most a buffer at a time. Without a connection the data are dropped, and
    // the reply is false. When the buffer is full already, its whole content is discarded and reported.
    // Mesg_Type_10140: true for a socket. Mesg_Type_10110: true for any other transport.
    bool Send(Byte_Server &server, CL_Mesg message) override;
    bool IsValid() const override;

protected:
    // Reports the error in the transport's own words; does nothing for error 0.
    virtual void ReportErrorIntern(unsigned long error, const char *operation, Err_Code code,
                                   Error_Handler::Enum_Status status) = 0;

public:
    virtual void Close() = 0;
    virtual bool is_connected() = 0;

    ~Win32_Buffered_Byte_Client() override;

protected:
    // is_socket: not 0 for sockets; it never changes.
    Win32_Buffered_Byte_Client(Error_Handler &handler, unsigned int buffer_size, int is_socket);

    // These two put a request into the buffer and have it written at once. When no writer runs, they start one and wait
    // a second first, to give the connection time; a stop of the writer ends that wait. A request that does not fit
    // behind the data in the buffer overruns it as data would: those data are discarded and reported. A request that is
    // longer than the whole buffer is not sent at all, so that no part of a credential is sent.
    //   user_password  "user:password", or empty; for the pointer No_Authorisation itself no authorisation line is sent
    //   absolute_url   for a proxy: the request contains the address of the caster
    void NTRIPSendStreamRequest(char *mountpoint, char *user_password, const char *host, int port, bool absolute_url);
    void NTRIPSendSourceTableRequest(const char *host, int port, bool absolute_url);
    // Writes the request and a terminating zero to `out`, which must have room for both, and returns `out`. auth_line:
    // a line without its line end; null or No_Authorisation: no such line.
    char *GenerateGETRequest(char *out, const char *path, const char *auth_line, const char *host, int port,
                             bool absolute_url);
    static char No_Authorisation[1];  // ""

    // Returns to the state before construction: no events, no buffers, not valid. No writer may run meanwhile.
    void ResetVariables();
    // Ends the writer and waits for its end, which is noticed at once. A write under way is cancelled; data in the
    // buffer that is being filled stay. No other writer starts meanwhile.
    void Stop_Writer();

    // The transport. Each connection must have a new stream, because the stream tells the data of one connection from
    // those of the next. The derived class sets and clears it with the object's Semaphore held.
    std::shared_ptr<platform::Stream> handle_;
    // For the reading side of the derived class.
    std::unique_ptr<platform::Event> reader_stop_event_;
    std::unique_ptr<platform::Transfer> receive_;
    std::unique_ptr<platform::Event> stop_event_;        // ends the writer
    std::unique_ptr<platform::Event> write_done_event_;  // data wait and are to be written at once
    std::unique_ptr<platform::Event> data_event_;        // data wait
    // 1 while the reader is in accept: Base_Thread::stop then kills the writer instead of waiting for it. Stop_Writer
    // waits for the writer in any case.
    std::atomic<std::int32_t> terminate_refused_{0};
    std::atomic<std::uint64_t> bytes_out_{0};

    bool Is_Socket() const { return is_socket_ != 0; }
    // Resets the events of an earlier connection. The signal that data wait for a running writer stays set.
    void Reset_Events();

private:
    enum class State : std::uint32_t { idle, waiting, data_signalled, write_pending };
    enum class Filled { done, unconnected, overrun, without_writer };
    enum class Next { wait, gather, write, end };  // what the writer does next

    struct Buffer {
        std::shared_ptr<unsigned char[]> base;  // shared with the transfer that writes it; null: no memory for it
        std::size_t size = 0;
        std::size_t fill = 0;

        unsigned char *End() const { return base.get() + fill; }
        std::size_t Room() const { return base ? size - fill : 0; }
    };

    struct Block {
        std::shared_ptr<unsigned char[]> base;
        std::size_t size = 0;
        // Weak, because the last owner closes the stream: that may take long and must not happen here.
        std::weak_ptr<platform::Stream> to;
    };

    struct Writer : Member_Thread<Win32_Buffered_Byte_Client> {
        using Base_Thread::Ends_Within;
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
    Filled Fill(Byte_Server &server, bool &wakes);
    bool Begin_Request();
    void Send_Request(const std::string &request);
    bool Start_Writer() KERNEL_REQUIRES(this);
    void Report_Overrun(unsigned int line) const;
    void Report_No_Writer(unsigned int line) const;

    unsigned long overlapped_thread();
    unsigned long overlapped_terminate();
    void overlapped_pre_stop();
    Next Write();
    Next Block_Ended(Next next);  // next: for a block that was written while more data wait
    Next Report_Failed_Write(std::uint32_t error);
    unsigned long End_Writer(unsigned long exit_code);
    std::uint32_t Take_Result() KERNEL_REQUIRES(this);

    const std::int32_t is_socket_;
    std::uint32_t last_error_ KERNEL_GUARDED_BY(this) = 0;
    State state_ KERNEL_GUARDED_BY(this) = State::idle;
    int stopping_ KERNEL_GUARDED_BY(this) = 0;           // threads inside Stop; no writer starts meanwhile
    std::uint32_t current_ KERNEL_GUARDED_BY(this) = 0;  // index of the buffer that Send fills; the other one is empty
    std::array<Buffer, 2> buffers_ KERNEL_GUARDED_BY(this);
    std::weak_ptr<platform::Stream> data_of_ KERNEL_GUARDED_BY(this);  // the connection for which they were filled
    Block in_flight_ KERNEL_GUARDED_BY(this);                          // empty unless a write is under way
    std::unique_ptr<platform::Transfer> write_;
    Writer writer_;
};

}  // namespace kernel
