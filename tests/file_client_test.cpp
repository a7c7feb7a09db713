// Both recorders: the client at the end of a chain and the tap in its middle.
#include "kernel/file_client.h"
#include "kernel/file_client_server.h"
#include "kernel/file_support_internal.h"

#include "kernel/String_Byte_Server.h"

#include "platform/fault.h"

#include "tests/support/clients.h"
#include "tests/support/folder.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <memory>

using namespace kernel;

namespace {

// A source, and what is connected to it.
class Source {
public:
    explicit Source(Byte_Client *client) : server(String_Byte_Server::Construct(20000, nullptr))
    {
        server->Connect(client);
    }
    ~Source() { platform::fault::clear(); }
    void Feed(const std::string &bytes)
    {
        ASSERT_TRUE(server->PutBin(reinterpret_cast<const unsigned char *>(bytes.data()),
                                   static_cast<unsigned int>(bytes.size())));
        server->Work();
    }
    std::unique_ptr<String_Byte_Server> server;
};

std::string Upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

Reports Write_Failure(const std::string &unit, const std::string &name, const std::string &cause)
{
    return {{3, 9, "Could not write to file " + name, unit}, {3, 15, "Initialization Error\nCode: " + cause, unit}};
}

}  // namespace

TEST(File_Client, records_all_that_comes)
{
    Test_Folder folder;
    const std::string name = folder.Write("copy", "what was there before");
    const std::string bytes = Pattern(15000);
    {
        auto *client = File_Client::Construct(name.c_str());
        ASSERT_TRUE(client);
        EXPECT_STREQ(client->GetName(), "Client or File Communication");
        Source source(client);
        for (std::size_t at = 0; at < bytes.size(); at += 5000) source.Feed(bytes.substr(at, 5000));
        EXPECT_EQ(Whole_File(name), bytes);  // nothing waits in a buffer
    }
    EXPECT_EQ(Whole_File(name), bytes);
}

TEST(File_Client, knows_the_file_that_is_open)
{
    Test_Folder folder;
    Heard_Reports reports;
    const std::string name = folder / "copy", other = folder / "other";
    auto *client = File_Client::Construct(name.c_str());
    Source source(client);
    source.Feed("one");
    EXPECT_TRUE(client->Create(Upper(name).c_str()));  // goes on recording
    EXPECT_EQ(reports->Take(), (Reports{{2, 9, "File " + Upper(name) + " already open", "kernel/file_client"}}));
    source.Feed("two");
    EXPECT_EQ(Whole_File(name), "onetwo");
    const File_Client copy(*client);
    EXPECT_STREQ(copy.GetName(), client->GetName());
    EXPECT_TRUE(client->Create(other.c_str()));
    source.Feed("three");
    EXPECT_TRUE(client->Create(nullptr));
    source.Feed("four");  // taken and dropped
    EXPECT_EQ(source.server->MinAvail(0), 0);
    EXPECT_EQ(Whole_File(name) + "|" + Whole_File(other), "onetwo|three");
}

TEST(File_Client, takes_single_bytes)
{
    Test_Folder folder;
    auto *client = File_Client::Construct((folder / "copy").c_str());
    Source source(client);
    for (const char *byte : {"a", "b", "c"}) {
        source.Feed(byte);
        EXPECT_EQ(source.server->MinAvail(0), 0);
    }
    EXPECT_EQ(Whole_File(folder / "copy"), "abc");
    // A tap that nobody feeds answers 65535 bytes and brings none.
    auto *tap = File_Client_Server::Construct(nullptr);
    auto *end = File_Client::Construct((folder / "end").c_str());
    tap->Connect(end);
    EXPECT_TRUE(end->Send(*tap, Mesg_Data_Ready));
    EXPECT_EQ(Whole_File(folder / "end"), "");
    Object::Destruct(static_cast<Byte_Server *>(tap));
}

TEST(File_Client, a_copy_reports_where_the_original_does)
{
    Error_Handler *const built_in = Object::Get_Default_Handler();
    Object::Set_Default_Handler(new Capturing_Handler);
    const std::unique_ptr<File_Client> original(File_Client::Construct()), muted(File_Client::Construct());
    muted->Set_Error_Handler(nullptr);
    const File_Client copy(*original), muted_copy(*muted);
    EXPECT_EQ(copy.Get_Error_Handler(), original->Get_Error_Handler());
    EXPECT_EQ(muted_copy.Get_Error_Handler(), nullptr);
    Object::Set_Default_Handler(built_in);  // deletes the one that both had
    EXPECT_EQ(copy.Get_Error_Handler(), built_in);
}

TEST(File_Client, names_every_cause)
{
    struct Case {
        std::uint32_t error;
        const char *text;
    };
    const Open_Error_Words words = {"N", "D"};
    for (const Case &c : {Case{0, ""},
                          {2, "N"},
                          {4, "too many open files"},
                          {5, "D"},
                          {6, "invalid handle"},
                          {8, "not enough memory"},
                          {9, "invalid block"},
                          {10, "bad environment"},
                          {11, "bad format"},
                          {12, "invalid access"},
                          {13, "invalid Data"},
                          {21, "not ready"},
                          {110, "open failed"},
                          {123, "File name invalid"},
                          {1450, "No system resources"},
                          {1816, "Not enough quota is available to process this command."},
                          {3, "NT ErrorCode: 3 = 0x00000003"}})
        EXPECT_EQ(Open_Error_Text(c.error, words), c.text) << c.error;
}

TEST(File_Client, says_what_it_cannot_open)
{
    Test_Folder folder;
    Heard_Reports reports;
    const std::string busy = folder / "busy", missing = folder / "no folder/x";
    const std::unique_ptr<File_Client> writer(File_Client::Construct(busy.c_str()));
    ASSERT_TRUE(writer);
    struct Case {
        std::string name, cause;
    };
    for (const Case &c : {Case{folder / "", "access denied (File open ?)"}, {busy, "NT ErrorCode: 32 = 0x00000020"}}) {
        const std::unique_ptr<File_Client> client(File_Client::Construct(c.name.c_str()));
        EXPECT_TRUE(client && client->IsValid());  // it runs without a file
        EXPECT_EQ(reports->Take(), (Reports{{3, 9, "Could not open file " + c.name, "kernel/file_client"},
                                            {3, 15, "Initialization Error\nCode: " + c.cause, "kernel/file_client"}}));
    }
    const std::unique_ptr<File_Client_Server> tap(File_Client_Server::Construct(missing.c_str()));
    EXPECT_TRUE(tap && tap->IsValid());
    EXPECT_FALSE(tap->Create(missing.c_str()));
    const Reports heard = reports->Take();
    ASSERT_EQ(heard.size(), 4u);
    EXPECT_FALSE(tap->Create((folder / "").c_str()));
    EXPECT_EQ(reports->Take().at(1).text, "Initialization Error\nCode: access denied (Device open ?)");
    EXPECT_EQ(heard[2], (Reported{3, 9, "Could not open File " + missing, "kernel/file_client_server"}));
}

TEST(File_Client, a_full_disk_closes_the_file_and_not_the_stream)
{
    Test_Folder folder;
    Heard_Reports reports;
    const std::string name = folder / "copy", bytes = Pattern(9000);
    auto *client = File_Client::Construct(name.c_str());
    Source source(client);
    platform::fault::fail_after(platform::fault::Operation::write, 5000, 112);
    source.Feed(bytes);
    EXPECT_EQ(reports->Take(), Write_Failure("kernel/file_client", name, "NT ErrorCode: 112 = 0x00000070"));
    EXPECT_EQ(Whole_File(name), bytes.substr(0, 5000));
    source.Feed("more");
    EXPECT_EQ(source.server->MinAvail(0), 0);
    EXPECT_EQ(reports->Take(), Reports{});
    EXPECT_TRUE(client->IsValid());
}

TEST(File_Client_Server, records_what_its_client_takes)
{
    Test_Folder folder;
    const std::string name = folder.Write("copy", "before|");
    auto *tap = File_Client_Server::Construct(name.c_str());
    ASSERT_TRUE(tap);
    EXPECT_STREQ(tap->GetName(), "Client Server for File Communication");
    auto *client = new Recording_Client;
    Source source(tap);
    tap->Connect(&client->Pull(3));
    client->Take();
    source.Feed("abcdefgh");  // the last two are not asked for yet
    EXPECT_EQ(client->Take(), (Heard{70, 80, 70, 80, 70, 40}));
    EXPECT_EQ(client->senders.back(), tap);
    EXPECT_EQ(client->pulled, "abcdef");
    EXPECT_EQ(Whole_File(name), "before|abcdef");

    EXPECT_TRUE(tap->Create(Upper(name).c_str()));  // stays, and silently
    source.Feed("i");
    EXPECT_EQ(Whole_File(name), "before|abcdefghi");
    EXPECT_TRUE(tap->Create(nullptr));
    source.Feed("jkl");
    EXPECT_EQ(client->pulled, "abcdefghijkl");
    EXPECT_EQ(Whole_File(name), "before|abcdefghi");
}

TEST(File_Client_Server, passes_single_bytes_and_takes_one_back)
{
    Test_Folder folder;
    const std::string name = folder / "copy";
    auto *tap = File_Client_Server::Construct(name.c_str());
    auto *client = new Recording_Client;
    Source source(tap);
    std::string got;
    client->On(Mesg_Request_Invite, [](Byte_Server &s) { return s.Request(1), true; });
    client->On(Mesg_Data_Ready, [&](Byte_Server &s) {
        got += static_cast<char>(s.GetByte());
        got += static_cast<char>(s.GetByte());
        got += static_cast<char>(s.UnGetByte(static_cast<unsigned char>('x')));  // takes one more
        EXPECT_EQ(s.MinAvail(0), 2);
        got += static_cast<char>(s.GetByte());
        got += static_cast<char>(s.GetByte());
        EXPECT_EQ(s.GetByte(), No_Byte);
        return true;
    });
    tap->Connect(client);
    source.Feed("abcde");
    EXPECT_EQ(got, "abcde");
    EXPECT_EQ(Whole_File(name), "ade");  // the d replaced the b
}

TEST(File_Client_Server, outside_a_message_there_is_no_upstream)
{
    const std::unique_ptr<File_Client_Server> tap(File_Client_Server::Construct(nullptr));
    tap->Byte_Server::Dont_Delete_Me();
    Bare_Server upstream;
    unsigned char byte = 0;
    EXPECT_EQ(tap->GetNBytes(&byte, 1), 65535);
    EXPECT_EQ(tap->GetByte(), No_Byte);
    EXPECT_EQ(tap->UnGetByte(byte), No_Byte);
    EXPECT_EQ(tap->MinAvail(1), 0);
    EXPECT_FALSE(tap->Request(1));
    EXPECT_TRUE(tap->Send(upstream, Mesg_Byte_Type));
    EXPECT_FALSE(tap->Send(upstream, Mesg_Data_Ready));  // nobody downstream
    EXPECT_TRUE(tap->IsInheritedFrom("Basisklasse Byte_Server") && tap->IsInheritedFrom("Basisklasse Byte_Client"));

    auto *client = new Recording_Client;
    tap->Connect(client);
    client->Take();
    // A message from inside a message leaves the outer one its bytes.
    client->On(Mesg_Status_40, [&](Byte_Server &s) {
        tap->Send(upstream, Mesg_Status_50);
        return s.MinAvail(0) == 0 && s.GetNBytes(&byte, 1) == 0;
    });
    EXPECT_TRUE(tap->Send(upstream, Mesg_Status_40));
    EXPECT_TRUE(tap->Send(upstream, Mesg_Byte_Type));
    EXPECT_EQ(client->Take(), (Heard{40, 50}));
}

TEST(File_Client_Server, a_full_disk_does_not_stop_the_stream)
{
    Test_Folder folder;
    Heard_Reports reports;
    const std::string name = folder / "copy", bytes = Pattern(9000);
    auto *tap = File_Client_Server::Construct(name.c_str());
    auto *client = new Recording_Client;
    Source source(tap);
    tap->Connect(&client->Pull_All());
    platform::fault::fail_after(platform::fault::Operation::write, 5000, 112);
    source.Feed(bytes);
    source.Feed(bytes);
    EXPECT_EQ(client->pulled, bytes + bytes);
    EXPECT_EQ(reports->Take(), Write_Failure("kernel/file_client_server", name, "NT ErrorCode: 112 = 0x00000070"));
    EXPECT_EQ(Whole_File(name), bytes.substr(0, 5000));
}
