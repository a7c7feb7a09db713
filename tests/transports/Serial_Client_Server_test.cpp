// Both serial variants on pseudo-terminals; POSIX only.
#include "kernel/transports/Serial_Client_Server.h"
#include "kernel/transports/Serial_Client_Server_Overlapped.h"

#include "platform/error.h"
#include "platform/fault.h"

#include "tests/support/clients.h"
#include "tests/support/environment.h"
#include "tests/support/folder.h"
#include "tests/support/pty.h"
#include "tests/support/reports.h"
#include "tests/support/timing.h"
#include "tests/support/upstream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
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
constexpr std::uint64_t prompt_ms = 3000;  // a stop that is not obeyed takes 15 s

// A line with the object at this end. The test looks at the client when the thread has ended.
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

    std::unique_ptr<Serial_Client_Server_Base> Make()
    {
        using Made = std::unique_ptr<Serial_Client_Server_Base>;
        if (GetParam() == plain) return Made(Serial_Client_Server::Construct(handler, nullptr));
        return Made(Serial_Client_Server_Overlapped::Construct(handler, nullptr));
    }
    int Create(int number = 9) { return port->Create(number, 9600, 0, 1, 8, 0, 0, 4096); }
    // From here on the client requests `request` bytes at a time; it has done so once.
    void Start(long request = 0)
    {
        wish = request;
        client.On(Mesg_Request_Invite, [this](Byte_Server &server) {
            if (wish > 0) server.Request(wish);
            return is_invited = true, wish > 0;
        });
        if (request > 0) client.Pull(request);
        is_invited = false;
        ASSERT_TRUE(port->Connect(&client));
        client.Take();
        ASSERT_TRUE(Create() && port->Work());
        ASSERT_TRUE(Soon([this] { return is_invited.load(); }));
    }
    bool Ends() const
    {
        return Soon([this] { return !port->is_running(); });
    }
    bool Delivers(std::uint64_t bytes) const
    {
        return Soon([=, this] { return port->GetBytesIn() == bytes; });
    }
    // Waits until a producer that writes all the time is blocked.
    void Stall() const
    {
        for (std::uint64_t out = 0, before = 1; out != before;) {
            before = out;
            platform::sleep_ms(250);
            out = port->GetBytesOut();
        }
    }
    std::uint64_t Stop_Ms()
    {
        const std::uint64_t begin = platform::clock_ms();
        port->stop();
        return platform::clock_ms() - begin;
    }
    // Messages that the client heard, without those that depend on time.
    Heard Story()
    {
        Heard heard = client.Take();
        std::erase_if(heard, [](int m) { return m == Mesg_Pause || m == Mesg_Status_40 || m == Mesg_Second; });
        return heard;
    }
    // n bytes from the port, in pieces of at most 3000 and with pauses.
    std::string Received_By_Fits(std::size_t n) const
    {
        std::string received, piece;
        do {
            received += piece = line.Receive(std::min(n - received.size(), 1 + received.size() % 3000));
            platform::sleep_ms(10);
        } while (!piece.empty() && received.size() < n);
        return received;
    }
    static Reports Only(Variant variant, const Reported &report)
    {
        return GetParam() == variant ? Reports{report} : Reports{};
    }
    static Reported Error(int level, const std::string &text)
    {
        const bool is_plain = GetParam() == plain;
        return {level, 72, text, is_plain ? "kernel/Serial_Client_Server" : "kernel/Serial_Client_Server_Overlapped"};
    }
    static Reported System_Error(std::uint32_t error)
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
    long wish = 0;
    Recording_Client client;
    std::unique_ptr<Serial_Client_Server_Base> port = Make();
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
    EXPECT_FALSE(Make()->Create(9, 9600, 0, 1, 8, 0, 0, 4096));
    EXPECT_FALSE(Create(11) || port->IsActive());
    EXPECT_FALSE(port->Create(9, 9600, 0, 2, 8, 0, 0, 4096));  // one and a half stop bits
    EXPECT_FALSE(port->Create(nullptr));
    EXPECT_EQ(handler.Take(), (Reports{System_Error(5), System_Error(2), System_Error(87), System_Error(6)}));
    EXPECT_TRUE(port->Create(reinterpret_cast<void *>(std::intptr_t{open(line.Name().c_str(), O_RDWR | O_NOCTTY)})));
    EXPECT_EQ(port->Get_Speed(), 9600u);
}

TEST_P(Serial, delivers_what_is_requested)
{
    Start(10);
    ASSERT_TRUE(line.Send("0123456789abcdefghijklmno"));
    EXPECT_TRUE(Delivers(20));
    ASSERT_TRUE(line.Send("pqrst"));
    EXPECT_TRUE(Delivers(30));
    EXPECT_LT(Stop_Ms(), prompt_ms);
    EXPECT_EQ(client.pulled, "0123456789abcdefghijklmnopqrst");
    EXPECT_EQ(Story(), (Heard{Mesg_Attached, Mesg_Request_Invite, Mesg_Data_Ready, Mesg_Request_Invite, Mesg_Data_Ready,
                              Mesg_Request_Invite, Mesg_Data_Ready, Mesg_Request_Invite, Mesg_Detached}));
    EXPECT_EQ(handler.Take(), Only(overlapped, Error(0, "Terminate Thread requested")));
    EXPECT_TRUE(port->Work());  // a second run; the bytes held are still there
    ASSERT_TRUE(line.Send("uvwxyz0123"));
    EXPECT_TRUE(Delivers(40));
}

TEST_P(Serial, loses_no_byte)
{
    const std::string bytes = Pattern(100000);
    client.records = false;
    Start(1537);
    platform::fault::move_at_most(700);
    for (std::size_t at = 0, n = 0; at < bytes.size(); at += n) {
        n = 1 + at % 1999;
        ASSERT_TRUE(line.Send(bytes.substr(at, n)));
    }
    const std::size_t whole = bytes.size() / 1537 * 1537;
    EXPECT_TRUE(Delivers(whole));
    port->stop();
    EXPECT_TRUE(client.pulled == bytes.substr(0, whole));
}

// Bytes behind the requested ones are read with them, so that single bytes cost no system call each.
TEST_P(Serial, takes_what_the_driver_holds_beyond_the_request)
{
    const std::string bytes = Pattern(3000);
    long most = 0;
    client.On(Mesg_Data_Ready, [&](Byte_Server &server) {
        most = std::max(most, server.MinAvail(0));
        unsigned char byte = 0;
        server.get(byte);
        client.pulled += static_cast<char>(byte);
        return true;
    });
    client.Pull(1);
    client.records = false;
    ASSERT_TRUE(Create() && line.Send(bytes) && port->Connect(&client) && port->Work());
    EXPECT_TRUE(Delivers(bytes.size()));
    port->stop();
    EXPECT_TRUE(client.pulled == bytes);
    EXPECT_EQ(most > 100, GetParam() == overlapped);  // the plain variant reads only what is requested
}

TEST_P(Serial, a_request_has_a_limit)
{
    ASSERT_TRUE(Create());
    EXPECT_FALSE(port->Request(4097) || port->Request(4096));
    const std::string text = std::string(port->GetName()) + " could not handle more than 4096-Bytes";
    EXPECT_EQ(handler.Take(), (Reports{{4, 72, text, "kernel/Serial_Client_Server_Base"}}));
    EXPECT_TRUE(port->Request(0));
    ASSERT_TRUE(line.Send("abcd"));
    // In the overlapped variant only the thread reads.
    EXPECT_TRUE(Soon([&] { return port->Request(3) == (GetParam() == plain); }));
    EXPECT_EQ(port->MinAvail(0), GetParam() == plain ? 3 : 0);
}

TEST_P(Serial, a_minute_of_silence_is_put_to_the_client)
{
    std::atomic<int> asked{0};
    client.On(Mesg_Status_50, [&](Byte_Server &) { return ++asked == 1; });
    Start(3);
    EXPECT_TRUE(Soon([&] { return is_waiting.load(); }));
    platform::advance_clock(61000);
    EXPECT_TRUE(Soon([&] { return asked == 1; }));
    platform::advance_clock(61000);
    EXPECT_TRUE(Ends());
    EXPECT_FALSE(port->IsActive());
    const Heard all = client.heard;
    EXPECT_EQ(Story(), (Heard{Mesg_Attached, Mesg_Request_Invite, Mesg_Status_50, Mesg_Status_50, Mesg_Status_110,
                              Mesg_Detached}));
    // One of the two tells each time-out before it asks.
    EXPECT_EQ(std::find(all.begin(), all.end(), 40) < std::find(all.begin(), all.end(), 50), GetParam() == overlapped);
    const Reported report = handler.Take().at(0);
    EXPECT_TRUE(report.text.starts_with(GetParam() == plain ? "Timeout no data since 12" : "Timeout no Data since 12"));
    EXPECT_TRUE(report.level == 3 && report.text.ends_with(" sec") && report.text.find('.') == 25) << report;
}

TEST_P(Serial, ends_without_a_client_a_wish_or_a_port)
{
    EXPECT_TRUE(port->Work() && Ends());
    const Reports closed = Only(overlapped, Error(3, "Handle not valid"));
    const struct {
        long request;
        std::function<void()> end;
        Heard story;
        Reports reports;
    } cases[] = {{0,
                  [] {},
                  {Mesg_Attached, Mesg_Request_Invite, Mesg_Detached},
                  Only(overlapped, Error(4, "Client did not want data."))},
                 {3, [&] { port->Close(); }, {Mesg_Attached, Mesg_Request_Invite, Mesg_Detached}, closed},
                 {3,
                  [&] { EXPECT_TRUE(port->IsActive() && port->Hang_Up()); },
                  {Mesg_Attached, Mesg_Request_Invite, Mesg_Detached},
                  closed},
                 {3,
                  [&] { line.Unplug(); },
                  {Mesg_Attached, Mesg_Request_Invite, Mesg_Status_110, Mesg_Detached},
                  Only(plain, System_Error(6))}};
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        Start(c.request);
        c.end();
        EXPECT_TRUE(Ends());
        EXPECT_EQ(Story(), c.story);
        EXPECT_EQ(handler.Take(), c.reports);
        EXPECT_EQ(port->Hang_Up(), c.request == 0);
    }
}

TEST_P(Serial, changes_the_speed_and_drops_what_it_holds)
{
    std::atomic<bool> changed{false};
    EXPECT_FALSE(port->Set_Speed(9600));  // no port
    client.On(Mesg_Second, [&](Byte_Server &server) {
        if (changed) return true;
        EXPECT_TRUE(!server.Set_Speed(0) && server.Set_Speed(9600));
        EXPECT_EQ(server.MinAvail(0), 2);
        return changed = server.Set_Speed(250000);  // what is held was received at another speed
    });
    Start(3);
    ASSERT_TRUE(line.Send("ol"));
    EXPECT_TRUE(Soon([&] { return changed.load(); }));
    ASSERT_TRUE(line.Send("new"));
    EXPECT_TRUE(Delivers(3));
    EXPECT_EQ(port->Get_Speed(), 250000u);
    port->stop();
    EXPECT_EQ(client.pulled, "new");
    line.Unplug();
    handler.Take();
    EXPECT_FALSE(port->Set_Speed(19200));
    EXPECT_EQ(handler.Take(), Reports{System_Error(6)});
}

TEST_P(Serial, looks_at_the_errors_of_the_line)
{
    if (GetParam() == plain) {
        std::atomic<int> breaks{0};
        client.On(Mesg_Status_250, [&](Byte_Server &) { return ++breaks, true; });
        Start(3);
        platform::fault::plan_serial_errors(0x10);
        EXPECT_TRUE(Soon([&] { return breaks == 1; }));
        return;
    }
    auto &events = static_cast<Serial_Client_Server_Overlapped &>(*port);
    port->Connect(&client);
    ASSERT_TRUE(Create());
    const std::pair<std::uint32_t, const char *> cases[] = {
        {0, "Comm Event: 'NULL Error', EvtMask = '0'\n"},
        {0xA, "Comm Event: 'CE_FRAME and CE_OVERRUN', EvtMask = 'a'\n"},
        {0x14, "Comm Event: 'CE_RXPARITY and EV_ERR Unknown EvtMask', EvtMask = '14'\n"}};
    for (const auto &[bits, text] : cases) {
        platform::fault::plan_serial_errors(bits);
        EXPECT_EQ(Comm_Event_Access::Handle(events, 0), 1);
        EXPECT_EQ(handler.Take(), Reports{Error(3, text)});
    }
    client.Take();
    line.Unplug();
    EXPECT_EQ(Comm_Event_Access::Handle(events, 1), 0);
    EXPECT_EQ(handler.Take(), Reports{Error(3, "Likely that the Service Provider has closed the port")});
    EXPECT_EQ(Story(), Heard{Mesg_Status_110});
    EXPECT_FALSE(port->IsActive());
}

// A client may call Work when it hears Mesg_Detached.
TEST_P(Serial, work_brings_a_line_back_whose_thread_is_about_to_end)
{
    const std::pair<const char *, std::function<bool()>> callers[] = {
        {"the reader", [this] { return port->Work(); }}, {"another thread", [this] {
                                                              bool works = false;
                                                              std::thread([&] { works = port->Work(); }).join();
                                                              return works;
                                                          }}};
    for (const auto &[name, work] : callers) {
        SCOPED_TRACE(name);
        Recording_Client refuser;
        refuser.Dont_Delete_Me();
        int ends = 0, works = 0;
        std::string pulled;
        refuser.On(Mesg_Request_Invite, [](Byte_Server &server) { return server.Request(1), true; });
        refuser.On(Mesg_Data_Ready, [&](Byte_Server &server) {
            unsigned char byte = 0;
            server.get(byte);
            pulled += static_cast<char>(byte);
            return false;
        });
        refuser.On(Mesg_Detached, [&](Byte_Server &) { return works += ++ends <= 20 && work() ? 1 : 0, true; });
        ASSERT_TRUE(port->Connect(&refuser) && Create() && port->Work());
        ASSERT_TRUE(line.Send("0123456789abcdefghijk"));
        EXPECT_TRUE(Ends());
        EXPECT_EQ(works, 20);
        EXPECT_EQ(pulled, "0123456789abcdefghijk");
        port->Disconnect();
    }
}

TEST_P(Serial, work_waits_for_a_stop_that_is_under_way)
{
    std::atomic<bool> ending{false};
    bool works_inside = true;
    client.On(Mesg_Detached, [&](Byte_Server &) {
        if (!ending) works_inside = port->Work();  // false: a stop is under way
        ending = true;
        platform::sleep_ms(100);
        return true;
    });
    Start(3);
    std::thread stopper([&] { port->stop(); });
    EXPECT_TRUE(Soon([&] { return ending.load(); }));
    EXPECT_TRUE(port->Work());
    stopper.join();
    EXPECT_FALSE(works_inside);
    EXPECT_TRUE(line.Send("abc") && Delivers(3));
    port->stop();
}

// --- Sending: bytes of a server above go to the line

TEST_P(Serial, opens_a_port_again_while_a_producer_is_inside_a_write)
{
    Upstream upstream(*port);
    for (const bool reads : {false, true}) {
        reads ? Start(3) : static_cast<void>(Create());
        std::thread producer([&] {
            while (upstream.Give(std::string(4096, 'x'))) continue;
        });
        Stall();
        EXPECT_TRUE(Create());
        port->Close();
        producer.join();
        port->stop();
        for (const Reported &report : handler.Take()) EXPECT_EQ(report.level, 0) << report;
    }
}

TEST_P(Serial, pre_stop_ends_a_write_without_a_reader)
{
    Upstream upstream(*port);
    ASSERT_TRUE(Create());
    std::atomic<int> given{0};
    std::thread producer([&] {
        while (upstream.Give(std::string(4096, 'x'))) ++given;  // true also when the rest of a block was given up
    });
    Stall();
    const int before = given;
    port->pre_stop();
    EXPECT_TRUE(Soon([&] { return given > before; }));
    port->Close();
    producer.join();
}

TEST_P(Serial, writes_what_a_server_gives_with_a_reader_and_without)
{
    const std::string bytes = Pattern(75000);
    Upstream upstream(*port);
    EXPECT_FALSE(upstream.Give("early "));  // no port yet
    for (const bool reads : {false, true}) {
        const std::uint64_t begin = platform::clock_ms();
        reads ? Start(3) : static_cast<void>(Create());
        std::thread producer([&] {
            for (std::size_t at = 0; at < bytes.size(); at += 5000) EXPECT_TRUE(upstream.Give(bytes.substr(at, 5000)));
        });
        const std::string wanted = (reads ? "" : "early ") + bytes;
        EXPECT_TRUE(Received_By_Fits(wanted.size()) == wanted);  // with the last write, which no later call completes
        producer.join();
        port->stop();
        const auto seconds = static_cast<long>(platform::clock_ms() - begin) / 1000;
        EXPECT_LE(std::count(client.heard.begin(), client.heard.end(), Mesg_Status_40), seconds);
        EXPECT_LE(std::count(client.heard.begin(), client.heard.end(), Mesg_Second), seconds);
    }
    EXPECT_EQ(port->GetBytesOut(), 6 + 2 * bytes.size());
    handler.Take();
    line.Unplug();
    upstream.Give("lost");
    EXPECT_EQ(handler.Take(), Reports{System_Error(6)});
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
        return true;                     // pulls nothing
    });
    client.records = false;
    for (mode = 0; mode < 5; ++mode) {  // waiting, delivering, writing, writing on another thread, closed meanwhile
        Start(3);
        if (mode == 1 || mode == 2) line.Send("abc");
        std::thread producer([&] {
            if (mode > 2) fill_the_line();
        });
        platform::sleep_ms(100);
        if (mode == 4) port->Close();
        EXPECT_LT(Stop_Ms(), prompt_ms) << mode;
        producer.join();
        EXPECT_FALSE(port->is_running());
    }
    EXPECT_TRUE(Create());  // the port is free again
}
