#include "kernel/String_Byte_Server.h"

#include "tests/support/clients.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <random>
#include <string_view>

using namespace kernel;

namespace {

using Owned = std::unique_ptr<String_Byte_Server>;

Owned Make(long size) { return Owned(String_Byte_Server::Construct(size, nullptr)); }

const unsigned char *Bytes(std::string_view text) { return reinterpret_cast<const unsigned char *>(text.data()); }

// A server and a client that asks for `request` bytes when invited.
class Fed_Client {
public:
    Fed_Client(long size, long request) : server_(Make(size)), client_(new Recording_Client)
    {
        server_->Connect(&client_->Pull(request));
        client_->Take();
    }
    Fed_Client &Feed(std::string_view text)
    {
        EXPECT_TRUE(server_->PutBin(Bytes(text), static_cast<unsigned int>(text.size())));
        return *this;
    }
    Heard Work()
    {
        answer = server_->Work();
        return client_->Take();
    }
    Heard Continue()
    {
        answer = server_->ContinueWork();
        return client_->Take();
    }
    const std::string &Pulled() const { return client_->pulled; }
    bool answer = false;

private:
    Owned server_;
    Recording_Client *client_;  // the server's
};

}  // namespace

TEST(String_Byte_Server, holds_one_byte_less_than_its_size)
{
    EXPECT_EQ(Make(0), nullptr);
    EXPECT_EQ(Make(1), nullptr);
    EXPECT_EQ(Make(-5), nullptr);
    const Owned server = Make(4);
    EXPECT_STREQ(server->GetName(), "String_Byte_Server");
    EXPECT_EQ(server->Put('a'), 'a');
    EXPECT_FALSE(server->PutStr("bcd"));
    EXPECT_EQ(server->Put('e'), No_Byte);
    EXPECT_EQ(server->MinAvail(0), 3);
    EXPECT_EQ(server->UnGetByte('x'), No_Byte);
    EXPECT_EQ(server->GetByte(), 'a');
    EXPECT_EQ(server->UnGetByte('A'), 'A');
    unsigned char bytes[8];
    EXPECT_EQ(server->GetNBytes(bytes, 8), 3);
    EXPECT_EQ(std::string(bytes, bytes + 3), "Abc");
    EXPECT_EQ(server->GetNBytes(static_cast<unsigned char *>(nullptr), 1), 0);
    EXPECT_EQ(server->GetByte(), No_Byte);
}

TEST(String_Byte_Server, stores_words_and_texts)
{
    const Owned server = Make(64);
    EXPECT_TRUE(server->PutWordIntel(0x0102) && server->PutWordMotorola(0x0102));
    EXPECT_TRUE(server->PutDWordIntel(0x01020304) && server->PutDWordMotorola(0x01020304));
    EXPECT_EQ(server->Put(No_Byte), No_Byte);
    EXPECT_EQ(server->Put(static_cast<unsigned short>(0x141)), 'A');
    EXPECT_TRUE(server->Put("%s=%d", "x", 42));
    const char *volatile no_text = nullptr;
    EXPECT_FALSE(server->Put(static_cast<const char *>(no_text)));
    EXPECT_FALSE(server->PutStr(static_cast<const char *>(no_text)));
    EXPECT_TRUE(server->PutBin(nullptr, 5));
    char text[65];
    const long n = server->GetString(text, 64);
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(n)), "\x02\x01\x01\x02\x04\x03\x02\x01\x01\x02\x03\x04"
                                                              "Ax=42");
    server->Put("%05100d", 7);  // cut at the ring here, at 5051 characters anywhere
    EXPECT_EQ(server->MinAvail(0), 63);
    server->Clear();
    EXPECT_EQ(server->MinAvail(0), 0);

    const Owned large = Make(8192);
    EXPECT_TRUE(large->Put("%06000d", 7));
    EXPECT_EQ(large->MinAvail(0), 5051);
}

TEST(String_Byte_Server, agrees_with_a_queue)
{
    std::mt19937 random(20121014);
    for (const long size : {2L, 3L, 5L, 17L, 64L}) {
        const Owned server = Make(size);
        std::deque<unsigned char> model;
        const std::size_t room = static_cast<std::size_t>(size) - 1;
        for (int step = 0; step < 20000; ++step) {
            unsigned char block[80];
            const auto n = static_cast<unsigned int>(random() % 40);
            for (unsigned int i = 0; i < n; ++i) block[i] = static_cast<unsigned char>(random());
            switch (random() % 6) {
            case 0: {
                const std::size_t fits = std::min<std::size_t>(n, room - model.size());
                ASSERT_EQ(server->PutBin(block, n), fits == n);
                model.insert(model.end(), block, block + fits);
                break;
            }
            case 1: {
                const std::size_t gets = std::min<std::size_t>(n, model.size());
                ASSERT_EQ(server->GetNBytes(block, static_cast<long>(n)), static_cast<long>(gets));
                ASSERT_TRUE(std::equal(block, block + gets, model.begin()));
                model.erase(model.begin(), model.begin() + static_cast<long>(gets));
                break;
            }
            case 2:
                ASSERT_EQ(server->Put(block[0]), model.size() < room ? block[0] : No_Byte);
                if (model.size() < room) model.push_back(block[0]);
                break;
            case 3:
                ASSERT_EQ(server->GetByte(), model.empty() ? No_Byte : model.front());
                if (!model.empty()) model.pop_front();
                break;
            case 4:
                ASSERT_EQ(server->UnGetByte(block[0]), model.size() < room ? block[0] : No_Byte);
                if (model.size() < room) model.push_front(block[0]);
                break;
            case 5: ASSERT_EQ(server->MinAvail(0), static_cast<long>(model.size())); break;
            }
        }
    }
}

TEST(String_Byte_Server, serves_a_request_when_it_can_be_met_and_not_before)
{
    Fed_Client chain(64, 10);
    EXPECT_EQ(chain.Feed("abcd").Work(), (Heard{70, 40}));
    EXPECT_TRUE(chain.answer);
    EXPECT_EQ(chain.Continue(), Heard{});  // still waiting
    EXPECT_TRUE(chain.answer);
    EXPECT_EQ(chain.Feed("efghij").Continue(), (Heard{80, 70, 40}));
    EXPECT_EQ(chain.Pulled(), "abcdefghij");
}

TEST(String_Byte_Server, each_round_begins_without_a_request)
{
    Fed_Client chain(64, 10);
    EXPECT_EQ(chain.Feed("abcd").Work(), (Heard{70, 40}));
    EXPECT_EQ(chain.Work(), (Heard{70, 40}));  // asked again, although ten are still wanted

    const Owned server = Make(64);
    auto *client = new Recording_Client;  // takes one byte of the two it asked for, then is told of the second
    client->On(Mesg_Request_Invite, [](Byte_Server &s) { return s.Request(2), true; });
    client->On(Mesg_Data_Ready, [](Byte_Server &s) { return s.GetByte() != No_Byte; });
    server->Connect(client);
    client->Take();
    server->PutStr("ab");
    EXPECT_TRUE(server->Work());
    EXPECT_EQ(client->Take(), (Heard{70, 80, 80}));
}

TEST(String_Byte_Server, does_not_turn_for_ever_for_a_client_that_pulls_without_asking)
{
    const Owned server = Make(64);
    auto *client = new Recording_Client;
    client->On(Mesg_Request_Invite, [](Byte_Server &s) { return s.GetByte() != No_Byte; });
    server->Connect(client);
    server->PutStr("abc");
    client->Take();
    EXPECT_FALSE(server->Work());
    EXPECT_FALSE(server->ContinueWork());
    EXPECT_EQ(client->Take(), (Heard{70, 70}));
}

TEST(String_Byte_Server, invites_first_or_serves_first)
{
    Fed_Client chain(64, 2);
    EXPECT_EQ(chain.Feed("abcde").Work(), (Heard{70, 80, 70, 80, 70, 40}));
    EXPECT_EQ(chain.Pulled(), "abcd");
    EXPECT_EQ(chain.Feed("fg").Continue(), (Heard{80, 70, 40}));
    EXPECT_EQ(chain.Feed("h").Work(), (Heard{70, 80}));  // one more invitation only while bytes are left
    EXPECT_EQ(chain.Pulled(), "abcdefgh");
}

TEST(String_Byte_Server, ends_a_round_when_the_client_refuses_or_wants_nothing)
{
    EXPECT_FALSE(Make(8)->Work());
    bool serve = true;
    Recording_Client *client = new Recording_Client;
    client->On(Mesg_Request_Invite, [&](Byte_Server &server) { return server.Request(3), serve; });
    const Owned server = Make(64);
    server->Connect(client);
    server->PutStr("abcdef");
    client->Take();
    EXPECT_FALSE(server->Work());  // the data notice is refused
    EXPECT_EQ(client->Take(), (Heard{70, 80}));
    serve = false;
    EXPECT_FALSE(server->Work());  // the invitation is refused, although it asked
    EXPECT_EQ(client->Take(), (Heard{70}));

    // A refusal drops the request: nothing is pending any more.
    client->Answer_With(Mesg_Data_Ready, false);
    serve = true;
    EXPECT_FALSE(server->Work());
    client->Take();
    serve = false;
    EXPECT_FALSE(server->ContinueWork());
    EXPECT_EQ(client->Take(), (Heard{70}));
    Recording_Client gone;
    gone.Dont_Delete_Me();
    server->Connect(&gone);
    server->Disconnect();
    EXPECT_FALSE(server->ContinueWork());  // nobody there

    Recording_Client *negative = new Recording_Client;
    negative->On(Mesg_Request_Invite, [](Byte_Server &s) { return s.Request(-5), true; });
    server->Connect(negative);
    negative->Take();
    EXPECT_FALSE(server->Work());
    EXPECT_EQ(negative->Take(), (Heard{70}));
}
