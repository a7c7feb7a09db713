#include "kernel/transports/Socket_Client_Server.h"

#include "kernel/transports/socket_errors_internal.h"
#include "kernel/transports/socket_reader_internal.h"

#include "platform/error.h"
#include "platform/socket.h"
#include "platform/stream.h"
#include "platform/wait.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace kernel {

namespace {

using Opening = Socket_Reader::Opening;
using Target = Socket_Reader::Target;
using Ntrip = Socket_Reader::Ntrip;

constexpr Err_Code socket_code = 89, transfer_code = 91;

bool Is_Control_Or_Blank(char c) { return static_cast<unsigned char>(c) <= ' ' || c == 0x7F; }

}  // namespace

const char Socket_Client_Server::Name[] = "Client/Server class for Sockets";

Socket_Client_Server::Socket_Client_Server(Error_Handler &handler, unsigned int buffer_size)
    : Object(Name, &handler), Win32_Buffered_Byte_Client(handler, buffer_size, 1),
      reader_(std::make_unique<Socket_Reader>(*this))
{
}

Socket_Client_Server::~Socket_Client_Server()
{
    Stop_Threads();
    is_destroyed_ = true;
    receive_->cancel();  // a reader that was given up on may have left one
    Socket_Client_Server::Close();
}

void Socket_Client_Server::Stop_Threads()
{
    stop();
    Stop_Writer();
}

Socket_Client_Server *Socket_Client_Server::Construct(Error_Handler &handler, unsigned int buffer_size)
{
    return Constructed([&] { return new Socket_Client_Server(handler, buffer_size); });
}

bool Socket_Client_Server::IsInheritedFrom(const char *name) const
{
    return (name && (std::strcmp(name, Name) == 0 || std::strcmp(name, ClassName()) == 0)) ||
           Byte_Server::IsInheritedFrom(name) || Win32_Buffered_Byte_Client::IsInheritedFrom(name);
}

// The reading side.

bool Socket_Client_Server::Request(long n)
{
    const std::int32_t wanted = reader_->Want(n);
    return wanted > 0 && MinAvail(0) >= wanted;
}

long Socket_Client_Server::MinAvail(long) { return reader_->Held(); }

unsigned short Socket_Client_Server::GetByte() { return Stream_Reader::Take_Byte(*this); }

long Socket_Client_Server::GetNBytes(unsigned char *buffer, long n) { return reader_->Take(buffer, n); }

unsigned short Socket_Client_Server::UnGetByte(unsigned char byte) { return reader_->Put_Back(byte); }

std::uint64_t Socket_Client_Server::GetBytesIn() const { return reader_->Bytes_In(); }

// Called by the server above on its thread. The writer handles everything but one question.
bool Socket_Client_Server::Send(Byte_Server &server, CL_Mesg message)
{
    if (message == Mesg_Type_11000) return answer_11000_.load(std::memory_order_relaxed);
    return Win32_Buffered_Byte_Client::Send(server, message);
}

// For all threads.

// A running reader turns to the new target at once and sets the status of its next step. Status 103 is therefore set
// before the reader can see the target. The reader looks the name up as well: both share the look-up, and status 13 for
// its failure is set here only when no reader runs.
bool Socket_Client_Server::CreateClient(const char *host, int port, const char *proxy_host, int proxy_port)
{
    const auto target = std::make_shared<Target>();
    target->port = static_cast<std::uint16_t>(port);
    target->host = host ? host : "";
    if (proxy_host) {
        target->via_proxy = true;
        target->proxy_host = proxy_host;
        target->proxy_port = proxy_port;
    }
    const Opening opening{target};
    const bool is_seen_to = reader_->Is_Seen_To();
    if (host && is_seen_to) SetStatus(Status_Client_Target_Set);
    reader_->Close(&opening);
    if (!host) return false;
    if (!is_seen_to) SetStatus(Status_Client_Target_Set);
    platform::Event never;
    if (target->Resolve(never)) return true;
    const std::uint32_t error = platform::last_error();
    ReportErrorIntern(error, ("Could not resolve host name " + target->Where() + " to IP-address.").c_str(),
                      socket_code, Error_Handler::ES_Error);
    if (!is_seen_to) SetStatus(Status_Disconnected);
    return false;
}

bool Socket_Client_Server::CreateServer(int port)
{
    const Opening opening{std::make_shared<Target>()};
    opening.target->is_server = true;
    opening.target->port = static_cast<std::uint16_t>(port);
    reader_->Close(&opening);
    return true;
}

bool Socket_Client_Server::CreateServer(unsigned int socket, int port, sockaddr_in peer, Socket_Multi_Server *server)
{
    Opening opening{nullptr, nullptr, peer};
    try {
        opening.accepted = platform::Socket::adopt(socket);  // first: the number has an owner from here on
        opening.target = std::make_shared<Target>();
        opening.target->is_server = true;
        opening.target->multi_server = server;
        opening.target->port = static_cast<std::uint16_t>(port);
        reader_->Close(&opening);
        if (opening.accepted) return true;
    } catch (const std::bad_alloc &) {
        Close();
    }
    reader_->Report(__LINE__).Print_Out(Error_Handler::ES_Error, socket_code,
                                        "Could not create socket server communication object.\n");
    SetStatus(Status_Failed);
    return false;
}

bool Socket_Client_Server::CreateServerSocket() { return reader_->Listen(); }

unsigned short Socket_Client_Server::GetPort() const { return reader_->Get_Target()->port; }

// A run that has announced its end by a status or a message still counts as running for a moment; start waits for that.
bool Socket_Client_Server::Work() { return Is_Own_Thread() || start(false) || is_running(); }

bool Socket_Client_Server::is_connected()
{
    const Semaphore_Guard guard(*this);
    return handle_ != nullptr;
}

bool Socket_Client_Server::IsBusy()
{
    if (!is_running()) return false;
    const Semaphore_Guard guard(*this);
    return reader_->Get_Target()->is_server ? handle_ != nullptr : reader_->Is_Open();
}

const char *Socket_Client_Server::GetRemoteName()
{
    const Semaphore_Guard guard(*this);
    remote_name_ = reader_->Remote_Name();
    return remote_name_.c_str();
}

void Socket_Client_Server::Enable_Auto_Reconnect(unsigned long seconds)
{
    auto_reconnect_ms_.store(static_cast<std::uint32_t>(seconds) * 1000, std::memory_order_relaxed);
}

// After this the peer sees the end, and a receive that is under way returns. In the client role handle_ and the
// reader's socket are the same stream: it is closed now, so that the peer need not wait, and Close or the next try
// removes it.
void Socket_Client_Server::FreeAcceptSocket()
{
    const Semaphore_Guard guard(*this);
    if (!handle_) return;
    handle_->close();
    handle_.reset();
}

bool Socket_Client_Server::Close_Handle() { return reader_->Close_Handle(nullptr); }

void Socket_Client_Server::Close() { reader_->Close(nullptr); }

bool Socket_Client_Server::Hang_Up()
{
    const auto target = reader_->Get_Target();
    if (target->multi_server) {
        Close();
        return true;
    }
    {
        const Semaphore_Guard guard(*this);
        FreeAcceptSocket();
        if (!target->is_server) reader_->Close_Socket();
    }
    Error_Handler &report = reader_->Report(__LINE__);
    if (target->is_server)
        report.Print_Out(Error_Handler::ES_Warning, transfer_code, "Hang-up done on Socket Server port %d.",
                         int{target->port});
    else
        report.Print_Out(Error_Handler::ES_Warning, transfer_code, "Hang-up done on Socket Client.");
    return true;
}

void Socket_Client_Server::Disconnect()
{
    stop();
    Byte_Server::Disconnect();
}

// A stop signal of an earlier run is forgotten; one that has come since is given again.
unsigned long Socket_Client_Server::thread()
{
    reader_stop_event_->reset();
    if (Stop_Requested()) reader_stop_event_->set();
    return threadFunc();
}

unsigned long Socket_Client_Server::threadFunc() { return reader_->Work(); }

// Flag first, event second: the reader checks the flag after it clears the event, and so loses no stop.
void Socket_Client_Server::pre_stop()
{
    Base_Thread::pre_stop();
    if (Stop_Requested()) reader_stop_event_->set();
}

// Stop the writer as well: it may be stuck with a peer that does not read, and the reader may wait for it (NTRIP).
unsigned long Socket_Client_Server::terminate()
{
    Request_Stop();
    reader_stop_event_->set();
    Sleep(1);
    stop_event_->set();
    return Base_Thread::terminate();
}

bool Socket_Client_Server::Gives_Up_Posting() const { return is_destroyed_ || (Is_Own_Thread() && Stop_Requested()); }

void Socket_Client_Server::ReportErrorIntern(unsigned long error, const char *text, Err_Code code,
                                             Error_Handler::Enum_Status status)
{
    if (error == 0) return;
    const std::string prefix = reader_->Prefix();
    Report_Socket_Error(reader_->Report(__LINE__), prefix, error, text, code, status);
    if (status == Error_Handler::ES_Fatal) Close();
}

// NTRIP.

void Socket_Client_Server::Set_Ntrip_Mode(bool on) { reader_->Set_Ntrip(&Ntrip::mode, on); }

void Socket_Client_Server::Set_Stream_Wanted(bool stream) { reader_->Set_Ntrip(&Ntrip::stream_wanted, stream); }

// The mountpoint becomes part of a line of the request, behind a slash: it must not begin another line.
bool Socket_Client_Server::Set_Mountpoint(const char *mountpoint)
{
    if (!mountpoint || *mountpoint == '/') return false;
    if (std::any_of(mountpoint, mountpoint + std::strlen(mountpoint), Is_Control_Or_Blank)) return false;
    return reader_->Set_Ntrip(&Ntrip::mountpoint, mountpoint);
}

bool Socket_Client_Server::Set_User(const char *user) { return reader_->Set_Ntrip(&Ntrip::user, user); }

bool Socket_Client_Server::Set_Password(const char *password) { return reader_->Set_Ntrip(&Ntrip::password, password); }

// Uses a copy of the texts: the host may set others meanwhile.
bool Socket_Client_Server::NtripSendRequest()
{
    const auto target = reader_->Get_Target();
    Ntrip ntrip = reader_->Get_Ntrip();
    reader_->Answer().Expect(ntrip.stream_wanted);
    if (ntrip.stream_wanted) {
        std::string user_password = ntrip.user.empty() ? "" : ntrip.user + ":" + ntrip.password;
        NTRIPSendStreamRequest(ntrip.mountpoint.data(), user_password.data(), target->host.c_str(), target->port,
                               target->via_proxy);
    } else {
        NTRIPSendSourceTableRequest(target->host.c_str(), target->port, target->via_proxy);
    }
    return true;
}

bool Socket_Client_Server::NtripCheckRequestResponse(int n, char *data)
{
    std::string message;
    if (n < 1 || reader_->Answer().Accepts(data, static_cast<std::size_t>(n), message)) return true;
    reader_->Report(__LINE__).Print_Out(Error_Handler::ES_Error, transfer_code, "%s", message.c_str());
    return false;
}

}  // namespace kernel
