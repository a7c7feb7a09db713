#include "kernel/bytes/Keyboard_Server.h"

#include "kernel/bytes/Text_Byte_Client.h"
#include "kernel/bytes/typed_line_internal.h"

#include "tests/support/clients.h"
#include "tests/support/folder.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>

using namespace kernel;
using namespace std::literals;

namespace {

// A keyboard on which a text is typed, and a client that pulls blocks of `request` bytes; 0 pulls all there is.
class Typed {
public:
    explicit Typed(const std::string &text, unsigned long size = 256, long request = 0)
        : keyboard(Keyboard_Server::Construct(size))
    {
        EXPECT_NE(std::freopen(folder_.Write("typed", text).c_str(), "rb", stdin), nullptr);
        client.Dont_Delete_Me();
        if (request == 0)
            client.Pull_All();
        else
            client.Pull(request);
        keyboard->Connect(&client);
        client.Take();
    }
    ~Typed()  // so that the file can be removed everywhere
    {
        EXPECT_NE(std::freopen(
#ifdef _WIN32
                      "NUL",
#else
                      "/dev/null",
#endif
                      "r", stdin),
                  nullptr);
    }

private:
    Test_Folder folder_;

public:
    Recording_Client client;
    const std::unique_ptr<Keyboard_Server> keyboard;
};

}  // namespace

TEST(Keyboard_Server, serves_lines)
{
    EXPECT_EQ(Keyboard_Server::Construct(1), nullptr);
    Typed typed("abc\n\n12% done\nlast");
    EXPECT_TRUE(typed.keyboard->Work());
    EXPECT_EQ(typed.client.pulled, "abc\r\n\r\n12 0one\r\nlast\r\n");  // "% d" is a directive
    EXPECT_TRUE(typed.keyboard->Work());                               // still at the end
    EXPECT_EQ(std::unique_ptr<Keyboard_Server>(Keyboard_Server::Construct())->PutStr(std::string(256, 'x').c_str()),
              false);

    Typed refused("one\ntwo\n");
    refused.client.Pull(3);  // not reached: the first entry counts
    bool accept = false;
    Recording_Client client;
    client.Dont_Delete_Me();
    client.On(Mesg_Request_Invite, [&](Byte_Server &server) { return server.Request(1), accept; }).Pull_All();
    refused.keyboard->Connect(&client);
    EXPECT_FALSE(refused.keyboard->Work());
    EXPECT_EQ(client.pulled, "");
    accept = true;
    EXPECT_TRUE(refused.keyboard->Work());
    EXPECT_EQ(client.pulled, "one\r\ntwo\r\n");  // what was refused comes first
    refused.keyboard->Disconnect();
}

TEST(Keyboard_Server, serves_lines_of_any_length)
{
    for (const std::size_t length : {253U, 254U, 255U, 300U, 5026U, 5027U, 5028U, 5029U, 12000U}) {
        const std::string line = Pattern(length);
        std::string text = line;
        for (char &c : text)
            if (c == '\n' || c == '%') c = '\0';  // a zero byte is a byte
        for (const char *end : {"", "\nx\n"}) {
            Typed typed(text + end);
            EXPECT_TRUE(typed.keyboard->Work());
            EXPECT_EQ(typed.client.pulled, text + "\r\n" + (*end ? "x\r\n" : "")) << length;
        }
    }
}

TEST(Keyboard_Server, says_what_it_could_not_serve)
{
    Heard_Reports reports;
    Typed typed(std::string(40, 'a') + "\nbc\n", 32, 100);  // waits for more than the ring holds
    EXPECT_TRUE(typed.keyboard->Work());
    EXPECT_EQ(typed.client.pulled, "");
    const Reports heard = reports->Take();
    ASSERT_EQ(heard.size(), 2U);
    EXPECT_EQ(heard[0], (Reported{2, 15, "Typed line does not fit into the buffer, 9 characters discarded",
                                  "kernel/Keyboard_Server"}));
}

TEST(typed_line, is_a_format_without_arguments)
{
    const struct {
        const char *line, *text;
    } cases[] = {
        {"100%", "100%"},
        {"50%% off", "50% off"},
        {"%s|%c|%n|", "|||"},
        {"%5s|%-5d|%05d", "     |0    |00000"},
        {"%+d% i%u", "+0 00"},
        {"%.3d|%.0d|%#.0o", "000||0"},
        {"%08.3d", "     000"},
        {"%f %.1f %.0f %#.0f", "0.000000 0.0 0 0."},
        {"%e %.0E", "0.000000e+00 0E+00"},
        {"%g %#g %#.2G", "0 0.00000 0.0"},
        {"%a %.2A", "0x0p+0 0X0.00P+0"},
        {"%+08.2f|%-8.2f|", "+0000.00|0.00    |"},
        {"%*d %.*f", "0 0"},
        {"%2$s%1$ld", "0"},
        {"%lld %zu %hhx %Lf", "0 0 0 0.000000"},
        {"%p", "0"},
        {"%y %5! %", "%y %5! %"},
        {"%'d", "0"},
        {"%x %#x %X", "0 0 0"},
    };
    char out[100];
    for (const auto &c : cases)
        EXPECT_EQ(std::string(out, Format_Without_Arguments(c.line, out, 100)), c.text) << c.line;
    EXPECT_EQ(Format_Without_Arguments("%2000000000d%.99999999999999999999f", out, 100), 100U);
    EXPECT_EQ(std::string(out, Format_Without_Arguments("abc%dxyz", out, 5)), "abc0x");
}

TEST(Text_Byte_Client, prints_what_it_receives)
{
    const std::unique_ptr<String_Byte_Server> server(String_Byte_Server::Construct(64, nullptr));
    Text_Byte_Client *client = Text_Byte_Client::Construct();
    EXPECT_STREQ(client->GetName(), "Text_Byte_Client");
    testing::internal::CaptureStdout();
    server->Connect(client);
    server->PutStr("log \xE4% d");
    EXPECT_TRUE(server->Work());
    for (const CL_Mesg message : {Mesg_Attached, Mesg_Second, Mesg_Status_40})
        EXPECT_TRUE(client->Send(*server, message));
    EXPECT_FALSE(client->Send(*server, Mesg_Object_Type));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "log \xE4% d");
    testing::internal::CaptureStdout();
    EXPECT_TRUE(client->Send(*server, Mesg_Data_Ready));  // told so without a byte
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\xFF");
}
