// A named pipe's reading half against a bare loop: both drain what another thread writes in blocks of 4,096 bytes.
#include "bench/contest.h"
#include "kernel/base/Error_Handler.h"
#include "kernel/transports/Named_Pipe_Client_Server_as_Server.h"
#include "platform/clock.h"
#include "platform/pipe.h"

#include <atomic>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace kernel;

constexpr std::size_t block_size = 4096;
constexpr int blocks = 16384;  // 64 MiB a turn

void Write_All(int to)
{
    static const char block[block_size] = {};
    for (std::size_t left = blocks * block_size; left > 0;) {
        const ssize_t put = send(to, block, std::min(left, block_size), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (put > 0) left -= static_cast<std::size_t>(put);
        pollfd room{to, POLLOUT, 0};
        if (put < 0) poll(&room, 1, 1000);
    }
}

// Asks for `wanted` bytes, and takes all there is, in one block.
class Drain : public Byte_Client {
public:
    explicit Drain(long wanted) : Object("drain"), wanted_(wanted) { Dont_Delete_Me(); }
    bool Send(Byte_Server &server, CL_Mesg message) override
    {
        if (message == Mesg_Request_Invite) return server.Request(wanted_), true;
        if (message != Mesg_Data_Ready) return Byte_Client::Send(server, message);
        const long got = server.GetNBytes(block_, static_cast<long>(block_size));
        pulled.fetch_add(static_cast<std::size_t>(got), std::memory_order_relaxed);
        return got > 0;
    }
    std::atomic<std::size_t> pulled{0};

private:
    const long wanted_;
    unsigned char block_[block_size];
};

void Pipe(benchmark::State &state)
{
    Drain drain(state.range(0));
    const std::unique_ptr<Named_Pipe_Client_Server_as_Server> server(
        Named_Pipe_Client_Server_as_Server::Construct(Trace_Handler, 4096));
    const std::string name = "bench-" + std::to_string(getpid());
    server->Connect(&drain);
    if (!server->Create(name.c_str()) || !server->Work()) return state.SkipWithError("no pipe");
    while (server->GetStatus(nullptr) != Remote_Control::Status_Waiting) platform::sleep_ms(1);
    std::shared_ptr<platform::Stream> client;
    while (!server->IsBusy()) {
        if (!client) client = platform::open_pipe(name);
        platform::sleep_ms(1);
    }
    int pair[2];
    if (!client || socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) return state.SkipWithError("no connection");
    bench::Contest contest;
    for (auto _ : state) {
        const std::size_t end = drain.pulled + blocks * block_size;
        const auto by_pipe = [&] {
            Write_All(static_cast<int>(client->number()));
            while (drain.pulled < end) std::this_thread::yield();
        };
        const auto by_hand = [&] {
            std::thread reader([&] {
                char block[block_size];
                for (std::size_t left = blocks * block_size; left > 0;)
                    left -= static_cast<std::size_t>(std::max<ssize_t>(read(pair[1], block, sizeof block), 0));
            });
            Write_All(pair[0]);
            reader.join();
        };
        state.SetIterationTime(contest.Turn(by_pipe, by_hand));
    }
    contest.Show(state, 1.11, blocks);
    for (const int end : pair) close(end);
    client.reset();
    server->stop();
}
BENCHMARK(Pipe)->Arg(1)->Arg(block_size)->ArgName("asked")->UseManualTime();

}  // namespace
