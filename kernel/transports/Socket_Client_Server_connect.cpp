// How a connection comes about: targets, connecting, listening and accepting.
#include "kernel/transports/Socket_Client_Server.h"

#include "kernel/transports/receive_buffer_internal.h"
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

const char unit[] = "kernel/Socket_Client_Server";

constexpr Err_Code socket_code = 89, transfer_code = 91;
constexpr std::uint32_t no_address = 0xFFFFFFFF;  // as in the socket interfaces: 255.255.255.255 is none
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

// The address as it is, dotted text or a name, in this order. What is found is kept for all connections to come. Two
// threads may look at once: both find the same.
bool Resolve(const std::string &name, std::atomic<std::uint32_t> &address, platform::Event &stop)
{
    if (address != no_address) return true;
    std::uint32_t host = 0;
    if (!platform::parse_dotted(name.c_str(), host) || host == no_address) {
        if (!platform::resolve(name.c_str(), host, stop)) return false;
    }
    address = host;
    return true;
}

// Fails with error_operation_aborted when another thread closes the socket meanwhile, whatever the system says then.
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

// A reader at work turns to the new target at once. The status stands before it can: what it does next overwrites that.
// It looks the name up as well; the two share the look-up, and only a reader that is not there is told of its failure.
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
    target->address = no_address;
    const Opening opening{target};
    const bool is_seen_to = Is_Seen_To();
    if (host && is_seen_to) SetStatus(Status_Client_Target_Set);
    Close(&opening);
    if (!host) return false;
    if (!is_seen_to) SetStatus(Status_Client_Target_Set);
    platform::Event never;
    const std::string name = target->Where();
    if (Resolve(name, target->address, never)) return true;
    ReportErrorIntern(platform::last_error(),
                      Text("Could not resolve host name %s to IP-address.", name.c_str()).c_str(), socket_code,
                      Error_Handler::ES_Error);
    if (!is_seen_to) SetStatus(Status_Disconnected);
    return false;
}

bool Socket_Client_Server::CreateServer(int port)
{
    const Opening opening{std::make_shared<Target>()};
    opening.target->is_server = true;
    opening.target->port = static_cast<std::uint16_t>(port);
    Close(&opening);
    return true;
}

bool Socket_Client_Server::CreateServer(unsigned int socket, int port, sockaddr_in peer, Socket_Multi_Server *server)
{
    const Opening opening{std::make_shared<Target>(), platform::Socket::adopt(socket), peer};
    opening.target->is_server = true;
    opening.target->multi_server = server;
    opening.target->port = static_cast<std::uint16_t>(port);
    Close(&opening);
    if (opening.accepted) return true;
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, socket_code, "Could not create socket server communication object.\n");
    SetStatus(Status_Failed);
    return false;
}

// A connection of a multi-server is there already.
Socket_Client_Server::Next Socket_Client_Server::Establish()
{
    Turn_To(Get_Target());
    if (!serving_->is_server) return Connect_As_Client();
    if (!serving_->multi_server) return Accept_As_Server();
    const Semaphore_Guard guard(*this);
    if (!Is_Current()) return Next::establish;
    handle_ = socket_;
    return Next::serve;
}

// What was received from another target, or counted for it, is not the new one's.
void Socket_Client_Server::Turn_To(std::shared_ptr<Target> target)
{
    if (serving_ && serving_ != target) {
        received_->Drop();
        accept_errors_ = 0;
    }
    serving_ = std::move(target);
}

bool Socket_Client_Server::Is_Current() const
{
    const Semaphore_Guard guard(*this);
    return target_ == serving_;
}

// In slices, so that a stop is seen even where its signal was taken by somebody else. A new target need not wait.
void Socket_Client_Server::Pause(unsigned long slice)
{
    unsigned long left = Get_Auto_Reconnect_Time();
    while (left > 0 && !Stop_Requested() && Is_Current()) {
        const unsigned long ms = std::min(left, slice);
        Sleep(ms);
        left -= ms;
    }
}

// The client role.

// Tries until there is a connection, a stop, another target, or no time for reconnecting.
Socket_Client_Server::Next Socket_Client_Server::Connect_As_Client()
{
    Close_Left_Over();
    for (Tries tries{platform::clock_ms()};;) {
        const Next next = Try_To_Connect(tries);
        if (next != Next::establish || !Is_Current()) return next;
    }
}

Socket_Client_Server::Next Socket_Client_Server::Try_To_Connect(Tries &tries)
{
    SetStatus(Status_Connecting);
    const auto socket = New_Socket();
    if (!socket) {
        const std::uint32_t error = platform::last_error();
        if (!Is_Current()) return Next::establish;
        ReportErrorIntern(error, "Could not create socket client communication object.\n", socket_code,
                          Error_Handler::ES_Error);
        SetStatus(Status_Disconnected);
        return Next::failed;
    }
    socket->set_keep_alive();
    socket->set_reuse_address();
    const bool resolved = Resolve(serving_->Where(), serving_->address, *reader_stop_event_);
    if (resolved && Connect_Socket(*socket, {serving_->address, serving_->Door()}, *reader_stop_event_))
        return Connected_As_Client(tries);
    const std::uint32_t error = platform::last_error();
    Close_Left_Over();
    return Failed_To_Connect(tries, resolved, error);
}

Socket_Client_Server::Next Socket_Client_Server::Connected_As_Client(const Tries &tries)
{
    const std::string dotted = platform::dotted(serving_->address);
    const unsigned int port = serving_->Door();
    Error_Handler &report = Report(unit, __LINE__);
    if (Get_Auto_Reconnect_Time() == 0)
        report.Print_Out(Error_Handler::ES_Warning, transfer_code, "Successfully connected to host %s:%u.",
                         dotted.c_str(), port);
    else
        report.Print_Out(Error_Handler::ES_Warning, transfer_code, "Successfully connected to host %s:%u after %u sec.",
                         dotted.c_str(), port, tries.Seconds());
    bytes_in_ = 0;
    bytes_out_ = 0;
    if (Stop_Requested()) return Stopped();
    const Semaphore_Guard guard(*this);
    if (!Is_Current()) return Next::establish;
    handle_ = socket_;  // null when it was closed just now: the first receive finds out
    return Next::serve;
}

// A stop, another target, and a close on this side are no failures: nothing is reported then.
Socket_Client_Server::Next Socket_Client_Server::Failed_To_Connect(Tries &tries, bool resolved, unsigned long error)
{
    if (Stop_Requested()) return Stopped();
    if (!Is_Current()) return Next::establish;
    const bool was_closed = resolved && error == platform::error_operation_aborted;
    if (!resolved) Report_Failed_Look_Up(tries, error);
    if (Get_Auto_Reconnect_Time() == 0) {
        SetStatus(Status_Disconnected);
        if (!was_closed)
            ReportErrorIntern(error,
                              Text("Could not connect to host %s:%u for socket client communication.\n",
                                   serving_->host.c_str(), unsigned{serving_->port})
                                  .c_str(),
                              socket_code, Error_Handler::ES_Error);
        return Next::failed;
    }
    if (resolved && !was_closed) Report_Failed_Try(tries, error);
    Pause(connect_slice_ms);
    return Stop_Requested() ? Stopped() : Next::establish;
}

void Socket_Client_Server::Report_Failed_Look_Up(const Tries &tries, unsigned long error)
{
    const std::string name = serving_->Where();
    ReportErrorIntern(
        error,
        Text("Could not resolve host name %s to IP-address since %u sec.", name.c_str(), tries.Seconds()).c_str(),
        socket_code, Error_Handler::ES_Error);
}

// A host that is up and not ready is a message each time; one that cannot be reached is an error, and is told once for as
// long as the tries come less than an hour apart.
void Socket_Client_Server::Report_Failed_Try(Tries &tries, unsigned long error)
{
    const char *const host = serving_->host.c_str();
    const unsigned int port = serving_->port, seconds = tries.Seconds();
    if (error == platform::error_connection_refused) {
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Message, transfer_code, "Waiting for host %s:%u since %u sec.\n", host, port,
                       seconds);
        return;
    }
    const std::uint64_t now = platform::clock_ms();
    if (tries.last_failure == 0 || now - tries.last_failure > failure_report_ms)
        ReportErrorIntern(error, Text("Connect to host %s:%u failed since %u sec.", host, port, seconds).c_str(),
                          socket_code, Error_Handler::ES_Error);
    tries.last_failure = now;
}

unsigned int Socket_Client_Server::Tries::Seconds() const
{
    return static_cast<unsigned int>((platform::clock_ms() - start + 1000) / 1000);
}

// Nobody serves any more: neither a port nor a connection stays open.
Socket_Client_Server::Next Socket_Client_Server::Stopped()
{
    Close_Socket();
    SetStatus(Status_Disconnected);
    return Next::stopped;
}

// Not for a target that is left: whoever has closed for the new one is not asked again.
std::shared_ptr<platform::Socket> Socket_Client_Server::New_Socket()
{
    auto socket = platform::Socket::create();
    if (!socket) return nullptr;  // and the error stays the last one
    const Semaphore_Guard guard(*this);
    if (!Is_Current()) return nullptr;
    socket_ = socket;
    return socket;
}

// The socket of an earlier connection or try, and not the one that a new target brings with it.
void Socket_Client_Server::Close_Left_Over()
{
    const Semaphore_Guard guard(*this);
    if (Is_Current()) Close_Socket();
}

// The server role.

// A listener that could not be closed before (a failed accept) goes first: it would hold the port.
bool Socket_Client_Server::CreateServerSocket()
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
bool Socket_Client_Server::Fail_To_Listen(std::uint32_t error, const char *text)
{
    listen_error_ = Is_Current() ? error : std::uint32_t{platform::error_operation_aborted};
    if (listen_error_ == platform::error_operation_aborted) return false;
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, socket_code, "%s", text);
    Close_Left_Over();
    SetStatus(Status_Failed);
    return false;
}

// The port is closed as soon as there is a peer: a second one is refused, and not left waiting.
Socket_Client_Server::Next Socket_Client_Server::Accept_As_Server()
{
    sockaddr_in peer;
    unsigned long error = 0;
    const auto accepted = Wait_For_Peer(peer, error);
    if (Stop_Requested()) return Stopped();
    if (!Is_Current()) return Next::establish;
    if (!accepted) return Failed_To_Accept(error);
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Warning, transfer_code, "Client %s:%d has connected.",
                   platform::dotted(Host_Of(peer)).c_str(), int{Port_Of(peer)});
    Close_Left_Over();
    bytes_in_ = 0;
    bytes_out_ = 0;
    accept_errors_ = 0;
    const Semaphore_Guard guard(*this);
    if (!Is_Current()) return Next::establish;
    peer_ = peer;
    handle_ = accepted;
    return Next::serve;
}

// While this thread is in accept, for days perhaps, nobody waits for the writer either: terminate_refused_.
std::shared_ptr<platform::Socket> Socket_Client_Server::Wait_For_Peer(sockaddr_in &peer, unsigned long &error)
{
    error = CreateServerSocket() ? std::uint32_t{platform::error_operation_aborted} : listen_error_;
    std::shared_ptr<platform::Socket> listener;
    {
        const Semaphore_Guard guard(*this);
        if (!Is_Current()) return nullptr;
        peer_ = {};
        listener = socket_;
    }
    if (!listener) return nullptr;
    terminate_refused_ = 1;
    platform::Address address;
    auto accepted = listener->accept(address, *reader_stop_event_);
    error = platform::last_error();
    terminate_refused_ = 0;
    peer = Sockaddr_Of(address.host, address.port);
    return accepted;
}

// A server that cannot listen tries again in the same way. Closing the port on this side is no error.
Socket_Client_Server::Next Socket_Client_Server::Failed_To_Accept(unsigned long error)
{
    const bool was_closed = error == platform::error_operation_aborted;
    if (!was_closed)
        ReportErrorIntern(error, "Error accepting inbound connection.", socket_code, Error_Handler::ES_Error);
    SetStatus(Status_Disconnected);
    Sleep(accept_retry_ms);
    if (!was_closed && ++accept_errors_ % accept_errors_per_report == 0)
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Error, transfer_code,
                       "Socket server port %d: Error returned by WSAAccept since %d sec.\n", int{serving_->port},
                       accept_errors_ / accept_errors_per_second);
    return Next::pass;
}

}  // namespace kernel
