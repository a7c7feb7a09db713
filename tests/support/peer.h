// The other end of a TCP connection on loopback, driven by the test.
#pragma once

#include "tests/support/sockets.h"
#include "tests/support/timing.h"

#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <utility>

class Peer {
public:
    explicit Peer(std::shared_ptr<platform::Socket> socket = nullptr) : socket_(std::move(socket)) {}
    static Peer To(std::uint16_t port)
    {
        platform::Event stop;
        auto socket = platform::Socket::create();
        return Peer(socket->connect({test::loopback, port}, stop) ? socket : nullptr);
    }
    explicit operator bool() const { return socket_ != nullptr; }
    platform::Socket &Socket() const { return *socket_; }
    std::uint16_t Port() const  // its own
    {
        platform::Address address;
        return socket_->local_address(address) ? address.port : std::uint16_t{0};
    }

    void Say(const std::string &bytes) { test::Written(socket_, bytes); }
    // The next n bytes; less when the end comes first, or nothing for 20 s.
    std::string Hear(std::size_t n)
    {
        std::string heard;
        while (heard.size() < n && Read(heard, n - heard.size())) continue;
        return heard;
    }
    std::string Hear_To(const std::string &mark)
    {
        std::string heard;
        while (!heard.ends_with(mark) && Read(heard, 1)) continue;
        return heard;
    }
    bool Hears_The_End() { return Hear(1).empty(); }
    void Leave() { socket_->close(); }

private:
    bool Read(std::string &heard, std::size_t n)
    {
        std::string block(n, '\0');
        platform::Transfer transfer;
        std::size_t moved = 0;
        if (!transfer.read(socket_, block.data(), n) && transfer.pending()) transfer.wait(20000);
        if (!transfer.result(moved)) return false;
        heard.append(block, 0, moved);
        return moved > 0;
    }

    std::shared_ptr<platform::Socket> socket_;
};

// A port of loopback that belongs to the test. Nobody listens at first: it refuses.
class Host {
public:
    Host() { socket_->bind(address_) && socket_->local_address(address_); }
    std::uint16_t Port() const { return address_.port; }
    Host &Open(int backlog = 5)
    {
        socket_->listen(backlog);
        return *this;
    }
    Peer Accept(platform::Event &stop)
    {
        platform::Address peer;
        return Peer(socket_->accept(peer, stop));
    }
    Peer Accept()  // nobody, when none comes for 20 s
    {
        platform::Event late;
        const std::jthread clock([&](const std::stop_token &over) {
            if (!Soon([&] { return over.stop_requested(); }, 20000)) late.set();
        });
        return Accept(late);
    }

private:
    std::shared_ptr<platform::Socket> socket_ = platform::Socket::create();
    platform::Address address_{test::loopback, 0};
};
