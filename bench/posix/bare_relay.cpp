// The least that a relay can be: bare_relay IN OUT connects to both ports on loopback, and moves bytes from the first
// to the second with two threads and a double buffer. What the library's relay is measured against.
#include <algorithm>
#include <arpa/inet.h>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::size_t buffer_size = 1 << 20;
constexpr std::size_t block_size = 4096;

struct Buffer {
    std::unique_ptr<unsigned char[]> bytes = std::make_unique<unsigned char[]>(buffer_size);
    std::size_t fill = 0;
};

// One buffer fills up while the other is written.
class Relay {
public:
    Relay(int in, int out) : in_(in), out_(out) {}

    void Run()
    {
        std::thread writer([this] { Write(); });
        Read();
        writer.join();
    }

private:
    void Read()
    {
        unsigned char block[block_size];
        for (;;) {
            const ssize_t got = recv(in_, block, sizeof block, 0);
            std::unique_lock lock(lock_);
            if (got <= 0) break;
            const auto n = static_cast<std::size_t>(got);
            room_.wait(lock, [&] { return filling_.fill + n <= buffer_size; });
            std::copy(block, block + n, &filling_.bytes[filling_.fill]);
            filling_.fill += n;
            data_.notify_one();
        }
        const std::lock_guard lock(lock_);
        ended_ = true;
        data_.notify_one();
    }

    void Write()
    {
        Buffer writing;
        for (;;) {
            {
                std::unique_lock lock(lock_);
                data_.wait(lock, [&] { return filling_.fill > 0 || ended_; });
                if (filling_.fill == 0) return;
                std::swap(filling_, writing);
                room_.notify_one();
            }
            for (std::size_t put = 0; put < writing.fill;) {
                const ssize_t moved = send(out_, &writing.bytes[put], writing.fill - put, MSG_NOSIGNAL);
                if (moved <= 0) std::exit(1);
                put += static_cast<std::size_t>(moved);
            }
            writing.fill = 0;
        }
    }

    const int in_, out_;
    std::mutex lock_;
    std::condition_variable data_, room_;
    Buffer filling_;
    bool ended_ = false;
};

int Connected(const char *port)
{
    const int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::strtoul(port, nullptr, 10)));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    setsockopt(s, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (connect(s, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) std::exit(1);
    return s;
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc != 3) return 2;
    Relay(Connected(argv[1]), Connected(argv[2])).Run();
    return 0;
}
