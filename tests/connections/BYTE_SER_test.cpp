#include "kernel/connections/BYTE_SER.h"

#include "kernel/bytes/String_Byte_Server.h"
#include "kernel/files/file_client_server.h"

#include "tests/support/clients.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

using namespace kernel;
using namespace std::literals;

namespace {

const char unit[] = "kernel/BYTE_SER";

// A server with these bytes in it; notes what it is asked for.
class Full_Server : public String_Byte_Server {
public:
    explicit Full_Server(const std::string &bytes) : Object("full"), String_Byte_Server("full", 256, nullptr)
    {
        for (const char byte : bytes) Put(static_cast<unsigned char>(byte));
    }
    bool Request(long n) override
    {
        requests.push_back(n);
        return String_Byte_Server::Request(n);
    }
    std::string Rest()
    {
        char text[257];
        return {text, static_cast<std::size_t>(GetString(text, 256))};
    }
    std::vector<long> requests;
};

}  // namespace

TEST(Byte_Server, base_pull_operations_ask_for_an_implementation)
{
    Heard_Reports reports;
    Bare_Server server("mine");
    unsigned char byte = 0;
    EXPECT_EQ(server.get(byte), No_Byte);
    EXPECT_EQ(byte, 0xFF);
    EXPECT_EQ(server.UnGetByte(byte), No_Byte);
    EXPECT_EQ(server.GetNBytes(&byte, 1), 0);
    EXPECT_EQ(server.MinAvail(4), 0);
    Reports expected;
    for (const std::string operation : {"GetByte", "UnGetByte", "GetNBytes", "MinAvail"})
        expected.push_back(
            {4, 34, "Please implement " + operation + " in class mine inherited from Byte_Server", unit});
    EXPECT_EQ(reports->Take(), expected);
}

TEST(Byte_Server, pushes_back_bytes_only)
{
    Heard_Reports reports;
    Full_Server server("ab");
    EXPECT_EQ(server.UnGetByte(No_Byte), No_Byte);
    EXPECT_EQ(server.UnGetByte(static_cast<unsigned short>(0x100)), No_Byte);
    EXPECT_EQ(reports->Take(), (Reports{{3, 33, "UnGetByte(0x0100) out of Range in inherited class full", unit}}));
    EXPECT_EQ(server.UnGetByte(static_cast<unsigned short>('x')), 'x');
    EXPECT_EQ(server.UnGetByte('y'), 'y');
    EXPECT_EQ(server.Rest(), "yxab");
}

TEST(Byte_Server, GetString_stops_at_the_count_and_not_at_line_ends)
{
    Full_Server server("a\nbc");
    char text[8] = "zzzzzzz";
    EXPECT_EQ(server.GetString(nullptr, 3), 0);
    for (const auto &[n, got] : {std::pair{0, ""}, {3, "a\nb"}, {3, "c"}}) {
        EXPECT_EQ(server.GetString(text, n), static_cast<long>(std::strlen(got)));
        EXPECT_STREQ(text, got);
    }
}

// Each taker of blocks asks through Bytes_Moved; the largest block is asked for by the drain.
TEST(Byte_Server, a_result_that_is_no_count_has_moved_nothing)
{
    EXPECT_EQ(Bytes_Moved(512, 512), 512);
    EXPECT_EQ(Bytes_Moved(1, 512), 1);
    for (const long result : {-1L, 0L, 513L, 65535L}) EXPECT_EQ(Bytes_Moved(result, 512), 0) << result;
    const std::unique_ptr<File_Client_Server> tap(File_Client_Server::Construct(nullptr));  // without an upstream
    auto *const drain = Byte_Client_NULL::Construct(512);
    tap->Connect(drain);
    EXPECT_TRUE(drain->Send(*tap, Mesg_Data_Ready));
    EXPECT_EQ(drain->Byte_Count(), 0u);
}

TEST(Byte_Server, scans_for_bytes)
{
    Full_Server one("xy\xB5z"), with_sign("xy\xB5z"), set("..B\0A"s);
    EXPECT_TRUE(one.Sync_Byte(static_cast<unsigned char>(0xB5)));
    EXPECT_EQ(one.Rest(), "z");
    EXPECT_EQ(one.requests, (std::vector<long>{1, 1, 1}));
    EXPECT_FALSE(with_sign.Sync_Byte(static_cast<signed char>(0xB5)));  // negative: matches no byte
    EXPECT_EQ(with_sign.Rest(), "");
    EXPECT_TRUE(Full_Server("xy$").Sync_Byte('$'));
    EXPECT_EQ(set.Sync_Bytes("AB"), 'B');
    EXPECT_EQ(set.Sync_Bytes("AB"), 0);  // the set's own terminator
    EXPECT_EQ(set.Sync_Bytes(reinterpret_cast<const unsigned char *>("AB")), 'A');
    EXPECT_EQ(set.Sync_Bytes("AB"), No_Byte);
}

TEST(Byte_Server, scans_for_texts)
{
    const struct {
        const char *input, *text;
        bool found;
        const char *rest;  // after Sync_String
        bool upper_found;
        const char *upper_rest;
        std::vector<long> requests;  // of both
    } cases[] = {
        {"$GPz", "$GP", true, "z", true, "z", {}},      {"$GXz", "$GP", false, "Xz", false, "z", {0}},
        {"X$G", "$GP", false, "$G", false, "$G", {0}},  {"$g", "$G", false, "g", true, "", {0}},
        {"$G", "$GP", false, "", false, "", {}},        {"abc", "", true, "abc", true, "abc", {}},
        {"\xE4z", "\xE4", false, "z", false, "z", {0}},
    };
    for (const auto &c : cases) {
        Full_Server server(c.input), upper(c.input);
        EXPECT_EQ(server.Sync_String(c.text), c.found) << c.input;
        EXPECT_EQ(server.requests, c.requests) << c.input;
        EXPECT_EQ(server.Rest(), c.rest) << c.input;
        EXPECT_EQ(upper.Sync_String_Upper(c.text), c.upper_found) << c.input;
        EXPECT_EQ(upper.requests, c.upper_found ? std::vector<long>{} : c.requests) << c.input;
        EXPECT_EQ(upper.Rest(), c.upper_rest) << c.input;
    }
}

TEST(Byte_Server, switches_between_clients)
{
    bool refused_deleted = false;
    Bare_Server server;
    Recording_Client first, second;
    first.Dont_Delete_Me();
    EXPECT_EQ(server.Switch(&first), nullptr);
    EXPECT_EQ(first.Take(), (Heard{Mesg_Byte_Type}));
    EXPECT_EQ(server.Switch(&second), &first);
    EXPECT_EQ(first.Take(), (Heard{Mesg_Detached}));
    EXPECT_EQ(second.Take(), (Heard{Mesg_Byte_Type, Mesg_Attached}));
    EXPECT_EQ(server.Switch(&second), nullptr);  // nothing to hand over
    EXPECT_EQ(server.GetClient(), &second);
    // Each hears its message from a server whose client it is.
    const auto is_mine = [](Recording_Client &client) {
        return [&client](Byte_Server &from) {
            EXPECT_EQ(from.GetClient(), &client);
            return true;
        };
    };
    first.On(Mesg_Attached, is_mine(first)).On(Mesg_Detached, is_mine(first));
    second.On(Mesg_Attached, is_mine(second)).On(Mesg_Detached, is_mine(second));
    EXPECT_TRUE(server.Switch(&first) == &second && server.Switch(&second) == &first);
    EXPECT_EQ(first.Take(), (Heard{Mesg_Byte_Type, Mesg_Attached, Mesg_Detached}));
    EXPECT_EQ(second.Take(), (Heard{Mesg_Detached, Mesg_Byte_Type, Mesg_Attached}));

    auto *refusing = new Recording_Client(&refused_deleted);
    refusing->Answer_With(Mesg_Byte_Type, false);
    EXPECT_EQ(server.Switch(refusing), nullptr);
    EXPECT_TRUE(refused_deleted);
    EXPECT_EQ(second.Take(), (Heard{Mesg_Disconnect_Query}));
    EXPECT_FALSE(server.IsConnected());
    server.Switch(&first);
    EXPECT_EQ(server.Switch(nullptr), nullptr);
    EXPECT_FALSE(server.IsConnected());
}

TEST(Byte_Server, passes_notices_to_its_client)
{
    Bare_Server upstream("up"), middle("middle");
    EXPECT_TRUE(middle.Forward_Send(upstream, Mesg_Login));  // nobody to ask
    EXPECT_FALSE(middle.MesgLogin() || middle.MesgAskPassword() || middle.MesgStart());
    auto *client = new Recording_Client;
    middle.Connect(client);
    client->Take();
    EXPECT_TRUE(!middle.MesgLogin() && !middle.MesgAskPassword() && middle.MesgStart());
    EXPECT_EQ(client->Take(), (Heard{Mesg_Login, Mesg_Ask_Password, Mesg_Start}));
    EXPECT_FALSE(middle.Forward_Send(upstream, Mesg_Login));
    EXPECT_EQ(client->senders.back(), &upstream);  // in its name
    client->Take();
    for (int m = 0; m <= 1010; ++m) middle.Forward_Send(upstream, static_cast<CL_Mesg>(m));
    EXPECT_EQ(client->Take(),
              (Heard{Mesg_Pause, Mesg_Status_40, Mesg_Status_50, Mesg_Status_90, Mesg_Status_100, Mesg_Status_110,
                     Mesg_Attached, Mesg_Detached, Mesg_Login, Mesg_Ask_Password, Mesg_Start, Mesg_Second, Mesg_Minute,
                     Mesg_Hour, Mesg_Day, Mesg_Status_210, Mesg_Status_220, Mesg_Status_230}));
}

TEST(Byte_Client, derives_minutes_for_the_client_of_the_server)
{
    Bare_Server server;
    Recording_Client passing;  // hears the seconds of a server whose client is another
    auto *const connected = new Recording_Client;
    server.Connect(connected);
    connected->Take();
    for (int i = 0; i < 3600; ++i) passing.Send(server, Mesg_Second);
    Heard expected(60, Mesg_Minute);
    expected.push_back(Mesg_Hour);
    EXPECT_EQ(connected->Take(), expected);
    EXPECT_EQ(passing.Take(), Heard(3600, Mesg_Second));
}

TEST(Byte_Client_NULL, drains_in_its_own_way)
{
    const std::string bytes = "12345678";
    for (const long request_size : {-3, 0, 1, 4, 5, 512}) {
        Heard_Reports reports;
        Full_Server server(bytes);
        auto *client = Byte_Client_NULL::Construct(request_size);
        const bool drains = request_size > 0;
        EXPECT_STREQ(client->GetName(), "Basisklasse Byte_Client");
        server.Connect(client);
        EXPECT_EQ(client->Send(server, Mesg_Request_Invite), drains) << request_size;
        EXPECT_EQ(client->Send(server, Mesg_Data_Ready), drains) << request_size;
        EXPECT_TRUE(client->Send(server, Mesg_Pause));
        EXPECT_EQ(client->Byte_Count(), drains ? 8u : 0u) << request_size;
        EXPECT_EQ(client->Message_Count(), 4u);  // Mesg_Byte_Type was the first
        EXPECT_EQ(server.Rest(), drains ? "" : bytes);
        const Reports refused = {{3, 28, "Server sends Data without request", unit}};
        EXPECT_EQ(reports->Take(), drains ? Reports{} : refused);
    }
    Full_Server server(bytes);
    const std::unique_ptr<Byte_Client_NULL> client(Byte_Client_NULL::Construct(4));
    server.Connect(client.get());
    server.Disconnect();  // frees its buffer
    EXPECT_FALSE(client->IsValid());
    EXPECT_TRUE(server.Connect(client.get()));
    EXPECT_FALSE(server.Work());  // it refuses, instead of pulling nothing for ever
    server.SetClient(nullptr);
}
