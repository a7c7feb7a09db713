#include "kernel/OBS_SERV.h"

#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <vector>

using namespace kernel;

namespace {

bool no_memory = false;

}  // namespace

void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
    return no_memory ? nullptr : ::operator new(size);
}

namespace {

using Owned_Server = std::unique_ptr<Obs_Server>;

// Takes each epoch and notes satellite number and first code of entry 0.
class Taker : public Obs_Client {
public:
    explicit Taker(bool owns = true, std::set<int> refuses = {}, bool *deleted = nullptr)
        : Object("taker"), refuses_(std::move(refuses)), owns_(owns), deleted_(deleted)
    {
    }
    ~Taker() override
    {
        if (deleted_) *deleted_ = true;
    }
    bool Send(Object_Server &server, CL_Mesg message) override
    {
        heard.push_back(message);
        if (refuses_.count(message)) return false;
        switch (message) {
        case Mesg_Object_Connect: return owns_;
        case Mesg_Request_Invite: return true;
        case Mesg_Data_Ready: Take(dynamic_cast<Obs_Server &>(server)); return true;
        default: return Obs_Client::Send(server, message);
        }
    }

    std::vector<int> heard;
    std::vector<std::pair<int, double>> taken;
    const EPO_DATA *last = nullptr;  // compared only

private:
    void Take(Obs_Server &server)
    {
        const EPO_DATA *epoch = server.Get_Obs();
        taken.emplace_back(epoch->ReadUint8Obs(OBS_SATELLITE, 0), epoch->ReadDoubleObs(OBS_CODE_A, 0));
        last = epoch;
        if (owns_) delete epoch;
    }

    std::set<int> refuses_;
    bool owns_;
    bool *deleted_;
};

EPO_DATA *Fill(EPO_DATA *epoch, int satellite, double code)
{
    epoch->StoreUint8Epo(EPO_SATELLITES, 1);
    epoch->StoreUint8Obs(OBS_SATELLITE, static_cast<unsigned char>(satellite), 0);
    epoch->StoreDoubleObs(OBS_CODE_A, code, 0);
    return epoch;
}

// The codes of one entry of an epoch that a check has seen.
struct Entry {
    int flag;
    double a, b, c;  // OBS_CODE_A, _B, _C

    void Store(EPO_DATA &epoch, unsigned char sat) const
    {
        epoch.StoreUint8Obs(TRACKING_FLAG, static_cast<unsigned char>(flag), sat);
        epoch.StoreUint8Obs(OBS_SATELLITE, static_cast<unsigned char>(sat + 1), sat);
        for (const ObsDataTypes valid : {OBS_VALID_A, OBS_VALID_B, OBS_VALID_C}) epoch.StoreUint8Obs(valid, 0, sat);
        epoch.StoreDoubleObs(OBS_CODE_A, a, sat);
        epoch.StoreDoubleObs(OBS_CODE_B, b, sat);
        epoch.StoreDoubleObs(OBS_CODE_C, c, sat);
    }
};

struct Verdict {
    std::string invalid;  // letters of the codes
    Reports reports;
};

// Case by case: which code is missing decides what is left to compare.
bool Is_Three_Code_Fault(const Entry &e, double limit)
{
    if (e.b == 0.0) return e.c != 0.0 && e.a != 0.0 && std::abs(e.a - e.c) > limit;
    if (e.c == 0.0) return e.a != 0.0 && std::abs(e.a - e.b) > limit;
    if (std::abs(e.c - e.b) > limit) return true;
    return e.a != 0.0 && (std::abs(e.a - e.b) > limit || std::abs(e.a - e.c) > limit);
}

Verdict Expected(const Entry &e, int satellite, double limit)
{
    char text[200] = "";
    const auto verdict = [&](const char *invalid, int level) {
        return Verdict{invalid, {{level, 47, text, "kernel/OBS_SERV"}}};
    };
    if (e.flag == 1 || e.flag == 2 || e.flag == 4) return {};
    if (e.flag == 3 || e.flag == 5 || e.flag == 6) {
        if (e.a == 0.0 || e.c == 0.0 || std::abs(e.c - e.a) <= limit) return {};
        std::snprintf(text, sizeof text, "345600.25 : Code consistency bad for sat %d -> %.3f %.3f", satellite, e.a,
                      e.c);
        return verdict("AC", 3);
    }
    if (e.flag == 7) {
        if (!Is_Three_Code_Fault(e, limit)) return {};
        std::snprintf(text, sizeof text, "345600.25 : Code consistency bad for sat %d -> %.3f %.3f %.3f", satellite,
                      e.b, e.c, e.a);
        return verdict("ABC", 3);
    }
    std::snprintf(text, sizeof text, "TRACKING_FLAG %d of EPO_DATA not implemented", e.flag);
    return verdict("", 4);
}

// An own copy of the epoch as it was sent.
class Keeper : public Obs_Client {
public:
    Keeper() : Object("keeper") {}
    bool Send(Object_Server &server, CL_Mesg message) override
    {
        if (message != Mesg_Data_Ready) return message == Mesg_Request_Invite || Obs_Client::Send(server, message);
        std::unique_ptr<EPO_DATA> epoch(dynamic_cast<Obs_Server &>(server).Get_Obs());
        kept = *epoch;
        return true;
    }
    std::string Invalid(unsigned char sat) const
    {
        std::string letters;
        for (int i = 0; i < 3; ++i) {
            if (kept.ReadUint8Obs(static_cast<ObsDataTypes>(OBS_VALID_A + i), sat) == 255)
                letters += static_cast<char>('A' + i);
        }
        return letters;
    }
    EPO_DATA kept{0};
};

// A server with a limit that sends `entries` as one epoch; what a client sees and what was reported.
class Checked {
public:
    Checked(const std::vector<Entry> &entries, double limit) : server_(Obs_Server::Construct())
    {
        server_->Connect(keeper_);
        server_->Max_Code_Delta_Sat(limit);
        EPO_DATA *epoch = server_->Malloc_Obs(static_cast<int>(entries.size()));
        epoch->StoreDoubleEpo(EPO_SECONDS, 345600.25);
        epoch->StoreUint8Epo(EPO_SATELLITES, static_cast<unsigned char>(entries.size()));
        for (std::size_t i = 0; i < entries.size(); ++i) entries[i].Store(*epoch, static_cast<unsigned char>(i));
        EXPECT_TRUE(server_->Send_Obs(epoch));
    }
    std::string Invalid(std::size_t i) const { return keeper_->Invalid(static_cast<unsigned char>(i)); }
    Reports Take() { return reports_->Take(); }

private:
    Heard_Reports reports_;
    Owned_Server server_;
    Keeper *keeper_ = new Keeper;  // the server's
};

}  // namespace

TEST(Obs_Server, marks_and_reports_codes_that_contradict_each_other)
{
    const double limit = 5.0;
    const double codes[] = {0.0, 2e7, 2e7 + 4.0, 2e7 + 5.0, 2e7 + 9.5};
    for (const int flag : {0, 1, 2, 3, 4, 5, 6, 7, 8, 255}) {
        std::vector<Entry> entries;
        for (const double a : codes) {
            for (const double b : codes) {
                for (const double c : codes) entries.push_back({flag, a, b, c});
            }
        }
        Checked checked(entries, limit);
        Reports expected;
        for (std::size_t i = 0; i < entries.size(); ++i) {
            const Verdict verdict = Expected(entries[i], static_cast<int>(i) + 1, limit);
            EXPECT_EQ(checked.Invalid(i), verdict.invalid) << flag << " entry " << i;
            expected.insert(expected.end(), verdict.reports.begin(), verdict.reports.end());
        }
        EXPECT_EQ(checked.Take(), expected) << flag;
    }
}

TEST(Obs_Server, does_not_check_without_a_limit)
{
    const std::vector<Entry> bad = {{7, 2e7, 3e7, 1e7}, {5, 2e7, 0, 1e7}, {0, 0, 0, 0}};
    for (const double limit : {0.0, -5.0, std::nan("")}) {
        Checked checked(bad, limit);
        for (std::size_t i = 0; i < bad.size(); ++i) EXPECT_EQ(checked.Invalid(i), "");
        EXPECT_EQ(checked.Take(), Reports{});
    }
}

TEST(Obs_Server, compares_no_code_that_the_epoch_does_not_have)
{
    Heard_Reports reports;
    const Owned_Server server(Obs_Server::Construct());
    server->Max_Code_Delta_Sat(5.0);
    for (const int flag : {5, 7}) {
        EPO_DATA *epoch = Fill(server->Malloc_Obs(), 1, 2e7);
        epoch->StoreUint8Obs(TRACKING_FLAG, static_cast<unsigned char>(flag), 0);
        server->Send_Obs(epoch);
    }
    EPO_DATA *uncounted = server->Malloc_Obs();
    uncounted->StoreUint8Obs(TRACKING_FLAG, 9, 0);
    server->Send_Obs(uncounted);
    EPO_DATA *none = nullptr;
    EXPECT_FALSE(server->Send_Obs(none));
    EXPECT_EQ(reports->Take(), Reports{});
}

TEST(Obs_Server, connects_to_clients_that_take_epochs)
{
    struct Case {
        std::set<int> refuses;
        std::vector<int> heard;
        Reports reports;
    };
    const Case cases[] = {
        {{}, {1010, 130, 10, 10000}, {}},
        {{10000},
         {1010, 130, 10, 10000, 20},
         {{3, 26, "Client taker couldn't work with type 10000", "kernel/OBS_SERV"}}},
        {{1010}, {1010, 20}, {{3, 26, "Client taker couldn't work with type 10000.", "kernel/OBJ_SERV"}}},
    };
    for (const Case &c : cases) {
        Heard_Reports reports;
        const Owned_Server server(Obs_Server::Construct());
        EXPECT_STREQ(server->GetName(), "Obs_Server");
        bool deleted = false;
        auto taker = std::make_unique<Taker>(true, c.refuses, &deleted);
        taker->Dont_Delete_Me();
        EXPECT_EQ(server->Connect(taker.get()), c.refuses.empty());
        EXPECT_EQ(taker->heard, c.heard);
        EXPECT_EQ(server->IsConnected(), c.refuses.empty());
        EXPECT_FALSE(deleted);
        EXPECT_EQ(reports->Take(), c.reports);
        server->Disconnect();
    }
    const std::unique_ptr<Obs_Client> plain(Obs_Client::Construct());
    EXPECT_STREQ(plain->GetName(), "Obs_Client");
    const Owned_Server server(Obs_Server::Construct());
    EXPECT_TRUE(plain->Send(*server, Mesg_Type_Obs));
    EXPECT_FALSE(plain->Send(*server, Mesg_Type_Eph));
}

TEST(Obs_Server, gives_epochs_away_to_a_client_that_owns_them)
{
    bool deleted = false;
    {
        const Owned_Server server(Obs_Server::Construct());
        EPO_DATA *epoch = Fill(server->Malloc_Obs(), 1, 2e7);
        EXPECT_FALSE(server->Send_Obs(epoch));  // nobody there: freed
        EXPECT_EQ(epoch, nullptr);

        auto *taker = new Taker(true, {}, &deleted);
        server->Connect(taker);
        for (const int satellite : {3, 4}) {
            epoch = Fill(server->Malloc_Obs(200), satellite, 2e7);
            EXPECT_EQ(epoch->StoreDoubleObs(OBS_CODE_A, 1.0, 200), 0);
            EXPECT_TRUE(server->Send_Obs(epoch));
            EXPECT_EQ(epoch, nullptr);
        }
        EXPECT_EQ(taker->taken, (std::vector<std::pair<int, double>>{{3, 2e7}, {4, 2e7}}));
        EXPECT_EQ(server->GetCount(), 2u);
        epoch = server->Malloc_Obs();
        server->Free_Obs(epoch);
        EXPECT_EQ(epoch, nullptr);

        server->Connect(new Taker(true, {Mesg_Request_Invite}));
        EXPECT_TRUE(deleted);
        for (int i = 0; i < 2; ++i) {
            epoch = server->Malloc_Obs();
            EXPECT_FALSE(server->Send_Obs(epoch));  // stays pending: replaced by the next, freed at the end
        }
    }
}

TEST(Obs_Server, fills_one_epoch_again_for_a_client_that_owns_none)
{
    const Owned_Server server(Obs_Server::Construct());
    auto *taker = new Taker(false);
    server->Connect(taker);
    EPO_DATA *const record = server->Malloc_Obs(200);
    EPO_DATA *epoch = record;
    server->Free_Obs(epoch);
    EXPECT_EQ(epoch, nullptr);
    epoch = server->Malloc_Obs();
    EXPECT_EQ(epoch, record);
    EXPECT_EQ(Fill(epoch, 7, 2e7)->StoreDoubleObs(OBS_CODE_A, 1.0, 24), 0);
    EXPECT_EQ(epoch->StoreDoubleObs(OBS_CODE_A, 1.0, 25), -2);  // the capacity asked for does not count
    EXPECT_TRUE(server->Send_Obs(epoch));
    EXPECT_EQ(taker->last, record);
    EXPECT_EQ(server->Malloc_Obs(), record);
    EXPECT_EQ(record->ReadUint8Obs(OBS_SATELLITE, 0), 7);  // not emptied
}

TEST(Obs_Server, reports_that_memory_is_short)
{
    Heard_Reports reports;
    const Owned_Server server(Obs_Server::Construct());
    auto taker = std::make_unique<Taker>(false);
    taker->Dont_Delete_Me();
    no_memory = true;
    EXPECT_EQ(server->Malloc_Obs(), nullptr);
    EXPECT_EQ(reports->Take(), (Reports{{3, 18, "Couldn't allocate epoch data (no memory)", "kernel/OBS_SERV"}}));
    EXPECT_FALSE(server->Connect(taker.get()));
    EXPECT_EQ(reports->Take(), (Reports{{3, 18, "No memory for static data of Obs_Server.", "kernel/OBJ_SERV"}}));
    no_memory = false;
    EXPECT_FALSE(server->IsConnected());
}
