// An NTRIP caster on loopback, with a thread of its own: hears requests and answers each as the test says.
#pragma once

#include "tests/support/peer.h"
#include "tests/support/shared.h"

#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

class Caster {
public:
    // Speaks to a client whose request has been heard; the connection ends when this comes back.
    using Answer = std::function<void(Peer &client)>;

    explicit Caster(Answer answer) : answer_(std::move(answer)), thread_([this] { Serve(); }) {}
    ~Caster()
    {
        stop_.set();
        thread_.join();
    }
    std::uint16_t Port() const { return host_.Port(); }
    std::vector<std::string> Requests() const { return requests_.Now(); }

private:
    void Serve()
    {
        while (Peer client = host_.Accept(stop_)) {
            requests_.Add({client.Hear_To("\r\n\r\n")});
            answer_(client);
            client.Leave();
        }
    }

    const Answer answer_;
    Host host_ = Host().Open();
    platform::Event stop_;
    Shared<std::vector<std::string>> requests_;
    std::thread thread_;  // last: it uses the others
};
