// Plays a recording to everybody who connects to a TCP port: File_Server above Socket_Multi_Server. Each client hears
// what comes after it has connected. What the clients send is thrown away.
//
//   one_port RECORDING PORT [BYTES_PER_SECOND]     PORT 0: a free one, which is printed; 10,000 bytes per second unless
//                                                  told otherwise: above 41,000 clients fall behind
#include "kernel/files/file_server.h"
#include "kernel/transports/Socket_Multi_Server.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

constexpr unsigned int ring_size = 1 << 20;  // [bytes]; what a client may be behind
constexpr std::chrono::milliseconds poll{100};
constexpr std::chrono::seconds last_passes{1};  // for the bytes that are still in the ring

}  // namespace

int main(int argc, char **argv)
{
    const int port = argc > 2 ? std::atoi(argv[2]) : -1;
    const int rate = argc > 3 ? std::atoi(argv[3]) : 10000;
    if (argc < 3 || argc > 4 || port < 0 || port > 65535 || rate < 1) {
        std::fprintf(stderr, "usage: one_port RECORDING PORT [BYTES_PER_SECOND]\n");
        return 2;
    }
    static kernel::Simple_Error_Handler reports(stderr, false);
    kernel::File_Server *const file = kernel::File_Server::Construct(nullptr, false);
    auto *const clients = kernel::Socket_Multi_Server::Construct(&reports, false, ring_size);
    if (!file || !clients || !file->Connect(clients)) return 1;
    const bool fine = clients->CreateServer(port) && clients->Work() &&
                      file->Create(argv[1], static_cast<unsigned long>(rate)) && file->Work();
    if (fine) {
        std::printf("port %d\n", int{clients->GetPort()});
        std::fflush(stdout);
        while (file->is_running()) std::this_thread::sleep_for(poll);
        std::this_thread::sleep_for(last_passes);
        std::printf("%llu bytes played\n", static_cast<unsigned long long>(clients->GetBytesIn()));
    }
    kernel::File_Server::Destruct(file);  // and its client with it
    return fine ? 0 : 1;
}
