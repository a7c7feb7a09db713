// Both recorders: the client at the end of a chain and the tap in its middle.
#include "kernel/files/file_client.h"
#include "kernel/files/file_client_server.h"
#include "kernel/files/file_support_internal.h"

#include "kernel/bytes/String_Byte_Server.h"

#include "platform/fault.h"

#include "tests/support/clients.h"
#include "tests/support/folder.h"
#include "tests/support/reports.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cctype>
#include <memory>
#include <thread>

using namespace kernel;

namespace {

// A source with a recorder connected to it, a folder, and what is reported.
template <class T>
class Recording {
public:
    explicit Recording(const std::string &before = "")
        : name(folder.Write("copy", before)), recorder(T::Construct(name.c_str()))
    {
        server->Connect(recorder);
    }
    ~Recording() { platform::fault::clear(); }
    // True when the recorder took all of it.
    bool Feed(const std::string &bytes)
    {
        server->PutStr(bytes.c_str());
        server->Work();
        return server->MinAvail(0) == 0;
    }
    std::string Copy() const { return Whole_File(name); }

    const Test_Folder folder;
    const std::string name;
    Heard_Reports reports;
    T *const recorder;  // the server's
    const std::unique_ptr<String_Byte_Server> server{String_Byte_Server::Construct(20000, nullptr)};
};

std::string Letters(std::size_t n)
{
    std::string text(n, '\0');
    for (std::size_t i = 0; i < n; ++i) text[i] = static_cast<char>('A' + i % 57);
    return text;
}

std::string Upper(std::string text)
{
    for (char &c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

TEST(File_Client, records_all_that_comes)
{
    Recording<File_Client> to("what was there before");
    EXPECT_STREQ(to.recorder->GetName(), "Client or File Communication");
    const std::string bytes = Letters(15000), other = to.folder / "other";
    for (std::size_t at = 0; at < bytes.size(); at += 5000) EXPECT_TRUE(to.Feed(bytes.substr(at, 5000)));
    EXPECT_EQ(to.Copy(), bytes);  // nothing waits in a buffer
    EXPECT_TRUE(to.recorder->Create(Upper(to.name).c_str()));
    EXPECT_EQ(to.reports->Take(), (Reports{{2, 9, "File " + Upper(to.name) + " already open", "kernel/file_client"}}));
    EXPECT_TRUE(to.Feed("!"));  // goes on recording
    EXPECT_TRUE(to.recorder->Create(other.c_str()) && to.Feed("three"));
    EXPECT_TRUE(to.recorder->Create(nullptr) && to.Feed("four"));  // taken and dropped
    EXPECT_EQ(to.Copy() + "|" + Whole_File(other), bytes + "!|three");
}

TEST(File_Client, names_every_cause)
{
    std::string texts;
    for (const std::uint32_t error : {0, 2, 4, 5, 6, 8, 9, 10, 11, 12, 13, 21, 110, 123, 1450, 1816, 222, 3})
        texts += Open_Error_Text(error, {"N", "D"}) + "|";
    EXPECT_EQ(texts, "|N|too many open files|D|invalid handle|not enough memory|invalid block|bad environment|"
                     "bad format|invalid access|invalid Data|not ready|open failed|File name invalid|"
                     "No system resources|Not enough quota is available to process this command.|no regular file|"
                     "NT ErrorCode: 3 = 0x00000003|");
}

TEST(File_Client, takes_names_for_the_same_when_they_differ_in_the_case_of_ascii_letters)
{
    const struct {
        const char *a, *b;
        bool same;
    } cases[] = {{"", "", true},           {"copy", "COPY", true},     {"copy", "copy2", false},
                 {"copy2", "copy", false}, {"copy", "", false},        {"[", "{", false},
                 {"@", "`", false},        {"AZ09_é", "az09_é", true}, {"\xC3\x89", "\xC3\xA9", false}};
    for (const auto &c : cases) EXPECT_EQ(Same_File_Name(c.a, c.b), c.same) << c.a << ' ' << c.b;
}

TEST(File_Client, a_copy_has_no_file_and_an_assigned_one_keeps_its_own)
{
    Recording<File_Client> to;
    const std::string name = to.folder / "other", folder = to.folder / "";
    const std::unique_ptr<File_Client> failed(File_Client::Construct(folder.c_str()));
    to.reports->Take();
    *to.recorder = *failed;
    EXPECT_TRUE(to.Feed("abc"));
    EXPECT_EQ(to.Copy(), "abc");
    to.recorder->ErrorBox();
    const std::string text = "Initialization Error\nCode: access denied (File open ?)";
    EXPECT_EQ(to.reports->Take(), (Reports{{3, 15, text, "kernel/file_client"}}));
    {
        File_Client copy(*to.recorder);
        EXPECT_TRUE(copy.IsValid());
        EXPECT_STREQ(copy.GetName(), to.recorder->GetName());
        copy.ErrorBox();  // no error was taken over
        copy.Send(*to.server, Mesg_Data_Ready);
        EXPECT_TRUE(copy.Create(name.c_str()));
    }
    EXPECT_EQ(to.reports->Take(), Reports{});
    EXPECT_TRUE(to.Feed("d"));  // the end of the copy closed its own file
    EXPECT_EQ(to.Copy(), "abcd");
}

TEST(File_Client, names_are_utf_8_and_of_any_length)
{
    Recording<File_Client> to;
    const std::unique_ptr<File_Client_Server> tap(File_Client_Server::Construct(nullptr));
    for (const std::string &name : {to.folder / "запись № 1", to.folder.Long_Name()}) {
        EXPECT_TRUE(to.recorder->Create(name.c_str()) && to.Feed("abc") && to.recorder->Create(nullptr));
        EXPECT_EQ(Whole_File(name), "abc");
        EXPECT_TRUE(tap->Create(name.c_str()) && tap->Create(nullptr));
        EXPECT_EQ(Whole_File(name), "abc");
    }
}

TEST(File_Client, says_what_it_cannot_open)
{
    Recording<File_Client> writer;
    const std::string folder = writer.folder / "", unit = "kernel/file_client";
    const std::pair<std::string, std::string> cases[] = {{folder, "access denied (File open ?)"},
                                                         {writer.name, "NT ErrorCode: 32 = 0x00000020"}};
    for (const auto &[name, cause] : cases) {
        const std::unique_ptr<File_Client> client(File_Client::Construct(name.c_str()));
        EXPECT_TRUE(client && client->IsValid());  // it runs without a file
        EXPECT_EQ(writer.reports->Take(), (Reports{{3, 9, "Could not open file " + name, unit},
                                                   {3, 15, "Initialization Error\nCode: " + cause, unit}}));
    }
    const std::unique_ptr<File_Client_Server> tap(File_Client_Server::Construct(folder.c_str()));
    EXPECT_TRUE(tap && tap->IsValid());
    EXPECT_FALSE(tap->Create(nullptr) && tap->Create(folder.c_str()));
    const Reports heard = writer.reports->Take();
    ASSERT_EQ(heard.size(), 4u);
    EXPECT_EQ(heard[2], (Reported{3, 9, "Could not open File " + folder, unit + "_server"}));
    EXPECT_EQ(heard[3].text, "Initialization Error\nCode: access denied (Device open ?)");
}

TEST(File_Client, a_full_disk_closes_the_file_and_not_the_stream)
{
    const std::string bytes = Letters(9000);
    const auto fill = [&](auto &to, const std::string &unit) {
        platform::fault::fail_after(platform::fault::Operation::write, 5000, 112);
        EXPECT_TRUE(to.Feed(bytes) && to.Feed(bytes));
        const std::string cause = "Initialization Error\nCode: NT ErrorCode: 112 = 0x00000070";
        EXPECT_EQ(to.reports->Take(),
                  (Reports{{3, 9, "Could not write to file " + to.name, unit}, {3, 15, cause, unit}}));
        EXPECT_EQ(to.Copy(), bytes.substr(0, 5000));
        EXPECT_TRUE(to.recorder->IsValid());
    };
    {
        Recording<File_Client> end;
        fill(end, "kernel/file_client");
    }
    Recording<File_Client_Server> tap;
    auto *client = new Recording_Client;
    tap.recorder->Connect(&client->Pull_All());
    fill(tap, "kernel/file_client_server");
    EXPECT_EQ(client->pulled, bytes + bytes);
}

TEST(File_Client_Server, records_what_its_client_takes)
{
    Recording<File_Client_Server> to("before|");
    EXPECT_STREQ(to.recorder->GetName(), "Client Server for File Communication");
    auto *client = new Recording_Client;
    to.recorder->Connect(&client->Pull(3));
    client->Take();
    EXPECT_FALSE(to.Feed("abcdefgh"));  // the last two are not asked for yet
    EXPECT_EQ(client->Take(), (Heard{Mesg_Request_Invite, Mesg_Data_Ready, Mesg_Request_Invite, Mesg_Data_Ready,
                                     Mesg_Request_Invite, Mesg_Status_40}));
    EXPECT_EQ(client->senders.back(), to.recorder);
    EXPECT_EQ(to.Copy(), "before|abcdef");
    EXPECT_TRUE(to.recorder->Create(Upper(to.name).c_str()) && to.Feed("i"));  // stays, and silently
    EXPECT_TRUE(to.recorder->Create(nullptr) && to.Feed("jkl"));
    EXPECT_EQ(to.reports->Take(), Reports{});
    EXPECT_EQ(client->pulled, "abcdefghijkl");
    EXPECT_EQ(to.Copy(), "before|abcdefghi");
}

TEST(File_Client_Server, passes_single_bytes_and_takes_one_back)
{
    Recording<File_Client_Server> to;
    auto *client = new Recording_Client;
    std::string got;
    client->On(Mesg_Request_Invite, [](Byte_Server &s) { return s.Request(1), true; });
    client->On(Mesg_Data_Ready, [&](Byte_Server &s) {
        for (int i = 0; i < 2; ++i) got += static_cast<char>(s.GetByte());
        got += static_cast<char>(s.UnGetByte('x'));  // takes one more
        EXPECT_EQ(s.MinAvail(0), 2);
        for (int i = 0; i < 2; ++i) got += static_cast<char>(s.GetByte());
        return s.GetByte() == No_Byte;
    });
    to.recorder->Connect(client);
    EXPECT_TRUE(to.Feed("abcde"));
    EXPECT_EQ(got, "abcde");
    EXPECT_EQ(to.Copy(), "ade");  // the d replaced the b
}

TEST(File_Client_Server, can_be_closed_while_the_system_opens)
{
    Recording<File_Client_Server> to;
    const std::string other = to.folder / "other";
    platform::fault::hold_opens();
    std::atomic<bool> created{false}, result{true};
    std::thread creates([&] {
        result = to.recorder->Create(other.c_str());
        created = true;
    });
    platform::sleep_ms(50);
    EXPECT_LT(Elapsed([&] { to.recorder->Close(); }), 1000u);
    EXPECT_FALSE(created);
    platform::fault::release_opens();
    creates.join();
    EXPECT_FALSE(result);  // the close came later, and holds
    EXPECT_TRUE(to.recorder->Create(nullptr) && to.recorder->Create(other.c_str()));
    EXPECT_EQ(to.reports->Take(), Reports{});
}

TEST(File_Client_Server, outside_a_message_there_is_no_upstream)
{
    Recording<File_Client_Server> to;
    File_Client_Server &tap = *to.recorder;
    Byte_Server &upstream = *to.server;
    unsigned char byte = 0;
    EXPECT_EQ(tap.GetNBytes(&byte, 1), 65535);
    EXPECT_EQ(tap.GetByte(), No_Byte);
    EXPECT_EQ(tap.UnGetByte(byte), No_Byte);
    EXPECT_EQ(tap.MinAvail(1), 0);
    EXPECT_FALSE(tap.Request(1));
    EXPECT_FALSE(tap.Send(upstream, Mesg_Data_Ready));  // no client downstream
    const std::string name = to.folder / "end";
    auto *end = File_Client::Construct(name.c_str());
    tap.Connect(end);
    EXPECT_TRUE(end->Send(tap, Mesg_Data_Ready));  // the 65535 brought no bytes
    EXPECT_EQ(Whole_File(name), "");

    auto *client = new Recording_Client;
    tap.Connect(client);
    client->Take();
    // A message from inside a message leaves the outer one its bytes.
    client->On(Mesg_Status_40, [&](Byte_Server &s) {
        tap.Send(upstream, Mesg_Status_50);
        return s.MinAvail(0) == 0 && s.GetNBytes(&byte, 1) == 0;
    });
    EXPECT_TRUE(tap.Send(upstream, Mesg_Status_40));
    EXPECT_TRUE(tap.Send(upstream, Mesg_Byte_Type));
    EXPECT_EQ(client->Take(), (Heard{Mesg_Status_40, Mesg_Status_50}));
}
