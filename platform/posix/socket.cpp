#include "platform/socket.h"

#include "platform/error.h"
#include "platform/fault.h"
#include "platform/posix/errno_table.h"
#include "platform/posix/stream_internal.h"
#include "platform/socket_address.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace platform {

namespace {

int descriptor_of(std::intptr_t native) { return static_cast<int>(native); }

bool set_option(std::intptr_t native, int level, int option)
{
    const int on = 1;
    return setsockopt(descriptor_of(native), level, option, &on, sizeof on) == 0 || posix::fail_socket();
}

bool aborted()
{
    set_last_error(error_operation_aborted);
    return false;
}

bool pending()
{
    set_last_error(error_io_pending);
    return false;
}

// If the port is on this machine and has no listener, the system may give the connecting socket the same port. The
// socket then connects to itself.
bool is_connected_to_itself(int descriptor)
{
    sockaddr_in near{}, far{};
    socklen_t size = sizeof near;
    return getsockname(descriptor, reinterpret_cast<sockaddr *>(&near), &size) == 0 &&
           getpeername(descriptor, reinterpret_cast<sockaddr *>(&far), &size) == 0 && near.sin_port == far.sin_port &&
           near.sin_addr.s_addr == far.sin_addr.s_addr;
}

}  // namespace

bool socket_startup(std::uint16_t, Socket_Library &library)
{
    const fault::Socket_Library_Plan *const plan = fault::planned_socket_library();
    constexpr std::uint16_t version_2_2 = 0x0202;
    library = {plan ? plan->version : version_2_2, version_2_2, "POSIX sockets", "Running"};
    set_last_error(plan ? plan->error : error_none);
    return last_error() == error_none;
}

void socket_cleanup() {}

// All other failures give 11003, an error that a retry will not cure.
std::uint32_t look_up(const char *name, std::uint32_t &host)
{
    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    const int error = getaddrinfo(name, nullptr, &wanted, &found);
    switch (error) {
    case 0: break;
    case EAI_NONAME: return error_host_not_found;
    case EAI_AGAIN: return 11002;
    case EAI_SYSTEM: return posix::from_socket_errno(errno);
#ifdef EAI_NODATA
    case EAI_NODATA: return 11004;
#endif
    default: return 11003;
    }
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
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (descriptor >= 0) return adopt(static_cast<std::uintptr_t>(descriptor));
    posix::fail_socket();
    return nullptr;
}

// connect and accept need O_NONBLOCK. Transfers do not: they pass their own flag with each call.
std::shared_ptr<Socket> Socket::adopt(std::uintptr_t native)
{
    const int descriptor = static_cast<int>(native);
    int type = 0;
    socklen_t size = sizeof type;
    if (getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) != 0 || type != SOCK_STREAM) {
        set_last_error(error_not_socket);
        return nullptr;
    }
    fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    set_option(descriptor, IPPROTO_TCP, TCP_NODELAY);  // the writer collects small pieces itself, for a shorter time
    return own(native);
}

void Socket::close_number(std::uintptr_t native) { ::close(static_cast<int>(native)); }

bool Socket::set_keep_alive() { return set_option(native_, SOL_SOCKET, SO_KEEPALIVE); }

bool Socket::set_reuse_address() { return set_option(native_, SOL_SOCKET, SO_REUSEADDR); }

// As on Windows, connections of an earlier listener, open or in TIME_WAIT, do not block the port.
bool Socket::bind(const Address &address)
{
    const sockaddr_in system = to_system<sockaddr_in>(address);
    return set_reuse_address() &&
           (::bind(descriptor_of(native_), reinterpret_cast<const sockaddr *>(&system), sizeof system) == 0 ||
            posix::fail_socket());
}

bool Socket::listen(int backlog)
{
    closing_->listening.store(true, std::memory_order_relaxed);
    if (::listen(descriptor_of(native_), backlog) != 0) return posix::fail_socket();
    if (!closed()) return true;
    ::shutdown(descriptor_of(native_), SHUT_RDWR);  // close() came before listen and could not do it
    return aborted();
}

bool Socket::local_address(Address &address) const
{
    sockaddr_in system{};
    socklen_t size = sizeof system;
    if (getsockname(descriptor_of(native_), reinterpret_cast<sockaddr *>(&system), &size) != 0)
        return posix::fail_socket();
    address = from_system(system);
    return true;
}

bool Socket::peer_address(Address &address) const
{
    sockaddr_in system{};
    socklen_t size = sizeof system;
    if (getpeername(descriptor_of(native_), reinterpret_cast<sockaddr *>(&system), &size) != 0)
        return posix::fail_socket();
    address = from_system(system);
    return true;
}

// A connect call while the connection is under way tells how it stands; the one after its end returns the result.
bool Socket::connect_now(const Address &address)
{
    const sockaddr_in system = to_system<sockaddr_in>(address);
    if (closed()) return aborted();
    if (::connect(descriptor_of(native_), reinterpret_cast<const sockaddr *>(&system), sizeof system) != 0) {
        if (errno == EINPROGRESS || errno == EALREADY || errno == EINTR) return pending();
        return posix::fail_socket();
    }
    if (!is_connected_to_itself(descriptor_of(native_))) return true;
    set_last_error(error_connection_refused);
    return false;
}

// A peer that has left the queue again (ECONNABORTED) counts as no peer.
std::uintptr_t Socket::take_peer(Address &peer)
{
    if (closed()) return aborted(), nobody;
    sockaddr_in system{};
    socklen_t size = sizeof system;
    const int descriptor =
        accept4(descriptor_of(native_), reinterpret_cast<sockaddr *>(&system), &size, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (descriptor >= 0) {
        peer = from_system(system);
        return static_cast<std::uintptr_t>(descriptor);
    }
    if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR || errno == ECONNABORTED)
        pending();
    else
        closed() ? aborted() : posix::fail_socket();
    return nobody;
}

Waitable &Socket::readiness()
{
    if (!closing_->readiness) {
        const short events = closing_->listening.load(std::memory_order_relaxed) ? POLLIN : POLLOUT;
        closing_->readiness = std::make_unique<posix::Ready>(descriptor_of(native_), events, closing_->waiters);
    }
    return *closing_->readiness;
}

std::uintptr_t Socket::native() const { return static_cast<std::uintptr_t>(native_); }

}  // namespace platform
