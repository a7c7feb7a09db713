// How the reader comes by a connection: connecting, listening and accepting.
#include "kernel/transports/socket_reader_internal.h"

#include "kernel/transports/socket_address_internal.h"

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/socket.h"
#include "platform/wait.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace kernel {

namespace {

constexpr Err_Code socket_code = 89, transfer_code = 91;
constexpr unsigned long accept_retry_ms = 250;
constexpr int accept_errors_per_report = 120;  // half a minute
constexpr int accept_errors_per_second = 4;    // by accept_retry_ms
constexpr unsigned long connect_slice_ms = 250;
constexpr std::uint64_t failure_report_ms = 3600 * 1000;

std::string Text(const char *format, ...) KERNEL_PRINTF(1, 2);
std::string Text(const char *format, ...)
{
    char text[2048];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

// Fails with error_operation_aborted when another thread closes the socket meanwhile; the system may return another
// error.
bool Connect_Socket(platform::Socket &socket, const platform::Address &address, platform::Event &stop)
{
    if (socket.connect(address, stop) || platform::last_error() == platform::error_already_connected) return true;
    if (socket.closed()) platform::set_last_error(platform::error_operation_aborted);
    return false;
}

// Why the last call on the socket failed: error_operation_aborted when another thread has closed it meanwhile.
std::uint32_t Cause(const platform::Socket &socket)
{
    const std::uint32_t error = platform::last_error();
    return socket.closed() ? std::uint32_t{platform::error_operation_aborted} : error;
}

}  // namespace

// The tries to connect to one target.
struct Socket_Reader::Tries {
    std::uint64_t start;             // [ms] of clock_ms
    std::uint64_t last_failure = 0;  // [ms]; 0: none
    unsigned int Seconds() const;    // since the start, rounded up
};

// A client of a multi-server brings its connection with the target.
Socket_Reader::Next Socket_Reader::Establish()
{
    Turn_To(Get_Target());
    if (!serving_->is_server) return Connect_As_Client();
    if (!serving_->multi_server) return Accept_As_Server();
    const Semaphore_Guard guard(owner_);
    if (!Is_Current()) return Next::establish;
    owner_.handle_ = socket_;
    return Next::serve;
}

// Bytes received from the former target and its errors do not belong to the new one.
void Socket_Reader::Turn_To(std::shared_ptr<Target> target)
{
    if (serving_ && serving_ != target) {
        Drop();
        accept_errors_ = 0;
    }
    serving_ = std::move(target);
}

bool Socket_Reader::Is_Current() const
{
    const Semaphore_Guard guard(owner_);
    return target_ == serving_;
}

// Sleeps in slices, so that the flag is checked even if another sleep has taken the signal of the stop. A new target
// ends the pause.
void Socket_Reader::Pause(unsigned long slice)
{
    unsigned long left = owner_.Get_Auto_Reconnect_Time();
    while (left > 0 && !Is_Stopping() && Is_Current()) {
        const unsigned long ms = std::min(left, slice);
        owner_.Sleep(ms);
        left -= ms;
    }
}

// The client role.

// Tries until there is a connection, a stop, another target, or no time for reconnecting.
Socket_Reader::Next Socket_Reader::Connect_As_Client()
{
    Close_Left_Over();
    for (Tries tries{platform::clock_ms()};;) {
        const Next next = Try_To_Connect(tries);
        if (next != Next::establish || !Is_Current()) return next;
    }
}

Socket_Reader::Next Socket_Reader::Try_To_Connect(Tries &tries)
{
    owner_.SetStatus(Owner::Status_Connecting);
    const auto socket = New_Socket();
    if (!socket) {
        const std::uint32_t error = platform::last_error();
        if (!Is_Current()) return Next::establish;
        owner_.ReportErrorIntern(error, "Could not create socket client communication object.\n", socket_code,
                                 Error_Handler::ES_Error);
        owner_.SetStatus(Owner::Status_Disconnected);
        return Next::failed;
    }
    socket->set_keep_alive();
    socket->set_reuse_address();
    const bool resolved = serving_->Resolve(*owner_.reader_stop_event_);
    if (resolved && Connect_Socket(*socket, {serving_->address, serving_->Door()}, *owner_.reader_stop_event_))
        return Connected_As_Client(tries);
    const std::uint32_t error = platform::last_error();
    Close_Left_Over();
    return Failed_To_Connect(tries, resolved, error);
}

Socket_Reader::Next Socket_Reader::Connected_As_Client(const Tries &tries)
{
    const std::string dotted = platform::dotted(serving_->address);
    const unsigned int port = serving_->Door();
    Error_Handler &report = Report(__LINE__);
    if (owner_.Get_Auto_Reconnect_Time() == 0)
        report.Print_Out(Error_Handler::ES_Warning, transfer_code, "Successfully connected to host %s:%u.",
                         dotted.c_str(), port);
    else
        report.Print_Out(Error_Handler::ES_Warning, transfer_code, "Successfully connected to host %s:%u after %u sec.",
                         dotted.c_str(), port, tries.Seconds());
    Reset_Bytes_In();
    owner_.bytes_out_ = 0;
    if (Is_Stopping()) return Stopped();
    const Semaphore_Guard guard(owner_);
    if (!Is_Current()) return Next::establish;
    owner_.handle_ = socket_;  // null when it was closed just now: Receive checks
    return Next::serve;
}

// A stop, another target and a close on this side are not reported.
Socket_Reader::Next Socket_Reader::Failed_To_Connect(Tries &tries, bool resolved, unsigned long error)
{
    if (Is_Stopping()) return Stopped();
    if (!Is_Current()) return Next::establish;
    const bool was_closed = resolved && error == platform::error_operation_aborted;
    if (!resolved) Report_Failed_Look_Up(tries, error);
    if (owner_.Get_Auto_Reconnect_Time() == 0) {
        owner_.SetStatus(Owner::Status_Disconnected);
        if (!was_closed)
            owner_.ReportErrorIntern(error,
                                     Text("Could not connect to host %s:%u for socket client communication.\n",
                                          serving_->host.c_str(), unsigned{serving_->port})
                                         .c_str(),
                                     socket_code, Error_Handler::ES_Error);
        return Next::failed;
    }
    if (resolved && !was_closed) Report_Failed_Try(tries, error);
    Pause(connect_slice_ms);
    return Is_Stopping() ? Stopped() : Next::establish;
}

void Socket_Reader::Report_Failed_Look_Up(const Tries &tries, unsigned long error)
{
    const std::string name = serving_->Where();
    owner_.ReportErrorIntern(
        error,
        Text("Could not resolve host name %s to IP-address since %u sec.", name.c_str(), tries.Seconds()).c_str(),
        socket_code, Error_Handler::ES_Error);
}

// A host that refuses is reported as a message at each try. A host that cannot be reached is reported as an error, once
// as long as the tries come less than an hour apart.
void Socket_Reader::Report_Failed_Try(Tries &tries, unsigned long error)
{
    const char *const host = serving_->host.c_str();
    const unsigned int port = serving_->port, seconds = tries.Seconds();
    if (error == platform::error_connection_refused) {
        Report(__LINE__).Print_Out(Error_Handler::ES_Message, transfer_code, "Waiting for host %s:%u since %u sec.\n",
                                   host, port, seconds);
        return;
    }
    const std::uint64_t now = platform::clock_ms();
    if (tries.last_failure == 0 || now - tries.last_failure > failure_report_ms)
        owner_.ReportErrorIntern(error, Text("Connect to host %s:%u failed since %u sec.", host, port, seconds).c_str(),
                                 socket_code, Error_Handler::ES_Error);
    tries.last_failure = now;
}

unsigned int Socket_Reader::Tries::Seconds() const
{
    return static_cast<unsigned int>((platform::clock_ms() - start + 1000) / 1000);
}

// No reader serves any more, so neither a port nor a connection stays open.
Socket_Reader::Next Socket_Reader::Stopped()
{
    Close_Socket();
    owner_.SetStatus(Owner::Status_Disconnected);
    return Next::stopped;
}

// Makes none for a target that was replaced: nobody would close it.
std::shared_ptr<platform::Socket> Socket_Reader::New_Socket()
{
    auto socket = platform::Socket::create();
    if (!socket) return nullptr;  // the last error is the cause
    const Semaphore_Guard guard(owner_);
    if (!Is_Current()) return nullptr;
    socket_ = socket;
    return socket;
}

// Closes the socket of an earlier connection or try, but never the one that a new target brings with it.
void Socket_Reader::Close_Left_Over()
{
    const Semaphore_Guard guard(owner_);
    if (Is_Current()) Close_Socket();
}

// The server role.

// After a failed accept the former listener is still open. Close it first: it holds the port.
bool Socket_Reader::Listen()
{
    Close_Left_Over();
    const auto socket = New_Socket();
    if (!socket)
        return Fail_To_Listen(platform::last_error(), "Could not create socket server communication object.\n");
    socket->set_reuse_address();
    socket->set_keep_alive();
    if (!socket->bind({0, serving_->port}))
        return Fail_To_Listen(Cause(*socket), "Could not bind socket server communication object.\n");
    if (!socket->listen(1))
        return Fail_To_Listen(Cause(*socket), "Could not listen to socket server communication object.\n");
    platform::Address chosen;
    if (serving_->port == 0 && socket->local_address(chosen)) serving_->port = chosen.port;
    return true;
}

// Wait_For_Peer reports the cause later. A socket that was closed on this side has not failed.
bool Socket_Reader::Fail_To_Listen(std::uint32_t error, const char *text)
{
    listen_error_ = Is_Current() ? error : std::uint32_t{platform::error_operation_aborted};
    if (listen_error_ == platform::error_operation_aborted) return false;
    Report(__LINE__).Print_Out(Error_Handler::ES_Error, socket_code, "%s", text);
    Close_Left_Over();
    owner_.SetStatus(Owner::Status_Failed);
    return false;
}

// Closes the port as soon as there is a peer, so that a second peer is refused instead of kept waiting.
Socket_Reader::Next Socket_Reader::Accept_As_Server()
{
    sockaddr_in peer;
    unsigned long error = 0;
    const auto accepted = Wait_For_Peer(peer, error);
    if (Is_Stopping()) return Stopped();
    if (!Is_Current()) return Next::establish;
    if (!accepted) return Failed_To_Accept(error);
    Report(__LINE__).Print_Out(Error_Handler::ES_Warning, transfer_code, "Client %s:%d has connected.",
                               platform::dotted(Host_Of(peer)).c_str(), int{Port_Of(peer)});
    Close_Left_Over();
    Reset_Bytes_In();
    owner_.bytes_out_ = 0;
    accept_errors_ = 0;
    const Semaphore_Guard guard(owner_);
    if (!Is_Current()) return Next::establish;
    peer_ = peer;
    owner_.handle_ = accepted;
    return Next::serve;
}

// The accept may take days. terminate_refused_ is set meanwhile, so that the writer's own stop is not waited for
// either.
std::shared_ptr<platform::Socket> Socket_Reader::Wait_For_Peer(sockaddr_in &peer, unsigned long &error)
{
    error = Listen() ? std::uint32_t{platform::error_operation_aborted} : listen_error_;
    std::shared_ptr<platform::Socket> listener;
    {
        const Semaphore_Guard guard(owner_);
        if (!Is_Current()) return nullptr;
        peer_ = {};
        listener = socket_;
    }
    if (!listener) return nullptr;
    owner_.terminate_refused_ = 1;
    platform::Address address;
    auto accepted = listener->accept(address, *owner_.reader_stop_event_);
    error = platform::last_error();
    owner_.terminate_refused_ = 0;
    peer = Sockaddr_Of(address.host, address.port);
    return accepted;
}

// Also called when the server cannot listen. Closing the port on this side is not reported.
Socket_Reader::Next Socket_Reader::Failed_To_Accept(unsigned long error)
{
    const bool was_closed = error == platform::error_operation_aborted;
    if (!was_closed)
        owner_.ReportErrorIntern(error, "Error accepting inbound connection.", socket_code, Error_Handler::ES_Error);
    owner_.SetStatus(Owner::Status_Disconnected);
    owner_.Sleep(accept_retry_ms);
    if (!was_closed && ++accept_errors_ % accept_errors_per_report == 0)
        Report(__LINE__).Print_Out(Error_Handler::ES_Error, transfer_code,
                                   "Socket server port %d: Error returned by WSAAccept since %d sec.\n",
                                   int{serving_->port}, accept_errors_ / accept_errors_per_second);
    return Next::pass;
}

}  // namespace kernel
