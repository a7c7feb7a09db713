#include "host/gnss_stream/Event_History.h"

#include "host/gnss_stream/Event_File.h"
#include "host/gnss_stream/Event_Watch.h"
#include "host/gnss_stream/Utc_Time.h"

#include "tests/support/folder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

using namespace host;
using namespace std::chrono_literals;
using kernel::Error_Handler;

namespace {

// All entries in the order of time, without their times: "event: text;".
std::string All_In(const std::string &name)
{
    std::string all, error;
    const Event_Table table = Read_Event_File(name, Missing_File::is_error, error);
    if (!table) return error;
    double time = 0, before = 0;
    char event[1024], text[4096];
    int marked = 0;
    for (bool more = table->ScanFirst(all_events); more; more = table->WalkNext()) {
        table->GetValues(time, event, text, marked);
        EXPECT_GT(time, before);
        before = time;
        all += std::string(event) + ": " + text + (marked ? "!;" : ";");
    }
    table->ScanDone();
    return all;
}

class Fake_End : public Endpoint {
public:
    bool Open() override { return true; }
    Startup Start_State() const override { return Startup::up; }
    Stream_Status Status() const override { return status; }
    bool Close() override { return true; }
    Stream_Status status{"waiting", ""};
};

}  // namespace

TEST(Event_History, goes_on_with_the_file_and_tells_how_the_run_before_ended)
{
    const Test_Folder folder;
    const std::string name = folder / "history.txt";
    Console console;
    {
        Event_History history(name, console);
        ASSERT_TRUE(history.Open("input a"));
        for (int i = 0; i < 7; ++i) history.Note("gap", "input a", "no bytes " + std::to_string(i));
        history.Note("gap", "input b", std::string(5000, 'x'));
    }  // a run that does not come to its End
    const std::string listed = All_In(name);
    EXPECT_EQ(listed.find("started: gnss_stream: input a;gap: input a: no bytes 0;"), 0u) << listed.substr(0, 300);
    EXPECT_TRUE(listed.find("no bytes 3;") != std::string::npos && listed.find("no bytes 4;") == std::string::npos);
    EXPECT_NE(listed.find("gap: input a: 3 more in the minute of 20"), std::string::npos);
    {
        Event_History history(name, console);
        ASSERT_TRUE(history.Open("input a"));
        history.End("end of the input");
        history.Note("gap", "input a", "too late");
    }
    const std::string again = All_In(name).substr(listed.size());
    EXPECT_EQ(again.find("started: gnss_stream: input a; the run before it, of 20"), 0u) << again;
    EXPECT_NE(again.find(";ended: gnss_stream: end of the input;"), std::string::npos) << again;
    Event_History history(name, console);
    ASSERT_TRUE(history.Open("input c"));
    history.End("");
    EXPECT_NE(All_In(name).find("started: gnss_stream: input c;ended: gnss_stream: ;"), std::string::npos);
    EXPECT_EQ(console.Faults(), 0u);
}

TEST(Event_History, keeps_the_newest_and_all_marked_entries)
{
    const Test_Folder folder;
    const std::string name = folder / "history.txt";
    {
        const Event_Table table(kernel::EventTabelle::Create("", nullptr));
        table->SetInterval(0);
        for (std::size_t i = 1; i <= Event_History::most_entries; ++i)
            table->Insert(static_cast<double>(i), "old", "", i == 2);
        ASSERT_TRUE(Write_Event_File(name, *table));
    }
    Console console;
    Event_History history(name, console);
    ASSERT_TRUE(history.Open(""));
    history.End("");
    std::string error;
    const Event_Table table = Read_Event_File(name, Missing_File::is_error, error);
    EXPECT_EQ(table->GetMin(), 2);  // the marked one
    EXPECT_TRUE(table->ScanFirst("old") && table->WalkNext());
    EXPECT_EQ(table->GetRtime(), 4);  // 1 and 3 have made room for two
    table->ScanDone();
}

TEST(Event_History, refuses_a_file_that_is_something_else_and_reports_one_that_cannot_be_written)
{
    const Test_Folder folder;
    Console console;
    for (const char *bytes : {"not a history", "# but\na recording", "#\n# Version 2.0\n"}) {
        const std::string name = folder.Write("other", bytes);
        EXPECT_FALSE(Event_History(name, console).Open(""));
        EXPECT_EQ(Whole_File(name), bytes);
    }
    EXPECT_FALSE(Event_History(folder / "none" + "/history", console).Open(""));
    EXPECT_EQ(console.Faults(), 4u);
    const std::string name = folder.Write("history", "");
    Event_History history(name, console);
    ASSERT_TRUE(history.Open(""));
    folder.Write("history", "somebody's own text");
    history.End("");
    EXPECT_EQ(console.Faults(), 5u);
    EXPECT_EQ(Whole_File(name), "somebody's own text");
}

TEST(Event_Watch, notes_connections_gaps_failures_and_reports)
{
    std::string noted;
    Event_Watch watch([&](const char *event, const std::string &subject, const std::string &text) {
        noted += std::string(event) + '|' + subject + '|' + text + '\n';
    });
    const auto expect = [&](const std::string &lines) {
        EXPECT_EQ(noted, lines);
        noted.clear();
    };
    auto now = Event_Watch::Clock::now();
    Fake_End in, out;
    std::uint64_t bytes = 0;
    Event_Watch::Frame_Count frames{};
    watch.Add("input tcpcli://a:21", "tcpcli://a:21", in);
    watch.Add("output 1 tcpcli://a:2101", "tcpcli://a:2101", out);
    watch.Watch_Bytes(
        "input tcpcli://a:21", [&] { return bytes; }, now);
    watch.Watch_Frames(
        "input tcpcli://a:21", [&] { return frames; }, now);
    watch.Pass(now);
    expect("");

    in.status = {"connected", "10.0.0.1:5"};
    watch.Pass(now);
    watch.On_Report(Error_Handler::ES_Warning, "tcpcli://a:21: Successfully connected");
    expect("connection made|input tcpcli://a:21|connected, peer 10.0.0.1:5\n");
    in.status = {"waiting", ""};
    watch.Pass(now += 2h + 3min);
    watch.On_Report(Error_Handler::ES_Message, "tcpcli://a:21: trying");
    watch.On_Report(Error_Handler::ES_Warning, "tcpcli://a:21: reset by peer");  // a moment later
    watch.On_Report(Error_Handler::ES_Warning, "tcpcli://a:2101: another end's");
    watch.Pass(now += 50ms);
    expect("gap|input tcpcli://a:21|no bytes for 2 h 3 min\n");
    watch.Pass(now += 50ms);
    expect("connection lost|input tcpcli://a:21|waiting, after 2 h 3 min: reset by peer\n");

    in.status.state = "connected";
    bytes = 10;
    watch.Pass(now += 3s);
    expect("connection made|input tcpcli://a:21|connected, after 3.1 s without one\n"
           "gap|input tcpcli://a:21|bytes again, after 2 h 3 min without any\n");
    frames = {0, 0, 7};  // no RTCM 3 at all
    watch.Pass(now += 9s);
    bytes = 11;
    watch.Pass(now += 9s);
    expect("");
    frames = {0, 5, 9};
    watch.Pass(now += 9s);
    frames = {0, 6, 10};
    watch.Last(now += 5s);
    expect("CRC failure|input tcpcli://a:21|2, and 5 good frames, in 18.0 s\n"
           "gap|input tcpcli://a:21|no bytes for 14.0 s\n"
           "CRC failure|input tcpcli://a:21|1, and 1 good frames, in 5.0 s\n");

    for (const char *state : {"waiting", "connected"}) {  // back before the loss is noted
        in.status.state = state;
        watch.Pass(now += 20ms);
    }
    expect("connection lost|input tcpcli://a:21|waiting, after 32.0 s\n"
           "connection made|input tcpcli://a:21|connected, after 0.0 s without one\n");
    watch.On_Report(Error_Handler::ES_Error, "x: the disk is full");
    watch.On_Report(Error_Handler::ES_Warning, "tcpcli://a:2101 takes too little: ...");
    watch.On_Report(Error_Handler::ES_Error, "no thread");
    watch.On_Report(Error_Handler::ES_Warning, "Interrupted.");
    expect("disk full|gnss_stream|x: the disk is full\n"
           "slow output|output 1 tcpcli://a:2101|tcpcli://a:2101 takes too little: ...\n"
           "fault|gnss_stream|no thread\n");
}

TEST(Event_Watch, notes_no_gap_of_an_input_that_waits_and_knows_its_last_byte)
{
    Event_Watch watch([](const char *event, const std::string &, const std::string &) { ADD_FAILURE() << event; });
    const auto begin = Event_Watch::Clock::now();
    std::uint64_t bytes = 0;
    watch.Watch_Bytes(
        "input -", [&] { return bytes; }, begin, false);
    watch.Pass(begin + 1h);
    EXPECT_EQ(watch.Last_Byte(), begin);
    bytes = 1;
    watch.Pass(begin + 2h);
    watch.Pass(begin + 3h);
    EXPECT_EQ(watch.Last_Byte(), begin + 2h);
}

TEST(Utc_Time, reads_what_it_writes_and_shorter_forms)
{
    EXPECT_EQ(Utc_Text(1798761599.123), "2026-12-31T23:59:59.123Z");
    EXPECT_EQ(Utc_Text(1e300), "1e+300");
    const struct {
        const char *text;
        std::optional<double> seconds;
    } times[] = {
        {"2026-12-31T23:59:59.123Z", 1798761599.123},
        {"2026-12-31 23:59", 1798761540},
        {"2026-12-31T23Z", 1798758000},
        {"2026-12-31", 1798675200},
        {"1798675200.5", 1798675200.5},
        {"-3", -3},
        {"2026-02-30", {}},
        {"2026-12-31T24", {}},
        {"2026-12-31T23:60", {}},
        {"2026-12-31T", {}},
        {"2026-12-31T23:59:59.", {}},
        {"2026-12-31T23:59:59.1x", {}},
        {"", {}},
        {"26-12-31", {}},
        {"inf", {}},
        {"2026-12-31T-1", {}},
    };
    for (const auto &[text, seconds] : times) EXPECT_EQ(Parse_Utc(text), seconds) << text;
}
