// Both ends of a TCP connection on loopback.
#pragma once

#include "platform/error.h"
#include "platform/socket.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace test {

constexpr std::uint32_t loopback = 0x7F000001;

struct Library_In_Use {
    Library_In_Use()
    {
        platform::Socket_Library library;
        platform::socket_startup(0x0202, library);
    }
    ~Library_In_Use() { platform::socket_cleanup(); }
};
inline const Library_In_Use library_in_use;

// A listener on a free port of loopback.
struct Listener {
    std::shared_ptr<platform::Socket> socket = platform::Socket::create();
    platform::Address address{loopback, 0};

    explicit Listener(int backlog = 5)
    {
        if (!socket->bind(address) || !socket->listen(backlog) || !socket->local_address(address))
            ADD_FAILURE() << platform::error_text(platform::last_error());
    }
    std::shared_ptr<platform::Socket> Connect() const
    {
        platform::Event stop;
        auto peer = platform::Socket::create();
        return peer->connect(address, stop) ? peer : nullptr;
    }
    std::shared_ptr<platform::Socket> Accept() const
    {
        platform::Event stop;
        platform::Address peer;
        return socket->accept(peer, stop);
    }
};

struct Connection {
    std::shared_ptr<platform::Socket> near, far;

    Connection()
    {
        const Listener listener;
        near = listener.Connect();
        far = listener.Accept();
    }
};

// How a transfer has ended: "got 3", "error 995", or "pending".
inline std::string Outcome(platform::Transfer &transfer)
{
    std::size_t moved = 0;
    if (transfer.result(moved)) return "got " + std::to_string(moved);
    const std::uint32_t error = platform::last_error();
    return error == platform::error_io_incomplete ? "pending" : "error " + std::to_string(error);
}

// The same, when it has been waited for.
inline std::string Awaited(platform::Transfer &transfer)
{
    if (transfer.pending() && !transfer.wait(20000)) return "hangs";
    return Outcome(transfer);
}

inline std::string Written(const std::shared_ptr<platform::Stream> &to, const std::string &text)
{
    if (!to) return "no stream";
    platform::Transfer transfer;
    transfer.write(to, text.data(), text.size());
    return Awaited(transfer);
}

// What one read brings; "" at the end of the stream.
inline std::string Read(const std::shared_ptr<platform::Stream> &from, std::size_t n = 4096)
{
    if (!from) return "no stream";
    std::string buffer(n, '\0');
    platform::Transfer transfer;
    std::size_t moved = 0;
    transfer.read(from, buffer.data(), n);
    const std::string outcome = Awaited(transfer);
    return transfer.result(moved) ? buffer.substr(0, moved) : outcome;
}

}  // namespace test
