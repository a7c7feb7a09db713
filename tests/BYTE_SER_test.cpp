#include "kernel/BYTE_SER.h"

#include "kernel/String_Byte_Server.h"

#include "tests/support/clients.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <memory>
#include <string_view>

using namespace kernel;
using namespace std::literals;

namespace {

// A server with these bytes in it; notes what it is asked for.
class Full_Server : public String_Byte_Server {
public:
    explicit Full_Server(std::string_view bytes) : Object("full"), String_Byte_Server("full", 256, nullptr)
    {
        PutBin(reinterpret_cast<const unsigned char *>(bytes.data()), static_cast<unsigned int>(bytes.size()));
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
    unsigned char bytes[4];
    EXPECT_EQ(server.GetByte(), No_Byte);
    EXPECT_EQ(server.UnGetByte(bytes[0] = 1), No_Byte);
    EXPECT_EQ(server.GetNBytes(bytes, 4), 0);
    EXPECT_EQ(server.MinAvail(4), 0);
    const char *const operations[] = {"GetByte", "UnGetByte", "GetNBytes", "MinAvail"};
    Reports expected;
    for (const std::string operation : operations)
        expected.push_back(
            {4, 34, "Please implement " + operation + " in class mine inherited from Byte_Server", "kernel/BYTE_SER"});
    EXPECT_EQ(reports->Take(), expected);
    unsigned char byte = 0;
    EXPECT_EQ(server.get(byte), No_Byte);
    EXPECT_EQ(byte, 0xFF);
}

TEST(Byte_Server, pushes_back_bytes_only)
{
    Heard_Reports reports;
    Full_Server server("ab");
    EXPECT_EQ(server.UnGetByte(No_Byte), No_Byte);
    EXPECT_EQ(server.UnGetByte(static_cast<unsigned short>(0x100)), No_Byte);
    EXPECT_EQ(reports->Take(),
              (Reports{{3, 33, "UnGetByte(0x0100) out of Range in inherited class full", "kernel/BYTE_SER"}}));
    EXPECT_EQ(server.UnGetByte(static_cast<unsigned short>('x')), 'x');
    EXPECT_EQ(server.UnGetByte('y'), 'y');
    EXPECT_EQ(server.Rest(), "yxab");
}

TEST(Byte_Server, GetString_stops_at_the_count_and_not_at_line_ends)
{
    Full_Server server("a\nbc");
    char text[8] = "zzzzzzz";
    EXPECT_EQ(server.GetString(nullptr, 3), 0);
    EXPECT_EQ(server.GetString(text, 0), 0);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(server.GetString(text, 3), 3);
    EXPECT_STREQ(text, "a\nb");
    EXPECT_EQ(server.GetString(text, 3), 1);
    EXPECT_STREQ(text, "c");
}

TEST(Byte_Server, scans_for_bytes)
{
    Full_Server one("xy\xB5z");
    EXPECT_TRUE(one.Sync_Byte(static_cast<unsigned char>(0xB5)));
    EXPECT_EQ(one.Rest(), "z");
    EXPECT_EQ(one.requests, (std::vector<long>{1, 1, 1}));

    Full_Server with_sign("xy\xB5z");  // a signed 0xB5 is negative and matches no byte
    EXPECT_FALSE(with_sign.Sync_Byte(static_cast<signed char>(0xB5)));
    EXPECT_EQ(with_sign.Rest(), "");
    EXPECT_TRUE(Full_Server("xy$").Sync_Byte('$'));

    Full_Server set("..B\0A"sv);
    EXPECT_EQ(set.Sync_Bytes("AB"), 'B');
    EXPECT_EQ(set.Sync_Bytes("AB"), 0);  // the set's own terminator
    EXPECT_EQ(set.Sync_Bytes(reinterpret_cast<const unsigned char *>("AB")), 'A');
    EXPECT_EQ(set.Sync_Bytes("AB"), No_Byte);
}

TEST(Byte_Server, scans_for_texts)
{
    struct Case {
        const char *input, *text;
        bool found;
        const char *rest;  // after Sync_String
        bool upper_found;
        const char *upper_rest;
    };
    const Case cases[] = {
        {"$GPz", "$GP", true, "z", true, "z"},       {"$GXz", "$GP", false, "Xz", false, "z"},
        {"X$GP", "$GP", false, "$GP", false, "$GP"}, {"$gpz", "$GP", false, "gpz", true, "z"},
        {"$G", "$GP", false, "", false, ""},         {"abc", "", true, "abc", true, "abc"},
        {"\xE4z", "\xE4", false, "z", false, "z"},
    };
    for (const Case &c : cases) {
        Full_Server server(c.input), upper(c.input);
        EXPECT_EQ(server.Sync_String(c.text), c.found) << c.input;
        EXPECT_EQ(server.Rest(), c.rest) << c.input;
        EXPECT_EQ(upper.Sync_String_Upper(c.text), c.upper_found) << c.input;
        EXPECT_EQ(upper.Rest(), c.upper_rest) << c.input;
    }
    Full_Server mismatch("X");
    mismatch.Sync_String("$");
    mismatch.UnGetByte('X');
    mismatch.Sync_String_Upper("$");
    EXPECT_EQ(mismatch.requests, (std::vector<long>{0, 0}));
}

TEST(Byte_Server, switches_between_clients)
{
    bool refused_deleted = false;
    Full_Server server("");
    Recording_Client first, second;
    first.Dont_Delete_Me();
    second.Dont_Delete_Me();
    EXPECT_EQ(server.Switch(&first), nullptr);
    EXPECT_EQ(first.Take(), (Heard{1000}));
    EXPECT_EQ(server.Switch(&second), &first);
    EXPECT_EQ(first.Take(), (Heard{150}));
    EXPECT_EQ(second.Take(), (Heard{1000, 140}));
    EXPECT_EQ(server.Switch(&second), nullptr);  // nothing to hand over
    EXPECT_EQ(server.GetClient(), &second);
    second.Take();

    auto *refusing = new Recording_Client(&refused_deleted);
    refusing->Answer_With(Mesg_Byte_Type, false);
    EXPECT_EQ(server.Switch(refusing), nullptr);
    EXPECT_TRUE(refused_deleted);
    EXPECT_EQ(second.Take(), (Heard{20}));
    EXPECT_FALSE(server.IsConnected());

    server.Switch(&first);
    EXPECT_EQ(server.Switch(nullptr), nullptr);
    EXPECT_FALSE(server.IsConnected());
}

TEST(Byte_Server, login_messages_reach_the_client)
{
    Full_Server server("");
    EXPECT_FALSE(server.MesgLogin() || server.MesgAskPassword() || server.MesgStart());
    auto *client = new Recording_Client;
    server.Connect(client);
    client->Take();
    EXPECT_FALSE(server.MesgLogin());
    EXPECT_FALSE(server.MesgAskPassword());
    EXPECT_TRUE(server.MesgStart());
    EXPECT_EQ(client->Take(), (Heard{160, 170, 180}));
}

TEST(Byte_Server, forwards_notices_in_the_name_of_the_upstream_server)
{
    Bare_Server upstream("up"), middle("middle");
    EXPECT_TRUE(middle.Forward_Send(upstream, Mesg_Login));  // nobody to ask
    auto *client = new Recording_Client;
    client->Answer_With(Mesg_Status_50, false);
    middle.Connect(client);
    client->Take();
    EXPECT_FALSE(middle.Forward_Send(upstream, Mesg_Status_50));
    EXPECT_EQ(client->senders.back(), &upstream);
    client->Take();
    for (int m = 0; m <= 1010; ++m) middle.Forward_Send(upstream, static_cast<CL_Mesg>(m));
    EXPECT_EQ(client->Take(),
              (Heard{30, 40, 50, 90, 100, 110, 140, 150, 160, 170, 180, 200, 201, 202, 203, 210, 220, 230}));
}

TEST(Byte_Client_NULL, drains_in_its_own_way)
{
    struct Case {
        long request_size;
        std::uint32_t bytes;
        const char *rest;
        bool invite, ready;
    };
    for (const Case &c : {Case{0, 0, "12345678", false, false},
                          {1, 8, "", true, true},
                          {4, 8, "", true, true},
                          {5, 8, "", true, true},
                          {512, 8, "", true, true},
                          {-3, 0, "12345678", false, false}}) {
        Heard_Reports reports;
        Full_Server server("12345678");
        auto *client = Byte_Client_NULL::Construct(c.request_size);
        ASSERT_TRUE(client);
        EXPECT_STREQ(client->GetName(), "Basisklasse Byte_Client");
        server.Connect(client);
        EXPECT_EQ(client->Send(server, Mesg_Request_Invite), c.invite) << c.request_size;
        EXPECT_EQ(client->Send(server, Mesg_Data_Ready), c.ready) << c.request_size;
        EXPECT_TRUE(client->Send(server, Mesg_Pause));
        EXPECT_EQ(client->Byte_Count(), c.bytes) << c.request_size;
        EXPECT_EQ(client->Message_Count(), 4u);  // 1000 was the first
        EXPECT_EQ(server.Rest(), c.rest);
        const Reports refused = {{3, 28, "Server sends Data without request", "kernel/BYTE_SER"}};
        EXPECT_EQ(reports->Take(), c.ready ? Reports{} : refused);
    }
    Full_Server server("12345678");
    auto *client = Byte_Client_NULL::Construct(4);
    client->Dont_Delete_Me();
    server.Connect(client);
    server.Disconnect();  // frees its buffer
    EXPECT_FALSE(client->IsValid());
    EXPECT_TRUE(server.Connect(client));
    EXPECT_FALSE(server.Work());  // it refuses, instead of pulling nothing for ever
    server.SetClient(nullptr);
    Byte_Client_NULL::Destruct(client);
}
