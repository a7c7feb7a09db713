#include "kernel/transports/pipe_reader_internal.h"

#include "platform/error.h"
#include "platform/pipe.h"
#include "platform/wait.h"

#include <algorithm>
#include <utility>

namespace kernel {

namespace {

const char unit[] = "kernel/Named_Pipe_Client_Server_Base";

constexpr Err_Code transfer_code = 91;
constexpr unsigned long pause_slice_ms = 256;

}  // namespace

// For all threads.

void Pipe_Reader::Listen(std::shared_ptr<platform::Server_Pipe> pipe)
{
    const Semaphore_Guard guard(owner_);
    owner_.handle_ = pipe;
    pipe_ = std::move(pipe);
    connected_ = false;
}

bool Pipe_Reader::Connect(std::shared_ptr<platform::Stream> connection)
{
    const Semaphore_Guard guard(owner_);
    if (owner_.Is_Server() && !pipe_) return false;
    owner_.handle_ = std::move(connection);
    connected_ = true;
    return true;
}

std::shared_ptr<platform::Server_Pipe> Pipe_Reader::Pipe() const
{
    const Semaphore_Guard guard(owner_);
    return pipe_;
}

bool Pipe_Reader::Is_Connected() const
{
    const Semaphore_Guard guard(owner_);
    return connected_;
}

// The disconnect happens under the lock: after it the reader lets the next client in, which it must not meet. The
// stream is released without the lock, because closing it may take long.
bool Pipe_Reader::End_Connection()
{
    std::shared_ptr<platform::Stream> ended;
    const Semaphore_Guard guard(owner_);
    if (!connected_) return false;
    connected_ = false;
    Want(0);
    ended = std::exchange(owner_.handle_, pipe_);
    if (pipe_) pipe_->disconnect();
    ended->close();
    return true;
}

// While the reader runs on another thread, it tells the client itself, so that no two threads talk to the client.
void Pipe_Reader::Close()
{
    const bool is_seen_to = owner_.is_running() && !owner_.Is_Own_Thread();  // asked first: the reader may end at once
    std::shared_ptr<platform::Stream> ended;
    std::shared_ptr<platform::Server_Pipe> pipe;
    {
        const Semaphore_Guard guard(owner_);
        Want(0);
        connected_ = false;
        ended = std::exchange(owner_.handle_, nullptr);
        pipe = std::exchange(pipe_, nullptr);
        if (ended) ended->close();
        if (pipe) pipe->close();
    }
    if (!is_seen_to) Detach();
}

// The data phase.

void Pipe_Reader::Renew_Stop_Signal()
{
    owner_.reader_stop_event_->reset();
    if (Is_Stopping()) owner_.reader_stop_event_->set();
}

unsigned long Pipe_Reader::Serve()
{
    Renew_Stop_Signal();
    if (!owner_.Get_Byte_Client() || !Is_Connected()) {
        owner_.SetStatus(Owner::Status_Failed);
        return 0;
    }
    Drop();
    if (!Begin()) return 1;
    attached_ = true;
    owner_.SetStatus(owner_.Is_Server() ? Owner::Status_Connected_As_Server : Owner::Status_Connected_As_Client);
    Run();
    owner_.receive_->cancel();
    Detach();
    return 1;
}

void Pipe_Reader::Detach()
{
    if (attached_.exchange(false)) Tell(Mesg_Detached);
}

bool Pipe_Reader::Finish()
{
    Detach();
    owner_.SetStatus(Owner::Status_Disconnected);
    return false;
}

bool Pipe_Reader::Invite()
{
    if (Is_Stopping() || !Is_Connected() || !Tell(Mesg_Request_Invite) || Requested() < 1) return Finish();
    return true;
}

// Reads all that is there and has room, not only what was requested, so that a client that asks for single bytes does
// not cost a system call for each.
bool Pipe_Reader::Receive()
{
    std::shared_ptr<platform::Stream> stream;
    {
        const Semaphore_Guard guard(owner_);
        if (connected_) stream = owner_.handle_;
    }
    if (!stream) return Finish();
    return Read(stream, Buffer().Room(), {*owner_.reader_stop_event_, *owner_.receive_});
}

bool Pipe_Reader::Read_Ended(Read_End end)
{
    std::size_t moved = 0;
    const bool is_good = Take_In(*owner_.receive_, moved);
    if (is_good && moved > 0) return true;
    return Lost(is_good ? std::uint32_t{platform::error_broken_pipe} : platform::last_error(), end);
}

// Error 6 of a handle that nobody has closed here: the status becomes 150.
bool Pipe_Reader::Read_Failed(const platform::Stream &stream, std::uint32_t error)
{
    if (error != platform::error_invalid_handle || !Is_Connected()) return Lost(error, Read_End::at_once);
    owner_.Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, transfer_code,
                   "Handle 0x%08X of Named Pipe \"%s\" invalid. Terminating Named Pipe.",
                   static_cast<unsigned int>(stream.number()), owner_.Pipe_Name().c_str());
    Detach();
    owner_.SetStatus(Owner::Status_Pipe_Invalid);
    return false;
}

// The connection is over. A close on this side is no failure and is not reported.
bool Pipe_Reader::Lost(std::uint32_t error, Read_End end)
{
    const bool was_closed_here = !Is_Connected();
    Detach();
    if (end == Read_End::after_wait || was_closed_here) owner_.SetStatus(Owner::Status_Disconnected);
    if (!was_closed_here) Report_Loss(error, end);
    return false;
}

// A server goes on with the next client after the end of a connection, and ends after another failure.
void Pipe_Reader::Report_Loss(std::uint32_t error, Read_End end)
{
    const bool is_end = error == platform::error_broken_pipe || error == platform::error_pipe_not_connected;
    const bool is_server = owner_.Is_Server();
    if (is_end && (is_server || end == Read_End::after_wait)) {
        owner_.Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Warning, transfer_code, "Named Pipe %s \"%s\" disconnected.",
                       is_server ? "Server" : "Client", owner_.Pipe_Name().c_str());
        return;
    }
    owner_.ReportErrorIntern(error, "Read", transfer_code, Error_Handler::ES_Error);
    owner_.Close();
}

bool Pipe_Reader::Stop_Seen()
{
    Detach();
    owner_.Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Message, transfer_code, "Termination of Named Pipe \"%s\" thread requested.",
                   owner_.Pipe_Name().c_str());
    owner_.Close();
    return false;
}

bool Pipe_Reader::Unwanted(double silent_seconds)
{
    const std::string name = owner_.Pipe_Name();
    Error_Handler &report = owner_.Report(unit, __LINE__);
    if (waits_for_client_)
        report.Print_Out(Error_Handler::ES_Error, transfer_code,
                         "Named Pipe Server \"%s\" timeout: no data since %.0f seconds", name.c_str(), silent_seconds);
    else
        report.Print_Out(Error_Handler::ES_Error, transfer_code,
                         "Named Pipe \"%s\" timeout: no data since %.1f seconds.", name.c_str(), silent_seconds);
    Tell(Mesg_Status_110);
    owner_.Close();
    return false;
}

bool Pipe_Reader::Wait_Failed(std::uint32_t)
{
    Detach();
    Tell(Mesg_Status_110);
    owner_.Close();
    owner_.Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, transfer_code, "Named Pipe %s\"%s\": Unexpected wait return value '%lx'.",
                   waits_for_client_ ? "Server " : "", owner_.Pipe_Name().c_str(),
                   static_cast<unsigned long>(platform::win32_wait_failed));
    return false;
}

// Waiting.

Pipe_Reader::Woken Pipe_Reader::Wait_For_Client(platform::Server_Pipe &pipe, std::shared_ptr<platform::Stream> &client)
{
    waits_for_client_ = true;
    Start_Clocks();
    Woken woken = Woken::by_signal;
    do {
        woken = Wait_For(*owner_.reader_stop_event_, pipe.arrival());
        if (woken == Woken::by_signal) client = pipe.take();
    } while (woken == Woken::by_signal && !client && platform::last_error() == platform::error_io_pending);
    waits_for_client_ = false;
    return woken;
}

void Pipe_Reader::Pause(unsigned long ms)
{
    while (ms > 0 && !Is_Stopping()) {
        const unsigned long slice = std::min(ms, pause_slice_ms);
        owner_.Sleep(slice);
        ms -= slice;
    }
}

}  // namespace kernel
