// Reading and writing a value of the user's hive, against the same statements on a bare SQLite database with the same
// settings.
#include "bench/contest.h"
#include "kernel/settings/Registry.h"
#include "tests/support/registry.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <sqlite3.h>

namespace {

constexpr int values = 100, reads = 5000, writes = 20;

// The least that a settings file in a database needs: one table, two statements that are prepared once.
class Bare_Store {
public:
    explicit Bare_Store(const std::string &file)
    {
        sqlite3_open(file.c_str(), &base_);
        sqlite3_exec(base_,
                     "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;"
                     "CREATE TABLE vals(key INTEGER, name TEXT COLLATE NOCASE, type INTEGER, data BLOB,"
                     " PRIMARY KEY(key, name)) WITHOUT ROWID",
                     nullptr, nullptr, nullptr);
        sqlite3_prepare_v2(base_, "SELECT type, data FROM vals WHERE key = ?1 AND name = ?2", -1, &read_, nullptr);
        sqlite3_prepare_v2(base_, "REPLACE INTO vals VALUES(?1, ?2, ?3, ?4)", -1, &write_, nullptr);
    }
    ~Bare_Store()
    {
        sqlite3_finalize(read_);
        sqlite3_finalize(write_);
        sqlite3_close(base_);
    }
    Bare_Store(const Bare_Store &) = delete;
    Bare_Store &operator=(const Bare_Store &) = delete;

    bool Write(const std::string &name, const std::string &value)
    {
        sqlite3_bind_int(write_, 1, 5);
        sqlite3_bind_text(write_, 2, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
        sqlite3_bind_int(write_, 3, 1);
        sqlite3_bind_blob(write_, 4, value.c_str(), static_cast<int>(value.size() + 1), SQLITE_STATIC);
        const bool good = sqlite3_step(write_) == SQLITE_DONE;
        sqlite3_reset(write_);
        return good;
    }
    std::size_t Read(const std::string &name)
    {
        sqlite3_bind_int(read_, 1, 5);
        sqlite3_bind_text(read_, 2, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
        std::size_t size = 0;
        if (sqlite3_step(read_) == SQLITE_ROW) {
            size = static_cast<std::size_t>(sqlite3_column_bytes(read_, 1));
            std::memcpy(buffer_, sqlite3_column_blob(read_, 1), size);
        }
        sqlite3_reset(read_);
        return size;
    }

private:
    sqlite3 *base_ = nullptr;
    sqlite3_stmt *read_ = nullptr, *write_ = nullptr;
    char buffer_[100];
};

// Both stores with the same values.
struct Stores {
    Stores()
    {
        for (int i = 0; i < values; ++i) {
            names.push_back("Station setting " + std::to_string(i));
            unit.WriteString(names.back().c_str(), value.c_str());
            peer.Write(names.back(), value);
        }
    }

    const Own_Registry registry;
    const Test_Folder folder;
    const std::string value = "ntrip://caster.example:2101/MOUNT";
    kernel::UserRegistry unit{"Station", kernel::ARegistry::All, nullptr};
    Bare_Store peer{folder / "bare.db"};
    std::vector<std::string> names;
};

void reads_a_value(benchmark::State &state)
{
    Stores stores;
    bench::Contest contest;
    std::size_t read = 0;
    for (auto _ : state)
        state.SetIterationTime(contest.Turn(
            [&] {
                for (int i = 0; i < reads; ++i)
                    read +=
                        *stores.unit.ReadString(stores.names[static_cast<std::size_t>(i % values)].c_str(), "") == 'n';
            },
            [&] {
                for (int i = 0; i < reads; ++i)
                    read += stores.peer.Read(stores.names[static_cast<std::size_t>(i % values)]) > 1;
            }));
    if (read != static_cast<std::size_t>(2 * reads) * static_cast<std::size_t>(state.iterations()))
        state.SkipWithError("a value is missing");
    contest.Show(state, 1.3, reads);
}
BENCHMARK(reads_a_value)->UseManualTime()->Iterations(30)->Unit(benchmark::kMillisecond);

void writes_a_value_to_the_disk(benchmark::State &state)
{
    Stores stores;
    bench::Contest contest;
    bool good = true;
    std::string value = stores.value;
    const auto write = [&](auto put) {
        for (int i = 0; i < writes; ++i) {
            value.back() = value.back() == 'T' ? 'S' : 'T';  // a value that stays as it is would not reach the disk
            good = put(stores.names[static_cast<std::size_t>(i)]) && good;
        }
    };
    for (auto _ : state) {
        value[0] = value[0] == 'n' ? 'N' : 'n';
        state.SetIterationTime(contest.Turn(
            [&] { write([&](auto &name) { return stores.unit.WriteString(name.c_str(), value.c_str()); }); },
            [&] { write([&](auto &name) { return stores.peer.Write(name, value); }); }));
    }
    if (!good) state.SkipWithError("a write failed");
    contest.Show(state, 1.3, writes);
}
BENCHMARK(writes_a_value_to_the_disk)->UseManualTime()->Iterations(30)->Unit(benchmark::kMillisecond);

}  // namespace
