// One stream to many TCP clients on loopback: a Socket_Multi_Server beside a bare program with one reader and one
// writer thread for each client. Each is a process of its own; this program is the clients of both, one after the
// other, and compares every byte.
//   unit_s, peer_s   seconds of processor time while the stream runs, clients already connected
//   cut, missing     clients that lost their connection, bytes that did not come: both 0
//   setup_ms         per client of the unit; down_ms: until the unit and all its clients are destroyed
// KERNEL_BENCH_CLIENTS (default 200), KERNEL_BENCH_SECONDS (default 5), KERNEL_BENCH_RATE (default 10000 bytes/s).
#include "kernel/transports/Socket_Multi_Server.h"

#include "bench/contest.h"

#include <arpa/inet.h>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

long Setting(const char *name, long otherwise)
{
    const char *const text = std::getenv(name);
    return text ? std::atol(text) : otherwise;
}

const long clients = Setting("KERNEL_BENCH_CLIENTS", 200);
const long seconds = Setting("KERNEL_BENCH_SECONDS", 5);
const long rate = Setting("KERNEL_BENCH_RATE", 10000);
constexpr long blocks_per_second = 5;
const long block_size = rate / blocks_per_second;
const long total = block_size * blocks_per_second * seconds;

char Byte_At(long offset) { return static_cast<char>((static_cast<std::uint64_t>(offset) * 2654435761u) >> 13); }

// The block that begins at this offset of the stream.
std::string Block(long offset)
{
    std::string block;
    for (long i = 0; i < block_size; ++i) block += Byte_At(offset + i);
    return block;
}

// What a server process tells.
struct Told {
    double processor_s = 0;
    double setup_ms = 0, down_ms = 0;
    long threads = 0, memory_kb = 0;
};

double Processor_Seconds()
{
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const auto s = [](const timeval &t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
    };
    return s(used.ru_utime) + s(used.ru_stime);
}

long Of_This_Process(const char *field)
{
    char line[256];
    long value = 0;
    std::FILE *const status = std::fopen("/proc/self/status", "r");
    while (status && std::fgets(line, sizeof line, status))
        if (std::strncmp(line, field, std::strlen(field)) == 0) value = std::atol(line + std::strlen(field));
    if (status) std::fclose(status);
    return value;
}

void Send_All(int to, const void *bytes, std::size_t n)
{
    if (write(to, bytes, n) != static_cast<ssize_t>(n)) std::_Exit(3);
}

// A server process: says its port, then one byte for each client that is served; produces once all are there.
class Server {
public:
    Server() = default;
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;
    virtual ~Server() = default;
    virtual std::uint16_t Port() = 0;
    virtual void Await(int number) = 0;  // until that many clients are served
    virtual void Produce(std::string block) = 0;
    virtual void Destroy() = 0;

    void Run(int tell)
    {
        const std::uint16_t port = Port();
        Send_All(tell, &port, sizeof port);
        Told told;
        const double setup = bench::Seconds([&] {
            for (int i = 1; i <= clients; ++i) {
                Await(i);
                Send_All(tell, "+", 1);
            }
        });
        told.setup_ms = setup * 1e3 / static_cast<double>(clients);
        std::this_thread::sleep_for(std::chrono::milliseconds(500));  // the last reader begins
        const double before = Processor_Seconds();
        auto next = Clock::now();
        for (long at = 0; at < total; at += block_size) {
            Produce(Block(at));
            std::this_thread::sleep_until(next += std::chrono::milliseconds(1000 / blocks_per_second));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(500));  // the last pass
        told.processor_s = Processor_Seconds() - before;
        told.threads = Of_This_Process("Threads:");
        told.memory_kb = Of_This_Process("VmRSS:");
        told.down_ms = bench::Seconds([&] { Destroy(); }) * 1e3;
        Send_All(tell, &told, sizeof told);
    }
};

class Unit : public Server {
    class Distributor : public kernel::Socket_Multi_Server {
    public:
        explicit Distributor(kernel::Error_Handler &handler)
            : Object(Name, &handler), kernel::Socket_Multi_Server(&handler, false, 1 << 20)
        {
        }
        ~Distributor() override { Stop_Threads(); }
        using Socket_Multi_Server::InsertData;
    };

public:
    std::uint16_t Port() override { return server_->CreateServer(0) && server_->Work() ? server_->GetPort() : 0; }
    void Await(int number) override
    {
        while (server_->GetNumConnections() < number) std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    void Produce(std::string block) override { server_->InsertData(block.data(), static_cast<int>(block.size())); }
    void Destroy() override { server_.reset(); }

private:
    kernel::NULL_Error_Handler reports_;
    std::unique_ptr<Distributor> server_ = std::make_unique<Distributor>(reports_);
};

// One ring for all, a lock, a reader and a writer for each client.
class Bare : public Server {
public:
    std::uint16_t Port() override
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto *const any = reinterpret_cast<sockaddr *>(&address);
        if (bind(listener_, any, size) != 0 || listen(listener_, 5) != 0 || getsockname(listener_, any, &size) != 0)
            std::_Exit(3);
        return ntohs(address.sin_port);
    }
    void Await(int) override
    {
        const int client = accept(listener_, nullptr, nullptr);
        std::thread([client] {
            char dropped[4096];
            while (recv(client, dropped, sizeof dropped, 0) > 0) continue;
        }).detach();
        std::thread([this, client] { Write(client); }).detach();
    }
    void Produce(std::string block) override
    {
        {
            const std::lock_guard guard(lock_);
            for (const char byte : block) ring_[written_++ % ring_.size()] = byte;
        }
        more_.notify_all();
    }
    void Destroy() override {}

private:
    void Write(int client)
    {
        std::string block;
        for (std::size_t read = 0;;) {
            {
                std::unique_lock guard(lock_);
                more_.wait(guard, [&] { return written_ > read; });
                const std::size_t n = written_ - read, at = read % ring_.size();
                block.assign(ring_, at, n);
                block.append(ring_, 0, n - block.size());
                read = written_;
            }
            if (send(client, block.data(), block.size(), MSG_NOSIGNAL) < 0) return;
        }
    }

    const int listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::mutex lock_;
    std::condition_variable more_;
    std::string ring_ = std::string(1 << 20, '\0');
    std::size_t written_ = 0;
};

// The clients of one server process.
struct Heard {
    Told told;
    long cut = 0, missing = 0;
};

void Connect(std::uint16_t port, std::vector<pollfd> &sockets)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockets.push_back({socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), POLLIN, 0});
    if (connect(sockets.back().fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) std::abort();
}

// Takes what is there; the number of bytes that are the right ones, or -1 at the end.
long Take(int client, long offset)
{
    char bytes[65536];
    const ssize_t got = recv(client, bytes, sizeof bytes, MSG_DONTWAIT);
    if (got <= 0) return -1;
    for (ssize_t i = 0; i < got; ++i)
        if (bytes[i] != Byte_At(offset + i)) return -1;
    return got;
}

Heard Clients_Of(int told)
{
    Heard heard;
    std::uint16_t port = 0;
    char served = 0;
    std::vector<pollfd> sockets;
    if (read(told, &port, sizeof port) != sizeof port || port == 0) std::abort();
    for (long i = 0; i < clients; ++i) {
        Connect(port, sockets);
        if (read(told, &served, 1) != 1) std::abort();
    }
    std::vector<long> offsets(sockets.size(), 0);
    const auto end = Clock::now() + std::chrono::seconds(seconds + 20);
    for (std::size_t left = sockets.size(); left > 0 && Clock::now() < end;) {
        poll(sockets.data(), sockets.size(), 1000);
        for (std::size_t i = 0; i < sockets.size(); ++i) {
            if (sockets[i].revents == 0) continue;
            const long got = Take(sockets[i].fd, offsets[i]);
            if (got < 0) ++heard.cut;
            offsets[i] += std::max(got, 0L);
            if (got >= 0 && offsets[i] < total) continue;
            sockets[i].events = 0;
            sockets[i].fd = ~sockets[i].fd;  // poll skips it
            --left;
        }
    }
    for (const long offset : offsets) heard.missing += total - offset;
    if (read(told, &heard.told, sizeof heard.told) != sizeof heard.told) std::abort();
    for (const pollfd &socket : sockets) close(socket.fd < 0 ? ~socket.fd : socket.fd);
    return heard;
}

template <class Kind>
Heard Run()
{
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        (new Kind)->Run(ends[1]);  // never destroyed: the bare one has threads that wait for it
        std::_Exit(0);
    }
    close(ends[1]);
    const Heard heard = Clients_Of(ends[0]);
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return heard;
}

void Distribution(benchmark::State &state)
{
    rlimit descriptors{};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    descriptors.rlim_cur = descriptors.rlim_max;
    setrlimit(RLIMIT_NOFILE, &descriptors);
    for ([[maybe_unused]] auto _ : state) {
        const Heard unit = Run<Unit>(), peer = Run<Bare>();
        state.counters["unit_s"] = unit.told.processor_s;
        state.counters["peer_s"] = peer.told.processor_s;
        state.counters["ratio"] = unit.told.processor_s / peer.told.processor_s;
        state.counters["limit"] = 1.3;
        state.counters["cut"] = static_cast<double>(unit.cut + peer.cut);
        state.counters["missing"] = static_cast<double>(unit.missing + peer.missing);
        state.counters["threads"] = static_cast<double>(unit.told.threads);
        state.counters["memory_mb"] = static_cast<double>(unit.told.memory_kb) / 1024;
        state.counters["setup_ms"] = unit.told.setup_ms;
        state.counters["down_ms"] = unit.told.down_ms;
    }
}
BENCHMARK(Distribution)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
