// The receiving half of every transport: the bytes received, the client's request, the clocks and the reader's loop.
// Not installed.
#pragma once

#include "kernel/connections/BYTE_SER.h"
#include "kernel/transports/receive_buffer_internal.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform {
class Event;
class Stream;
class Transfer;
class Waitable;
}  // namespace platform

namespace kernel {

// The loop asks the client what it wants (Mesg_Request_Invite), reads until that is held, and offers it
// (Mesg_Data_Ready). A transport derives from this class and adds the steps: its reads, its texts, its codes and how it
// ends.
//
// A step returns true when the loop is to go on. False ends the loop: the step has told the client, and it has noted
// what comes next if the transport has a choice.
//
//   The kinds differ in         serial_line                           connection (sockets, pipes)
//   order                       invite, fill, offer                   invite, offer what is held, fill: the client is
//                                                                     invited again before it is offered new bytes
//   Mesg_Data_Ready refused     ends                                  ends if the client took nothing
//   a tick that comes late      does not put off the next: a day      puts off the next
//                               has 86,400
//   the minute of patience      begins with each request              begins with the connection; data do not move it
//   a second without data       Mesg_Status_40, then Mesg_Status_50   Mesg_Status_40, or Mesg_Status_50 once the minute
//                               once the minute is over               is over
//
// Threads:   the reader's, and the client pulls on it. Requested, Want, Bytes_In and Drop_Later are for all threads; so
//            is everything else while no reader runs. A request that another thread clears while the client pulls may
//            be lost: a transport that closes makes its next step end the loop as well.
// Ownership: owns the bytes received. Signals and streams stay the transport's.
// Errors:    none of its own. Failures are handed to the steps.
class Stream_Reader {
public:
    enum class Kind { serial_line, connection };

    static constexpr long most = Receive_Buffer::most;  // bytes; the largest request

    explicit Stream_Reader(Kind kind) : kind_(kind) {}
    Stream_Reader(const Stream_Reader &) = delete;
    Stream_Reader &operator=(const Stream_Reader &) = delete;
    virtual ~Stream_Reader() = default;

    // Pulling.
    std::int32_t Want(long n);  // the request that n makes: 0 to `most`
    std::int32_t Requested() const { return requested_.load(std::memory_order_relaxed); }  // negative: more was taken
    long Held();
    long Take(unsigned char *buffer, long n);              // the number moved
    unsigned short Put_Back(unsigned char byte);           // the byte, or No_Byte without room
    static unsigned short Take_Byte(Byte_Server &server);  // by the server's GetNBytes, which subclasses override
    std::uint64_t Bytes_In() const { return bytes_in_.load(std::memory_order_relaxed); }  // taken
    void Reset_Bytes_In() { bytes_in_.store(0, std::memory_order_relaxed); }
    void Drop();
    void Move_To_Start() { buffer_.Compact(); }
    void Drop_Later() { drop_ = true; }  // the reader drops the bytes held when it looks at them next

protected:
    // What ends a wait. The third is the transport's own, and does not end a second of waiting.
    struct Signals {
        platform::Event &stop;
        platform::Transfer &read;
        platform::Waitable *other = nullptr;
    };
    enum class Read_End { at_once, after_wait };
    enum class Woken { by_stop, by_signal, given_up };  // given_up: a step has ended the loop

    // Forgets the request, tells Mesg_Attached and starts the clocks: the client's answer.
    bool Begin();
    void Start_Clocks();
    // Waits for the signal, with the ticks and questions of a wait for data. Also for transports that wait for a peer.
    Woken Wait_For(platform::Event &stop, platform::Waitable &signal, platform::Waitable *other = nullptr);
    void Run();    // until a step returns false
    bool Offer();  // once, whatever is held
    void Tick();   // Mesg_Second when it is due
    bool Is_Patient() const;
    bool Still_Wanted();  // Mesg_Status_50: accepted, it begins another minute; refused, it is Unwanted

    // Receives at most n bytes into the free end and waits until they are there; for the step Receive.
    bool Read(const std::shared_ptr<platform::Stream> &stream, std::size_t n, const Signals &signals);
    bool Is_Reading() const { return read_at_ != nullptr; }  // a read was begun, and Take_In was not called since
    // Adds what the read has brought. False: it failed, with the platform's last error.
    bool Take_In(platform::Transfer &read, std::size_t &moved);
    Receive_Buffer &Buffer() { return buffer_; }

    // The steps.
    virtual bool Tell(CL_Mesg message) = 0;  // the client's answer
    virtual bool Is_Stopping() const = 0;
    virtual long Available() { return Held(); }  // as MinAvail of the transport, which a subclass may override
    virtual bool Invite() = 0;                   // Mesg_Request_Invite, and what an answer without a request means
    virtual bool Receive() = 0;                  // one read
    virtual bool Filled() { return true; }       // as much is held as was requested
    virtual bool Refused() = 0;                  // Mesg_Data_Ready was refused
    virtual bool Unwanted(double silent_seconds) = 0;  // Mesg_Status_50 was refused
    virtual bool Read_Ended(Read_End) { return false; }
    virtual bool Read_Failed(const platform::Stream &, std::uint32_t) { return false; }  // with this error, at once
    virtual bool Stop_Seen() { return false; }
    virtual bool Wait_Failed(std::uint32_t) { return false; }
    virtual void Look_After_Other(bool) {}  // after its signal (true), and after each second without a signal

private:
    bool Fill();
    bool Deliver();
    void Be_Patient();
    bool Await(const Signals &signals);
    int Wait(platform::Event &stop, platform::Waitable &signal, platform::Waitable *other);
    bool Silence();

    const Kind kind_;
    Receive_Buffer buffer_;
    unsigned char *read_at_ = nullptr;  // where the read under way puts its bytes
    std::atomic<std::int32_t> requested_{0};
    std::atomic<bool> drop_{false};
    std::atomic<std::uint64_t> bytes_in_{0};
    std::uint64_t next_tick_ = 0;     // [ms] of clock_ms, as are the next two
    std::uint64_t deadline_ = 0;      // end of the minute of patience
    std::uint64_t silent_since_ = 0;  // serial_line: the request; connection: the wait
};

}  // namespace kernel
