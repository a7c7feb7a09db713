#include "kernel/transports/Socket_Client_Server.h"

#include "kernel/transports/ntrip_answer_internal.h"
#include "kernel/transports/receive_buffer_internal.h"
#include "kernel/transports/socket_address_internal.h"

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/socket.h"

#include <algorithm>
#include <cstring>

namespace kernel {

namespace {

const char unit[] = "kernel/Socket_Client_Server";

constexpr Err_Code transfer_code = 91;
constexpr std::size_t longest_text = 255;  // characters of a mountpoint, user, password

bool Is_Control_Or_Blank(char c) { return static_cast<unsigned char>(c) <= ' ' || c == 0x7F; }

}  // namespace

const char Socket_Client_Server::Name[] = "Client/Server class for Sockets";

Socket_Client_Server::Socket_Client_Server(Error_Handler &handler, unsigned int buffer_size)
    : Object(Name, &handler), Win32_Buffered_Byte_Client(handler, buffer_size, 1),
      received_(std::make_unique<Receive_Buffer>()), target_(std::make_shared<Target>()),
      answer_(std::make_unique<Ntrip_Answer>())
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

// The reading side, on the reader's thread. A close by another thread clears the request meanwhile; that it may get lost
// here does no harm: the reader finds the closed handle next.

bool Socket_Client_Server::Request(long n)
{
    requested_ = 0;
    if (n < 1) return false;
    const long limited = std::min(n, static_cast<long>(Receive_Buffer::most));
    requested_ = static_cast<std::int32_t>(limited);
    return MinAvail(0) >= limited;
}

long Socket_Client_Server::MinAvail(long) { return static_cast<long>(received_->Held()); }

unsigned short Socket_Client_Server::GetByte()
{
    unsigned char byte = 0;
    return GetNBytes(&byte, 1) == 1 ? byte : No_Byte;
}

long Socket_Client_Server::GetNBytes(unsigned char *buffer, long n)
{
    if (!buffer || n < 1) return 0;
    const std::size_t taken = received_->Take(buffer, static_cast<std::size_t>(n));
    requested_.store(requested_.load(std::memory_order_relaxed) - static_cast<std::int32_t>(taken),
                     std::memory_order_relaxed);
    bytes_in_.store(bytes_in_.load(std::memory_order_relaxed) + taken, std::memory_order_relaxed);
    return static_cast<long>(taken);
}

// The limit of a request holds here, too: more could never be held, and the client would wait for ever.
unsigned short Socket_Client_Server::UnGetByte(unsigned char byte)
{
    if (!received_->Put_Back(byte)) return No_Byte;
    requested_ = std::min(requested_ + 1, static_cast<std::int32_t>(Receive_Buffer::most));
    --bytes_in_;
    return byte;
}

// From the server above, on its thread: everything but one question is the writer's.
bool Socket_Client_Server::Send(Byte_Server &server, CL_Mesg message)
{
    if (message == Mesg_Type_11000) return answer_11000_.load(std::memory_order_relaxed);
    return Win32_Buffered_Byte_Client::Send(server, message);
}

// What everybody may ask and order, on any thread.

std::shared_ptr<Socket_Client_Server::Target> Socket_Client_Server::Get_Target() const
{
    const Semaphore_Guard guard(*this);
    return target_;
}

unsigned short Socket_Client_Server::GetPort() const { return Get_Target()->port; }

// A run that has told its end in a status or a message still counts as running for a moment: start waits for that.
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
    return target_->is_server ? handle_ != nullptr : socket_ != nullptr;
}

Socket_Client_Server::Remote Socket_Client_Server::The_Other_End(const Target &target) const
{
    if (!target.is_server) return {target.host, target.port};
    const Semaphore_Guard guard(*this);
    return {platform::dotted(Host_Of(peer_)), Port_Of(peer_)};
}

const char *Socket_Client_Server::GetRemoteName()
{
    const Semaphore_Guard guard(*this);
    const Remote remote = The_Other_End(*target_);
    const bool known = target_->is_server ? handle_ != nullptr : !remote.host.empty();
    remote_name_ = known ? remote.host + ":" + std::to_string(remote.port) : "";
    return remote_name_.c_str();
}

void Socket_Client_Server::Enable_Auto_Reconnect(unsigned long seconds)
{
    auto_reconnect_ms_.store(static_cast<std::uint32_t>(seconds) * 1000, std::memory_order_relaxed);
}

// After this the peer sees the end, and a receive that is under way comes back.
// The client role's socket is closed as well, although it is still there as the left-over that Close or the next try
// removes: the peer need not wait for that.
void Socket_Client_Server::FreeAcceptSocket()
{
    const Semaphore_Guard guard(*this);
    if (!handle_) return;
    handle_->close();
    handle_.reset();
}

void Socket_Client_Server::Close_Socket()
{
    const Semaphore_Guard guard(*this);
    if (!socket_) return;
    socket_->close();
    socket_.reset();
}

bool Socket_Client_Server::Close_Handle() { return Close_Handle(nullptr); }

// Under one lock: the reader, woken by the first close, must find neither the other one still to be done nor the target
// that is left.
bool Socket_Client_Server::Close_Handle(const Opening *next)
{
    bool was_open = false;
    {
        const Semaphore_Guard guard(*this);
        FreeAcceptSocket();
        requested_ = 0;
        was_open = socket_ != nullptr;
        Close_Socket();
        if (next) {
            target_ = next->target;
            socket_ = next->accepted;
            peer_ = next->peer;
        }
    }
    Sleep(1);
    return was_open;
}

// While the reader runs on another thread it sees to status and messages itself: a late 13 would hide what it does next.
bool Socket_Client_Server::Is_Seen_To() const { return is_running() && !Is_Own_Thread(); }

void Socket_Client_Server::Close() { Close(nullptr); }

void Socket_Client_Server::Close(const Opening *next)
{
    const bool is_seen_to = Is_Seen_To();  // asked before: it may end at once
    const bool was_open = Close_Handle(next);
    if (was_open && !is_seen_to) SetStatus(Status_Disconnected);
    Sleep(1);
    if (was_open && !is_seen_to) Tell(Mesg_Detached);
}

bool Socket_Client_Server::Hang_Up()
{
    const auto target = Get_Target();
    if (target->multi_server) {
        Close();
        return true;
    }
    {
        const Semaphore_Guard guard(*this);
        FreeAcceptSocket();
        if (!target->is_server) Close_Socket();
    }
    Error_Handler &report = Report(unit, __LINE__);
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

// Flag first, event second: who finds the event without the flag, or the other way round, looks at both.
void Socket_Client_Server::pre_stop()
{
    Base_Thread::pre_stop();
    if (Stop_Requested()) reader_stop_event_->set();
}

// The writer is asked as well: it may be stuck with a peer that does not read, and the reader may wait for it (NTRIP).
unsigned long Socket_Client_Server::terminate()
{
    Request_Stop();
    reader_stop_event_->set();
    Sleep(1);
    stop_event_->set();
    return Base_Thread::terminate();
}

bool Socket_Client_Server::Gives_Up_Posting() const { return is_destroyed_ || (Is_Own_Thread() && Stop_Requested()); }

// A system without words for a number is helped out by the table.
void Socket_Client_Server::ReportErrorIntern(unsigned long error, const char *text, Err_Code code,
                                             Error_Handler::Enum_Status status)
{
    if (error == 0) return;
    std::string prefix;
    {
        const Semaphore_Guard guard(*this);
        if (socket_) prefix = target_->host + ":" + std::to_string(target_->port);
    }
    const auto win32 = static_cast<std::uint32_t>(error);
    const int number = static_cast<int>(error);
    const std::string system = platform::error_text(win32);
    Error_Handler &report = Report(unit, __LINE__);
    if (system != platform::unknown_error_text(win32))
        report.Print_Out(status, code, "%s%s Socket Error-Code: %d => %s", prefix.c_str(), text, number,
                         system.c_str());
    else if (const char *name = GetSocketErrorName(number))
        report.Print_Out(status, code, "%s%s Socket Error: %s=%d => %s", prefix.c_str(), text, name, number,
                         GetSocketErrorText(number));
    else
        report.Print_Out(status, code, "%s%s Unknown Socket Error-Code: %d", prefix.c_str(), text, number);
    if (status == Error_Handler::ES_Fatal) Close();
}

// NTRIP.

void Socket_Client_Server::Set_Ntrip_Mode(bool on)
{
    const Semaphore_Guard guard(*this);
    ntrip_.mode = on;
}

bool Socket_Client_Server::Ntrip_Mode() const
{
    const Semaphore_Guard guard(*this);
    return ntrip_.mode;
}

void Socket_Client_Server::Set_Stream_Wanted(bool stream)
{
    const Semaphore_Guard guard(*this);
    ntrip_.stream_wanted = stream;
}

bool Socket_Client_Server::Set_Ntrip_Text(std::string Ntrip::*field, const char *text)
{
    if (!text || std::strlen(text) > longest_text) return false;
    const Semaphore_Guard guard(*this);
    ntrip_.*field = text;
    return true;
}

// It becomes part of a line of the request, behind a slash: it must not begin a second one.
bool Socket_Client_Server::Set_Mountpoint(const char *mountpoint)
{
    if (!mountpoint || *mountpoint == '/') return false;
    if (std::any_of(mountpoint, mountpoint + std::strlen(mountpoint), Is_Control_Or_Blank)) return false;
    return Set_Ntrip_Text(&Ntrip::mountpoint, mountpoint);
}

bool Socket_Client_Server::Set_User(const char *user) { return Set_Ntrip_Text(&Ntrip::user, user); }

bool Socket_Client_Server::Set_Password(const char *password) { return Set_Ntrip_Text(&Ntrip::password, password); }

// The texts are copied: the host may set others meanwhile.
bool Socket_Client_Server::NtripSendRequest()
{
    const auto target = Get_Target();
    Ntrip ntrip;
    {
        const Semaphore_Guard guard(*this);
        ntrip = ntrip_;
    }
    answer_->Expect(ntrip.stream_wanted);
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
    if (n < 1 || answer_->Accepts(data, static_cast<std::size_t>(n), message)) return true;
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, transfer_code, "%s", message.c_str());
    return false;
}

}  // namespace kernel
