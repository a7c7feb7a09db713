#include "kernel/EPO_DATA.h"

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
    switch (kind) {
    case Double: return epoch.StoreDoubleObs(Obs(type), value, entry);
    case Float: return epoch.StoreFloatObs(Obs(type), value, entry);
    case Byte: break;
    }
    return epoch.StoreUint8Obs(Obs(type), value, entry);
}

double Read(const EPO_DATA &epoch, Kind kind, int type, int sat)
{
    const auto entry = static_cast<unsigned char>(sat);
    switch (kind) {
    case Double: return epoch.ReadDoubleObs(Obs(type), entry);
    case Float: return epoch.ReadFloatObs(Obs(type), entry);
    case Byte: break;
    }
    return epoch.ReadUint8Obs(Obs(type), entry);
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
class Naive_Table {
public:
    Naive_Table(int types, std::vector<int> limits) : types_(types), limits_(std::move(limits)) {}

    int Store(Kind kind, int type, double value, std::size_t entry, std::size_t entries)
    {
        if (type < 0 || type >= types_) return -1;
        if (!quantities_.count(type)) {
            const auto used = static_cast<int>(std::count_if(quantities_.begin(), quantities_.end(),
                                                             [=](const auto &q) { return q.second.kind == kind; }));
            if (used == limits_[kind]) return -1;
            quantities_[type] = {kind, used, std::vector<double>(entries, kind == Byte ? 255.0 : 0.0)};
        }
        Quantity &quantity = quantities_[type];
        if (quantity.kind != kind) return -1;
        if (entry >= quantity.values.size()) return -2;
        quantity.values[entry] = value;
        return quantity.place;
    }
    double Read(Kind kind, int type, std::size_t entry) const
    {
        const auto found = quantities_.find(type);
        if (found == quantities_.end() || found->second.kind != kind) return absent[kind];
        return entry < found->second.values.size() ? found->second.values[entry] : absent[kind];
    }
    void Remove(std::size_t entry, std::size_t count)
    {
        for (auto &[type, quantity] : quantities_) {
            for (std::size_t i = entry; i + 1 < std::min(count, quantity.values.size()); ++i)
                quantity.values[i] = quantity.values[i + 1];
        }
    }
    bool Has(int type) const { return quantities_.count(type) != 0; }

private:
    struct Quantity {
        Kind kind;
        int place;
        std::vector<double> values;
    };

    int types_;
    std::vector<int> limits_;
    std::map<int, Quantity> quantities_;
};

// An epoch and its model, told the same.
class Both {
public:
    explicit Both(int capacity) : epoch(capacity), capacity_(capacity) {}

    void Store_Obs(Kind kind, int type, unsigned char value, int sat)
    {
        const int expected = obs_.Store(kind, type, value, static_cast<std::size_t>(sat), Entries());
        EXPECT_EQ(Store(epoch, kind, type, value, sat), expected) << "kind " << kind << " type " << type;
    }
    void Store_Epo(Kind kind, int type, unsigned char value)
    {
        EXPECT_EQ(Store(epoch, kind, type, value), epo_.Store(kind, type, value, 0, 1)) << kind << ' ' << type;
    }
    void Remove(int sat)
    {
        epoch.RemoveEpoIndex(static_cast<unsigned char>(sat));
        const double count = epo_.Read(Byte, EPO_SATELLITES, 0);
        if (!epo_.Has(EPO_SATELLITES) || sat >= count || epo_.Store(Byte, EPO_SATELLITES, count - 1, 0, 1) < 0) return;
        obs_.Remove(static_cast<std::size_t>(sat), static_cast<std::size_t>(count));
    }
    // In each of the ways that there are.
    void Become(const Both &other, int way)
    {
        if (way == 0)
            EXPECT_EQ(epoch.copy(&other.epoch), 1);
        else if (way == 1)
            epoch = other.epoch;
        else
            epoch = EPO_DATA(other.epoch);
        capacity_ = other.capacity_;
        epo_ = other.epo_;
        obs_ = other.obs_;
    }
    // The first reading in which the two are not the same; empty when there is none.
    std::string Difference() const
    {
        std::ostringstream text;
        for (int type = -1; type <= OBS_END + 1; ++type) {
            for (const Kind kind : {Double, Float, Byte}) {
                for (int sat = 0; sat <= std::min(capacity_ + 1, 255); ++sat) {
                    const double naive = obs_.Read(kind, type, static_cast<std::size_t>(sat));
                    if (Read(epoch, kind, type, sat) != naive) text << kind << ' ' << type << '[' << sat << "] ";
                }
                if (kind != Float && type <= EPO_END + 1 && Read(epoch, kind, type) != epo_.Read(kind, type, 0))
                    text << "epoch " << kind << ' ' << type << ' ';
            }
            if (type != OBS_END && epoch.is_ava_obs(Obs(type), OBS_END) != obs_.Has(type))
                text << "has " << type << ' ';
            if (type != EPO_END && epoch.is_ava_epo(Epo(type), EPO_END) != epo_.Has(type))
                text << "has " << type << ' ';
        }
        return text.str();
    }

    EPO_DATA epoch;

private:
    std::size_t Entries() const { return static_cast<std::size_t>(capacity_) + 1; }

    int capacity_;
    Naive_Table epo_{EPO_END, {3, 0, 6}};
    Naive_Table obs_{OBS_END, {15, 10, 12}};
};

}  // namespace

TEST(EPO_DATA, agrees_with_a_naive_model)
{
    std::mt19937 random(20260);
    const auto up_to = [&](int n) { return static_cast<int>(random() % static_cast<unsigned int>(n + 1)); };
    for (int round = 0; round < 60; ++round) {
        const int capacities[] = {0, 1, 5, 24, 255};
        std::vector<Both> epochs;
        epochs.reserve(3);
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

TEST(EPO_DATA, places_run_out_kind_by_kind)
{
    EPO_DATA epoch(24);
    for (const auto &[kind, limit] : std::map<Kind, int>{{Double, 15}, {Float, 10}, {Byte, 12}}) {
        EPO_DATA own(24);
        for (int type = 0; type < limit; ++type) EXPECT_EQ(Store(own, kind, OBS_END - 1 - type, 7, type), type);
        EXPECT_EQ(Store(own, kind, 0, 7, 0), -1);
        EXPECT_FALSE(own.is_ava_obs(TRACKING_FLAG, OBS_END));
        EXPECT_EQ(Store(own, kind, OBS_END - limit, 8, 3), limit - 1);  // what has a place keeps it
    }
    for (int type = 0; type < 3; ++type) EXPECT_EQ(epoch.StoreDoubleEpo(Epo(type), type), type);
    EXPECT_EQ(epoch.StoreDoubleEpo(Epo(3), 0), -1);
    for (int type = 3; type < 9; ++type) EXPECT_EQ(epoch.StoreUint8Epo(Epo(type), 1), type - 3);
}

// The kinds that the header gives the quantities use every place and no more.
TEST(EPO_DATA, a_complete_three_carrier_epoch_fits)
{
    EPO_DATA epoch(60);
    const auto natural = [](int type) { return type < OBS_SAT_X ? Byte : type < OBS_CN0_A ? Double : Float; };
    for (int type = 0; type < OBS_END; ++type) {
        for (const int sat : {0, 59}) EXPECT_GE(Store(epoch, natural(type), type, 200, sat), 0) << type;
    }
    for (int type = 0; type < EPO_END; ++type) {
        const bool is_double = type == EPO_SECONDS || type == EPO_CLOCK_OFFSET || type == EPO_CLOCK_DRIFT;
        EXPECT_GE(Store(epoch, is_double ? Double : Byte, type, 200), 0) << type;
    }
}

TEST(EPO_DATA, what_was_not_stored_reads_as_missing)
{
    EPO_DATA epoch(24);
    epoch.StoreUint8Obs(OBS_SATELLITE, 17, 3);
    epoch.StoreDoubleObs(OBS_CODE_A, 2e7, 3);
    for (unsigned char sat = 0; sat < 24; ++sat) {
        EXPECT_EQ(epoch.ReadUint8Obs(OBS_SATELLITE, sat), sat == 3 ? 17 : 255);
        EXPECT_EQ(epoch.ReadDoubleObs(OBS_CODE_A, sat), sat == 3 ? 2e7 : 0.0);
    }
    EXPECT_EQ(epoch.StoreDoubleObs(OBS_CODE_C, 2e7, 25), -2);
    EXPECT_TRUE(epoch.is_ava_obs(OBS_CODE_A, OBS_CODE_C, OBS_SATELLITE, OBS_END));
    EXPECT_FALSE(epoch.is_ava_obs(OBS_CODE_A, OBS_CODE_B, OBS_SATELLITE, OBS_END));
    EXPECT_TRUE(epoch.is_ava_obs(OBS_END));
    EXPECT_TRUE(epoch.is_ava_obs(OBS_CODE_A, 37, OBS_CODE_B));  // nothing counts after the end
    EXPECT_FALSE(epoch.is_ava_obs(OBS_CODE_A, 38, 37));
}

TEST(EPO_DATA, keeps_the_time_in_a_double_and_two_bytes)
{
    EPO_DATA epoch(4);
    EXPECT_EQ(epoch.ReadGPSTime().week, 65535);
    EXPECT_EQ(epoch.ReadGPSTime().sec, -1.0);
    for (const Gps_Time &time : {Gps_Time(1709, 604799.999), Gps_Time(255, 0), Gps_Time(65280, 0.05)}) {
        EXPECT_EQ(epoch.StoreGPSTime(time), 1);
        EXPECT_EQ(epoch.ReadGPSTime().week, time.week);
        EXPECT_EQ(epoch.ReadGPSTime().sec, time.sec);
    }
    EXPECT_EQ(epoch.ReadUint8Epo(EPO_WEEK_HIGH), 255);
    EXPECT_EQ(epoch.ReadUint8Epo(EPO_WEEK_LOW), 0);
    EPO_DATA full(4);
    for (const EpoDataTypes type : {EPO_SATELLITES, EPO_CLOCK_OFFSET, EPO_CLOCK_DRIFT}) full.StoreDoubleEpo(type, 0);
    EXPECT_EQ(full.StoreGPSTime(Gps_Time(1709, 1)), -1);
}

TEST(EPO_DATA, removes_an_entry_and_closes_the_gap)
{
    struct Case {
        int count;  // below zero: none stored
        unsigned char sat;
        unsigned char count_after;
        std::string after;  // entries 0 to 4 of a capacity of 4
    };
    for (const Case &c : {Case{4, 1, 3, "acdde"},
                          {4, 3, 3, "abcde"},
                          {4, 4, 4, "abcde"},
                          {1, 0, 0, "abcde"},
                          {0, 0, 0, "abcde"},
                          {-1, 0, 255, "abcde"},
                          {200, 3, 199, "abcee"},  // more than there are entries
                          {200, 90, 199, "abcde"}}) {
        EPO_DATA epoch(4);
        for (unsigned char sat = 0; sat < 5; ++sat) {
            epoch.StoreUint8Obs(OBS_SATELLITE, static_cast<unsigned char>('a' + sat), sat);
            epoch.StoreDoubleObs(OBS_CODE_A, 'a' + sat, sat);
        }
        if (c.count >= 0) epoch.StoreUint8Epo(EPO_SATELLITES, static_cast<unsigned char>(c.count));
        epoch.RemoveEpoIndex(c.sat);
        std::string bytes, doubles;
        for (unsigned char sat = 0; sat < 5; ++sat) {
            bytes += static_cast<char>(epoch.ReadUint8Obs(OBS_SATELLITE, sat));
            doubles += static_cast<char>(epoch.ReadDoubleObs(OBS_CODE_A, sat));
        }
        EXPECT_EQ(bytes, c.after) << c.count << ' ' << int{c.sat};
        EXPECT_EQ(doubles, c.after);
        EXPECT_EQ(epoch.ReadUint8Epo(EPO_SATELLITES), c.count_after);
    }
}

TEST(EPO_DATA, copies_are_deep)
{
    EPO_DATA epoch(24);
    epoch.StoreDoubleObs(OBS_CODE_A, 1.0, 24);
    EXPECT_EQ(epoch.copy(nullptr), -1);
    EXPECT_EQ(epoch.copy(&epoch), 1);
    EPO_DATA twin(epoch), other(2);
    other.StoreUint8Obs(OBS_SATELLITE, 5, 0);
    other = epoch;
    epoch.StoreDoubleObs(OBS_CODE_A, 2.0, 24);
    for (const EPO_DATA &copied : {twin, other}) {
        EXPECT_EQ(copied.ReadDoubleObs(OBS_CODE_A, 24), 1.0);
        EXPECT_FALSE(copied.is_ava_obs(OBS_SATELLITE, OBS_END));
    }
    EXPECT_EQ(epoch.ReadDoubleObs(OBS_CODE_A, 24), 2.0);
}
