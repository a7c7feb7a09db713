// How a connection comes about: targets, connecting, listening and accepting.
#include "kernel/transports/Socket_Client_Server.h"

#include "kernel/transports/socket_address_internal.h"

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/socket.h"
#include "platform/wait.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

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

// The address as it is, dotted text or a name, in this order. What is found is kept for all connections to come.
bool Resolve(const std::string &name, sockaddr_in &address, platform::Event &stop)
{
    if (Host_Of(address) != no_address) return true;
    std::uint32_t host = 0;
    if (!platform::parse_dotted(name.c_str(), host) || host == no_address) {
        if (!platform::resolve(name.c_str(), host, stop)) return false;
    }
    address = Sockaddr_Of(host, Port_Of(address));
    return true;
}

// In vain when the socket is closed meanwhile, by whomever.
bool Connect_Socket(platform::Socket &socket, const sockaddr_in &address, platform::Event &stop)
{
    return socket.connect({Host_Of(address), Port_Of(address)}, stop) ||
           platform::last_error() == platform::error_already_connected;
}

}  // namespace

// A target is complete before others see it: a reader at work keeps the old one until it asks again.

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
    target->address = Sockaddr_Of(no_address, static_cast<std::uint16_t>(proxy_host ? proxy_port : port));
    Close();
    if (!host) {
        Set_Target(target);
        return false;
    }
    SetStatus(Status_Client_Target_Set);
    platform::Event never;
    const std::string name = target->Where();
    const bool resolved = Resolve(name, target->address, never);
    const std::uint32_t error = platform::last_error();
    Set_Target(target);
    if (resolved) return true;
    ReportErrorIntern(error, Text("Could not resolve host name %s to IP-address.", name.c_str()).c_str(), socket_code,
                      Error_Handler::ES_Error);
    SetStatus(Status_Disconnected);
    return false;
}

bool Socket_Client_Server::CreateServer(int port)
{
    const auto target = std::make_shared<Target>();
    target->is_server = true;
    target->port = static_cast<std::uint16_t>(port);
    target->address = Sockaddr_Of(0, target->port);
    Close();
    Set_Target(target);
    return true;
}

bool Socket_Client_Server::CreateServer(unsigned int socket, int port, sockaddr_in peer, Socket_Multi_Server *server)
{
    const auto target = std::make_shared<Target>();
    target->is_server = true;
    target->multi_server = server;
    target->port = static_cast<std::uint16_t>(port);
    target->address = Sockaddr_Of(0, target->port);
    Close();
    auto accepted = platform::Socket::adopt(socket);
    {
        const Semaphore_Guard guard(*this);
        target_ = target;
        peer_ = peer;
        socket_ = accepted;
    }
    if (accepted) return true;
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, socket_code, "Could not create socket server communication object.\n");
    SetStatus(Status_Failed);
    return false;
}

// A connection of a multi-server is there already.
Socket_Client_Server::Next Socket_Client_Server::Establish()
{
    const auto target = Get_Target();
    if (!target->is_server) return Connect_As_Client();
    if (!target->multi_server) return Accept_As_Server();
    const Semaphore_Guard guard(*this);
    handle_ = socket_;
    return Next::serve;
}

// In slices, so that a stop is seen even where its signal was taken by somebody else.
void Socket_Client_Server::Pause(unsigned long slice)
{
    unsigned long left = Get_Auto_Reconnect_Time();
    while (left > 0 && !Stop_Requested()) {
        const unsigned long ms = std::min(left, slice);
        Sleep(ms);
        left -= ms;
    }
}

// The client role.

// Tries until there is a connection, a stop, or no time for reconnecting. Each try asks for the target: it may be a new one.
Socket_Client_Server::Next Socket_Client_Server::Connect_As_Client()
{
    Close_Socket();
    for (Tries tries{platform::clock_ms()};;) {
        SetStatus(Status_Connecting);
        const auto target = Get_Target();
        const auto socket = New_Socket();
        if (!socket) {
            ReportErrorIntern(platform::last_error(), "Could not create socket client communication object.\n",
                              socket_code, Error_Handler::ES_Error);
            SetStatus(Status_Disconnected);
            return Next::failed;
        }
        socket->set_keep_alive();
        socket->set_reuse_address();
        const std::string name = target->Where();
        const bool resolved = Resolve(name, target->address, *reader_stop_event_);
        if (resolved && Connect_Socket(*socket, target->address, *reader_stop_event_))
            return Connected_As_Client(*target, tries);
        const std::uint32_t error = platform::last_error();
        Close_Socket();
        const Next next = Failed_To_Connect(*target, tries, resolved, error);
        if (next != Next::establish) return next;
    }
}

Socket_Client_Server::Next Socket_Client_Server::Connected_As_Client(const Target &target, const Tries &tries)
{
    const std::string dotted = platform::dotted(Host_Of(target.address));
    const unsigned int port = Port_Of(target.address);
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
    handle_ = socket_;  // null when it was closed just now: the first receive finds out
    return Next::serve;
}

// A stop is no failure: nothing is reported then.
Socket_Client_Server::Next Socket_Client_Server::Failed_To_Connect(const Target &target, Tries &tries, bool resolved,
                                                                   unsigned long error)
{
    if (Stop_Requested()) return Stopped();
    if (!resolved)
        ReportErrorIntern(
            error,
            Text("Could not resolve host name %s to IP-address since %u sec.", target.Where().c_str(), tries.Seconds())
                .c_str(),
            socket_code, Error_Handler::ES_Error);
    if (Get_Auto_Reconnect_Time() == 0) {
        SetStatus(Status_Disconnected);
        ReportErrorIntern(error,
                          Text("Could not connect to host %s:%u for socket client communication.\n",
                               target.host.c_str(), unsigned{target.port})
                              .c_str(),
                          socket_code, Error_Handler::ES_Error);
        return Next::failed;
    }
    if (resolved) Report_Failed_Try(target, tries, error);
    Pause(connect_slice_ms);
    return Stop_Requested() ? Stopped() : Next::establish;
}

// A host that is up and not ready is a message each time; one that cannot be reached is an error, and is told once for as
// long as the tries come less than an hour apart.
void Socket_Client_Server::Report_Failed_Try(const Target &target, Tries &tries, unsigned long error)
{
    const char *const host = target.host.c_str();
    const unsigned int port = target.port, seconds = tries.Seconds();
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

std::shared_ptr<platform::Socket> Socket_Client_Server::New_Socket()
{
    auto socket = platform::Socket::create();
    if (!socket) return nullptr;  // and the error stays the last one
    const Semaphore_Guard guard(*this);
    socket_ = socket;
    return socket;
}

// The server role.

// A listener that could not be closed before (a failed accept) goes first: it would hold the port.
bool Socket_Client_Server::CreateServerSocket()
{
    Close_Socket();
    const auto target = Get_Target();
    const auto socket = New_Socket();
    if (!socket) return Fail_To_Listen("Could not create socket server communication object.\n");
    socket->set_reuse_address();
    socket->set_keep_alive();
    if (!socket->bind({Host_Of(target->address), target->port}))
        return Fail_To_Listen("Could not bind socket server communication object.\n");
    if (!socket->listen(1)) return Fail_To_Listen("Could not listen to socket server communication object.\n");
    platform::Address chosen;
    if (target->port == 0 && socket->local_address(chosen)) target->port = chosen.port;
    return true;
}

// The cause is told when there is nothing to accept from. Noted first: the socket's own end may change the last error.
bool Socket_Client_Server::Fail_To_Listen(const char *text)
{
    listen_error_ = platform::last_error();
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, socket_code, "%s", text);
    Close_Socket();
    SetStatus(Status_Failed);
    return false;
}

// The port is closed as soon as there is a peer: a second one is refused, and not left waiting. While this thread is in
// accept, for days perhaps, nobody waits for the writer either: terminate_refused_.
Socket_Client_Server::Next Socket_Client_Server::Accept_As_Server()
{
    const bool listening = CreateServerSocket();
    std::shared_ptr<platform::Socket> listener, accepted;
    {
        const Semaphore_Guard guard(*this);
        peer_ = {};
        listener = socket_;
    }
    platform::Address peer;
    // For one that is closed meanwhile.
    std::uint32_t error = listening ? std::uint32_t{platform::error_operation_aborted} : listen_error_;
    if (listener) {
        terminate_refused_ = 1;
        accepted = listener->accept(peer, *reader_stop_event_);
        error = platform::last_error();
        terminate_refused_ = 0;
    }
    if (Stop_Requested()) return Stopped();
    if (!accepted) return Failed_To_Accept(error);
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Warning, transfer_code, "Client %s:%d has connected.",
                   platform::dotted(peer.host).c_str(), int{peer.port});
    Close_Socket();
    bytes_in_ = 0;
    bytes_out_ = 0;
    accept_errors_ = 0;
    const Semaphore_Guard guard(*this);
    peer_ = Sockaddr_Of(peer.host, peer.port);
    handle_ = accepted;
    return Next::serve;
}

// A server that cannot listen tries again in the same way.
Socket_Client_Server::Next Socket_Client_Server::Failed_To_Accept(unsigned long error)
{
    ReportErrorIntern(error, "Error accepting inbound connection.", socket_code, Error_Handler::ES_Error);
    SetStatus(Status_Disconnected);
    Sleep(accept_retry_ms);
    if (++accept_errors_ % accept_errors_per_report == 0)
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Error, transfer_code,
                       "Socket server port %d: Error returned by WSAAccept since %d sec.\n", int{GetPort()},
                       accept_errors_ / accept_errors_per_second);
    return Next::pass;
}

}  // namespace kernel
