// A TCP relay on loopback: gnss_stream (a Socket_Client_Server in, another one out) beside a bare relay with two
// threads and a double buffer, and beside socat. Each is a process of its own; this program feeds it and takes what
// comes out.
//   Throughput  MiB/s with sends of 4 KiB, and seconds of processor time per GiB; every byte is compared
//   Delay       of one message at a time: median and 99th percentile, for 200 bytes, and for 60 bytes, which the
//               library's writer holds back for 10 ms to gather more
// KERNEL_BENCH_MIB: the bytes per relay (default 1024).
#include "bench/contest.h"

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <spawn.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t block_size = 4096;
constexpr std::size_t slice_size = 32 << 20;  // bytes per turn
constexpr double mib = 1 << 20, gib = 1 << 30;
constexpr int give_up_s = 10;

std::size_t Slices()
{
    const char *text = std::getenv("KERNEL_BENCH_MIB");
    const std::size_t size = (text ? std::strtoul(text, nullptr, 10) : 1024) << 20;
    return size < slice_size ? 1 : size / slice_size;
}

// A listening port on loopback, of the system's choice.
class Listener {
public:
    Listener() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto *any = reinterpret_cast<sockaddr *>(&address);
        if (bind(socket_, any, size) != 0 || listen(socket_, 1) != 0 || getsockname(socket_, any, &size) != 0)
            std::abort();
        port_ = std::to_string(ntohs(address.sin_port));
    }
    ~Listener() { close(socket_); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    const std::string &Port() const { return port_; }
    int Accept() const
    {
        const timeval limit{give_up_s, 0};
        const int on = 1;
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        const int peer = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
        if (peer < 0) return -1;
        setsockopt(peer, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        return peer;
    }

private:
    const int socket_;
    std::string port_;
};

// A relay process, connected at both ends; ended with this object.
class Relay {
public:
    // IN and OUT in the arguments become the port numbers.
    Relay(std::string name, std::vector<std::string> command) : name_(std::move(name))
    {
        const Listener in, out;
        for (std::string &argument : command) {
            Replace(argument, "IN", in.Port());
            Replace(argument, "OUT", out.Port());
        }
        std::vector<char *> arguments;
        for (std::string &argument : command) arguments.push_back(argument.data());
        arguments.push_back(nullptr);
        if (posix_spawnp(&process_, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0) return;
        in_ = in.Accept();
        out_ = out.Accept();
    }
    ~Relay()
    {
        if (in_ >= 0) close(in_);
        if (out_ >= 0) close(out_);
        if (process_ <= 0) return;
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    Relay(const Relay &) = delete;
    Relay &operator=(const Relay &) = delete;

    const std::string &Name() const { return name_; }
    bool Runs() const { return in_ >= 0 && out_ >= 0; }

    // [s]
    double Processor_Time() const
    {
        clockid_t clock{};
        timespec time{};
        if (clock_getcpuclockid(process_, &clock) != 0 || clock_gettime(clock, &time) != 0) return 0;
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    }

    // Sends `bytes` in blocks and takes as many back; false when they do not come, or differ.
    bool Move(const std::string &bytes)
    {
        std::thread source([&] {
            for (std::size_t at = 0; at < bytes.size(); at += block_size)
                if (send(in_, &bytes[at], block_size, MSG_NOSIGNAL) != static_cast<ssize_t>(block_size)) return;
        });
        const bool same = Take(bytes);
        if (!same) shutdown(in_, SHUT_RDWR);
        source.join();
        return same;
    }

    // One message through the relay; its delay in microseconds, negative when it does not arrive.
    double Delay(const std::string &message)
    {
        const auto start = Clock::now();
        if (send(in_, message.data(), message.size(), MSG_NOSIGNAL) < 0 || !Take(message)) return -1;
        return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
    }

private:
    static void Replace(std::string &text, const std::string &mark, const std::string &port)
    {
        if (const std::size_t at = text.find(mark); at != std::string::npos) text.replace(at, mark.size(), port);
    }

    bool Take(const std::string &bytes)
    {
        static char taken[64 << 10];
        for (std::size_t at = 0; at < bytes.size();) {
            const ssize_t got = recv(out_, taken, std::min(sizeof taken, bytes.size() - at), 0);
            if (got <= 0 || std::memcmp(taken, &bytes[at], static_cast<std::size_t>(got)) != 0) return false;
            at += static_cast<std::size_t>(got);
        }
        return true;
    }

    const std::string name_;
    pid_t process_ = -1;
    int in_ = -1, out_ = -1;
};

// The library's relay first, then its peers; socat only where it is installed.
std::vector<std::unique_ptr<Relay>> Relays()
{
    const std::string local = "127.0.0.1:";
    std::vector<std::unique_ptr<Relay>> relays;
    relays.push_back(
        std::make_unique<Relay>("chain", std::vector<std::string>{GNSS_STREAM, "--in", "tcpcli://" + local + "IN",
                                                                  "--out", "tcpcli://" + local + "OUT"}));
    relays.push_back(std::make_unique<Relay>("bare", std::vector<std::string>{BARE_RELAY, "IN", "OUT"}));
    if (std::system("command -v socat > /dev/null") == 0)
        relays.push_back(std::make_unique<Relay>("socat", std::vector<std::string>{"socat", "-u", "-b", "4096",
                                                                                   "TCP:" + local + "IN,nodelay",
                                                                                   "TCP:" + local + "OUT,nodelay"}));
    return relays;
}

bool All_Run(benchmark::State &state, const std::vector<std::unique_ptr<Relay>> &relays)
{
    for (const auto &relay : relays) {
        if (relay->Runs()) continue;
        state.SkipWithError((relay->Name() + " does not run").c_str());
        return false;
    }
    return true;
}

// In turns, slice by slice, so that a noisy machine disturbs all alike.
void Throughput(benchmark::State &state)
{
    const auto relays = Relays();
    if (!All_Run(state, relays)) return;
    std::string slice(slice_size, '\0');
    std::uint32_t random = 1;
    for (char &byte : slice) byte = static_cast<char>((random = random * 1664525 + 1013904223) >> 24);

    std::vector<std::vector<double>> seconds(relays.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < relays.size(); ++i) {
            bool arrived = false;
            seconds[i].push_back(bench::Seconds([&] { arrived = relays[i]->Move(slice); }));
            if (arrived) continue;
            state.SkipWithError((relays[i]->Name() + " lost bytes").c_str());
            return;
        }
        state.SetIterationTime(seconds[0].back());
    }
    const double moved = static_cast<double>(seconds[0].size()) * slice_size;
    for (std::size_t i = 0; i < relays.size(); ++i) {
        state.counters[relays[i]->Name() + "_MiB/s"] = slice_size / mib / bench::Median(seconds[i]);
        state.counters[relays[i]->Name() + "_cpu_s/GiB"] = relays[i]->Processor_Time() / (moved / gib);
    }
    state.counters["chain/bare"] = bench::Median(seconds[1]) / bench::Median(seconds[0]);  // of the rates
    state.counters["aim"] = 0.9;
}
BENCHMARK(Throughput)->UseManualTime()->Iterations(static_cast<benchmark::IterationCount>(Slices()));

void Delay(benchmark::State &state)
{
    const auto relays = Relays();
    if (!All_Run(state, relays)) return;
    const std::string message(static_cast<std::size_t>(state.range(0)), 'm');
    constexpr auto pause = std::chrono::milliseconds(1);  // a stream is mostly idle

    std::vector<std::vector<double>> delays(relays.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < relays.size(); ++i) {
            std::this_thread::sleep_for(pause);
            delays[i].push_back(relays[i]->Delay(message));
            if (delays[i].back() >= 0) continue;
            state.SkipWithError((relays[i]->Name() + " lost a message").c_str());
            return;
        }
        state.SetIterationTime(delays[0].back() * 1e-6);
    }
    for (std::size_t i = 0; i < relays.size(); ++i) {
        std::sort(delays[i].begin(), delays[i].end());
        state.counters[relays[i]->Name() + "_median_us"] = delays[i][delays[i].size() / 2];
        state.counters[relays[i]->Name() + "_p99_us"] = delays[i][delays[i].size() * 99 / 100];
    }
}
BENCHMARK(Delay)->UseManualTime()->Arg(200)->Arg(60)->Iterations(1000);

}  // namespace
