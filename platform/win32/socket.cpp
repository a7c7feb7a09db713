#include "platform/socket.h"

#include "platform/error.h"
#include "platform/fault.h"
#include "platform/socket_address.h"
#include "platform/win32/stream_internal.h"

#include <winsock2.h>

#include <windows.h>
#include <ws2tcpip.h>

#include <cstring>

namespace platform {

namespace {

HANDLE handle_of(std::intptr_t native) { return reinterpret_cast<HANDLE>(native); }

SOCKET socket_of(std::intptr_t native) { return static_cast<SOCKET>(native); }

bool set_option(std::intptr_t native, int level, int option)
{
    const BOOL on = TRUE;
    return setsockopt(socket_of(native), level, option, reinterpret_cast<const char *>(&on), sizeof on) == 0;
}

bool aborted()
{
    set_last_error(error_operation_aborted);
    return false;
}

// Ends the event notification of a socket and makes it blocking again, as transfers and hosts expect.
void unselect(SOCKET socket)
{
    unsigned long non_blocking = 0;
    WSAEventSelect(socket, nullptr, 0);
    ioctlsocket(socket, static_cast<long>(FIONBIO), &non_blocking);
}

// The socket sets the event when one of `events` happens. This makes the socket non-blocking.
bool select(std::intptr_t native, std::intptr_t event, long events)
{
    return WSAEventSelect(socket_of(native), handle_of(event), events) == 0;
}

// True when connected already. False with error_io_pending: the socket signals the end by the event.
bool begin_connect(std::intptr_t native, std::intptr_t event, const Address &address)
{
    const sockaddr_in system = to_system<sockaddr_in>(address);
    if (!select(native, event, FD_CONNECT)) return false;
    if (::connect(socket_of(native), reinterpret_cast<const sockaddr *>(&system), sizeof system) == 0) return true;
    if (WSAGetLastError() == WSAEWOULDBLOCK) set_last_error(error_io_pending);
    return false;
}

// How the connection stands that begin_connect has begun.
bool connect_result(std::intptr_t native, std::intptr_t event)
{
    WSANETWORKEVENTS happened{};
    if (WSAEnumNetworkEvents(socket_of(native), handle_of(event), &happened) != 0) return false;
    const bool has_ended = (happened.lNetworkEvents & FD_CONNECT) != 0;
    const int error = happened.iErrorCode[FD_CONNECT_BIT];
    set_last_error(has_ended ? static_cast<std::uint32_t>(error) : std::uint32_t{error_io_pending});
    return has_ended && error == 0;
}

}  // namespace

bool socket_startup(std::uint16_t wanted_version, Socket_Library &library)
{
    library = {};
    const fault::Socket_Library_Plan *const plan = fault::planned_socket_library();
    WSADATA data{};
    const int error = plan && plan->error != 0 ? static_cast<int>(plan->error) : WSAStartup(wanted_version, &data);
    library.version = plan ? plan->version : data.wVersion;
    library.high_version = data.wHighVersion;
    library.description = data.szDescription;
    library.status = data.szSystemStatus;
    set_last_error(static_cast<std::uint32_t>(error));
    return error == 0;
}

void socket_cleanup() { WSACleanup(); }

// The system returns Winsock's numbers.
std::uint32_t look_up(const char *name, std::uint32_t &host)
{
    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    const int error = getaddrinfo(name, nullptr, &wanted, &found);
    if (error != 0) return static_cast<std::uint32_t>(error);
    sockaddr_in address{};
    std::memcpy(&address, found->ai_addr, sizeof address);
    freeaddrinfo(found);
    host = from_system(address).host;
    return 0;
}

Socket::Socket(std::uintptr_t native) : Stream(static_cast<std::intptr_t>(native), true) {}

Socket::~Socket() = default;

std::shared_ptr<Socket> Socket::create()
{
    const SOCKET socket = WSASocketA(AF_INET, SOCK_STREAM, 0, nullptr, 0, WSA_FLAG_OVERLAPPED);
    return socket == INVALID_SOCKET ? nullptr : adopt(socket);
}

std::shared_ptr<Socket> Socket::adopt(std::uintptr_t native)
{
    int type = 0, size = sizeof type;
    if (getsockopt(native, SOL_SOCKET, SO_TYPE, reinterpret_cast<char *>(&type), &size) != 0 || type != SOCK_STREAM) {
        set_last_error(error_not_socket);
        return nullptr;
    }
    SetHandleInformation(reinterpret_cast<HANDLE>(native), HANDLE_FLAG_INHERIT, 0);
    // The writer collects small pieces itself, for a shorter time.
    set_option(static_cast<std::intptr_t>(native), IPPROTO_TCP, TCP_NODELAY);
    return own(native);
}

void Socket::close_number(std::uintptr_t native) { closesocket(native); }

bool Socket::set_keep_alive() { return set_option(native_, SOL_SOCKET, SO_KEEPALIVE); }

bool Socket::set_reuse_address() { return set_option(native_, SOL_SOCKET, SO_REUSEADDR); }

bool Socket::bind(const Address &address)
{
    const sockaddr_in system = to_system<sockaddr_in>(address);
    return ::bind(socket_of(native_), reinterpret_cast<const sockaddr *>(&system), sizeof system) == 0;
}

// From here on close() closes the socket at once, so each call must check under the lock that the socket still exists.
bool Socket::listen(int backlog)
{
    const std::lock_guard guard(closing_->lock);
    if (closed()) return aborted();
    closing_->closes_at_once = true;
    return ::listen(socket_of(native_), backlog) == 0;
}

bool Socket::local_address(Address &address) const
{
    const std::lock_guard guard(closing_->lock);
    if (closing_->released) return aborted();
    sockaddr_in system{};
    int size = sizeof system;
    if (getsockname(socket_of(native_), reinterpret_cast<sockaddr *>(&system), &size) != 0) return false;
    address = from_system(system);
    return true;
}

bool Socket::peer_address(Address &address) const
{
    sockaddr_in system{};
    int size = sizeof system;
    if (getpeername(socket_of(native_), reinterpret_cast<sockaddr *>(&system), &size) != 0) return false;
    address = from_system(system);
    return true;
}

// close() sets the event as well, so that the end of the waiting may be that of the socket.
bool Socket::connect_now(const Address &address)
{
    if (!closing_->connecting) ResetEvent(handle_of(closing_->event));  // events from now on set it again
    if (closed()) return aborted();
    const bool connected = closing_->connecting ? connect_result(native_, closing_->event)
                                                : begin_connect(native_, closing_->event, address);
    const std::uint32_t error = last_error();
    closing_->connecting = !connected && error == error_io_pending;
    if (closing_->connecting && !closed()) return false;
    unselect(socket_of(native_));
    if (closed()) return aborted();
    set_last_error(error);
    return connected;
}

std::uintptr_t Socket::take_peer(Address &peer)
{
    const std::lock_guard guard(closing_->lock);
    ResetEvent(handle_of(closing_->event));  // as in begin_connect
    if (closed()) return aborted(), nobody;
    closing_->closes_at_once = true;
    if (!select(native_, closing_->event, FD_ACCEPT)) return nobody;
    sockaddr_in system{};
    int size = sizeof system;
    const SOCKET accepted = ::accept(socket_of(native_), reinterpret_cast<sockaddr *>(&system), &size);
    if (accepted == INVALID_SOCKET) {
        const int error = WSAGetLastError();
        const bool is_nobody = error == WSAEWOULDBLOCK || error == WSAECONNRESET;
        set_last_error(is_nobody ? std::uint32_t{error_io_pending} : static_cast<std::uint32_t>(error));
        return nobody;
    }
    unselect(accepted);
    peer = from_system(system);
    return accepted;
}

Waitable &Socket::readiness() { return closing_->readiness; }

std::uintptr_t Socket::native() const { return static_cast<std::uintptr_t>(native_); }

}  // namespace platform
