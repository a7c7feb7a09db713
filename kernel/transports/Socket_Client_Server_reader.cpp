// The reader thread: its passes, and serving a connection from its beginning to its end.
#include "kernel/transports/Socket_Client_Server.h"

#include "kernel/transports/ntrip_answer_internal.h"
#include "kernel/transports/receive_buffer_internal.h"

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/socket.h"
#include "platform/stream.h"
#include "platform/wait.h"

namespace kernel {

namespace {

const char unit[] = "kernel/Socket_Client_Server";

constexpr Err_Code transfer_code = 91;
constexpr unsigned long reconnect_slice_ms = 256;
constexpr unsigned long wait_ms = 1000;  // no wait is longer: ticks and deadline are looked at after it
constexpr std::uint64_t tick_ms = 1000;
constexpr std::uint64_t patience_ms = 60000;

}  // namespace

// A stop signal of an earlier run is forgotten; one that has come since is given again.
unsigned long Socket_Client_Server::thread()
{
    reader_stop_event_->reset();
    if (Stop_Requested()) reader_stop_event_->set();
    return threadFunc();
}

// Every pass is establish and serve, and what comes between two of them.
unsigned long Socket_Client_Server::threadFunc()
{
    accept_errors_ = 0;
    if (!Get_Byte_Client()) {
        SetStatus(Status_Failed);
        return 0;
    }
    Set_Status_Quietly(Status_Disconnected);
    for (Next next = Next::establish;;) {
        switch (next) {
        case Next::pass: next = Begin_Again(); break;
        case Next::establish: next = Establish(); break;
        case Next::serve: next = Serve(); break;
        case Next::finish: Finish(); return 1;
        case Next::stopped: return 1;
        case Next::failed: return 0;
        }
    }
}

// The client may have heard Mesg_Detached from the lost connection already. It hears it again, and its reply counts
// here.
Socket_Client_Server::Next Socket_Client_Server::Begin_Again()
{
    SetStatus(Status_Disconnected);
    if (!Tell(Mesg_Detached)) {
        SetStatus(Status_Failed);
        return Next::failed;
    }
    SetStatus(Status_Waiting);
    Pause(reconnect_slice_ms);
    return Stop_Requested() ? Next::stopped : Next::establish;
}

// In the client role the socket may still be there, as a left-over: then Close sets Status_Disconnected and sends
// Mesg_Detached once more.
void Socket_Client_Server::Finish()
{
    SetStatus(Status_Disconnected);
    FreeAcceptSocket();
    Tell(Mesg_Detached);
    Close();
}

// The reconnect decision. A new target is a connection still to be made, whatever was left.
Socket_Client_Server::Next Socket_Client_Server::After_Loss()
{
    if (!Is_Current()) return Next::pass;
    if (serving_->multi_server) return Next::finish;
    return serving_->is_server || Get_Auto_Reconnect_Time() > 0 ? Next::pass : Next::finish;
}

// From the first message to the loss. A stop signal must not be lost with the old ones.
Socket_Client_Server::Next Socket_Client_Server::Serve()
{
    Reset_Events();
    if (Stop_Requested()) reader_stop_event_->set();
    SetStatus(serving_->is_server ? Status_Connected_As_Server : Status_Connected_As_Client);
    requested_ = 0;
    if (!Tell(Mesg_Attached)) {
        SetStatus(Status_Failed);
        FreeAcceptSocket();
        return Next::failed;
    }
    const std::uint64_t now = platform::clock_ms();
    deadline_ = now + patience_ms;
    next_tick_ = now + tick_ms;
    answer_->Expect(false);  // an earlier connection may have been lost before its answer was complete
    if (Ntrip_Mode()) NtripSendRequest();

    Next next = Next::serve;
    while (next == Next::serve) {
        next = Deliver();
        while (next == Next::serve && requested_ > MinAvail(0)) next = Receive();
    }
    receive_->cancel();
    return next;
}

// Until the client wants more than there is. A client that refuses data and takes none wants no more; one that does not
// refuse is told again, for ever: to pull is its part of the contract.
Socket_Client_Server::Next Socket_Client_Server::Deliver()
{
    for (;;) {
        if (Stop_Requested() || !Tell(Mesg_Request_Invite)) return Next::finish;
        if (requested_ < 1) return is_connected() ? Next::finish : After_Loss();  // a close forgets the request
        while (requested_ > 0 && requested_ <= MinAvail(0) && !Stop_Requested()) {
            const long held = MinAvail(0);
            if (!Tell(Mesg_Data_Ready) && MinAvail(0) == held) return Next::finish;
        }
        if (requested_ > 0) return Next::serve;
    }
}

// One read into the free end of the buffer, which is nobody else's: no lock is needed while it is under way. Where there is
// no connection any more, here and below, it was closed by Close or Hang_Up, and who called those knows.
Socket_Client_Server::Next Socket_Client_Server::Receive()
{
    std::shared_ptr<platform::Stream> stream;
    {
        const Semaphore_Guard guard(*this);
        received_->Compact();
        stream = handle_;
    }
    if (!stream) return After_Loss();
    if (!receive_->read(stream, received_->End(), received_->Room())) {
        const std::uint32_t error = platform::last_error();
        if (error == platform::error_io_pending) return Await();
        return Receive_Failed(error);
    }
    std::size_t moved = 0;
    receive_->result(moved);
    return moved == 0 ? Peer_Closed() : Take_In(moved, true);
}

// Until the read that is under way has ended, or the connection. The stop comes first where both are signalled.
Socket_Client_Server::Next Socket_Client_Server::Await()
{
    const std::uint64_t began = platform::clock_ms();
    platform::Waitable *const signals[] = {reader_stop_event_.get(), receive_.get()};
    for (Next next = Next::serve; next == Next::serve;) {
        Tick();
        switch (platform::wait_any(signals, wait_ms)) {
        case 0: return Stop_Seen();
        case 1: return Transfer_Ended();
        case platform::wait_timeout: next = Silence(began); break;
        default: next = Wait_Failed(platform::last_error()); break;
        }
    }
    return Next::finish;
}

void Socket_Client_Server::Tick()
{
    const std::uint64_t now = platform::clock_ms();
    if (now < next_tick_) return;
    Tell(Mesg_Second);
    next_tick_ = now + tick_ms;
}

Socket_Client_Server::Next Socket_Client_Server::Stop_Seen()
{
    const Remote remote = The_Other_End(*serving_);
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Message, transfer_code, "%s:%d Termination of Socket thread requested.",
                   remote.host.c_str(), remote.port);
    return Next::finish;
}

// A second without data. The deadline is not moved by data: it is a question once a minute, answered by a client that
// knows when it last got some.
Socket_Client_Server::Next Socket_Client_Server::Silence(std::uint64_t began)
{
    if (platform::clock_ms() < deadline_) {
        Tell(Mesg_Status_40);
        return Next::serve;
    }
    if (Tell(Mesg_Status_50)) {
        deadline_ = platform::clock_ms() + patience_ms;
        return Next::serve;
    }
    const Remote remote = The_Other_End(*serving_);
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, transfer_code, "%s:%d Socket timeout: no data since %.1f seconds.",
                   remote.host.c_str(), remote.port, static_cast<double>(platform::clock_ms() - began) / 1000.0);
    Tell(Mesg_Status_110);
    return Next::finish;
}

// A wait that cannot be made must not fill the log: the next one is a second later.
Socket_Client_Server::Next Socket_Client_Server::Wait_Failed(unsigned long error)
{
    const Remote remote = The_Other_End(*serving_);
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, transfer_code, "%s:%d WaitForMultipleObjects failed. Error %d.",
                   remote.host.c_str(), remote.port, static_cast<int>(error));
    Sleep(wait_ms);
    return Stop_Requested() ? Next::finish : Next::serve;
}

Socket_Client_Server::Next Socket_Client_Server::Transfer_Ended()
{
    if (!is_connected()) return After_Loss();
    std::size_t moved = 0;
    if (receive_->result(moved)) return moved == 0 ? Peer_Closed() : Take_In(moved, false);
    const std::uint32_t error = platform::last_error();
    Tell(Mesg_Detached);
    SetStatus(Status_Disconnected);
    return Receive_Failed(error);
}

// hang_up: how a caster's refusal ends the connection; a read that was done at once hangs up, and reports that, too.
Socket_Client_Server::Next Socket_Client_Server::Take_In(std::size_t n, bool hang_up)
{
    char *const piece = reinterpret_cast<char *>(received_->End());
    {
        const Semaphore_Guard guard(*this);
        received_->Add(n);
    }
    if (!answer_->Is_Awaited() || NtripCheckRequestResponse(static_cast<int>(n), piece)) return Next::serve;
    {
        const Semaphore_Guard guard(*this);
        received_->Drop();  // a refusal is no data, not for the next connection either
    }
    if (hang_up)
        Hang_Up();
    else
        FreeAcceptSocket();
    Report_Lost_Host();
    return After_Loss();
}

// The peer has said all that it had to say, and the client has got what it asked for: reads come in the order of the
// stream, and each was offered before the next was begun. What is less than it asked for stays in the buffer.
Socket_Client_Server::Next Socket_Client_Server::Peer_Closed()
{
    const auto remote = Lose_Connection();
    if (!remote) return After_Loss();
    if (serving_->is_server) {
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Warning, transfer_code, "Client %s:%d has disconnected.", remote->host.c_str(),
                       remote->port);
    } else {
        Close_Left_Over();
        Report_Lost_Host();
    }
    return After_Loss();
}

Socket_Client_Server::Next Socket_Client_Server::Receive_Failed(unsigned long error)
{
    if (!Lose_Connection()) return After_Loss();
    if (serving_->is_server)
        ReportErrorIntern(error, "Client disconnected.", transfer_code, Error_Handler::ES_Warning);
    else
        Report_Lost_Host();
    return After_Loss();
}

// One step: a close by another thread comes before it, and is not the peer's doing, or after it, and finds nothing.
std::optional<Socket_Client_Server::Remote> Socket_Client_Server::Lose_Connection()
{
    const Semaphore_Guard guard(*this);
    if (!handle_) return std::nullopt;
    FreeAcceptSocket();
    return The_Other_End(*serving_);
}

void Socket_Client_Server::Report_Lost_Host()
{
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Warning, transfer_code, "Client disconnected from host %s:%d.",
                   serving_->host.c_str(), int{serving_->port});
}

}  // namespace kernel
