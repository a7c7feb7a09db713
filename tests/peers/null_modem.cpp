// Serial ports, and both serial variants on them, the same on both systems: COM8 and COM9 are connected with each other
// (null_modem.sh). What only a pseudo-terminal in the test's own hands can show stands in the tests of the units.
#include "kernel/bytes/String_Byte_Server.h"
#include "kernel/transports/Serial_Client_Server.h"
#include "kernel/transports/Serial_Client_Server_Overlapped.h"

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/serial.h"

#include "tests/support/clients.h"
#include "tests/support/folder.h"
#include "tests/support/former_user.h"
#include "tests/support/reports.h"
#include "tests/support/timing.h"
#include "tests/support/upstream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

using namespace kernel;
using platform::Serial_Port;

namespace {

constexpr platform::Serial_Timeouts no_waiting = {platform::Serial_Timeouts::no_wait, 0, 0, 0, 0};

// A port that waits half a second for the bytes it was asked for.
std::shared_ptr<Serial_Port> Open(const char *name)
{
    auto port = Serial_Port::open(name);
    if (!port || !port->set_timeouts({0, 0, 500, 0, 0}))
        ADD_FAILURE() << name << ": " << platform::error_text(platform::last_error());
    return port;
}

std::string Read(Serial_Port &port, std::size_t n)
{
    std::string bytes, block(n, '\0');
    for (std::size_t got = 1; got > 0 && bytes.size() < n; bytes.append(block, 0, got)) {
        if (!port.read(block.data(), n - bytes.size(), got)) return "error " + std::to_string(platform::last_error());
    }
    return bytes;
}

bool Write(Serial_Port &port, const std::string &bytes)
{
    platform::Event never;
    std::size_t put = 0;
    return port.write(bytes.data(), bytes.size(), put, never) && put == bytes.size();
}

const std::string pattern = Pattern(3000);

}  // namespace

TEST(null_modem, a_port_has_two_names)
{
    for (const char *name : {"COM8", "\\\\.\\COM8", "COM18", "\\\\.\\COM18"})
        EXPECT_TRUE(Serial_Port::open(name)) << name;
    EXPECT_FALSE(Serial_Port::open("COM7"));
    EXPECT_EQ(platform::last_error(), 2u);
}

TEST(null_modem, passes_every_byte_as_it_is)
{
    const auto near = Open("COM8"), far = Open("COM9");
    ASSERT_TRUE(near && far);
    EXPECT_TRUE(Write(*near, pattern));
    EXPECT_TRUE(Read(*far, pattern.size()) == pattern);
    EXPECT_TRUE(Write(*far, pattern));
    EXPECT_TRUE(Read(*near, pattern.size()) == pattern);
}

TEST(null_modem, passes_every_byte_after_a_user_with_flow_control_by_characters)
{
    const std::string bytes = "a\x11 b\x13 c";
    ASSERT_TRUE(Leave_Flow_Control(8));
    const auto near = Open("COM8"), far = Open("COM9");
    ASSERT_TRUE(near && far);
    EXPECT_TRUE(Write(*far, bytes));
    EXPECT_EQ(Read(*near, bytes.size()), bytes);
    EXPECT_TRUE(Write(*near, bytes));
    EXPECT_EQ(Read(*far, bytes.size()), bytes);
}

TEST(null_modem, has_the_settings_that_were_made)
{
    const auto port = Open("COM8");
    ASSERT_TRUE(port);
    platform::Serial_Settings settings, read_back;
    for (const std::uint32_t baud : {9600u, 115200u, 460800u}) {
        settings.baud = baud;
        settings.stop_bits = baud == 9600 ? settings.two_stop_bits : settings.one_stop_bit;
        EXPECT_TRUE(port->set_settings(settings));
        EXPECT_TRUE(port->get_settings(read_back));
        EXPECT_EQ(read_back.baud, baud);
        EXPECT_EQ(read_back.byte_size, 8);
        EXPECT_EQ(read_back.stop_bits, settings.stop_bits);
    }
    settings.byte_size = 9;
    EXPECT_FALSE(port->set_settings(settings));
    EXPECT_EQ(platform::last_error(), 87u);
}

TEST(null_modem, a_read_ends_by_its_limits_or_by_close)
{
    const auto near = Open("COM8"), far = Open("COM9");
    ASSERT_TRUE(near && far);
    const struct {
        platform::Serial_Timeouts timeouts;
        std::uint64_t least;  // ms
    } cases[] = {{no_waiting, 0}, {{0, 1, 40}, 49}, {{20, 0, 0}, 20}};
    for (const auto &c : cases) {
        ASSERT_TRUE(near->set_timeouts(c.timeouts));
        EXPECT_TRUE(Write(*far, "abc"));
        platform::sleep_ms(200);  // until it is there
        std::string block(10, '\0');
        std::size_t got = 0;
        const std::uint64_t begin = platform::clock_ms();
        EXPECT_TRUE(near->read(block.data(), block.size(), got));
        EXPECT_EQ(block.substr(0, got), "abc");
        EXPECT_GE(platform::clock_ms() - begin, c.least);
    }
    ASSERT_TRUE(near->set_timeouts({}));
    std::thread closer([&] {
        platform::sleep_ms(50);
        near->close();
    });
    EXPECT_NE(Read(*near, 1).find("error"), std::string::npos);
    closer.join();
}

// The object on COM8 gives what its client pulls, writes what a server above it has, and stops at once.
template <class Port>
void Exchange_And_Stop()
{
    Capturing_Handler handler;
    std::atomic<std::size_t> pulled{0};
    Recording_Client client;
    const std::unique_ptr<Port> port(Port::Construct(handler, nullptr));
    const std::unique_ptr<String_Byte_Server> above(String_Byte_Server::Construct(10000, &handler));
    const auto far = Open("COM9");
    ASSERT_TRUE(far);
    client.Dont_Delete_Me();
    port->Dont_Delete_Me();
    client.On(Mesg_Data_Ready, [&](Byte_Server &server) {
        char block[4096];
        for (long got = 0; (got = server.GetNBytes(block, sizeof block)) > 0; pulled = client.pulled.size())
            client.pulled.append(block, static_cast<std::size_t>(got));
        return true;
    });
    client.Pull_All();
    EXPECT_TRUE(port->Connect(&client));
    EXPECT_TRUE(port->Create(8, 115200, 0, 1, 8, 0, 0, 4096));
    EXPECT_TRUE(port->Work());
    EXPECT_TRUE(Write(*far, pattern));
    for (int i = 0; i < 1000 && pulled < pattern.size(); ++i) platform::sleep_ms(10);

    above->Connect(port.get());
    above->PutBin(reinterpret_cast<const unsigned char *>(pattern.data()), static_cast<unsigned int>(pattern.size()));
    for (int i = 0; i < 1000 && above->MinAvail(0) > 0; ++i) above->Work();
    EXPECT_TRUE(Read(*far, pattern.size()) == pattern);
    EXPECT_EQ(port->GetBytesOut(), pattern.size());

    const std::uint64_t begin = platform::clock_ms();
    port->stop();
    EXPECT_LT(platform::clock_ms() - begin, 1000u);
    EXPECT_TRUE(client.pulled == pattern);
    EXPECT_EQ(client.heard.back(), Mesg_Detached);
    for (const Reported &report : handler.Take()) EXPECT_EQ(report.level, 0) << report;  // that a stop was asked for
}

TEST(null_modem, the_plain_variant_passes_every_byte) { Exchange_And_Stop<Serial_Client_Server>(); }

TEST(null_modem, the_overlapped_variant_passes_every_byte) { Exchange_And_Stop<Serial_Client_Server_Overlapped>(); }

TEST(null_modem, closing_gives_the_last_write_half_a_second)
{
    Capturing_Handler handler;
    Recording_Client client;
    const std::unique_ptr<Serial_Client_Server_Overlapped> port(
        Serial_Client_Server_Overlapped::Construct(handler, nullptr));
    const auto far = Open("COM9");
    ASSERT_TRUE(far);
    client.Dont_Delete_Me();
    client.Pull_All();
    Upstream upstream(*port);
    ASSERT_TRUE(port->Connect(&client) && port->Create(8, 115200, 0, 1, 8, 0, 0, 4096) && port->Work());
    std::thread producer([&] {
        while (upstream.Give(std::string(4000, 'x'))) continue;
    });
    std::uint64_t out = 0;  // until nobody takes more: the last block is under way
    for (std::uint64_t before = 1; out != before; out = port->GetBytesOut()) {
        before = out;
        platform::sleep_ms(500);
    }
    std::string received;
    std::thread reader([&] {
        platform::sleep_ms(50);
        received = Read(*far, out);
    });
    EXPECT_LT(Elapsed([&] { port->Close(); }), 2000u);
    reader.join();
    producer.join();
    EXPECT_EQ(received.size(), out);
    EXPECT_EQ(port->GetBytesOut(), out);
}
