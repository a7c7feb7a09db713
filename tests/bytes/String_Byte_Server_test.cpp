#include "kernel/bytes/String_Byte_Server.h"

#include "tests/support/clients.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <random>
#include <utility>
#include <vector>

using namespace kernel;

namespace {

using Owned = std::unique_ptr<String_Byte_Server>;

Owned Make(long size) { return Owned(String_Byte_Server::Construct(size, nullptr)); }

std::string Rest(const Owned &server)
{
    char text[65];
    return {text, static_cast<std::size_t>(server->GetString(text, 64))};
}

// What a round returned, and what the client heard in it.
using Round = std::pair<bool, Heard>;
Round Went_On(const Heard &heard) { return {true, heard}; }
Round Ended(const Heard &heard) { return {false, heard}; }

// A server and its client, which asks and pulls as it is told to.
class Fed_Client {
public:
    explicit Fed_Client(const std::function<void(Recording_Client &)> &behaviour)
    {
        behaviour(*client_);
        server->Connect(client_);
        client_->Take();
    }
    explicit Fed_Client(long request) : Fed_Client([=](Recording_Client &client) { client.Pull(request); }) {}
    Fed_Client &Feed(const char *text)
    {
        EXPECT_TRUE(server->PutStr(text));
        return *this;
    }
    Round Work() { return With_Heard(server->Work()); }
    Round Continue() { return With_Heard(server->ContinueWork()); }
    const std::string &Pulled() const { return client_->pulled; }

    const Owned server = Make(64);

private:
    Round With_Heard(bool result) { return {result, client_->Take()}; }
    Recording_Client *const client_ = new Recording_Client;  // the server's
};

}  // namespace

TEST(String_Byte_Server, stores_words_and_texts)
{
    for (const long size : {-5, 0, 1}) EXPECT_EQ(Make(size), nullptr);
    const Owned server = Make(64);
    EXPECT_TRUE(server->PutWordIntel(0x0102) && server->PutWordMotorola(0x0102));
    EXPECT_TRUE(server->PutDWordIntel(0x01020304) && server->PutDWordMotorola(0x01020304));
    EXPECT_EQ(server->Put(No_Byte), No_Byte);
    EXPECT_EQ(server->Put(static_cast<unsigned short>(0x141)), 'A');
    EXPECT_TRUE(server->Put("%s=%d", "x", 42) && server->PutBin(nullptr, 5));
    const char *volatile no_text = nullptr;
    EXPECT_FALSE(server->Put(static_cast<const char *>(no_text)));
    EXPECT_FALSE(server->PutStr(static_cast<const char *>(no_text)));
    EXPECT_EQ(server->GetNBytes(static_cast<unsigned char *>(nullptr), 1), 0);
    EXPECT_EQ(Rest(server), "\x02\x01\x01\x02\x04\x03\x02\x01\x01\x02\x03\x04"
                            "Ax=42");
    EXPECT_FALSE(server->Put("%05100d", 7));  // cut at the ring here, at 5051 characters anywhere
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
        const auto room = [&] { return static_cast<std::size_t>(size) - 1 - model.size(); };
        for (int step = 0; step < 20000; ++step) {
            unsigned char block[80];
            const auto n = static_cast<unsigned int>(random() % 40);
            for (unsigned int i = 0; i < n; ++i) block[i] = static_cast<unsigned char>(random());
            const auto fits = static_cast<long>(std::min<std::size_t>(n, room()));
            const auto gets = static_cast<long>(std::min<std::size_t>(n, model.size()));
            switch (random() % 6) {
            case 0:
                ASSERT_EQ(server->PutBin(block, n), fits == static_cast<long>(n));
                model.insert(model.end(), block, block + fits);
                break;
            case 1:
                ASSERT_EQ(server->GetNBytes(block, static_cast<long>(n)), gets);
                ASSERT_TRUE(std::equal(block, block + gets, model.begin()));
                model.erase(model.begin(), model.begin() + gets);
                break;
            case 2:
                ASSERT_EQ(server->Put(block[0]), room() > 0 ? block[0] : No_Byte);
                if (room() > 0) model.push_back(block[0]);
                break;
            case 3:
                ASSERT_EQ(server->GetByte(), model.empty() ? No_Byte : model.front());
                if (!model.empty()) model.pop_front();
                break;
            case 4:
                ASSERT_EQ(server->UnGetByte(block[0]), room() > 0 ? block[0] : No_Byte);
                if (room() > 0) model.push_front(block[0]);
                break;
            default: ASSERT_EQ(server->MinAvail(0), static_cast<long>(model.size()));
            }
        }
    }
}

// Steps from place to place, where the ring copies blocks.
class Naive_Ring {
public:
    explicit Naive_Ring(std::size_t size) : bytes_(size) {}
    std::size_t Stored() const { return (write_ + bytes_.size() - read_) % bytes_.size(); }
    void Put(unsigned char byte)
    {
        bytes_[write_] = byte;
        write_ = (write_ + 1) % bytes_.size();
    }
    unsigned char Get()
    {
        const unsigned char byte = bytes_[read_];
        read_ = (read_ + 1) % bytes_.size();
        return byte;
    }
    void Rewind_Empty()
    {
        if (read_ == write_) read_ = write_ = 0;
    }
    std::size_t Free_In_One_Piece() const
    {
        std::size_t n = 0;
        while (write_ + n < bytes_.size() && (write_ + n + 1) % bytes_.size() != read_) ++n;
        return n;
    }

private:
    std::vector<unsigned char> bytes_;
    std::size_t read_ = 0, write_ = 0;
};

TEST(String_Byte_Server, is_filled_in_place_as_a_naive_ring_is)
{
    class Ring : public String_Byte_Server {
    public:
        explicit Ring(long size) : Object("ring"), String_Byte_Server("ring", size, nullptr) {}
        using String_Byte_Server::Commit;
        using String_Byte_Server::Reserve;
    };
    std::mt19937 random(20210401);
    for (const long size : {2L, 3L, 5L, 17L, 64L}) {
        Ring ring(size);
        Naive_Ring naive(static_cast<std::size_t>(size));
        for (int step = 0; step < 20000; ++step) {
            const std::size_t n = random() % static_cast<std::size_t>(size + 2);
            if (random() % 2 == 0) {
                naive.Rewind_Empty();
                unsigned char *const place = ring.Reserve(n);
                ASSERT_EQ(place != nullptr, n <= naive.Free_In_One_Piece()) << size << ' ' << step;
                const std::size_t filled = place ? random() % (n + 1) : 0;  // a read may bring less
                for (std::size_t i = 0; i < filled; ++i) naive.Put(place[i] = static_cast<unsigned char>(random()));
                if (place) ring.Commit(filled);
            } else {
                for (std::size_t i = std::min(n, naive.Stored()); i > 0; --i) ASSERT_EQ(ring.GetByte(), naive.Get());
            }
            ASSERT_EQ(ring.MinAvail(0), static_cast<long>(naive.Stored()));
            naive.Rewind_Empty();
        }
    }
}

TEST(String_Byte_Server, lets_a_client_pull_from_inside_the_invitation)
{
    const Owned server = Make(4096);
    std::string lines, got;
    for (int i = 0; i < 1000; ++i) lines += "$GPGGA," + std::to_string(i) + "\r\n";
    auto *const reader = new Recording_Client;
    reader->records = false;
    reader->On(Mesg_Request_Invite, [&](Byte_Server &from) {
        const std::size_t before = got.size();
        for (unsigned short byte = 0; byte != '\n' && (byte = from.GetByte()) != No_Byte;)
            got += static_cast<char>(byte);
        return got.size() > before;
    });
    server->Connect(reader);
    for (std::size_t at = 0; at < lines.size(); at += 1000) {
        const std::string piece = lines.substr(at, 1000);
        server->PutBin(reinterpret_cast<const unsigned char *>(piece.data()), static_cast<unsigned int>(piece.size()));
        server->Work();
        EXPECT_EQ(server->MinAvail(0), 0);
    }
    EXPECT_TRUE(got == lines);
}

TEST(String_Byte_Server, serves_a_request_when_it_can_be_met_and_not_before)
{
    Fed_Client ten(10);
    EXPECT_EQ(ten.Feed("abcd").Work(), Went_On({Mesg_Request_Invite, Mesg_Status_40}));
    EXPECT_EQ(ten.Continue(), Went_On({}));                                 // still waiting
    EXPECT_EQ(ten.Work(), Went_On({Mesg_Request_Invite, Mesg_Status_40}));  // each round begins without a request
    EXPECT_EQ(ten.Feed("efghij").Continue(), Went_On({Mesg_Data_Ready, Mesg_Request_Invite, Mesg_Status_40}));
    EXPECT_EQ(ten.Pulled(), "abcdefghij");

    Fed_Client two(2);
    EXPECT_EQ(two.Feed("abcde").Work(), Went_On({Mesg_Request_Invite, Mesg_Data_Ready, Mesg_Request_Invite,
                                                 Mesg_Data_Ready, Mesg_Request_Invite, Mesg_Status_40}));
    EXPECT_EQ(two.Pulled(), "abcd");
    EXPECT_EQ(two.Feed("fg").Continue(), Went_On({Mesg_Data_Ready, Mesg_Request_Invite, Mesg_Status_40}));
    EXPECT_EQ(two.Feed("h").Work(),
              Went_On({Mesg_Request_Invite, Mesg_Data_Ready}));  // one more invitation only while bytes are left
    EXPECT_EQ(two.Pulled(), "abcdefgh");

    Fed_Client one_of_two([](Recording_Client &client) {  // is told of the second again
        client.On(Mesg_Request_Invite, [](Byte_Server &s) { return s.Request(2), true; });
        client.On(Mesg_Data_Ready, [](Byte_Server &s) { return s.GetByte() != No_Byte; });
    });
    EXPECT_EQ(one_of_two.Feed("ab").Work(), Went_On({Mesg_Request_Invite, Mesg_Data_Ready, Mesg_Data_Ready}));
}

TEST(String_Byte_Server, ends_a_round_when_the_client_refuses_or_wants_nothing)
{
    EXPECT_FALSE(Make(8)->Work() || Make(8)->ContinueWork());  // nobody there
    bool accept = true;
    Fed_Client refusing([&](Recording_Client &client) {
        client.On(Mesg_Request_Invite, [&](Byte_Server &s) { return s.Request(3), accept; });
    });
    // The data notice is refused. That drops the request, so that nothing is pending any more.
    EXPECT_EQ(refusing.Feed("abcdef").Work(), Ended({Mesg_Request_Invite, Mesg_Data_Ready}));
    accept = false;
    EXPECT_EQ(refusing.Continue(), Ended({Mesg_Request_Invite}));
    EXPECT_EQ(refusing.Work(), Ended({Mesg_Request_Invite}));  // the invitation is refused, although it asked

    Fed_Client silent([](Recording_Client &client) {  // pulls without asking: invited while that moves something
        client.On(Mesg_Request_Invite, [](Byte_Server &s) { return s.GetByte() != No_Byte; });
    });
    EXPECT_EQ(silent.Feed("abc").Work(), Ended(Heard(4, Mesg_Request_Invite)));
    EXPECT_EQ(silent.Continue(), Ended({Mesg_Request_Invite}));
    Fed_Client stubborn([](Recording_Client &client) {  // the same, and never refuses
        client.On(Mesg_Request_Invite, [](Byte_Server &s) { return s.GetByte(), true; });
    });
    EXPECT_EQ(stubborn.Feed("abc").Work(), Ended(Heard(4, Mesg_Request_Invite)));
    stubborn.Feed("d");
    EXPECT_EQ(stubborn.Continue(), Ended({Mesg_Request_Invite, Mesg_Request_Invite}));
    EXPECT_EQ(Fed_Client(-5).Feed("abc").Work(), Ended({Mesg_Request_Invite}));
}
