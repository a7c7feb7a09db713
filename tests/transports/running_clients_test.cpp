// Clients that are replaced, and destroyed, while a socket, a serial line and a replay deliver to them. POSIX only, for
// the pseudo-terminal.
#include "kernel/files/file_server.h"
#include "kernel/transports/Serial_Client_Server.h"
#include "kernel/transports/Serial_Client_Server_Overlapped.h"
#include "kernel/transports/Socket_Client_Server.h"

#include "tests/support/environment.h"
#include "tests/support/folder.h"
#include "tests/support/peer.h"
#include "tests/support/pty.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <thread>

using namespace kernel;

namespace {

// Pulls everything, for as long as it lives.
class Pulling_Client : public Byte_Client {
public:
    explicit Pulling_Client(std::atomic<long> &pulled) : Object("pulling"), pulled_(pulled) {}
    ~Pulling_Client() override { platform::sleep_ms(2); }  // gives a transport without a client time to end
    bool Send(Byte_Server &server, CL_Mesg message) override
    {
        if (message == Mesg_Request_Invite) return server.Request(1), true;
        if (message != Mesg_Data_Ready) return Byte_Client::Send(server, message);
        const long got = server.GetNBytes(block_.data(), static_cast<long>(block_.size()));
        pulled_ += got;
        return got > 0;
    }

private:
    std::atomic<long> &pulled_;
    std::string block_ = std::string(512, '\0');  // freed with the client, so that a late use is found
};

// Connects and switches while `feed` supplies data; each new client must get some.
template <class Server, class Feed>
void Replace_Clients(Server &server, int rounds, Feed feed)
{
    std::atomic<long> pulled{0};
    const auto flows_on = [&] {
        server.Work();  // connecting may have stopped the thread
        const long before = pulled;
        return Soon([&] { return pulled > before; });
    };
    server.Connect(new Pulling_Client(pulled));
    server.Work();
    std::jthread feeder([&](const std::stop_token &over) {
        while (!over.stop_requested()) feed();
    });
    for (int round = 0; round < rounds; ++round) {
        ASSERT_TRUE(server.Connect(new Pulling_Client(pulled)) && flows_on()) << round;
        const std::unique_ptr<Byte_Client> old(server.Switch(new Pulling_Client(pulled)));
        ASSERT_TRUE(old && flows_on()) << round;
    }
    const auto last = std::make_unique<Pulling_Client>(pulled);
    delete server.Switch(last.get());
    ASSERT_TRUE(flows_on());
    server.Disconnect();
    EXPECT_FALSE(server.IsConnected());
}

}  // namespace

TEST(Running_Clients, of_a_socket)
{
    Capturing_Handler reports;
    Host host;
    host.Open();
    const std::unique_ptr<Socket_Client_Server> socket(Socket_Client_Server::Construct(reports, 4096));
    ASSERT_TRUE(socket->CreateClient("127.0.0.1", host.Port(), nullptr, 0));
    Peer peer;
    const std::string block(1000, 'x');
    Replace_Clients(*socket, 50, [&] {
        if (!peer) peer = host.Accept();
        peer.Say(block);
    });
}

TEST(Running_Clients, of_a_serial_line)
{
    Capturing_Handler reports;
    const Pty line;
    const Test_Folder ports;
    const Environment_Setting where("GNSS_KERNEL_COM_DIR", ports / "");
    std::filesystem::create_symlink(line.Name(), ports / "COM9");
    std::unique_ptr<Serial_Client_Server_Base> serials[2];
    serials[0].reset(Serial_Client_Server::Construct(reports, nullptr));
    serials[1].reset(Serial_Client_Server_Overlapped::Construct(reports, nullptr));
    for (auto &port : serials) {
        ASSERT_TRUE(port->Create(9, 115200, 0, 1, 8, 0, 0, 4096));
        port->Dont_Delete_Me();
        Replace_Clients(*port, 5, [&] {
            line.Send(std::string(200, 'x'));
            platform::sleep_ms(1);
        });
        port.reset();
    }
}

TEST(Running_Clients, of_a_replay)
{
    const Test_Folder folder;
    const std::string name = folder.Write("replay", std::string(20'000'000, 'x'));
    const std::unique_ptr<File_Server> replay(File_Server::Construct(nullptr, false));
    ASSERT_TRUE(replay->Create(name.c_str(), 100'000));
    Replace_Clients(*replay, 20, [&] {
        replay->Insert(100);
        platform::sleep_ms(1);
    });
}
