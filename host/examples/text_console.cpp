// A text console: typed lines go to a TCP peer, for example a receiver's command port, and what it answers to the
// screen.
#include "kernel/bytes/Keyboard_Server.h"
#include "kernel/bytes/Text_Byte_Client.h"
#include "kernel/transports/Socket_Client_Server.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

constexpr std::chrono::milliseconds patience{5000};

// Whether `condition` comes true soon enough.
template <class Condition>
bool Await(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return condition();
}

}  // namespace

int main(int argc, char **argv)
{
    const int port = argc == 3 ? std::atoi(argv[2]) : 0;
    if (port < 1 || port > 65535) {
        std::fprintf(stderr, "usage: text_console HOST PORT\n");
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IONBF, 0);  // prompts have no line end

    kernel::Keyboard_Server *keyboard = kernel::Keyboard_Server::Construct(4096);
    static kernel::Simple_Error_Handler reports(stderr, false);
    auto *peer = kernel::Socket_Client_Server::Construct(reports, 65536);
    kernel::Text_Byte_Client *screen = kernel::Text_Byte_Client::Construct();
    if (!keyboard || !peer || !screen) return 1;
    // The peer is the keyboard's client, and the screen the peer's: who serves owns.
    const bool fine = peer->Connect(screen) && keyboard->Connect(peer) &&
                      peer->CreateClient(argv[1], port, nullptr, 0) && peer->Work() &&
                      Await([&] { return peer->is_connected(); });
    if (fine) {
        while (!keyboard->Work() && peer->is_connected()) std::fprintf(stderr, "the peer takes nothing\n");
        // The end of the input: what was typed last still goes out, and answers may come until the peer closes.
        Await([&] { return peer->Unsent() == 0; });
        Await([&] { return !peer->is_connected(); });
    }
    kernel::Keyboard_Server::Destruct(keyboard);
    return fine ? 0 : 1;
}
