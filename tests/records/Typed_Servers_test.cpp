#include "kernel/records/Typed_Servers.h"

#include "kernel/records/Crc24q.h"
#include "kernel/records/OBS_SERV.h"
#include "tests/support/Naive_Rtcm3.h"
#include "tests/support/records.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

using namespace kernel;

namespace {

long allocations = 0;

}  // namespace

// Every allocation of this program is counted. Not inlined: the compiler would see malloc's memory given to delete, and
// warn.
[[gnu::noinline]] void *operator new(std::size_t size)
{
    ++allocations;
    if (void *memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
    ++allocations;
    return std::malloc(size);
}
[[gnu::noinline]] void operator delete(void *memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void *memory, std::size_t) noexcept { std::free(memory); }

namespace {

// A pair of classes with the names of its four wrappers.
template <class Server_, class Client_, auto make, auto send, auto drop, auto get>
struct Kind {
    using Server = Server_;
    using Client = Client_;
    using Record = std::remove_pointer_t<decltype((std::declval<Server &>().*make)())>;

    static Record *Make(Server &server) { return (server.*make)(); }
    static bool Send(Server &server, Record *&record) { return (server.*send)(record); }
    static void Drop(Server &server, Record *&record) { (server.*drop)(record); }
    static Record *Get(Server &server) { return (server.*get)(); }
};
#define KIND(X)                                                                                                        \
    Kind<X##_Server, X##_Client, &X##_Server::Malloc_##X, &X##_Server::Send_##X, &X##_Server::Free_##X,                \
         &X##_Server::Get_##X>
using Met = Kind<Met_Server, Met_Client, &Met_Server::Malloc_Met, &Met_Server::Send_Met, &Met_Server::Free_Met,
                 &Met_Server::getMet>;

template <class Record>
bool Is_All_Zero(const Record &record)
{
    if constexpr (std::is_same_v<Record, Position>) {
        double value = 0;
        return record.Get_Solution() == Position::UNKNOWN && !record.Read_Time(value) && !record.Read_Clock_Err(value);
    } else {
        unsigned char bytes[sizeof(Record)] = {}, zeros[sizeof(Record)] = {};
        std::memcpy(bytes, static_cast<const void *>(&record), sizeof record);
        return std::memcmp(bytes, zeros, sizeof record) == 0;
    }
}

// What holds for every kind.
template <class K, class Record>
void Check(const char *expected_server, const char *expected_client, int number)
{
    SCOPED_TRACE(expected_server);
    using Server = typename K::Server;
    static_assert(std::is_same_v<typename K::Record, Record>);
    const auto type = static_cast<CL_Mesg>(number);
    const bool nulls = type != Mesg_Type_Met;  // the caller's pointer, when it is spent
    Heard_Reports reports;
    Taking_Client<> stranger;
    Taking_Client<typename K::Client> taker;
    stranger.Dont_Delete_Me();
    taker.Dont_Delete_Me();
    std::unique_ptr<Server> server(Server::Construct());
    EXPECT_STREQ(server->GetName(), expected_server);
    EXPECT_TRUE(server->IsInheritedFrom(expected_server) && server->IsInheritedFrom(Object_Server::Name));
    auto *client = K::Client::Construct();
    EXPECT_STREQ(client->GetName(), expected_client);
    EXPECT_TRUE(client->IsInheritedFrom(expected_client) && client->IsInheritedFrom(Object_Client::Name));
    EXPECT_TRUE(server->Connect(client));
    EXPECT_TRUE(client->Send(*server, type));
    EXPECT_FALSE(client->Send(*server, Mesg_Type_Obs));
    EXPECT_EQ(reports->Take(), Reports{});

    // A client of records at large refuses every type, and reports that it never heard of WAAS.
    EXPECT_FALSE(server->Connect(&stranger));
    EXPECT_EQ(stranger.Take(),
              (Heard{Mesg_Object_Type, Mesg_Object_Connect, Mesg_Reset_Counters, type, Mesg_Disconnect_Query}));
    const std::string could_not = type == Mesg_Type_Eph ? "couldn't" : "could not";
    const std::string refusal =
        "Client taker " + could_not + " work with type " + std::to_string(number) + (type == Mesg_Type_Eph ? "" : ".");
    const Reports heard = reports->Take();
    ASSERT_EQ(heard.size(), type == Mesg_Type_WAAS ? 2u : 1u);
    EXPECT_EQ(heard.back(), (Reported{3, 26, refusal, "kernel/Typed_Servers"}));

    // A record's way. An owner may give it back as late as at the server's end.
    Record *taken = nullptr;
    taker.On(Mesg_Data_Ready, [&](Object_Server &from) {
        taken = K::Get(dynamic_cast<Server &>(from));
        return true;
    });
    taker.On(Mesg_Disconnect_Query, [&](Object_Server &from) {
        K::Drop(dynamic_cast<Server &>(from), taken);
        EXPECT_EQ(taken == nullptr, nulls);
        return true;
    });
    EXPECT_TRUE(server->Connect(&taker));
    Record *record = K::Make(*server), *const made = record;
    ASSERT_TRUE(record && Is_All_Zero(*record));
    EXPECT_TRUE(K::Send(*server, record));
    EXPECT_EQ(taken, made);
    EXPECT_EQ(record == nullptr, nulls);
    server.reset();
    EXPECT_EQ(taker.heard.back(), Mesg_Delete_Query);
    EXPECT_EQ(reports->Take(), Reports{});
}

}  // namespace

TEST(Typed_Servers, follow_one_rule)
{
    Check<KIND(Eph), KeplerData>("gps_Eph_Server", "gps_Eph_Client", 10010);
    Check<KIND(Pos), Position>("Pos_Server", "Pos_Client", 10020);
    Check<KIND(Alm), almanac>("Alm_Server", "Alm_Client", 10030);
    Check<KIND(UTC), UTCT>("UTC_Server", "UTC_Client", 10040);
    Check<KIND(Voltage), Voltage_Data>("Voltage_Server", "Voltage_Client", 10041);
    Check<KIND(Event), EventData>("Event_Server", "Event_Client", 10045);
    Check<KIND(IONO), IONOT>("IONO_Server", "IONO_Client", 10050);
    Check<KIND(Glo_Eph), GlonassEph>("Glo_Eph_Server", "Glo_Eph_Client", 10070);
    Check<Met, Met_Data>("Meterologic-Server", "Meterologic_Client", 10080);
    Check<KIND(WAAS), WAAS_Data>("WAAS_Server", "WAAS_Client", 10081);
    Check<KIND(RTCM), rtcm_epo_data>("RTCM_Server", "RTCM_Client", 10090);
}

TEST(Typed_Servers, a_subclass_names_itself_as_documented)
{
    class My_Server : public Pos_Server {
    public:
        My_Server() : Object("mine") {}
    };
    class My_Client : public Pos_Client {
    public:
        My_Client() : Object("my client") {}
    };
    class My_Epochs : public Obs_Server {
    public:
        My_Epochs() : Object("my epochs") {}
    };
    class My_Epoch_Client : public Obs_Client {
    public:
        My_Epoch_Client() : Object("my epoch client") {}
    };
    My_Server server;
    EXPECT_STREQ(server.GetName(), "mine");
    EXPECT_STREQ(My_Client().GetName(), "my client");
    EXPECT_STREQ(My_Epochs().GetName(), "my epochs");
    EXPECT_STREQ(My_Epoch_Client().GetName(), "my epoch client");
    EXPECT_TRUE(server.IsInheritedFrom("Pos_Server"));
    EXPECT_TRUE(server.Connect(new My_Client));
}

TEST(Typed_Servers, move_a_record_without_allocation_in_static_mode)
{
    const std::unique_ptr<Pos_Server> server(Pos_Server::Construct());
    auto *client = new Taking_Client<Pos_Client>;
    client->records = false;
    client->Answer_With(Mesg_Object_Connect, false);
    int sent = 0;
    const auto send = [&] {
        Position *record = server->Malloc_Pos();
        record->SetNSat(++sent);
        EXPECT_TRUE(server->Send_Pos(record));
    };
    EXPECT_TRUE(server->Connect(client));
    long before = allocations;
    while (sent < 1000) send();
    EXPECT_EQ(allocations, before);
    EXPECT_EQ(static_cast<Position *>(client->last)->GetNSat(), 1000);

    client->Answer_With(Mesg_Object_Connect, true);
    EXPECT_TRUE(server->Connect(client));
    before = allocations;
    send();
    EXPECT_EQ(allocations, before + 1);  // the scaffold can see one
    delete static_cast<Position *>(client->last);
}

TEST(Records, an_rtcm_epoch_lies_in_memory_as_described)
{
    alignas(8) unsigned char memory[4 + sizeof(rtcm_epo_data)] = {};
    auto *epoch = new (memory + 4) rtcm_epo_data;  // the second slot of a ring begins in the middle of 8 bytes
    epoch->time = 1.0;
    epoch->value = -2;
    epoch->station = 0x0304;
    epoch->antenna[2] = 1.0;
    epoch->satellite[35].system = 'R';
    epoch->satellite[35].phase[1] = 1.0;
    const auto lies = [&](std::size_t offset, const std::string &bytes) {
        return std::memcmp(memory + 4 + offset, bytes.data(), bytes.size()) == 0;
    };
    const std::string one("\0\0\0\0\0\0\xF0\x3F", 8);
    EXPECT_TRUE(lies(0, one) && lies(8, "\xFE\xFF\xFF\xFF") && lies(12, "\x04\x03") && lies(32, one));
    EXPECT_TRUE(lies(2316, "R") && lies(2348, one));
}

TEST(Records, a_glonass_channel_gives_two_carriers)
{
    GloFreqTable table;
    EXPECT_TRUE(table.Channel(1) == GloFreqTable::No_Channel && table.L1(1) == 0 && table.L2(1) == 0);
    EXPECT_TRUE(table.Set(1, -7) && table.Set(24, 13) && table.Set(32, 0));
    EXPECT_FALSE(table.Set(0, 0) || table.Set(33, 0) || table.Set(2, -8) || table.Set(2, 14));
    for (const int slot : {0, 2, 33}) EXPECT_EQ(table.Channel(slot), GloFreqTable::No_Channel);
    EXPECT_TRUE(table.L1(1) == 1598.0625e6 && table.L2(1) == 1242.9375e6 && table.L1(24) == 1609.3125e6);
}

TEST(Crc24q, gives_published_values_in_one_piece_or_several)
{
    using Bytes = std::vector<unsigned char>;
    const Bytes digits = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    EXPECT_EQ(Crc24q(digits), 0xCDE703u);
    EXPECT_EQ(Crc24q(Bytes{0xD3, 0x00, 0x00}), 0x47EA4Bu);
    EXPECT_EQ(Crc24q(std::span(digits).subspan(4), Crc24q(std::span(digits).first(4))), 0xCDE703u);
}

// Type 0 ("do not use"): 0x53 and 218 zero bits, which 6 more in front make whole bytes.
TEST(Records, a_waas_message_is_checked_by_its_parity)
{
    std::vector<unsigned char> padded(29);
    padded[0] = 0x53 >> 6;
    padded[1] = 0x53 << 2 & 0xFF;
    const std::uint64_t parity = std::uint64_t{Naive_Crc24q(padded)} << 6;  // bits 226 to 249 of 256
    WAAS_Data message;
    message.bits[0] = 0x53;
    EXPECT_FALSE(message.Has_Good_Parity());
    for (std::size_t i = 0; i < 4; ++i) message.bits[28 + i] = static_cast<std::uint8_t>(parity >> (24 - 8 * i));
    EXPECT_TRUE(message.Has_Good_Parity());
    EXPECT_EQ(message.Type(), 0);
    for (std::size_t at = 0; at < 250; ++at) {
        WAAS_Data wrong = message;
        wrong.bits[at / 8] = static_cast<std::uint8_t>(wrong.bits[at / 8] ^ 0x80 >> at % 8);
        EXPECT_FALSE(wrong.Has_Good_Parity()) << at;
    }
}
