#include "kernel/records/EPO_DATA.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using namespace kernel;

namespace {

enum Kind { Double, Float, Byte };
constexpr double absent[] = {-1.0, -1.0, 255.0};

EpoDataTypes Epo(int type) { return static_cast<EpoDataTypes>(type); }
ObsDataTypes Obs(int type) { return static_cast<ObsDataTypes>(type); }

int Store(EPO_DATA &epoch, Kind kind, int type, unsigned char value, int sat)
{
    const auto entry = static_cast<unsigned char>(sat);
    if (kind == Double) return epoch.StoreDoubleObs(Obs(type), value, entry);
    if (kind == Float) return epoch.StoreFloatObs(Obs(type), value, entry);
    return epoch.StoreUint8Obs(Obs(type), value, entry);
}

double Read(const EPO_DATA &epoch, Kind kind, int type, int sat)
{
    const auto entry = static_cast<unsigned char>(sat);
    if (kind == Double) return epoch.ReadDoubleObs(Obs(type), entry);
    return kind == Float ? epoch.ReadFloatObs(Obs(type), entry) : epoch.ReadUint8Obs(Obs(type), entry);
}

int Store(EPO_DATA &epoch, Kind kind, int type, unsigned char value)
{
    return kind == Double ? epoch.StoreDoubleEpo(Epo(type), value) : epoch.StoreUint8Epo(Epo(type), value);
}

double Read(const EPO_DATA &epoch, Kind kind, int type)
{
    return kind == Double ? epoch.ReadDoubleEpo(Epo(type)) : epoch.ReadUint8Epo(Epo(type));
}

// One of the two sets of quantities, the obvious way. Epoch-wide values have a single entry.
struct Naive_Table {
    struct Quantity {
        Kind kind;
        int place;
        std::vector<double> values;
    };
    int types, limits[3];  // a limit for each kind
    std::map<int, Quantity> quantities = {};

    int Store(Kind kind, int type, double value, int entry, int entries)
    {
        if (type < 0 || type >= types) return -1;
        if (!quantities.count(type)) {
            const auto used = static_cast<int>(
                std::count_if(quantities.begin(), quantities.end(), [=](auto &q) { return q.second.kind == kind; }));
            if (used == limits[kind]) return -1;
            const double fill = kind == Byte ? 255.0 : 0.0;
            quantities[type] = {kind, used, std::vector<double>(static_cast<std::size_t>(entries), fill)};
        }
        Quantity &quantity = quantities[type];
        if (quantity.kind != kind) return -1;
        if (entry >= static_cast<int>(quantity.values.size())) return -2;
        quantity.values[static_cast<std::size_t>(entry)] = value;
        return quantity.place;
    }
    double Read(Kind kind, int type, int entry) const
    {
        const auto found = quantities.find(type);
        const bool there = found != quantities.end() && found->second.kind == kind &&
                           entry < static_cast<int>(found->second.values.size());
        return there ? found->second.values[static_cast<std::size_t>(entry)] : absent[kind];
    }
    void Remove(int entry, int count)
    {
        for (auto &[type, quantity] : quantities) {
            auto &values = quantity.values;
            const auto end = values.begin() + std::min(count, static_cast<int>(values.size()));
            if (values.begin() + entry + 1 < end) std::copy(values.begin() + entry + 1, end, values.begin() + entry);
        }
    }
};

// An epoch and its model, which get the same operations.
struct Both {
    explicit Both(int entries_less_one) : capacity(entries_less_one), epoch(entries_less_one) {}

    void Store_Obs(Kind kind, int type, unsigned char value, int sat)
    {
        EXPECT_EQ(Store(epoch, kind, type, value, sat), obs.Store(kind, type, value, sat, capacity + 1));
    }
    void Store_Epo(Kind kind, int type, unsigned char value)
    {
        EXPECT_EQ(Store(epoch, kind, type, value), epo.Store(kind, type, value, 0, 1));
    }
    void Remove(int sat)
    {
        epoch.RemoveEpoIndex(static_cast<unsigned char>(sat));
        const auto count = static_cast<int>(epo.Read(Byte, EPO_SATELLITES, 0));
        if (!epo.quantities.count(EPO_SATELLITES) || sat >= count) return;
        if (epo.Store(Byte, EPO_SATELLITES, count - 1, 0, 1) >= 0) obs.Remove(sat, count);
    }
    // In each of the ways that there are.
    void Become(const Both &other, int way)
    {
        EXPECT_TRUE(way != 0 || epoch.copy(&other.epoch) == 1);
        if (way == 1) epoch = other.epoch;
        if (way == 2) epoch = EPO_DATA(other.epoch);
        capacity = other.capacity;
        epo = other.epo;
        obs = other.obs;
    }
    // All readings in which the two are not the same.
    std::string Difference() const
    {
        std::ostringstream text;
        for (int type = -1; type <= OBS_END + 1; ++type) {
            for (const Kind kind : {Double, Float, Byte}) {
                for (int sat = 0; sat <= std::min(capacity + 1, 255); ++sat)
                    if (Read(epoch, kind, type, sat) != obs.Read(kind, type, sat)) text << type << '[' << sat << "] ";
                if (kind != Float && type <= EPO_END + 1 && Read(epoch, kind, type) != epo.Read(kind, type, 0))
                    text << "epoch " << type << ' ';
            }
            if (type != OBS_END && epoch.is_ava_obs(Obs(type), OBS_END) != static_cast<int>(obs.quantities.count(type)))
                text << "has " << type << ' ';
            if (type != EPO_END && epoch.is_ava_epo(Epo(type), EPO_END) != static_cast<int>(epo.quantities.count(type)))
                text << "has " << type << ' ';
        }
        return text.str();
    }

    int capacity;
    EPO_DATA epoch;
    Naive_Table epo{EPO_END, {3, 0, 6}};
    Naive_Table obs{OBS_END, {15, 10, 12}};
};

}  // namespace

TEST(EPO_DATA, agrees_with_a_naive_model)
{
    std::mt19937 random(20260);
    const auto up_to = [&](int n) { return static_cast<int>(random() % static_cast<unsigned int>(n + 1)); };
    for (int round = 0; round < 60; ++round) {
        const int capacities[] = {0, 1, 5, 24, 255};
        std::vector<Both> epochs;
        for (int i = 0; i < 3; ++i) epochs.emplace_back(capacities[up_to(4)]);
        for (int step = 0; step < 300; ++step) {
            Both &one = epochs[static_cast<std::size_t>(up_to(2))];
            const auto kind = static_cast<Kind>(up_to(2));
            const auto value = static_cast<unsigned char>(up_to(255));
            const int sat = up_to(3) ? up_to(6) : up_to(255);
            switch (up_to(19)) {
            case 0: one.Become(epochs[static_cast<std::size_t>(up_to(2))], up_to(2)); break;
            case 1: one.Store_Epo(Byte, EPO_SATELLITES, static_cast<unsigned char>(sat)); break;
            case 2:
            case 3: one.Store_Epo(up_to(1) ? Double : Byte, up_to(EPO_END + 1) - 1, value); break;
            case 4:
            case 5: one.Remove(sat); break;
            default: one.Store_Obs(kind, up_to(OBS_END + 1) - 1, value, sat);
            }
        }
        for (const Both &one : epochs) ASSERT_EQ(one.Difference(), "") << "round " << round;
    }
}

// The kinds that the header gives the quantities use every place and no more.
TEST(EPO_DATA, holds_a_complete_three_carrier_epoch)
{
    EPO_DATA epoch(60);
    const auto natural = [](int type) { return type < OBS_SAT_X ? Byte : type < OBS_CN0_A ? Double : Float; };
    for (int type = 0; type < OBS_END; ++type)
        for (const int sat : {0, 59}) EXPECT_GE(Store(epoch, natural(type), type, 200, sat), 0) << type;
    for (int type = 0; type < EPO_END; ++type) {
        const bool is_double = type == EPO_SECONDS || type == EPO_CLOCK_OFFSET || type == EPO_CLOCK_DRIFT;
        EXPECT_GE(Store(epoch, is_double ? Double : Byte, type, 200), 0) << type;
    }
}

TEST(EPO_DATA, tells_whether_all_quantities_of_a_list_are_there)
{
    EPO_DATA epoch(24);
    epoch.StoreUint8Obs(OBS_SATELLITE, 17, 3);
    epoch.StoreDoubleObs(OBS_CODE_A, 2e7, 3);
    EXPECT_EQ(epoch.StoreDoubleObs(OBS_CODE_C, 2e7, 25), -2);  // refused, and there
    EXPECT_TRUE(epoch.is_ava_obs(OBS_CODE_A, OBS_CODE_C, OBS_SATELLITE, OBS_END));
    EXPECT_FALSE(epoch.is_ava_obs(OBS_CODE_A, OBS_CODE_B, OBS_SATELLITE, OBS_END));
    EXPECT_TRUE(epoch.is_ava_obs(OBS_CODE_A, OBS_END, OBS_CODE_B));  // nothing counts after the end
    EXPECT_EQ(epoch.copy(nullptr), -1);
}

TEST(EPO_DATA, keeps_the_time_in_a_double_and_two_bytes)
{
    EPO_DATA epoch(4), full(4);
    EXPECT_TRUE(epoch.ReadGPSTime().week == 65535 && epoch.ReadGPSTime().sec == -1.0);
    for (const Gps_Time &time : {Gps_Time(1709, 604799.999), Gps_Time(65280, 0.05)}) {
        EXPECT_EQ(epoch.StoreGPSTime(time), 1);
        EXPECT_TRUE(epoch.ReadGPSTime().week == time.week && epoch.ReadGPSTime().sec == time.sec);
    }
    EXPECT_EQ(epoch.ReadUint8Epo(EPO_WEEK_HIGH), 255);
    for (const EpoDataTypes type : {EPO_SATELLITES, EPO_CLOCK_OFFSET, EPO_CLOCK_DRIFT}) full.StoreDoubleEpo(type, 0);
    EXPECT_EQ(full.StoreGPSTime(Gps_Time(1709, 1)), -1);
}
