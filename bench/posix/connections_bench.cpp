// What connections cost: N Socket_Client_Servers against bare sockets in the same process. Each has sent 100 bytes and
// taken 100, so that its reader and its writer run.
//   descriptors    per connection, without the bare end
//   setup_ms       per connection: made, started, connected, the bytes through both ways, one after another
//   take_down_ms   all N: each is asked to stop before the first is waited for; then each is destroyed
// The client role connects; the accepted role is handed a connection, as a server of many clients does.
#include "kernel/base/Error_Handler.h"
#include "kernel/bytes/String_Byte_Server.h"
#include "kernel/transports/Socket_Client_Server.h"

#include <arpa/inet.h>
#include <atomic>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace kernel;
using Clock = std::chrono::steady_clock;

constexpr int message_size = 100;  // bytes
constexpr int give_up_s = 10;

double Ms(Clock::time_point since) { return std::chrono::duration<double, std::milli>(Clock::now() - since).count(); }

void Expect(bool good)
{
    if (!good) std::abort();
}

template <class Done>
void Await(Done done)
{
    for (const auto begin = Clock::now(); !done(); std::this_thread::sleep_for(std::chrono::microseconds(20)))
        Expect(Ms(begin) < give_up_s * 1000);
}

double Descriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<double>(std::distance(begin(all), end(all)));
}

class Silent_Handler : public Error_Handler {
    void Do_Print(Enum_Status, Err_Code, const char *) override {}
};

class Counting_Client : public Byte_Client {
public:
    Counting_Client() : Object("counter") { Dont_Delete_Me(); }
    bool Send(Byte_Server &server, CL_Mesg message) override
    {
        if (message == Mesg_Request_Invite) return server.Request(1), true;
        if (message != Mesg_Data_Ready) return Byte_Client::Send(server, message);
        unsigned char block[message_size];
        heard += server.GetNBytes(block, sizeof block);
        return true;
    }
    std::atomic<long> heard{0};
};

// Listens on a port of loopback, of the system's choice.
class Bare_Listener {
public:
    Bare_Listener()
    {
        socklen_t size = sizeof address_;
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto *any = reinterpret_cast<::sockaddr *>(&address_);
        Expect(bind(socket_, any, size) == 0 && listen(socket_, 100) == 0 && getsockname(socket_, any, &size) == 0);
    }
    ~Bare_Listener() { close(socket_); }
    Bare_Listener(const Bare_Listener &) = delete;
    Bare_Listener &operator=(const Bare_Listener &) = delete;

    int Port() const { return ntohs(address_.sin_port); }
    int Accept() const { return accept(socket_, nullptr, nullptr); }
    int Connect() const
    {
        const int peer = socket(AF_INET, SOCK_STREAM, 0);
        Expect(connect(peer, reinterpret_cast<const ::sockaddr *>(&address_), sizeof address_) == 0);
        return peer;
    }

private:
    const int socket_ = socket(AF_INET, SOCK_STREAM, 0);
    ::sockaddr_in address_{};
};

struct Connection {
    Counting_Client client;
    std::unique_ptr<Socket_Client_Server> socket;
    int peer = -1;

    Connection(const Bare_Listener &listener, Error_Handler &handler, bool accepted)
        : socket(Socket_Client_Server::Construct(handler, 4096))
    {
        socket->Connect(&client);
        if (accepted) {
            peer = listener.Connect();
            static int owner;  // never called: only a connection's end would look whether there is one
            Expect(socket->CreateServer(static_cast<unsigned int>(listener.Accept()), listener.Port(), {},
                                        reinterpret_cast<Socket_Multi_Server *>(&owner)));
        } else {
            Expect(socket->CreateClient("127.0.0.1", listener.Port(), nullptr, 0));
        }
        Expect(socket->Work());
        if (!accepted) peer = listener.Accept();
        Await([this] { return socket->is_connected(); });
    }
    ~Connection() { close(peer); }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    void Exchange(String_Byte_Server &source)
    {
        unsigned char block[message_size] = {};
        source.PutBin(block, message_size);
        Expect(socket->Send(source, Mesg_Data_Ready));
        Expect(recv(peer, block, message_size, MSG_WAITALL) == message_size);
        Expect(send(peer, block, message_size, 0) == message_size);
        Await([this] { return client.heard == message_size; });
    }
};

void Connections(benchmark::State &state)
{
    const bool accepted = state.range(0) != 0;
    const auto n = static_cast<std::size_t>(state.range(1));
    Silent_Handler handler;
    const std::unique_ptr<String_Byte_Server> source(String_Byte_Server::Construct(message_size + 1, &handler));
    double descriptors = 0, setup = 0, take_down = 0;
    for (auto _ : state) {
        const Bare_Listener listener;
        std::vector<std::unique_ptr<Connection>> all;
        const double before = Descriptors();
        auto begin = Clock::now();
        for (std::size_t i = 0; i < n; ++i) {
            all.push_back(std::make_unique<Connection>(listener, handler, accepted));
            all.back()->Exchange(*source);
        }
        setup = Ms(begin) / static_cast<double>(n);
        descriptors = (Descriptors() - before) / static_cast<double>(n) - 1;
        begin = Clock::now();
        for (const auto &connection : all) connection->socket->pre_stop();
        for (const auto &connection : all) connection->socket.reset();
        take_down = Ms(begin);
    }
    state.SetLabel(accepted ? "accepted" : "client");
    state.counters["descriptors"] = descriptors;
    state.counters["setup_ms"] = setup;
    state.counters["take_down_ms"] = take_down;
}
BENCHMARK(Connections)->Args({0, 500})->Args({1, 500})->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
