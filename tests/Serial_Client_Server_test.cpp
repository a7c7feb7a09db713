// Both serial variants on pseudo-terminals; POSIX only.
#include "kernel/Serial_Client_Server.h"
#include "kernel/Serial_Client_Server_Overlapped.h"

#include "kernel/String_Byte_Server.h"

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/fault.h"

#include "tests/support/clients.h"
#include "tests/support/environment.h"
#include "tests/support/folder.h"
#include "tests/support/pty.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <functional>
#include <memory>
#include <thread>

namespace kernel {

struct Comm_Event_Access {
    static int Handle(Serial_Client_Server_Overlapped &port, int pending) { return port.HandleCommEvent(pending); }
};

}  // namespace kernel

using namespace kernel;

namespace {

enum Variant { plain, overlapped };
constexpr std::uint64_t prompt_ms = 3000;  // a stop that nobody heeds takes 15 s

bool Becomes_True(const std::function<bool()> &condition)
{
    for (int i = 0; i < 2000 && !condition(); ++i) platform::sleep_ms(5);
    return condition();
}

// A line with the object on this end. The client is the object's, and is looked at when the thread has ended.
class Serial : public testing::TestWithParam<Variant> {
protected:
    Serial()
    {
        for (const char *link : {"COM9", "COM10"}) std::filesystem::create_symlink(line.Name(), ports / link);
        port->Dont_Delete_Me();
        client.Dont_Delete_Me();
        for (const CL_Mesg silence : {Mesg_Pause, Mesg_Status_40})
            client.On(silence, [this](Byte_Server &) { return is_waiting = true; });
    }
    ~Serial() override { platform::fault::clear(); }

    std::unique_ptr<Serial_Client_Server_Base> Make(const char *name = nullptr)
    {
        if (GetParam() == plain)
            return std::unique_ptr<Serial_Client_Server_Base>(Serial_Client_Server::Construct(handler, name));
        return std::unique_ptr<Serial_Client_Server_Base>(Serial_Client_Server_Overlapped::Construct(handler, name));
    }
    int Create(int number = 9) { return port->Create(number, 9600, 0, 1, 8, 0, 0, 4096); }
    // From here on the client asks for `request` bytes at a time, and has done so once.
    void Start(long request = 0)
    {
        client.On(Mesg_Request_Invite, [this, request](Byte_Server &server) {
            if (request > 0) server.Request(request);
            is_invited = true;
            return request > 0;
        });
        if (request > 0) client.Pull(request);
        is_invited = false;
        ASSERT_TRUE(port->Connect(&client));
        client.Take();
        ASSERT_TRUE(Create());
        ASSERT_TRUE(port->Work());
        ASSERT_TRUE(Becomes_True([this] { return is_invited.load(); }));
    }
    bool Ends() const
    {
        return Becomes_True([this] { return !port->is_running(); });
    }
    std::uint64_t Stop_Ms()
    {
        const std::uint64_t begin = platform::clock_ms();
        port->stop();
        return platform::clock_ms() - begin;
    }
    // What the client heard, without what depends on the time.
    Heard Story()
    {
        Heard heard = client.Take();
        std::erase_if(heard, [](int m) { return m == Mesg_Pause || m == Mesg_Status_40 || m == Mesg_Second; });
        return heard;
    }
    // n bytes from the port, in small pieces and with pauses.
    std::string Received_By_Fits(std::size_t n, std::size_t most, unsigned long pause_ms) const
    {
        std::string received, piece;
        do {
            piece = line.Receive(std::min(n - received.size(), 1 + received.size() % most));
            received += piece;
            platform::sleep_ms(pause_ms);
        } while (!piece.empty() && received.size() < n);
        return received;
    }
    Reported Error(int level, const std::string &text) const
    {
        return {level, 72, text,
                GetParam() == plain ? "kernel/Serial_Client_Server" : "kernel/Serial_Client_Server_Overlapped"};
    }
    Reported System_Error(std::uint32_t error) const
    {
        char number[40];
        std::snprintf(number, sizeof number, "%u=0x%08X => ", error, error);
        return {3, 72, "Serial-Error Code: " + (number + platform::error_text(error)),
                "kernel/Serial_Client_Server_Base"};
    }

    Capturing_Handler handler;
    Pty line;
    Test_Folder ports;
    Environment_Setting setting{"GNSS_KERNEL_COM_DIR", ports / ""};
    std::atomic<bool> is_invited{false}, is_waiting{false};
    Recording_Client client;
    std::unique_ptr<Serial_Client_Server_Base> port = Make();
};

// A server above the port.
class Upstream {
public:
    explicit Upstream(Serial_Client_Server_Base &port) { server_->Connect(&port); }
    // Whether the port took all that was not taken before.
    bool Give(const std::string &bytes)
    {
        server_->PutBin(reinterpret_cast<const unsigned char *>(bytes.data()), static_cast<unsigned int>(bytes.size()));
        while (server_->MinAvail(0) > 0 && server_->Work()) continue;
        return server_->MinAvail(0) == 0;
    }

private:
    std::unique_ptr<String_Byte_Server> server_{String_Byte_Server::Construct(20000, nullptr)};
};

INSTANTIATE_TEST_SUITE_P(Variants, Serial, testing::Values(plain, overlapped),
                         [](const auto &variant) { return variant.param == plain ? "plain" : "overlapped"; });

}  // namespace

TEST_P(Serial, opens_and_sets_the_line)
{
    port->Connect(&client);
    EXPECT_TRUE(port->Create(9, 57600, 1, 3, 8, 1, 1, 4096));
    EXPECT_STREQ(port->GetComName(), GetParam() == plain ? "COM9" : "COM9 (overlapped)");
    const termios set = line.Line();
    EXPECT_EQ(cfgetospeed(&set), speed_t{B57600});
    EXPECT_EQ(set.c_cflag & (PARODD | CSTOPB | CRTSCTS), PARODD | CSTOPB | CRTSCTS);
    EXPECT_TRUE(Create(10));  // closes what was open
    EXPECT_STREQ(port->GetComName(), GetParam() == plain ? "\\\\.\\COM10" : "COM10 (overlapped)");
    EXPECT_EQ(line.Line().c_cflag & (PARODD | CSTOPB | CRTSCTS), 0u);
    EXPECT_EQ(handler.Take(), Reports{});

    const auto other = Make("other");
    EXPECT_STREQ(other->GetName(), "other");
    EXPECT_FALSE(other->Create(9, 9600, 0, 1, 8, 0, 0, 4096));
    EXPECT_FALSE(Create(11));
    EXPECT_FALSE(port->IsActive());
    EXPECT_FALSE(port->Create(9, 9600, 0, 2, 8, 0, 0, 4096));  // one and a half stop bits
    EXPECT_FALSE(port->Create(nullptr));
    EXPECT_EQ(handler.Take(), (Reports{System_Error(5), System_Error(2), System_Error(87), System_Error(6)}));
    const int descriptor = open(line.Name().c_str(), O_RDWR | O_NOCTTY);
    EXPECT_TRUE(port->Create(reinterpret_cast<void *>(std::intptr_t{descriptor})));
    EXPECT_EQ(port->Get_Speed(), 9600u);
}

TEST_P(Serial, delivers_what_is_requested)
{
    Start(10);
    ASSERT_TRUE(line.Send("0123456789abcdefghijklmno"));
    EXPECT_TRUE(Becomes_True([&] { return port->GetBytesIn() == 20; }));
    ASSERT_TRUE(line.Send("pqrst"));
    EXPECT_TRUE(Becomes_True([&] { return port->GetBytesIn() == 30; }));
    EXPECT_LT(Stop_Ms(), prompt_ms);
    EXPECT_EQ(client.pulled, "0123456789abcdefghijklmnopqrst");
    EXPECT_EQ(Story(), (Heard{140, 70, 80, 70, 80, 70, 80, 70, 150}));
    EXPECT_EQ(handler.Take(), GetParam() == plain ? Reports{} : Reports{Error(0, "Terminate Thread requested")});
    EXPECT_TRUE(port->Work());  // again, and what was held is still there
    ASSERT_TRUE(line.Send("uvwxyz0123"));
    EXPECT_TRUE(Becomes_True([&] { return port->GetBytesIn() == 40; }));
}

TEST_P(Serial, loses_no_byte)
{
    const std::string bytes = Pattern(200000);
    client.records = false;
    Start(1537);
    platform::fault::move_at_most(700);
    for (std::size_t at = 0, n = 0; at < bytes.size(); at += n) {
        n = 1 + at % 1999;
        ASSERT_TRUE(line.Send(bytes.substr(at, n)));
    }
    const std::size_t whole = bytes.size() / 1537 * 1537;
    EXPECT_TRUE(Becomes_True([&] { return port->GetBytesIn() == whole; }));
    port->stop();
    EXPECT_TRUE(client.pulled == bytes.substr(0, whole));
}

TEST_P(Serial, a_request_has_a_limit)
{
    ASSERT_TRUE(Create());
    EXPECT_FALSE(port->Request(4097));
    const std::string text = std::string(port->GetName()) + " could not handle more than 4096-Bytes";
    EXPECT_EQ(handler.Take(), (Reports{{4, 72, text, "kernel/Serial_Client_Server_Base"}}));
    EXPECT_FALSE(port->Request(4096));
    EXPECT_EQ(handler.Take(), Reports{});
    EXPECT_TRUE(port->Request(0));
    ASSERT_TRUE(line.Send("abcd"));
    // The other one's thread reads.
    EXPECT_TRUE(Becomes_True([&] { return port->Request(3) == (GetParam() == plain); }));
    EXPECT_EQ(port->MinAvail(0), GetParam() == plain ? 3 : 0);
}

TEST_P(Serial, without_a_wish_there_is_nothing_to_do)
{
    EXPECT_TRUE(port->Work());
    EXPECT_TRUE(Ends());  // no client
    Start();
    EXPECT_TRUE(Ends());
    EXPECT_EQ(Story(), (Heard{140, 70, 150}));
    EXPECT_EQ(handler.Take(), GetParam() == plain ? Reports{} : Reports{Error(4, "Client did not want data.")});
}

TEST_P(Serial, a_minute_of_silence_is_put_to_the_client)
{
    std::atomic<int> asked{0}, ticks{0};
    std::atomic<bool> waits_on{true};
    client.On(Mesg_Status_50, [&](Byte_Server &) { return ++asked, waits_on.load(); });
    client.On(Mesg_Second, [&](Byte_Server &) { return ++ticks, true; });
    Start(3);
    EXPECT_TRUE(Becomes_True([&] { return is_waiting.load(); }));
    platform::advance_clock(61000);
    EXPECT_TRUE(Becomes_True([&] { return asked == 1; }));
    platform::advance_clock(30000);
    EXPECT_TRUE(Becomes_True([&, before = ticks.load()] { return ticks > before; }));
    EXPECT_EQ(asked, 1);
    waits_on = false;
    platform::advance_clock(31000);
    EXPECT_TRUE(Ends());
    EXPECT_FALSE(port->IsActive());
    const Heard all = client.heard;
    EXPECT_EQ(Story(), (Heard{140, 70, 50, 50, 110, 150}));
    // One of the two tells each time-out before it asks.
    EXPECT_EQ(std::find(all.begin(), all.end(), 40) < std::find(all.begin(), all.end(), 50), GetParam() == overlapped);
    Reported report = handler.Take().at(0);
    std::replace_if(
        report.text.begin(), report.text.end(), [](unsigned char c) { return std::isdigit(c) != 0; }, '9');
    report.unit.clear();
    const char *text = GetParam() == plain ? "Timeout no data since 999.999 sec" : "Timeout no Data since 999.999 sec";
    EXPECT_EQ(report, (Reported{3, 72, text, ""}));
}

TEST_P(Serial, a_lost_port_ends_the_thread)
{
    Start(3);
    line.Unplug();
    EXPECT_TRUE(Ends());
    EXPECT_EQ(Story(), (Heard{140, 70, 110, 150}));
    EXPECT_EQ(handler.Take(), GetParam() == plain ? Reports{System_Error(6)} : Reports{});
    EXPECT_FALSE(port->IsActive());
}

TEST_P(Serial, close_ends_the_thread)
{
    for (const bool hang_up : {false, true}) {
        Start(3);
        EXPECT_TRUE(port->IsBusy());
        if (hang_up)
            EXPECT_TRUE(port->Hang_Up());
        else
            port->Close();
        EXPECT_TRUE(Ends());
        EXPECT_EQ(Story(), (Heard{140, 70, 150}));
        EXPECT_EQ(handler.Take(), GetParam() == plain ? Reports{} : Reports{Error(3, "Handle not valid")});
        EXPECT_FALSE(port->Hang_Up() || port->IsBusy());
    }
}

TEST_P(Serial, changes_the_speed)
{
    EXPECT_FALSE(port->Set_Speed(9600));  // no port
    client.On(Mesg_Data_Ready, [&](Byte_Server &server) {
        EXPECT_FALSE(server.Set_Speed(0));
        EXPECT_TRUE(server.Set_Speed(9600));
        EXPECT_EQ(server.MinAvail(0), 3);
        EXPECT_TRUE(server.Set_Speed(250000));
        EXPECT_EQ(server.MinAvail(0), 0);  // received at another speed
        EXPECT_EQ(server.Get_Speed(), 250000u);
        return false;
    });
    Start(3);
    ASSERT_TRUE(line.Send("old"));
    EXPECT_TRUE(Ends());  // since the client refused
    EXPECT_EQ(Story(), (Heard{140, 70, 80, 150}));
    line.Unplug();
    EXPECT_FALSE(port->Set_Speed(19200));
    EXPECT_EQ(handler.Take(), Reports{System_Error(6)});
}

TEST_P(Serial, drops_what_it_holds_while_it_reads)
{
    std::atomic<bool> changed{false};
    client.On(Mesg_Second, [&](Byte_Server &server) { return changed = server.Set_Speed(19200); });
    Start(3);
    ASSERT_TRUE(line.Send("ol"));
    EXPECT_TRUE(Becomes_True([&] { return changed.load(); }));
    ASSERT_TRUE(line.Send("new"));
    EXPECT_TRUE(Becomes_True([&] { return port->GetBytesIn() == 3; }));
    port->stop();
    EXPECT_EQ(client.pulled, "new");
}

TEST_P(Serial, looks_at_the_errors_of_the_line)
{
    std::atomic<int> breaks{0};
    client.On(Mesg_Status_250, [&](Byte_Server &) { return ++breaks, true; });
    if (GetParam() == plain) {
        Start(3);
        platform::fault::plan_serial_errors(0x10);
        EXPECT_TRUE(Becomes_True([&] { return breaks == 1; }));
        return;
    }
    auto &events = static_cast<Serial_Client_Server_Overlapped &>(*port);
    port->Connect(&client);
    ASSERT_TRUE(Create());
    const struct {
        std::uint32_t bits;
        const char *text;
    } cases[] = {{0, "Comm Event: 'NULL Error', EvtMask = '0'\n"},
                 {0xA, "Comm Event: 'CE_FRAME and CE_OVERRUN', EvtMask = 'a'\n"},
                 {0x14, "Comm Event: 'CE_RXPARITY and EV_ERR Unknown EvtMask', EvtMask = '14'\n"}};
    for (const auto &c : cases) {
        platform::fault::plan_serial_errors(c.bits);
        EXPECT_EQ(Comm_Event_Access::Handle(events, 0), 1);
        EXPECT_EQ(handler.Take(), Reports{Error(3, c.text)});
    }
    client.Take();
    line.Unplug();
    EXPECT_EQ(Comm_Event_Access::Handle(events, 1), 0);
    EXPECT_EQ(handler.Take(), Reports{Error(3, "Likely that the Service Provider has closed the port")});
    EXPECT_EQ(Story(), Heard{110});
    EXPECT_FALSE(port->IsActive());
}

// What comes from a server above goes to the line.

TEST_P(Serial, writes_what_a_server_gives)
{
    const std::string bytes = Pattern(100000);
    Upstream upstream(*port);
    EXPECT_FALSE(upstream.Give(bytes.substr(0, 10)));  // no port yet
    ASSERT_TRUE(Create());
    std::thread producer([&] {
        for (std::size_t at = 0; at < bytes.size(); at += 5000) EXPECT_TRUE(upstream.Give(bytes.substr(at, 5000)));
    });
    const std::string received = Received_By_Fits(bytes.size() + 10, 9000, 1);
    producer.join();
    EXPECT_TRUE(received == bytes.substr(0, 10) + bytes);
    EXPECT_EQ(port->GetBytesOut(), received.size());
    EXPECT_EQ(handler.Take(), Reports{});
    line.Unplug();
    upstream.Give("lost");
    EXPECT_EQ(handler.Take(), Reports{System_Error(6)});
}

TEST_P(Serial, the_last_write_comes_to_its_end)
{
    Start(3);
    Upstream upstream(*port);
    // More each time, until the line does not take it at once: the time before, the last write was still pending.
    std::atomic<bool> given{true};
    for (std::size_t n = 4096; given; n += 4096) {
        given = false;
        std::thread producer([&] {
            for (std::size_t at = 0; at < n; at += 4096) EXPECT_TRUE(upstream.Give(std::string(4096, 'x')));
            given = true;
        });
        platform::sleep_ms(50);
        const bool at_once = given;
        EXPECT_EQ(line.Receive(n).size(), n);
        producer.join();
        given = at_once;
    }
}

TEST_P(Serial, writing_keeps_to_the_seconds_of_the_reader)
{
    const std::uint64_t begin = platform::clock_ms();
    Start(3);
    Upstream upstream(*port);
    std::thread producer([&] {
        for (int i = 0; i < 60; ++i) EXPECT_TRUE(upstream.Give(std::string(4096, 'x')));
    });
    EXPECT_EQ(Received_By_Fits(60 * 4096, 3000, 10).size(), 60u * 4096);
    producer.join();
    port->stop();
    const auto seconds = static_cast<long>(platform::clock_ms() - begin) / 1000;
    EXPECT_LE(std::count(client.heard.begin(), client.heard.end(), 40), seconds);
    EXPECT_LE(std::count(client.heard.begin(), client.heard.end(), 200), seconds);
}

TEST_P(Serial, stops_whatever_it_is_at)
{
    Upstream upstream(*port);
    std::atomic<int> mode{0};
    const auto fill_the_line = [&] {
        while (upstream.Give(std::string(4096, 'x'))) continue;
    };
    client.On(Mesg_Data_Ready, [&](Byte_Server &) {
        if (mode == 2) fill_the_line();  // on the reader's own thread
        return true;                     // and takes nothing
    });
    client.records = false;
    for (mode = 0; mode < 3; ++mode) {  // waiting, delivering, writing
        Start(3);
        if (mode > 0) line.Send("abc");
        platform::sleep_ms(100);
        EXPECT_LT(Stop_Ms(), prompt_ms) << mode;
        EXPECT_FALSE(port->is_running());
    }
    for (const bool closes : {false, true}) {
        Start(3);
        std::thread producer(fill_the_line);
        platform::sleep_ms(100);
        const std::uint64_t begin = platform::clock_ms();
        if (closes)
            port->Close();
        else
            port->stop();
        producer.join();
        EXPECT_LT(platform::clock_ms() - begin, prompt_ms);
    }
    EXPECT_TRUE(Create());  // nobody has kept the port
}
