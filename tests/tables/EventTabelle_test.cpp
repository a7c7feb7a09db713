#include "kernel/tables/EventTabelle.h"

#include "kernel/settings/Registry.h"
#include "tests/support/folder.h"
#include "tests/support/registry.h"
#include "tests/support/reports.h"

#include "platform/debug.h"
#include "platform/error.h"
#include "platform/replaced_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>
#ifndef _WIN32
#include <csignal>
#include <sys/resource.h>
#endif

using namespace kernel;

namespace {

struct Deleter {
    void operator()(EventTabelle *table) const { EventTabelle::Delete(table); }
};
using Table = std::unique_ptr<EventTabelle, Deleter>;

// A table named "master" that keeps everything.
Table Make_Table(const char *tree_name = nullptr)
{
    Table table(EventTabelle::Create("master", tree_name));
    table->SetInterval(0);
    return table;
}

std::string Current(const EventTabelle &table)
{
    double time = 0;
    char name[64], text[8192];
    int marked = 0;
    if (!table.GetValues(time, name, text, marked)) return "";
    return std::to_string(static_cast<int>(time)) + name + text + (marked ? "!" : "");
}

// All entries of an event, through a scan.
std::string All_Of(EventTabelle &table, const char *name)
{
    std::string all;
    for (bool more = table.ScanFirst(name); more; more = table.WalkNext()) all += Current(table) + ' ';
    table.ScanDone();
    return all;
}

std::string Read_Back(const Test_Folder &folder, const std::string &bytes, bool &accepted)
{
    const Table table = Make_Table();
    accepted = table->ReadASCII(folder.Write("read.txt", bytes).c_str());
    return All_Of(*table, "master");
}

}  // namespace

TEST(EventTabelle, keeps_the_order_of_time_and_of_insertion)
{
    const Table table = Make_Table();
    table->Insert(2, "b", "x", 1);
    table->Insert(1, "b", "y", 0);
    table->Insert(2, "B", "w", 0);
    table->Insert(3, "a", "z", 0);
    EXPECT_EQ(All_Of(*table, "b"), "1by 2bx! 2bw ");
    EXPECT_EQ(All_Of(*table, "MASTER"), "1by 2bw 2bx! 3az ");
    EXPECT_EQ(table->GetEventNumber("A"), 1);
    EXPECT_STREQ(table->GetEventName(2), "b");
    EXPECT_STREQ(table->FindMax(), "a");
    EXPECT_EQ(table->GetMax("b"), 2);

    EXPECT_TRUE(table->ScanSucc(2, "b"));
    EXPECT_EQ(Current(*table), "2bx!");
    EXPECT_FALSE(table->ScanFirst("b"));  // one scan at a time
    EXPECT_TRUE(table->RemoveAkt());
    EXPECT_EQ(Current(*table), "");
    EXPECT_TRUE(table->WalkNext());
    EXPECT_EQ(Current(*table), "2bw");
    EXPECT_FALSE(table->WalkNext());
    EXPECT_TRUE(table->WalkNext());  // around
    EXPECT_EQ(Current(*table), "1by");
    EXPECT_EQ(table->DelEvent("b"), 1);
    EXPECT_FALSE(table->WalkNext());
    table->ScanDone();
    EXPECT_TRUE(table->ScanPrev(4, "master"));
    EXPECT_EQ(Current(*table), "3az");
    table->ScanDone();

    double time = 0;
    char name[64], text[64];
    int marked = 0;
    EXPECT_TRUE(table->FindSuccKey(0, 1, time, name, text, marked) && time == 3);
    EXPECT_FALSE(table->FindSucc(3, 1, time, name, text, marked));
    EXPECT_STREQ(text, "Nothing in List");
    EXPECT_FALSE(table->Find(-1, 1, time, name, text, marked) || table->Find(3, 2, time, name, text, marked));
}

TEST(EventTabelle, refuses_what_it_could_not_keep)
{
    const Table table = Make_Table();
    EXPECT_EQ(table->GetEventNumber("master"), -1);  // no events yet
    for (const char *name : {"", "a\"b", "Master"}) EXPECT_EQ(table->AddEvent(name), 0);
    EXPECT_EQ(table->AddEvent(std::string(1024, 'n').c_str()), 0);
    EXPECT_TRUE(table->AddEvent("a") == 1 && table->AddEvent("A") == 0);
    EXPECT_TRUE(table->ChangeEvent("a", "A") == 0 && table->ChangeEvent("x", "new") == 1);
    EXPECT_TRUE(table->ChangeEvent("master", "M") == 1 && table->GetEventNumber("m") == 0);
    for (const double time : {0.0, -1.0, std::nan(""), HUGE_VAL}) table->Add(time, "a", "", 0);
    for (const char *name : {"unknown", "M"}) table->Add(1, name, "", 0);
    EXPECT_EQ(table->GetMax(), 0);

    table->SetInterval(3600);
    table->Insert(100, "b", "old", 0);
    table->Add(4000, "unknown", "", 0);  // not added, but it trims
    EXPECT_EQ(table->FindMax(), nullptr);
    table->Insert(100, "b", "old", 0);
    table->Insert(5000, "a", "new", 7);
    EXPECT_EQ(All_Of(*table, "m"), "5000anew! ");
    table->RemoveMax("m");
    EXPECT_EQ(table->GetMax(), 5000);
    table->RemoveMin("m");
    EXPECT_EQ(table->GetMax(), 0);
    for (int i = 0; i < 300; ++i) table->AddEvent(std::to_string(i).c_str());
    EXPECT_EQ(table->GetMaxEvent(), (300 + 3) % 256);
}

namespace {

// One random operation after the other, on a table and on lists of rows by event.
class Contest {
public:
    void Step()
    {
        const std::string name = Any_Name();
        const int t = 1 + static_cast<int>(random_() % 30);
        const auto known = model_.find(name);
        std::vector<Row> none, &rows = known == model_.end() ? none : known->second;
        switch (random_() % 14) {
        case 0: Trim_Less(t - 20); break;
        case 1: Trim_Greater(t + 20); break;
        case 2:
            table_->RemoveMin(name.c_str());
            if (!rows.empty()) rows.erase(rows.begin());
            break;
        case 3:
            table_->RemoveMax(name.c_str());
            if (!rows.empty()) rows.pop_back();
            break;
        case 4:
            if (random_() % 20 == 0) table_->RemoveTree(name.c_str()), rows.clear();
            break;
        case 5: Rename(name, Any_Name()); break;
        case 6: Scan(name, t, rows); break;
        default: Add(t, name);
        }
    }
    void Compare()
    {
        std::size_t together = 0;
        for (const auto &[event, rows] : model_) {
            std::string expected;
            for (const Row &row : rows) expected += Shown(event, row) + ' ';
            ASSERT_EQ(All_Of(*table_, event.c_str()), expected);
            together += rows.size();
        }
        const std::string master = All_Of(*table_, "master");
        ASSERT_EQ(static_cast<std::size_t>(std::count(master.begin(), master.end(), ' ')), together);
    }

private:
    struct Row {
        int time, number;  // the number of the insertion orders equal times
        std::string text;
        bool marked;
        bool operator<(const Row &other) const { return std::tie(time, number) < std::tie(other.time, other.number); }
    };

    static std::string Shown(const std::string &event, const Row &row)
    {
        return std::to_string(row.time) + event + row.text + (row.marked ? "!" : "");
    }
    std::string Any_Name() { return std::string(1, "abcdef"[random_() % 6]); }
    void Add(int t, const std::string &name)
    {
        const Row row{t, ++number_, std::string(random_() % 3, 'x'), random_() % 2 == 0};
        table_->Insert(t, name.c_str(), row.text.c_str(), row.marked);
        model_[name].insert(std::upper_bound(model_[name].begin(), model_[name].end(), row), row);
    }
    void Trim_Less(int t)
    {
        table_->RemoveLess(t);
        for (auto &[event, rows] : model_) std::erase_if(rows, [=](const Row &row) { return row.time < t; });
    }
    void Trim_Greater(int t)
    {
        table_->RemoveGreater(t);
        for (auto &[event, rows] : model_) std::erase_if(rows, [=](const Row &row) { return row.time > t; });
    }
    void Rename(const std::string &name, const std::string &to)
    {
        if (model_.count(to) == 0 && model_.count(name) > 0) {
            ASSERT_EQ(table_->ChangeEvent(name.c_str(), to.c_str()), 1);
            model_[to] = std::move(model_[name]);
            model_.erase(name);
        } else if (random_() % 8 == 0) {
            ASSERT_EQ(table_->DelEvent(name.c_str()), static_cast<int>(model_.erase(name)));
        }
    }
    // A scan during which entries come and go, also the one that it stands on.
    void Scan(const std::string &name, int t, std::vector<Row> &rows)
    {
        Row last{t, 0, "", false};
        bool more = table_->ScanSucc(t, name.c_str());
        for (;;) {
            const auto at = std::upper_bound(rows.begin(), rows.end(), last);
            ASSERT_EQ(more, at != rows.end());
            if (!more) break;
            ASSERT_EQ(Current(*table_), Shown(name, *at));
            last = *at;
            switch (random_() % 8) {
            case 0: table_->RemoveAkt(), rows.erase(at); break;
            case 1:
                if (table_->DelMarked()) rows.erase(at);
                ASSERT_TRUE(!last.marked || Current(*table_).empty());
                break;
            case 2: table_->InvertMark(), at->marked = !at->marked; break;
            case 3: Add(1 + static_cast<int>(random_() % 30), name); break;
            case 4: Trim_Less(last.time - 5 + static_cast<int>(random_() % 10)); break;
            default: break;
            }
            more = table_->WalkNext();
        }
        table_->ScanDone();
    }

    std::mt19937 random_{7};
    int number_ = 0;
    std::map<std::string, std::vector<Row>> model_;
    const Table table_ = Make_Table();
};

}  // namespace

TEST(EventTabelle, agrees_with_a_naive_table)
{
    Contest contest;
    for (int step = 1; step <= 100000; ++step) {
        contest.Step();
        if (step % 200 == 0) contest.Compare();
        ASSERT_FALSE(HasFatalFailure()) << step;
    }
}

// What a scan sees stays as it is until ScanDone, whatever others do; questions by number are answered meanwhile.
TEST(EventTabelle, several_threads_add_trim_rename_scan_and_ask)
{
    const Table table = Make_Table();
    table->SetInterval(100);
    table->Insert(1, "a", "x", 0);
    std::atomic<bool> ends{false};
    std::thread adding([&] {
        for (int t = 2; t < 3000; ++t) table->Insert(t, t % 2 ? "a" : "b", std::to_string(t).c_str(), 0);
        ends = true;
    });
    std::thread renaming([&] {
        for (int i = 0; !ends; ++i)
            table->ChangeEvent(i % 2 ? "c" : "b", i % 2 ? "b" : "c"), table->GetEventNumber("a");
    });
    std::thread asking([&] {
        while (!ends) {
            double time = 0;
            char name[64], text[64] = "";
            int marked = 0;
            table->FindPrevKey(1e6, 0, time, name, text, marked);
            EXPECT_EQ(text, time > 1 ? std::to_string(static_cast<int>(time)) : "x");
            EXPECT_GE(table->GetMax(), time);
        }
    });
    while (!ends) {
        double before = 0, newest = table->GetMin();
        for (bool more = table->ScanFirst("master"); more; more = table->WalkNext()) {
            EXPECT_GT(table->GetRtime(), before);
            before = table->GetRtime();
            newest = table->GetMax();
            std::this_thread::yield();
        }
        EXPECT_EQ(before, newest);
        table->ScanDone();
    }
    for (std::thread *thread : {&adding, &renaming, &asking}) thread->join();
}

TEST(EventTabelle, a_file_gives_everything_back)
{
    const Test_Folder folder;
    const std::string path = folder / "events.txt";
    std::string every_byte;
    for (int c = 1; c < 256; ++c) every_byte += static_cast<char>(c);
    const Table table = Make_Table(), again = Make_Table();
    table->Insert(1.5, "a b", every_byte.c_str(), 1);
    table->Insert(1452345678.25, "c", "\\x\\", 0);
    table->AddEvent("empty");
    ASSERT_TRUE(table->WriteASCII(path.c_str(), EventTabelle::all_entries));
    ASSERT_TRUE(again->ReadASCII(path.c_str()));
    EXPECT_EQ(All_Of(*again, "master"), All_Of(*table, "master"));
    EXPECT_EQ(again->GetEventNumber("empty"), -1);
    ASSERT_TRUE(table->WriteASCII(path.c_str(), EventTabelle::only_unmarked));
    const std::string bytes = Whole_File(path), line(54, '#');
    EXPECT_EQ(bytes.substr(0, 55), line + "\n");
    EXPECT_NE(bytes.find("\n# Version 1.20                                       #\n" + line +
                         "\n\n~\"a b\"\n~\"c\"\n"
                         "1452345678.250,0,\"\\\\x\\\\\"\n"),
              std::string::npos);
    EXPECT_FALSE(table->WriteASCII((folder / "none" + "/x").c_str(), EventTabelle::all_entries));
    EXPECT_FALSE(table->ReadASCII((folder / "none").c_str()));
}

TEST(EventTabelle, reads_other_versions_and_skips_what_is_no_entry)
{
    const Test_Folder folder;
    const std::string rows = "~\"e\"\n10,1,\"t\"\n";
    const struct {
        std::string bytes;
        const char *entries;
        bool accepted;
    } files[] = {
        {"# Version 1.1\n" + rows + "0x1A2B,0,\"u\"\n", "16et! 6699eu ", true},
        {"# Version 1.2\n" + rows, "10et! ", true},
        {"# Version 1.21\n" + rows, "10et! ", true},
        {"# Version 1.5\n" + rows, "", false},
        {"# Version 2.0\n" + rows, "", false},
        {"#\n" + rows, "10et! ", true},
        {rows + "7x,1,\"t\"\n# 9,1,\"t\"\n1e999,1,\"t\"\n-3,1,\"t\"\n8,1,t\n12,0 ,\"no\"\n\r\n11,x,\"\\x\\\"\"\n",
         "3et! 10et! 11e\\x\"! 12eno ", true},
        {"~\"\"\n10,1,\"t\"\n" + rows + "10,1,\"cut", "10et! ", true},
        {"~\"e\"\n10,0,\"" + std::string(5000, 'l') + "\"\n", nullptr, true},
    };
    for (const auto &file : files) {
        bool accepted = false;
        const std::string entries = Read_Back(folder, file.bytes, accepted);
        EXPECT_EQ(accepted, file.accepted) << file.bytes;
        EXPECT_EQ(entries, file.entries ? file.entries : "10e" + std::string(EventTabelle::most_text, 'l') + " ");
    }
}

TEST(EventTabelle, others_wait_for_a_scan_and_a_threads_end_ends_it)
{
    const Table table = Make_Table();
    table->Insert(1, "a", "", 0);
    std::atomic<bool> scans{false}, goes_on{false};
    std::thread scanning([&] {
        EXPECT_TRUE(table->ScanFirst("a"));
        scans = true;
        while (!goes_on) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        // and ends without ScanDone
    });
    while (!scans) std::this_thread::yield();
    EXPECT_EQ(table->GetEventNumber("a"), 1);  // does not wait
    EXPECT_FALSE(table->WalkNext());           // the scan is the other thread's
    std::atomic<bool> added{false};
    std::thread adding([&] {
        table->Add(2, "a", "", 0);
        added = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(added);
    goes_on = true;
    scanning.join();
    adding.join();
    EXPECT_EQ(All_Of(*table, "a"), "1a 2a ");
}

TEST(EventTabelle, a_logger_with_a_name_has_its_interval_in_the_registry)
{
    const Own_Registry registry;
    Heard_Reports heard;
    const auto interval_of = [](const char *tree_name) {
        return Table(EventTabelle::Create("m", tree_name))->GetInterval();
    };
    EXPECT_EQ(interval_of("History"), 3600);
    {
        const Table table(EventTabelle::Create("m", "History")), taken(EventTabelle::Create("m", "HISTORY"));
        table->SetInterval(60.25);
        taken->SetInterval(7);
        Table(EventTabelle::Create("m", nullptr))->SetInterval(8);
    }
    EXPECT_EQ(interval_of("history"), 60.25);
    EXPECT_EQ(interval_of(nullptr), 3600);
    EXPECT_EQ(heard->Take(), Reports{});  // a missing key or value is no failure

    ASSERT_TRUE(Registry::SetExePath(std::string(300, 'w').c_str()));  // more than a key's name may have
    const Table table(EventTabelle::Create("m", "History"));
    EXPECT_EQ(table->GetInterval(), 3600);
    EXPECT_EQ(heard->Take().size(), 1u);
    table->SetInterval(5);
    EXPECT_EQ(table->GetInterval(), 5);
    EXPECT_EQ(heard->Take().size(), 1u);
    table->SetInterval(5);  // the same: not written
    EXPECT_EQ(heard->Take(), Reports{});
    Registry::SetExePath("DRUX.exe");
}

TEST(EventTabelle, loggers_stand_in_a_directory)
{
    const Own_Registry registry;
    static std::string traced;
    traced.clear();
    const std::string b(300, 'b');
    Table first = Make_Table("History"), second = Make_Table("HISTORY"),
          third(EventTabelle::Create(nullptr, b.c_str()));
    EXPECT_EQ(second->GetTreeName(), nullptr);
    EXPECT_EQ(EventTabelle::FindTabelle("hisTory"), first.get());
    EXPECT_TRUE(!EventTabelle::FindTabelle("") && !EventTabelle::FindTabelle(nullptr));
    EXPECT_EQ(third->GetInterval(), 3600);
    first.reset();
    EXPECT_EQ(EventTabelle::FindTabelle("History"), nullptr);
    first = Make_Table("history");
    platform::set_debug_output([](const char *text) { traced += text; });
    first.release(), third.release();
    EventTabelle::DeleteAll();
    platform::set_debug_output(nullptr);
    EXPECT_EQ(traced, "DeleteAllHistoryLoggers start...\nDeleting History Tree \"" + b +
                          "\".\n"
                          "Deleting History Tree \"history\".\nDeleteAllHistoryLoggers done...\n");
    EXPECT_EQ(second->AddEvent("a"), 1);  // it is in no directory
}

TEST(Replaced_File, is_the_old_one_or_the_new_one)
{
    const Test_Folder folder;
    const std::string name = folder.Write("a", "old");
    {
        const auto left = platform::Replaced_File::open(name.c_str());
        ASSERT_TRUE(left);
        std::fputs("new", left->stream());
        EXPECT_EQ(platform::Replaced_File::open(name.c_str()), nullptr);
        EXPECT_EQ(platform::last_error(), platform::error_sharing_violation);
    }
    EXPECT_EQ(Whole_File(name), "old");
    EXPECT_FALSE(std::filesystem::exists(Utf8_Path(name + ".new")));
    folder.Write("a.new", "a leftover that is longer");
    const auto file = platform::Replaced_File::open(name.c_str());
    std::fputs("new", file->stream());
    EXPECT_TRUE(file->commit());
    EXPECT_FALSE(file->commit());
    EXPECT_EQ(Whole_File(name), "new");
    std::filesystem::create_directory(Utf8_Path(folder / "d"));
    EXPECT_EQ(platform::Replaced_File::open((folder / "d").c_str()), nullptr);
    EXPECT_EQ(platform::last_error(), platform::error_bad_file_type);
}

#ifndef _WIN32
// A part of the text does not become the file, even if there is room again before the end.
TEST(Replaced_File, remembers_a_write_that_failed)
{
    const Test_Folder folder;
    const std::string name = folder.Write("a", "old");
    const auto file = platform::Replaced_File::open(name.c_str());
    ASSERT_TRUE(file);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto former = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit narrow{1000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &narrow);
    const std::string text(100000, 'x');
    EXPECT_LT(std::fwrite(text.data(), 1, text.size(), file->stream()), text.size());
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, former);
    std::fputs("the end", file->stream());
    EXPECT_FALSE(file->commit());
    EXPECT_EQ(platform::last_error(), platform::error_write_fault);
    EXPECT_EQ(Whole_File(name), "old");
}
#endif
