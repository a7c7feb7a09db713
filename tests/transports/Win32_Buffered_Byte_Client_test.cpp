#include "kernel/transports/Win32_Buffered_Byte_Client.h"

#include "kernel/bytes/String_Byte_Server.h"

#include "platform/clock.h"
#include "platform/fault.h"
#include "platform/wait.h"

#include "tests/support/folder.h"
#include "tests/support/reports.h"
#include "tests/support/sockets.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace kernel;
using namespace test;
using platform::fault::Operation;

namespace {

const char unit[] = "kernel/Win32_Buffered_Byte_Client";
constexpr unsigned int largest = 0x100000;

// An event that the system could not make.
struct Invalid_Event : platform::Event {
    Invalid_Event() : had_(std::exchange(native_, invalid)) {}
    ~Invalid_Event() override { native_ = had_; }

private:
    const std::intptr_t had_;
};

// The complete numbers in <>; a cut block leaves incomplete ones, which are passed over.
std::vector<int> Numbers(const std::string &text)
{
    std::vector<int> numbers;
    for (std::size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at + 1)) {
        const std::size_t end = text.find_first_not_of("0123456789", at + 1);
        if (end != std::string::npos && end > at + 1 && text[end] == '>')
            numbers.push_back(std::stoi(text.substr(at + 1)));
    }
    return numbers;
}

// The transport of a test: one end of a connection.
class Transport : public Win32_Buffered_Byte_Client {
public:
    Transport(Error_Handler &handler, unsigned int size, int is_socket)
        : Object("line", &handler), Win32_Buffered_Byte_Client(handler, size, is_socket)
    {
    }
    ~Transport() override { Stop_Writer(); }

    void Use(std::shared_ptr<platform::Stream> stream)
    {
        const Semaphore_Guard guard(*this);
        if (handle_) handle_->close();
        handle_ = std::move(stream);
    }
    void Close() override { Use(nullptr); }
    bool is_connected() override { return handle_ != nullptr; }
    void ReportErrorIntern(unsigned long error, const char *operation, Err_Code code,
                           Error_Handler::Enum_Status status) override
    {
        Report("line", 1).Print_Out(status, code, "%s %lu", operation, error);
        if (on_failure) on_failure();
    }

    using Client::Attached_Ticks;
    using Win32_Buffered_Byte_Client::data_event_;
    using Win32_Buffered_Byte_Client::GenerateGETRequest;
    using Win32_Buffered_Byte_Client::No_Authorisation;
    using Win32_Buffered_Byte_Client::NTRIPSendSourceTableRequest;
    using Win32_Buffered_Byte_Client::NTRIPSendStreamRequest;
    using Win32_Buffered_Byte_Client::Reset_Events;
    using Win32_Buffered_Byte_Client::Stop_Writer;
    using Win32_Buffered_Byte_Client::terminate_refused_;

    std::function<void()> on_failure;
};

struct Buffered : testing::Test {
    Buffered() { Open(largest); }
    ~Buffered() override
    {
        transport.reset();
        platform::fault::clear();
    }
    void Open(unsigned int size, int is_socket = 1)
    {
        transport = std::make_unique<Transport>(reports, size, is_socket);
        Reconnect();
        reports.Take();
    }
    void Reconnect()
    {
        const Connection former = std::exchange(line, Connection());  // closed on this side first
        transport->Use(line.near);
    }
    bool Give(const std::string &bytes)
    {
        source->PutBin(reinterpret_cast<const unsigned char *>(bytes.data()), static_cast<unsigned int>(bytes.size()));
        return transport->Send(*source, Mesg_Data_Ready);
    }
    // Until neither the system nor a buffer takes more: one block is on its way, another one waits. Returns all that
    // was given.
    std::string Stall()
    {
        std::string given;
        for (int still = 0; still < 300; ++still, platform::sleep_ms(1)) {
            const std::string block = pattern.substr(given.size(), transport->Room());
            if (block.empty()) continue;
            Give(block);
            given += block;
            still = 0;
        }
        return given;
    }
    // The bytes that the peer got, as soon as it has n.
    std::string Arrived(std::size_t n)
    {
        std::string bytes, block;
        while (bytes.size() < n && !(block = Read(line.far, 60001)).empty() && block != "hangs") bytes += block;
        return bytes;
    }
    bool Writer_Rests()
    {
        return Soon([&] { return transport->Unsent() == 0; });
    }
    Reported Overrun(unsigned int size)
    {
        return {2, 15, "Buffer with " + std::to_string(size) + " bytes overrun in line, data discarded!", unit};
    }
    Reported Failed(int error) { return {3, 15, "Write " + std::to_string(error), "line"}; }

    static inline const std::string pattern = Pattern(64 << 20);
    Capturing_Handler reports;
    Connection line;
    const std::unique_ptr<String_Byte_Server> source{String_Byte_Server::Construct(2 * largest, &reports)};
    const std::unique_ptr<String_Byte_Server> idle_source{String_Byte_Server::Construct(2, &reports)};
    std::unique_ptr<Transport> transport;
};

const std::string head = " HTTP/1.0\r\nUser-Agent: NtripClient1.0\r\n";
const std::string table_request = "GET /" + head + "\r\n";

}  // namespace

TEST_F(Buffered, sizes_are_brought_into_range_and_reported)
{
    Open(256);
    for (const unsigned int size : {255u, 2000000u, 300u}) EXPECT_TRUE(transport->SetBufferSize(size));
    EXPECT_EQ(transport->GetBufferSize(), 300u);
    EXPECT_EQ(reports.Take(), (Reports{{2, 89, "Buffer size 255 is to small, using 256 bytes instead.", unit},
                                       {2, 89, "Buffer size was already set to 256 bytes.", unit},
                                       {2, 89, "Buffer size 2000000 is to large, using 1048576 bytes instead.", unit},
                                       {1, 89, "Changing buffer from 256 to 1048576 bytes was successful.", unit},
                                       {1, 89, "Changing buffer from 1048576 to 300 bytes was successful.", unit}}));
}

TEST_F(Buffered, answers_queries_and_asks_for_a_buffer_at_most)
{
    for (const int is_socket : {0, 1}) {
        Open(256, is_socket);
        EXPECT_EQ(transport->Send(*source, Mesg_Type_10140), is_socket == 1);
        EXPECT_EQ(transport->Send(*source, Mesg_Type_10110), is_socket == 0);
    }
    EXPECT_FALSE(transport->Send(*source, Mesg_Request_Invite));
    source->PutBin(reinterpret_cast<const unsigned char *>(pattern.data()), 300);
    EXPECT_TRUE(transport->Send(*source, Mesg_Request_Invite));
    EXPECT_EQ(source->GetNBytes(pattern.substr(0, 256).data(), 256), 256);
    EXPECT_TRUE(source->Request(0));
}

TEST_F(Buffered, brings_every_byte_over_in_order)
{
    platform::fault::move_at_most(50000);
    std::size_t sent = 0;
    std::thread producer([&] {
        for (const std::size_t size :
             {1u, 1u, 63u, 64u, 65u, 1000u, 4096u, largest, 3u, 700001u, largest, largest, 5u}) {
            Soon([&] { return transport->Room() >= size; });
            EXPECT_TRUE(Give(pattern.substr(sent, size)));
            sent += size;
        }
    });
    const std::size_t all = 3 * largest + 705299;
    EXPECT_TRUE(Arrived(all) == pattern.substr(0, all));
    producer.join();
    EXPECT_TRUE(Soon([&] { return transport->GetBytesOut() == all; }));
    EXPECT_TRUE(Writer_Rests());
    EXPECT_EQ(reports.Take(), Reports{});
}

TEST_F(Buffered, discards_a_full_buffer_whole_and_everything_without_a_connection)
{
    Open(256);
    {
        const Semaphore_Guard guard(*transport);  // keeps the writer out
        EXPECT_TRUE(Give(pattern.substr(0, 200)));
        EXPECT_TRUE(Give(pattern.substr(0, 56)));
        EXPECT_EQ(reports.Take(), Reports{});
        EXPECT_TRUE(Give("x"));
        EXPECT_EQ(reports.Take(), Reports{Overrun(256)});
        EXPECT_TRUE(Give("y"));  // behind x, which is still in the buffer
    }
    EXPECT_EQ(Arrived(2), "xy");
    transport->Close();
    EXPECT_FALSE(Give("lost"));
    Reconnect();
    EXPECT_TRUE(Give("z"));
    EXPECT_EQ(Arrived(1), "z");
    EXPECT_EQ(reports.Take(), Reports{});
}

TEST_F(Buffered, detaching_and_attaching_forget_what_is_not_out)
{
    for (const CL_Mesg message : {Mesg_Detached, Mesg_Attached}) {
        Reconnect();
        const std::string given = Stall();
        EXPECT_TRUE(transport->Send(*source, message));
        transport->Send(*source, Mesg_Second);
        EXPECT_EQ(transport->Attached_Ticks(), message == Mesg_Attached ? 1u : 0u);
        EXPECT_TRUE(Give("new"));
        std::string arrived;
        while (!arrived.ends_with("new") && arrived.size() < given.size()) arrived += Arrived(1);
        EXPECT_LT(arrived.size(), given.size() - largest);
        EXPECT_TRUE(given.starts_with(arrived.substr(0, arrived.size() - 3)));
    }
}

TEST_F(Buffered, a_new_size_does_not_cut_the_block_that_is_on_its_way)
{
    const std::string given = Stall();
    EXPECT_TRUE(transport->SetBufferSize(300));
    EXPECT_TRUE(transport->SetBufferSize(500));
    EXPECT_TRUE(Give("new"));
    const std::string expected = given.substr(0, given.size() - largest) + "new";
    EXPECT_TRUE(Arrived(expected.size()) == expected);
}

TEST_F(Buffered, what_a_connection_left_does_not_get_into_the_next_one)
{
    const std::function<void()> ends[] = {[&] {}, [&] { transport->Close(); }, [&] { transport->Stop_Writer(); },
                                          [&] {
                                              transport->Close();
                                              EXPECT_FALSE(Give("lost"));
                                          }};
    for (const auto &end : ends) {
        SCOPED_TRACE(&end - ends);
        Stall();
        end();
        Reconnect();
        for (const char *fresh : {"new", "more"}) {
            EXPECT_TRUE(Give(fresh));
            EXPECT_EQ(Arrived(std::string(fresh).size()), fresh);
        }
    }
    EXPECT_EQ(reports.Take(), Reports{});
}

// One thread gives numbers, a second one stops the writer or detaches, and the test changes the connection.
TEST_F(Buffered, bytes_never_overtake_others_and_stay_in_their_connection)
{
    std::atomic<int> given{0};
    std::atomic<bool> goes_on{true};
    std::thread producer([&] {
        while (goes_on) {
            Give(std::string("<").append(std::to_string(++given)).append(">"));
            if (given % 16 == 0) platform::sleep_ms(1);
        }
    });
    std::thread other([&] {
        for (int i = 0; goes_on; ++i) {
            i % 2 == 0 ? transport->Stop_Writer() : static_cast<void>(transport->Send(*idle_source, Mesg_Detached));
            platform::sleep_ms(3);
        }
    });
    for (int round = 0; round < 60; ++round) {
        int last = given - 1;  // the number before was certainly given
        Reconnect();
        std::string received;
        while (received.size() < 500) received += Read(line.far);
        int out_of_order = 0;
        for (const int number : Numbers(received)) {
            out_of_order += number <= last ? 1 : 0;
            last = number;
        }
        EXPECT_EQ(out_of_order, 0) << "round " << round << ": " << received.substr(0, 100);
    }
    goes_on = false;
    producer.join();
    other.join();
}

TEST_F(Buffered, small_pieces_wait_for_more)
{
    using Clock = std::chrono::steady_clock;
    for (const std::size_t size : {1u, 63u, 64u}) {
        auto fastest = Clock::duration::max();
        for (int i = 0; i < 30; ++i) {
            const auto begin = Clock::now();
            Give(pattern.substr(0, size));
            EXPECT_EQ(Arrived(size).size(), size);
            fastest = std::min(fastest, Clock::now() - begin);
            EXPECT_TRUE(Writer_Rests());
        }
        EXPECT_EQ(fastest >= std::chrono::milliseconds(9), size < 64) << size;
    }
}

TEST_F(Buffered, a_writer_that_cannot_wait_says_so_before_it_counts_as_ended)
{
    transport->data_event_ = std::make_unique<Invalid_Event>();
    std::uint64_t given_in = 0;
    reports.on_report = [&] {
        reports.on_report = nullptr;
        std::thread producer([&] { given_in = Elapsed([&] { Give("b"); }); });
        producer.join();
    };
    const Reported said{3, 91, "line: Unexpected wait return value 'ffffffff'.", unit};
    Give("a");
    EXPECT_TRUE(Soon([&] { return reports.Has(said.text); }));
    EXPECT_TRUE(Writer_Rests());
    EXPECT_LT(given_in, 500u);  // it did not wait for the writer, which waits for this report
    EXPECT_EQ(reports.Take(), Reports{said});
    transport->data_event_ = std::make_unique<platform::Event>();
    Give("c");
    EXPECT_EQ(Arrived(3), "abc");
}

TEST_F(Buffered, failed_writes_end_the_writer_and_the_next_data_start_it_again)
{
    for (const int error : {6, 232, 233, 536, 64, 10054}) {
        const bool quiet = error < 1000 && error != 64;
        Open(256);
        platform::fault::fail_after(Operation::write, 0, static_cast<std::uint32_t>(error));
        EXPECT_TRUE(Give("A"));
        EXPECT_TRUE(quiet ? Writer_Rests() : Soon([&] { return reports.Has(Failed(error).text); }));
        EXPECT_EQ(reports.Take(), quiet ? Reports{} : Reports{Failed(error)});
        platform::fault::clear();
        EXPECT_TRUE(Give("B"));
        EXPECT_EQ(Arrived(1), "B");
        EXPECT_TRUE(Give("C"));  // the failed block does not follow
        EXPECT_EQ(Arrived(1), "C");
        EXPECT_TRUE(Soon([&] { return transport->GetBytesOut() == 2; }));
    }
}

TEST_F(Buffered, a_report_may_send_on_and_detach)
{
    platform::fault::fail_after(Operation::write, 0, 10054);
    transport->on_failure = [&] {
        platform::fault::clear();
        Give("B");
    };
    Give("A");
    EXPECT_EQ(Arrived(1), "B");

    platform::fault::fail_after(Operation::write, 0, 10054);
    std::atomic<bool> detached{false};
    transport->on_failure = [&] {
        platform::fault::clear();
        Give("lost");
        detached = transport->Send(*source, Mesg_Detached);
    };
    Give("C");
    EXPECT_TRUE(Soon([&] { return detached.load(); }));
    EXPECT_TRUE(Give("D"));
    EXPECT_EQ(Arrived(1), "D");
}

TEST_F(Buffered, a_pending_block_ends_with_its_connection)
{
    auto listener = std::make_unique<Listener>();
    transport->Use(listener->Connect());
    Stall();
    listener.reset();  // a connection that nobody has accepted is reset
    EXPECT_TRUE(Soon([&] { return reports.Has(Failed(10054).text); }));
    EXPECT_TRUE(Writer_Rests());
    EXPECT_EQ(reports.Take(), Reports{Failed(10054)});
    EXPECT_EQ(transport->Room(), largest);  // the waiting bytes were for that connection, too

    Open(largest);
    Stall();
    transport->Close();  // closed by this side: no report
    EXPECT_TRUE(Writer_Rests());

    Reconnect();
    line.near->close();  // the same, after the check of the connection
    EXPECT_TRUE(Give("lost"));
    EXPECT_TRUE(Soon([&] { return transport->Room() == largest; }));
    transport->Stop_Writer();
    Reconnect();
    for (const char *fresh : {"new", "more"}) {
        EXPECT_TRUE(Give(fresh));
        EXPECT_EQ(Arrived(1), fresh);
    }
    EXPECT_EQ(reports.Take(), Reports{});
}

TEST_F(Buffered, stops_at_once_and_starts_again)
{
    transport->terminate_refused_ = 1;  // it is asked and not killed
    std::atomic<int> reporting{0};
    transport->on_failure = [&] {
        reporting = 1;
        platform::sleep_ms(100);
        reporting = 2;
    };
    platform::fault::fail_after(Operation::write, 0, 10054);
    Give("lost");
    EXPECT_TRUE(Soon([&] { return reporting > 0; }));
    transport->Stop_Writer();
    EXPECT_EQ(reporting, 2);

    platform::fault::clear();
    Stall();
    transport->Stop_Writer();
    EXPECT_EQ(transport->Unsent(), 0u);
    transport->Send(*source, Mesg_Attached);
    Reconnect();
    {
        const Semaphore_Guard guard(*transport);
        Give("a");
        transport->Reset_Events();  // a signal that data waits is kept
    }
    EXPECT_EQ(Arrived(1), "a");
}

TEST_F(Buffered, ntrip_requests)
{
    Open(256);
    const std::uint64_t begin = platform::clock_ms();
    transport->NTRIPSendSourceTableRequest("H", 2101, true);
    EXPECT_GE(platform::clock_ms() - begin, 900u);  // it starts the writer, and gives the connection a second
    const std::string via_proxy = "GET http://H:2101/" + head + "\r\n";
    EXPECT_EQ(Arrived(via_proxy.size()), via_proxy);

    const std::string line_of = "GET /M" + head, basic = line_of + "Authorization: Basic ";
    char mountpoint[] = "M", colon[] = "a:b", two[] = "ab", one[] = "a", none[] = "", high[] = "\xFF\xFB\xBE\xFF";
    for (const auto &[account, text] :
         std::vector<std::pair<char *, std::string>>{{colon, basic + "YTpi\r\n\r\n"},
                                                     {two, basic + "YWI=\r\n\r\n"},
                                                     {one, basic + "YQ==\r\n\r\n"},
                                                     {high, basic + "//u+/w==\r\n\r\n"},
                                                     {none, basic + "\r\n\r\n"},
                                                     {Transport::No_Authorisation, line_of + "\r\n\r\n"}}) {
        transport->NTRIPSendStreamRequest(mountpoint, account, "H", 2101, false);
        EXPECT_EQ(Arrived(text.size()), text);
    }
    char out[100];
    EXPECT_EQ(transport->GenerateGETRequest(out, "/", Transport::No_Authorisation, "H", 1, false), out);
    EXPECT_EQ(out, table_request);
}

TEST_F(Buffered, a_request_outlives_a_stop_in_its_second)
{
    std::thread reader([&] { transport->NTRIPSendSourceTableRequest("H", 2101, false); });
    platform::sleep_ms(50);
    transport->Send(*source, Mesg_Attached);
    reader.join();
    EXPECT_EQ(Arrived(1), table_request);
}

TEST_F(Buffered, a_request_that_does_not_fit_is_never_cut)
{
    const std::string given = Stall();
    transport->NTRIPSendSourceTableRequest("H", 2101, false);  // replaces the waiting bytes
    const std::string expected = given.substr(0, given.size() - largest) + table_request;
    EXPECT_TRUE(Arrived(expected.size()) == expected);
    EXPECT_EQ(reports.Take(), Reports{Overrun(largest)});

    Open(256);
    Give("a");
    EXPECT_EQ(Arrived(1), "a");
    std::string mountpoint(250, 'm');
    transport->NTRIPSendStreamRequest(mountpoint.data(), Transport::No_Authorisation, "H", 2101, false);
    Give("b");
    EXPECT_EQ(Arrived(1), "b");
    EXPECT_EQ(reports.Take(), Reports{Overrun(256)});
}
