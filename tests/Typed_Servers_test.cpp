#include "kernel/Typed_Servers.h"

#include "tests/support/records.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <type_traits>

using namespace kernel;

namespace {

long allocations = 0;

}  // namespace

// Every allocation of this program is counted. Not inlined: the compiler would see malloc's memory given to delete, and warn.
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

struct Expected {
    const char *server, *client;
    int type;
    const char *refusal;
};

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
void Check(const Expected &expected)
{
    SCOPED_TRACE(expected.server);
    using Server = typename K::Server;
    static_assert(std::is_same_v<typename K::Record, Record>);
    const auto type = static_cast<CL_Mesg>(expected.type);
    Heard_Reports reports;
    Taking_Client<> stranger;
    Taking_Client<typename K::Client> taker;
    stranger.Dont_Delete_Me();
    taker.Dont_Delete_Me();
    std::unique_ptr<Server> server(Server::Construct());
    ASSERT_TRUE(server);
    EXPECT_STREQ(server->GetName(), expected.server);
    for (const char *name : {expected.server, "Basisklasse Object_Server", "Basisklasse Server"})
        EXPECT_TRUE(server->IsInheritedFrom(name)) << name;
    EXPECT_FALSE(server->IsInheritedFrom(expected.client));

    auto *client = K::Client::Construct();
    ASSERT_TRUE(client);
    EXPECT_STREQ(client->GetName(), expected.client);
    for (const char *name : {expected.client, "Object_Client", "Basisklasse Client"})
        EXPECT_TRUE(client->IsInheritedFrom(name)) << name;
    EXPECT_TRUE(server->Connect(client));
    EXPECT_TRUE(client->Send(*server, type));
    EXPECT_FALSE(client->Send(*server, expected.type == Mesg_Type_Obs ? Mesg_Type_Pos : Mesg_Type_Obs));
    EXPECT_EQ(reports->Take(), Reports{});

    // A client of records at large refuses every type, and reports that it never heard of WAAS.
    EXPECT_FALSE(server->Connect(&stranger));
    EXPECT_EQ(stranger.Take(), (Heard{1010, 130, 10, expected.type, 20}));
    Reports heard = reports->Take();
    ASSERT_FALSE(heard.empty());
    EXPECT_EQ(heard.back(), (Reported{3, 26, expected.refusal, "kernel/Typed_Servers"}));
    EXPECT_EQ(heard.size(), expected.type == Mesg_Type_WAAS ? 2u : 1u);

    // A record's way.
    Record *taken = nullptr;
    taker.On(Mesg_Data_Ready, [&](Object_Server &from) {
        taken = K::Get(dynamic_cast<Server &>(from));
        return true;
    });
    EXPECT_TRUE(server->Connect(&taker));
    Record *record = K::Make(*server);
    ASSERT_TRUE(record);
    EXPECT_TRUE(Is_All_Zero(*record));
    const Record *const made = record;
    EXPECT_TRUE(K::Send(*server, record));
    EXPECT_EQ(taken, made);
    EXPECT_EQ(record == nullptr, expected.type != Mesg_Type_Met);
    EXPECT_EQ(reports->Take(), Reports{});

    // An owner may give a record back as late as at the server's end.
    taker.On(Mesg_Disconnect_Query, [&](Object_Server &from) {
        K::Drop(dynamic_cast<Server &>(from), taken);
        EXPECT_EQ(taken == nullptr, expected.type != Mesg_Type_Met);
        return true;
    });
    server.reset();
    EXPECT_EQ(taker.heard.back(), Mesg_Delete_Query);
}

}  // namespace

TEST(Typed_Servers, all_kinds_follow_one_rule)
{
    Check<KIND(Eph), KeplerData>(
        {"gps_Eph_Server", "gps_Eph_Client", 10010, "Client taker couldn't work with type 10010"});
    Check<KIND(Pos), Position>({"Pos_Server", "Pos_Client", 10020, "Client taker could not work with type 10020."});
    Check<KIND(Alm), almanac>({"Alm_Server", "Alm_Client", 10030, "Client taker could not work with type 10030."});
    Check<KIND(UTC), UTCT>({"UTC_Server", "UTC_Client", 10040, "Client taker could not work with type 10040."});
    Check<KIND(Voltage), Voltage_Data>(
        {"Voltage_Server", "Voltage_Client", 10041, "Client taker could not work with type 10041."});
    Check<KIND(Event), EventData>(
        {"Event_Server", "Event_Client", 10045, "Client taker could not work with type 10045."});
    Check<KIND(IONO), IONOT>({"IONO_Server", "IONO_Client", 10050, "Client taker could not work with type 10050."});
    Check<KIND(Glo_Eph), GlonassEph>(
        {"Glo_Eph_Server", "Glo_Eph_Client", 10070, "Client taker could not work with type 10070."});
    Check<Met, Met_Data>(
        {"Meterologic-Server", "Meterologic_Client", 10080, "Client taker could not work with type 10080."});
    Check<KIND(WAAS), WAAS_Data>({"WAAS_Server", "WAAS_Client", 10081, "Client taker could not work with type 10081."});
    Check<KIND(RTCM), rtcm_epo_data>(
        {"RTCM_Server", "RTCM_Client", 10090, "Client taker could not work with type 10090."});
}

TEST(Typed_Servers, a_client_of_another_kind_is_refused)
{
    Heard_Reports reports;
    const std::unique_ptr<Pos_Server> server(Pos_Server::Construct());
    auto *client = Met_Client::Construct();
    client->Dont_Delete_Me();
    EXPECT_FALSE(server->Connect(client));
    EXPECT_FALSE(server->IsConnected());
    EXPECT_TRUE(reports->Has("Client Meterologic_Client could not work with type 10020."));
    Met_Client::Destruct(client);

    for (const auto &[type, connected] : {std::pair{Mesg_Type_Pos, true}, {Mesg_Type_Eph, false}}) {
        auto *drain = Object_Client_NULL::Construct(type);
        EXPECT_EQ(server->Connect(drain), connected);
        EXPECT_EQ(server->StaticAlloc(), connected);
        if (!connected) Object_Client_NULL::Destruct(drain);  // who was refused stays the caller's
    }
}

TEST(Typed_Servers, a_record_travels_without_allocation_in_static_mode)
{
    const std::unique_ptr<Pos_Server> server(Pos_Server::Construct());
    auto *client = new Taking_Client<Pos_Client>;
    int satellites = 0;
    client->records = false;
    client->Answer_With(Mesg_Object_Connect, false).On(Mesg_Data_Ready, [&](Object_Server &from) {
        satellites += static_cast<Pos_Server &>(from).Get_Pos()->GetNSat();
        return true;
    });
    const auto send = [&] {
        Position *record = server->Malloc_Pos();
        record->SetNSat(5);
        return server->Send_Pos(record);
    };
    EXPECT_TRUE(server->Connect(client));
    long before = allocations;
    for (int i = 0; i < 1000; ++i) EXPECT_TRUE(send());
    EXPECT_EQ(allocations, before);
    EXPECT_EQ(satellites, 5000);

    client->Answer_With(Mesg_Object_Connect, true).On(Mesg_Data_Ready, [&](Object_Server &from) {
        Position *record = static_cast<Pos_Server &>(from).Get_Pos();
        static_cast<Pos_Server &>(from).Free_Pos(record);
        return true;
    });
    EXPECT_TRUE(server->Connect(client));
    before = allocations;
    EXPECT_TRUE(send());
    EXPECT_EQ(allocations, before + 1);  // the scaffold can see one
}

// A decoder serves records of several kinds at once; each kind has its own client.
TEST(Typed_Servers, one_object_may_be_several_servers)
{
    class Decoder : public Pos_Server, public Eph_Server {
    public:
        Decoder() : Object("decoder") {}
        bool IsInheritedFrom(const char *name) const override
        {
            return Pos_Server::IsInheritedFrom(name) || Eph_Server::IsInheritedFrom(name);
        }
    };
    Taking_Client<Pos_Client> old, positions;
    Taking_Client<Eph_Client> ephemerides;
    old.Dont_Delete_Me();
    positions.Dont_Delete_Me();
    ephemerides.Dont_Delete_Me();
    {
        Decoder decoder;
        EXPECT_TRUE(decoder.Eph_Server::Connect(&ephemerides));
        EXPECT_TRUE(decoder.Pos_Server::Connect(&old));
        EXPECT_TRUE(decoder.Pos_Server::Connect(&positions));
        EXPECT_EQ(old.Take(), (Heard{1010, 130, 10, 10020, 120, 20}));
        Position *position = decoder.Malloc_Pos();
        KeplerData *ephemeris = decoder.Malloc_Eph();
        EXPECT_TRUE(decoder.Send_Pos(position));
        EXPECT_TRUE(decoder.Send_Eph(ephemeris));
        delete static_cast<Position *>(positions.last);
        delete static_cast<KeplerData *>(ephemerides.last);
    }
    EXPECT_EQ(positions.Take(), (Heard{1010, 130, 10, 10020, 70, 80, 20, 120}));
    EXPECT_EQ(ephemerides.Take(), (Heard{1010, 130, 10, 10010, 70, 80, 20, 120}));
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
    struct Bytes {
        std::size_t offset;
        std::string bytes;
    };
    const std::string one("\0\0\0\0\0\0\xF0\x3F", 8);
    for (const Bytes &b :
         {Bytes{0, one}, {8, "\xFE\xFF\xFF\xFF"}, {12, "\x04\x03"}, {32, one}, {2316, "R"}, {2348, one}})
        EXPECT_EQ(std::memcmp(memory + 4 + b.offset, b.bytes.data(), b.bytes.size()), 0) << b.offset;
    EXPECT_EQ(epoch->time + epoch->antenna[2], 2.0);
}

TEST(Records, a_glonass_channel_gives_two_carriers)
{
    GloFreqTable table;
    EXPECT_EQ(table.Channel(1), GloFreqTable::No_Channel);
    EXPECT_EQ(table.L1(1) + table.L2(1), 0);
    EXPECT_TRUE(table.Set(1, -7) && table.Set(24, 13) && table.Set(32, 0));
    EXPECT_FALSE(table.Set(0, 0) || table.Set(33, 0) || table.Set(2, -8) || table.Set(2, 14));
    EXPECT_EQ(table.Channel(2), GloFreqTable::No_Channel);
    EXPECT_EQ(table.Channel(33) + table.Channel(0), 2 * GloFreqTable::No_Channel);
    EXPECT_DOUBLE_EQ(table.L1(1), 1598.0625e6);
    EXPECT_DOUBLE_EQ(table.L2(1), 1242.9375e6);
    EXPECT_DOUBLE_EQ(table.L1(24), 1609.3125e6);
    EXPECT_DOUBLE_EQ(table.L2(32), 1246e6);
}

TEST(Records, a_waas_message_is_checked_by_its_parity)
{
    // Type 0 ("do not use", 212 zero bits): the parity is the remainder of 0x53, 0x00, ... by long division.
    WAAS_Data message;
    message.bits[0] = 0x53;
    EXPECT_FALSE(message.Has_Good_Parity());
    std::string dividend(250, '0');
    for (int bit = 0; bit < 8; ++bit) dividend[static_cast<std::size_t>(bit)] = 0x53 >> (7 - bit) & 1 ? '1' : '0';
    const std::string divisor = "1100001100100110011111011";  // 25 bits
    for (std::size_t at = 0; at < 226; ++at) {
        if (dividend[at] == '0') continue;
        for (std::size_t i = 0; i < divisor.size(); ++i) dividend[at + i] = dividend[at + i] == divisor[i] ? '0' : '1';
    }
    for (std::size_t at = 226; at < 250; ++at) {
        if (dividend[at] == '1')
            message.bits[at / 8] = static_cast<std::uint8_t>(message.bits[at / 8] | 0x80 >> at % 8);
    }
    EXPECT_TRUE(message.Has_Good_Parity());
    EXPECT_EQ(message.Type(), 0);
    for (std::size_t at = 0; at < 250; ++at) {
        message.bits[at / 8] = static_cast<std::uint8_t>(message.bits[at / 8] ^ 0x80 >> at % 8);
        EXPECT_FALSE(message.Has_Good_Parity()) << at;
        message.bits[at / 8] = static_cast<std::uint8_t>(message.bits[at / 8] ^ 0x80 >> at % 8);
    }
}
