#include "kernel/records/OBS_SERV.h"

#include "tests/support/records.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <new>
#include <string>

using namespace kernel;

namespace {

bool no_memory = false;

}  // namespace

void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
    return no_memory ? nullptr : ::operator new(size);
}

namespace {

// A server with a client that stays when it goes, and what was reported.
struct Chain {
    explicit Chain(bool owns = true)
    {
        client.Dont_Delete_Me();
        client.Answer_With(Mesg_Object_Connect, owns);
        EXPECT_TRUE(server->Connect(&client));
    }
    // The epoch that the client was given; an owner's to delete.
    EPO_DATA &Taken() const { return *static_cast<EPO_DATA *>(client.last); }

    Heard_Reports reports;
    Taking_Client<Obs_Client> client;
    std::unique_ptr<Obs_Server> server{Obs_Server::Construct()};
};

struct Entry {
    int flag;
    double a, b, c;       // OBS_CODE_A, _B, _C
    const char *invalid;  // letters of the codes that are marked
    const char *report;
};

// One epoch of these entries on its way through a server with a limit.
template <std::size_t n>
void Check(const Entry (&entries)[n], double limit, bool reported)
{
    Chain chain;
    chain.server->Max_Code_Delta_Sat(limit);
    EPO_DATA *epoch = chain.server->Malloc_Obs(n);
    epoch->StoreDoubleEpo(EPO_SECONDS, 345600.25);
    epoch->StoreUint8Epo(EPO_SATELLITES, n);
    Reports expected;
    for (unsigned char sat = 0; sat < n; ++sat) {
        const Entry &e = entries[sat];
        epoch->StoreUint8Obs(TRACKING_FLAG, static_cast<unsigned char>(e.flag), sat);
        epoch->StoreUint8Obs(OBS_SATELLITE, static_cast<unsigned char>(sat + 1), sat);
        const double codes[] = {e.a, e.b, e.c};
        for (int set = 0; set < 3; ++set) {
            epoch->StoreUint8Obs(static_cast<ObsDataTypes>(OBS_VALID_A + set), 0, sat);
            epoch->StoreDoubleObs(static_cast<ObsDataTypes>(OBS_CODE_A + set), codes[set], sat);
        }
        const int level = *e.invalid ? 3 : 4;
        if (reported && *e.report) expected.push_back({level, 47, e.report, "kernel/OBS_SERV"});
    }
    EXPECT_TRUE(chain.server->Send_Obs(epoch));
    const std::unique_ptr<EPO_DATA> sent(&chain.Taken());
    for (unsigned char sat = 0; sat < n; ++sat) {
        std::string invalid;
        for (int set = 0; set < 3; ++set) {
            if (sent->ReadUint8Obs(static_cast<ObsDataTypes>(OBS_VALID_A + set), sat) == 255)
                invalid += static_cast<char>('A' + set);
        }
        EXPECT_EQ(invalid, reported ? entries[sat].invalid : "") << "entry " << int{sat};
    }
    EXPECT_EQ(chain.reports->Take(), expected);
}

}  // namespace

TEST(Obs_Server, marks_and_reports_codes_that_contradict_each_other)
{
    const double ok = 2e7, limit = ok + 5, off = ok + 5.5;
    const Entry entries[] = {
        {1, ok, off, off, "", ""},
        {4, ok, off, off, "", ""},
        {3, ok, off, limit, "", ""},  // B does not count
        {3, ok, ok, off, "AC", "345600.25 : Code consistency bad for sat 4 -> 20000000.000 20000005.500"},
        {5, off, 0, ok, "AC", "345600.25 : Code consistency bad for sat 5 -> 20000005.500 20000000.000"},
        {6, ok, 0, off, "AC", "345600.25 : Code consistency bad for sat 6 -> 20000000.000 20000005.500"},
        {5, ok, 0, 0, "", ""},  // not measured
        {5, 0, 0, ok, "", ""},
        {7, ok, limit, ok, "", ""},
        {7, ok, off, ok, "ABC",
         "345600.25 : Code consistency bad for sat 10 -> 20000005.500 20000000.000 20000000.000"},
        {7, ok, 0, off, "ABC", "345600.25 : Code consistency bad for sat 11 -> 0.000 20000005.500 20000000.000"},
        {7, ok, off, 0, "ABC", "345600.25 : Code consistency bad for sat 12 -> 20000005.500 0.000 20000000.000"},
        {7, 0, ok, off, "ABC", "345600.25 : Code consistency bad for sat 13 -> 20000000.000 20000005.500 0.000"},
        {7, 0, 0, ok, "", ""},
        {0, ok, ok, ok, "", "TRACKING_FLAG 0 of EPO_DATA not implemented"},
        {8, ok, off, off, "", "TRACKING_FLAG 8 of EPO_DATA not implemented"},
    };
    Check(entries, 5.0, true);
    for (const double none : {0.0, -5.0, std::nan("")}) Check(entries, none, false);
}

TEST(Obs_Server, compares_no_code_that_the_epoch_does_not_have)
{
    Chain chain;
    chain.server->Max_Code_Delta_Sat(5.0);
    for (const int flag : {5, 7, 9}) {
        EPO_DATA *epoch = chain.server->Malloc_Obs();
        epoch->StoreUint8Obs(TRACKING_FLAG, static_cast<unsigned char>(flag), 0);
        if (flag != 9) epoch->StoreUint8Epo(EPO_SATELLITES, 1);  // that one does not say how many it has
        epoch->StoreDoubleObs(OBS_CODE_A, 2e7, 0);
        EXPECT_TRUE(chain.server->Send_Obs(epoch));
        delete &chain.Taken();
    }
    EPO_DATA *none = nullptr;
    EXPECT_TRUE(chain.server->Send_Obs(none));
    EXPECT_EQ(chain.reports->Take(), Reports{});
}

TEST(Obs_Server, connects_to_clients_that_take_epochs)
{
    Chain chain;
    EXPECT_EQ(chain.client.Take(), (Heard{Mesg_Object_Type, Mesg_Object_Connect, Mesg_Reset_Counters, Mesg_Type_Obs}));
    chain.client.Answer_With(Mesg_Type_Obs, false);
    EXPECT_FALSE(chain.server->Connect(&chain.client));
    EXPECT_EQ(chain.client.Take(),
              (Heard{Mesg_Delete_Query, Mesg_Disconnect_Query, Mesg_Object_Type, Mesg_Object_Connect,
                     Mesg_Reset_Counters, Mesg_Type_Obs, Mesg_Disconnect_Query}));
    EXPECT_EQ(chain.reports->Take(),
              (Reports{{3, 26, "Client taker couldn't work with type 10000", "kernel/OBS_SERV"}}));
    const std::unique_ptr<Obs_Client> plain(Obs_Client::Construct());
    EXPECT_STREQ(plain->GetName(), "Obs_Client");
    EXPECT_STREQ(chain.server->GetName(), "Obs_Server");
    EXPECT_TRUE(plain->Send(*chain.server, Mesg_Type_Obs));
    EXPECT_FALSE(plain->Send(*chain.server, Mesg_Type_Eph));
}

TEST(Obs_Server, gives_epochs_away_to_a_client_that_owns_them)
{
    Chain chain;
    EPO_DATA *epoch = chain.server->Malloc_Obs(200);
    EXPECT_EQ(epoch->StoreDoubleObs(OBS_CODE_A, 1.0, 200), 0);
    EXPECT_TRUE(chain.server->Send_Obs(epoch));
    EXPECT_EQ(epoch, nullptr);
    EXPECT_EQ(chain.Taken().ReadDoubleObs(OBS_CODE_A, 200), 1.0);
    delete &chain.Taken();
    epoch = chain.server->Malloc_Obs();
    chain.server->Free_Obs(epoch);
    EXPECT_EQ(epoch, nullptr);
    chain.client.Answer_With(Mesg_Request_Invite, false);
    for (int i = 0; i < 2; ++i) {
        epoch = chain.server->Malloc_Obs();
        EXPECT_FALSE(chain.server->Send_Obs(epoch));  // stays pending: replaced by the next, freed at the end
    }
    chain.server->Disconnect();
    epoch = chain.server->Malloc_Obs();
    EXPECT_FALSE(chain.server->Send_Obs(epoch));  // no client: freed
    EXPECT_EQ(epoch, nullptr);
}

TEST(Obs_Server, fills_one_epoch_again_for_a_client_that_owns_none)
{
    Chain chain(false);
    EPO_DATA *const record = chain.server->Malloc_Obs(200);
    EPO_DATA *epoch = record;
    chain.server->Free_Obs(epoch);
    epoch = chain.server->Malloc_Obs();
    EXPECT_EQ(epoch, record);
    EXPECT_EQ(epoch->StoreDoubleObs(OBS_CODE_A, 7.0, 24), 0);
    EXPECT_EQ(epoch->StoreDoubleObs(OBS_CODE_A, 1.0, 25), -2);  // the capacity asked for does not count
    EXPECT_TRUE(chain.server->Send_Obs(epoch));
    EXPECT_EQ(&chain.Taken(), record);
    EXPECT_EQ(chain.server->Malloc_Obs()->ReadDoubleObs(OBS_CODE_A, 24), 7.0);  // not emptied
}

TEST(Obs_Server, reports_that_memory_is_short)
{
    Chain chain;
    no_memory = true;
    EXPECT_EQ(chain.server->Malloc_Obs(), nullptr);
    EXPECT_EQ(chain.reports->Take(), (Reports{{3, 18, "Couldn't allocate epoch data (no memory)", "kernel/OBS_SERV"}}));
    chain.client.Answer_With(Mesg_Object_Connect, false);
    EXPECT_FALSE(chain.server->Connect(&chain.client));
    EXPECT_EQ(chain.reports->Take(), (Reports{{3, 18, "No memory for static data of Obs_Server.", "kernel/OBJ_SERV"}}));
    no_memory = false;
}
