// TCP over IPv4: sockets, addresses, names.
#pragma once

#include "platform/stream.h"

#include <cstdint>
#include <memory>
#include <string>

namespace platform {

// Start and end of the system's socket library, as often one as the other. Windows needs it before any other call here;
// POSIX has nothing to start and answers 2.2 at once.
//
// Threads:   one at a time.
// Ownership: a value.
// Errors:    socket_startup answers false with last_error() set.
struct Socket_Library {
    std::uint16_t version = 0;       // low byte major, high byte minor: 0x0202
    std::uint16_t high_version = 0;  // the highest that it knows
    std::string description;         // "WinSock 2.0" or the like
    std::string status;              // "Running"
};
bool socket_startup(std::uint16_t wanted_version, Socket_Library &library);
void socket_cleanup();

// Where a peer is.
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

// The first IPv4 address of a name. Returns at once when `stop` is signalled (and takes that signal): the look-up goes on
// by itself, shared with whoever asks for the same name meanwhile, and its answer is dropped. False with last_error():
// error_host_not_found (11001), 11002 (try again), 11003, 11004, or error_operation_aborted after a stop. A dotted address
// is not looked up.
bool resolve(const char *name, std::uint32_t &host, Event &stop);
// For the platform layer: asks the system, however long that takes. 0, or the error.
std::uint32_t look_up(const char *name, std::uint32_t &host);

// A socket. As a Stream it is read and written by Transfers; the numbers of its failures are Winsock's (10054, ...).
//
// Threads:   as Stream. connect and accept return at once, with error_operation_aborted, when the socket is closed by
//            another thread, or was.
// Ownership: as Stream. close() also frees a listening port.
// Errors:    false or null, with last_error() set.
class Socket : public Stream {
public:
    // Unconnected, with small writes sent at once (no Nagle), not inherited by child processes.
    static std::shared_ptr<Socket> create();
    // Takes over an open socket by the system's number; null for one that is none (error_not_socket, 10038). Windows: one
    // made for overlapped transfers.
    static std::shared_ptr<Socket> adopt(std::uintptr_t native);
    ~Socket() override;

    bool set_keep_alive();
    bool set_reuse_address();  // SO_REUSEADDR, with the system's meaning; POSIX: bind does it anyway
    bool bind(const Address &address);
    bool listen(int backlog);
    bool local_address(Address &address) const;
    bool peer_address(Address &address) const;

    // Waits for the connection, as long as the system tries, or for `stop` (whose signal it takes): then
    // error_operation_aborted, and the socket is good for nothing but to be closed.
    bool connect(const Address &address, Event &stop);
    // Waits for a peer, or for `stop`, likewise.
    std::shared_ptr<Socket> accept(Address &peer, Event &stop);

    std::uintptr_t native() const;

private:
    explicit Socket(std::uintptr_t native);
    // Takes a peer that is there already; true with `nobody` when there is none.
    bool accept_now(Address &peer, std::uintptr_t &accepted);
    // Waits until there may be one, or close(); false after `stop`.
    bool wait_for_peer(Event &stop);

    static constexpr std::uintptr_t nobody = ~std::uintptr_t{0};
};

}  // namespace platform
