// The reader thread: its passes, and how it serves a connection from the first message to the loss.
#include "kernel/transports/socket_reader_internal.h"

#include "kernel/transports/ntrip_answer_internal.h"

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/socket.h"
#include "platform/stream.h"
#include "platform/wait.h"

namespace kernel {

namespace {

constexpr Err_Code transfer_code = 91;
constexpr unsigned long reconnect_slice_ms = 256;
constexpr unsigned long failed_wait_ms = 1000;

}  // namespace

// A pass is Establish and Serve. Begin_Again stands between two passes.
unsigned long Socket_Reader::Work()
{
    accept_errors_ = 0;
    if (!owner_.Get_Byte_Client()) {
        owner_.SetStatus(Owner::Status_Failed);
        return 0;
    }
    owner_.Set_Status_Quietly(Owner::Status_Disconnected);
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

// The client may have heard Mesg_Detached for the lost connection already. It hears it again here, and may refuse now.
Socket_Reader::Next Socket_Reader::Begin_Again()
{
    owner_.SetStatus(Owner::Status_Disconnected);
    if (!Tell(Mesg_Detached)) {
        owner_.SetStatus(Owner::Status_Failed);
        return Next::failed;
    }
    owner_.SetStatus(Owner::Status_Waiting);
    Pause(reconnect_slice_ms);
    return Is_Stopping() ? Next::stopped : Next::establish;
}

// In the client role the socket may still be open in name. Then Close sets status 13 and tells Mesg_Detached once more.
void Socket_Reader::Finish()
{
    owner_.SetStatus(Owner::Status_Disconnected);
    owner_.FreeAcceptSocket();
    Tell(Mesg_Detached);
    owner_.Close();
}

// The reconnect decision. A new target always gets its pass.
Socket_Reader::Next Socket_Reader::After_Loss()
{
    if (!Is_Current()) return Next::pass;
    if (serving_->multi_server) return Next::finish;
    return serving_->is_server || owner_.Get_Auto_Reconnect_Time() > 0 ? Next::pass : Next::finish;
}

// Reset_Events may clear the signal of a stop that has just come: the flag gives it again.
Socket_Reader::Next Socket_Reader::Serve()
{
    owner_.Reset_Events();
    if (Is_Stopping()) owner_.reader_stop_event_->set();
    owner_.SetStatus(serving_->is_server ? Owner::Status_Connected_As_Server : Owner::Status_Connected_As_Client);
    if (!Begin()) {
        owner_.SetStatus(Owner::Status_Failed);
        owner_.FreeAcceptSocket();
        return Next::failed;
    }
    answer_.Expect(false);  // an earlier connection may have been lost before its answer was complete
    if (Get_Ntrip().mode) owner_.NtripSendRequest();
    Run();
    owner_.receive_->cancel();
    return next_;
}

// A client that accepts and requests nothing ends the connection. A close clears the request as well, but it is a loss.
bool Socket_Reader::Invite()
{
    if (Is_Stopping() || !Tell(Mesg_Request_Invite)) return Go_On(Next::finish);
    return Requested() > 0 || Go_On(owner_.is_connected() ? Next::finish : After_Loss());
}

// Without a stream, here and below, Close or Hang_Up has closed it on this side: nothing is reported.
bool Socket_Reader::Receive()
{
    std::shared_ptr<platform::Stream> stream;
    {
        const Semaphore_Guard guard(owner_);
        stream = owner_.handle_;
    }
    if (!stream) return Go_On(After_Loss());
    return Read(stream, Buffer().Room(), {*owner_.reader_stop_event_, *owner_.receive_});
}

bool Socket_Reader::Stop_Seen()
{
    const Remote remote = The_Other_End(*serving_);
    Report(__LINE__).Print_Out(Error_Handler::ES_Message, transfer_code,
                               "%s:%d Termination of Socket thread requested.", remote.host.c_str(), remote.port);
    return Go_On(Next::finish);
}

bool Socket_Reader::Unwanted(double silent_seconds)
{
    const Remote remote = The_Other_End(*serving_);
    Report(__LINE__).Print_Out(Error_Handler::ES_Error, transfer_code,
                               "%s:%d Socket timeout: no data since %.1f seconds.", remote.host.c_str(), remote.port,
                               silent_seconds);
    Tell(Mesg_Status_110);
    return Go_On(Next::finish);
}

// Pauses for a second, so that a wait that keeps failing does not fill the log.
bool Socket_Reader::Wait_Failed(std::uint32_t error)
{
    const Remote remote = The_Other_End(*serving_);
    Report(__LINE__).Print_Out(Error_Handler::ES_Error, transfer_code, "%s:%d WaitForMultipleObjects failed. Error %d.",
                               remote.host.c_str(), remote.port, static_cast<int>(error));
    owner_.Sleep(failed_wait_ms);
    return !Is_Stopping() || Go_On(Next::finish);
}

bool Socket_Reader::Read_Ended(Read_End end)
{
    if (end == Read_End::after_wait && !owner_.is_connected()) return Go_On(After_Loss());
    std::size_t moved = 0;
    if (Take_In(*owner_.receive_, moved)) return Go_On(moved == 0 ? Peer_Closed() : Judge(moved, end));
    const std::uint32_t error = platform::last_error();
    Tell(Mesg_Detached);
    owner_.SetStatus(Owner::Status_Disconnected);
    return Go_On(Receive_Failed(error));
}

bool Socket_Reader::Read_Failed(const platform::Stream &, std::uint32_t error) { return Go_On(Receive_Failed(error)); }

// A caster's refusal is no data and must not stand in front of the next connection's. After a read that was done at
// once the connection ends by Hang_Up, which adds its own report; this is part of the interface.
Socket_Reader::Next Socket_Reader::Judge(std::size_t n, Read_End end)
{
    char *const piece = reinterpret_cast<char *>(Buffer().End()) - n;
    if (!answer_.Is_Awaited() || owner_.NtripCheckRequestResponse(static_cast<int>(n), piece)) return Next::serve;
    Drop();
    if (end == Read_End::at_once)
        owner_.Hang_Up();
    else
        owner_.FreeAcceptSocket();
    Report_Lost_Host();
    return After_Loss();
}

// The peer has sent all its data, and each read was offered to the client before the next one began. Bytes that are
// fewer than requested stay in the buffer.
Socket_Reader::Next Socket_Reader::Peer_Closed()
{
    const auto remote = Lose_Connection();
    if (!remote) return After_Loss();
    if (serving_->is_server) {
        Report(__LINE__).Print_Out(Error_Handler::ES_Warning, transfer_code, "Client %s:%d has disconnected.",
                                   remote->host.c_str(), remote->port);
    } else {
        Close_Left_Over();
        Report_Lost_Host();
    }
    return After_Loss();
}

Socket_Reader::Next Socket_Reader::Receive_Failed(unsigned long error)
{
    if (!Lose_Connection()) return After_Loss();
    if (serving_->is_server)
        owner_.ReportErrorIntern(error, "Client disconnected.", transfer_code, Error_Handler::ES_Warning);
    else
        Report_Lost_Host();
    return After_Loss();
}

// Checks and closes under one lock: a close by another thread comes before (then nothing is reported) or finds it
// closed.
std::optional<Socket_Reader::Remote> Socket_Reader::Lose_Connection()
{
    const Semaphore_Guard guard(owner_);
    if (!owner_.handle_) return std::nullopt;
    owner_.FreeAcceptSocket();
    return The_Other_End(*serving_);
}

void Socket_Reader::Report_Lost_Host()
{
    Report(__LINE__).Print_Out(Error_Handler::ES_Warning, transfer_code, "Client disconnected from host %s:%d.",
                               serving_->host.c_str(), int{serving_->port});
}

}  // namespace kernel
