// TCP over IPv4: sockets, addresses, names.
#pragma once

#include "platform/stream.h"

#include <cstdint>
#include <memory>
#include <string>

namespace platform {

// Starts and ends the system's socket library. Each successful start needs one clean-up. Windows needs the start before
// any other call here; POSIX has nothing to start and returns version 2.2.
//
// Threads:   one at a time.
// Ownership: a value.
// Errors:    socket_startup returns false with last_error() set.
struct Socket_Library {
    std::uint16_t version = 0;       // low byte major, high byte minor: 0x0202
    std::uint16_t high_version = 0;  // the highest that the library supports
    std::string description;         // "WinSock 2.0" or the like
    std::string status;              // "Running"
};
bool socket_startup(std::uint16_t wanted_version, Socket_Library &library);
void socket_cleanup();

// The address of a peer or of a listener.
//
// Threads:   a value.
// Ownership: a value.
// Errors:    none.
struct Address {
    std::uint32_t host = 0;  // IPv4, host byte order: 0x7F000001 is 127.0.0.1; 0 is any
    std::uint16_t port = 0;  // host byte order; 0 in bind: a free one
};

std::string dotted(std::uint32_t host);                    // "127.0.0.1"
bool parse_dotted(const char *text, std::uint32_t &host);  // as inet_addr: also "127.1" and "0x7F000001"

// Finds the first IPv4 address of a name. When `stop` is signalled, takes that signal and returns at once. The look-up
// then continues without this caller; a later call for the same name joins it. False with last_error():
// error_host_not_found (11001), 11002 (try again), 11003, 11004, or error_operation_aborted after a stop. A dotted
// address is not looked up.
bool resolve(const char *name, std::uint32_t &host, Event &stop);
// For the platform layer: asks the system and waits for it. Returns 0 or the error.
std::uint32_t look_up(const char *name, std::uint32_t &host);

// A TCP socket. As a Stream it is read and written by Transfers; its errors are those of Winsock (10054, ...).
//
// Threads:   as Stream. One thread connects or accepts. connect and accept return at once, with
//            error_operation_aborted, when the socket is closed or another thread closes it.
// Ownership: as Stream. close() also frees a listening port.
// Errors:    false or null, with last_error() set.
class Socket : public Stream {
public:
    // An unconnected socket. Small writes are sent at once (no Nagle). Child processes do not inherit it.
    static std::shared_ptr<Socket> create();
    // Takes over an open socket by the system's number. Null if it is not a TCP socket (error_not_socket, 10038); it
    // is left alone then. Without memory the socket is closed before the exception. On Windows it must have been made
    // for overlapped transfers.
    static std::shared_ptr<Socket> adopt(std::uintptr_t native);
    ~Socket() override;

    bool set_keep_alive();
    bool set_reuse_address();  // SO_REUSEADDR, with the system's meaning; on POSIX bind sets it in any case
    bool bind(const Address &address);
    bool listen(int backlog);
    bool local_address(Address &address) const;
    bool peer_address(Address &address) const;

    // Connects without waiting. False with error_io_pending: under way; call it again, with the same address, when
    // readiness() is signalled. After another error the socket can only be closed.
    bool connect_now(const Address &address);
    // A peer that waits already. Null with error_io_pending: none; try again when readiness() is signalled.
    std::shared_ptr<Socket> accept_now(Address &peer);
    // Signalled when connect_now or accept_now that found nothing yet is worth another call, and once the socket is
    // closed. So a thread can look after other things meanwhile. It may be signalled without a reason.
    Waitable &readiness();

    // Waits for the connection as long as the system tries, or until `stop` is signalled (the signal is taken). After a
    // stop it returns false with error_operation_aborted, and the socket can only be closed.
    bool connect(const Address &address, Event &stop);
    // Waits for a peer, or for `stop` likewise.
    std::shared_ptr<Socket> accept(Address &peer, Event &stop);

    std::uintptr_t native() const;
    // Hands the open socket over by the system's number, to adopt() or to other code. The number is the caller's from
    // then on, and this object counts as closed; the peer notices nothing. Only for a socket on which no transfer has
    // begun and no thread waits. Returns `nobody` if the socket is closed already.
    std::uintptr_t release();

    static constexpr std::uintptr_t nobody = ~std::uintptr_t{0};

private:
    explicit Socket(std::uintptr_t native);
    static std::shared_ptr<Socket> own(std::uintptr_t native);
    static void close_number(std::uintptr_t native);
    std::uintptr_t take_peer(Address &peer);  // the system's number, or nobody, as accept_now
    bool wait_ready(Event &stop);
};

}  // namespace platform
