// The program as its users start it: command line, exit status, table, recorded files.
#include "tests/support/Message_Counts.h"
#include "tests/support/folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#ifndef _WIN32
#include <sys/wait.h>
#endif

namespace {

#ifdef _WIN32
constexpr bool windows = true;
int Exit_Status(int result) { return result; }
#else
constexpr bool windows = false;
int Exit_Status(int result) { return WIFEXITED(result) ? WEXITSTATUS(result) : -1; }
#endif

std::string Quoted(const std::string &text) { return '"' + text + '"'; }

std::string Native(const std::string &path) { return std::filesystem::absolute(path).make_preferred().string(); }

std::string Recording(const std::string &name) { return Native(KERNEL_TEST_DATA "/" + name); }

const char week_change[] = "GMSD7_20121014.rtcm3";
const char clean[] = "day30_first1000.rtcm3";

struct Result {
    int exit = -1;
    std::string out, err;
    Message_Counts messages;
    std::map<std::string, std::uint64_t> totals;
};

// "1004 125 21164" is a message, "bytes read 262144" a total.
void Read_Table(Result &result)
{
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        unsigned int message = 0;
        std::pair<std::uint64_t, std::uint64_t> count;
        if (fields >> message >> count.first >> count.second) {
            result.messages[message] = count;
            continue;
        }
        const std::size_t name_end = line.find("  ");
        const std::size_t value = line.find_last_of(' ');
        if (name_end != 0 && name_end != std::string::npos)
            result.totals[line.substr(0, name_end)] = std::strtoull(line.c_str() + value, nullptr, 10);
    }
}

class gnss_replay : public testing::Test {
protected:
    Result Run(const std::string &arguments, const std::string &before = "")
    {
        const std::string out = folder / "out", err = folder / "err";
        std::string command =
            before + Quoted(Native(GNSS_REPLAY)) + " " + arguments + " > " + Quoted(out) + " 2> " + Quoted(err);
        if (windows) command = Quoted(command);  // the command interpreter takes the outer pair away
        Result result;
        result.exit = Exit_Status(std::system(command.c_str()));
        result.out = Whole_File(out);
        result.err = Whole_File(err);
        Read_Table(result);
        return result;
    }
    std::string List(const std::vector<std::string> &entries) const
    {
        std::string text;
        for (const std::string &entry : entries) text += entry + "\n";
        return folder.Write("list.txt", text);
    }

    Test_Folder folder;
};

Message_Counts Sum(Message_Counts a, const Message_Counts &b)
{
    for (const auto &[message, count] : b) {
        a[message].first += count.first;
        a[message].second += count.second;
    }
    return a;
}

}  // namespace

TEST_F(gnss_replay, gives_the_same_table_and_copy_by_every_way)
{
    const std::string recording = Recording(week_change);
    const std::string list = List({recording});
    const std::string ways[] = {
        Quoted(recording),
        "--list " + Quoted(list),
        "--simulator " + Quoted(recording),
        "--simulator --list " + Quoted(list),
        "--rate 2000000 " + Quoted(recording),
        "--rate 2000000 --progress --list " + Quoted(list),
        "--rate 2000000 --simulator " + Quoted(recording),
    };
    int number = 0;
    for (const std::string &way : ways) {
        SCOPED_TRACE(way);
        const std::string copy = folder / ("copy " + std::to_string(++number));
        const Result result = Run(way + " --record " + Quoted(copy));
        EXPECT_EQ(result.exit, 0) << result.err;
        EXPECT_EQ(result.messages, Counts_Of(week_change)) << result.out;
        const std::map<std::string, std::uint64_t> totals = {{"bytes read", 262144},
                                                             {"frames", 1143},
                                                             {"CRC failures", 0},
                                                             {"skipped bytes", 0},
                                                             {"incomplete frame bytes", 302}};
        EXPECT_EQ(result.totals, totals);
        EXPECT_TRUE(Whole_File(copy) == Whole_File(recording));
        EXPECT_NE(result.err.find("Z Warning: EOF of file"), std::string::npos) << result.err;
        EXPECT_EQ(result.err.find("MB/s") != std::string::npos, way.find("--progress") != std::string::npos);
    }
}

TEST_F(gnss_replay, plays_the_recordings_of_a_list_as_one_stream)
{
    const std::string bytes = Whole_File(Recording(week_change));
    const std::string first = folder.Write("first", bytes.substr(0, 100001));  // cut inside a frame
    const std::string second = folder.Write("second", bytes.substr(100001));
    const std::string list = List({Recording(clean), first, "// a comment", second});
    const std::string copy = folder / "copy";
    const Result result = Run("--list " + Quoted(list) + " --record " + Quoted(copy));
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(result.messages, Sum(Counts_Of(clean), Counts_Of(week_change)));
    EXPECT_TRUE(Whole_File(copy) == Whole_File(Recording(clean)) + bytes);
}

TEST_F(gnss_replay, goes_past_a_missing_entry_and_says_so)
{
    for (const std::string rate : {"", "--rate 2000000 "}) {
        const std::string list = List({Recording(clean), folder / "missing", Recording(week_change)});
        const Result result = Run(rate + "--list " + Quoted(list));
        EXPECT_EQ(result.exit, 1);
        EXPECT_EQ(result.messages, Sum(Counts_Of(clean), Counts_Of(week_change)));
        EXPECT_NE(result.err.find("Z Error: Could not open file " + (folder / "missing")), std::string::npos)
            << result.err;
    }
}

TEST_F(gnss_replay, says_when_frames_are_damaged)
{
    const Result result = Run(Quoted(Recording("day30_dirty4h.rtcm3")));
    EXPECT_EQ(result.exit, 1);
    EXPECT_EQ(result.totals.at("frames"), 3764u);
    EXPECT_GT(result.totals.at("CRC failures"), 0u);
    EXPECT_GT(result.totals.at("skipped bytes"), 0u);
}

TEST_F(gnss_replay, does_not_start_without_usable_files)
{
    const std::string good = Quoted(Recording(clean)) + " ";
    const std::string full = folder.Write("full", "old");
    const std::string cases[] = {
        Quoted(folder / "missing"),
        Quoted(folder / ""),
        "--simulator " + Quoted(folder / "missing"),
        "--list " + Quoted(folder / "missing"),
        "--list " + Quoted(folder / ""),
        "--list " + Quoted(folder.Write("empty", "")),
        "--list " + Quoted(List({folder / "missing", folder / "missing, too"})),
        good + "--record " + Quoted(full),
        good + "--record " + Quoted(folder / "missing/copy"),
        good + "--record " + Quoted(folder / ""),
    };
    for (const std::string &arguments : cases) {
        SCOPED_TRACE(arguments);
        const Result result = Run(arguments);
        EXPECT_EQ(result.exit, 4);
        EXPECT_NE(result.err.find(" Error: "), std::string::npos) << result.err;
        EXPECT_EQ(result.out, "");
    }
    EXPECT_EQ(Whole_File(full), "old");
}

TEST_F(gnss_replay, leaves_no_record_file_when_the_input_is_missing)
{
    const std::string copy = folder / "copy";
    EXPECT_EQ(Run(Quoted(folder / "missing") + " --record " + Quoted(copy)).exit, 4);
    EXPECT_FALSE(std::filesystem::exists(copy));
}

namespace {

std::vector<std::string> Lines(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line); lines.push_back(line))
        if (!line.empty() && line.back() == '\r') line.pop_back();
    return lines;
}

}  // namespace

TEST_F(gnss_replay, decodes_by_every_way)
{
    const std::string recording = Quoted(Recording(week_change));
    const std::string list = "--list " + Quoted(List({Recording(week_change)}));
    std::string tables[2], text;
    for (const std::string &way : {recording, list, "--simulator " + recording, "--rate 2000000 " + recording,
                                   recording + " --record " + Quoted(folder / "copy")}) {
        SCOPED_TRACE(way);
        const Result result =
            Run(way + " --decode --epochs --start-week 1709 --beidou-gps-time --csv " + Quoted(folder / "table"));
        EXPECT_EQ(result.exit, 0) << result.err;
        EXPECT_EQ(result.messages, Counts_Of(week_change));
        EXPECT_EQ(result.totals.at("epochs"), 257u);
        EXPECT_EQ(result.totals.at("satellites in epochs"), 6951u);
        EXPECT_EQ(result.totals.at("GPS ephemerides"), 15u);
        EXPECT_EQ(result.totals.at("GLONASS ephemerides"), 16u);
        const std::string epochs = Whole_File(folder / "table_epochs.csv");
        const std::string satellites = Whole_File(folder / "table_satellites.csv");
        EXPECT_EQ(Lines(epochs).size(), 1u + 257);
        EXPECT_EQ(Lines(satellites).size(), 1u + 6951);
        if (text.empty()) {
            text = result.out;
            tables[0] = epochs;
            tables[1] = satellites;
        }
        EXPECT_TRUE(result.out == text);
        EXPECT_TRUE(epochs == tables[0] && satellites == tables[1]);
    }
    const auto lines = Lines(text);
    EXPECT_EQ(lines[0], "> 1709 604784.000  2012-10-13 23:59:44.000  27 satellites");
    EXPECT_EQ(lines[1].substr(0, 49), "G01  A 24922227.578 130967156.067  3694.043 35.38");
    EXPECT_EQ(Lines(tables[0])[257], "1710,240,2012-10-14 00:04:00.000,27");
    const auto columns = Lines(tables[1]);
    EXPECT_EQ(std::count(columns[1].begin(), columns[1].end(), ','),
              std::count(columns[0].begin(), columns[0].end(), ','));
    EXPECT_NE(text.find("station position [m]             none"), std::string::npos) << lines.back();
}

TEST_F(gnss_replay, shows_where_gps_satellites_stand)
{
    const Result result = Run(Quoted(Recording(clean)) + " --epochs");
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(result.totals.at("epochs"), 125u);
    EXPECT_NE(result.out.find("station position [m]     -3607665.5418 4147867.8786 3223716.9177"), std::string::npos);
    std::size_t seen = 0;
    for (const std::string &line : Lines(result.out)) {
        const std::size_t at = line.find("  el ");
        if (at == std::string::npos) continue;
        ++seen;
        double elevation = 0, azimuth = 0, range = 0, rate = 0;
        ASSERT_EQ(
            std::sscanf(line.c_str() + at, " el %lf az %lf range %lf rate %lf", &elevation, &azimuth, &range, &rate), 4)
            << line;
        EXPECT_EQ(line[0], 'G');
        EXPECT_TRUE(elevation > 4 && elevation <= 90 && azimuth >= 0 && azimuth < 360) << line;
        EXPECT_TRUE(range > 1.9e7 && range < 2.7e7 && rate > -1000 && rate < 1000) << line;
    }
    EXPECT_GT(seen, 1000u);
}

TEST_F(gnss_replay, does_not_start_when_a_table_cannot_be_created)
{
    const std::string copy = folder / "copy";
    const Result result =
        Run(Quoted(Recording(clean)) + " --csv " + Quoted(folder / "missing/table") + " --record " + Quoted(copy));
    EXPECT_EQ(result.exit, 4);
    EXPECT_NE(result.err.find("Could not create file"), std::string::npos) << result.err;
    EXPECT_FALSE(std::filesystem::exists(copy));
}

TEST_F(gnss_replay, appends_when_told)
{
    const std::string copy = folder.Write("copy", "old");
    const Result result = Run(Quoted(Recording(clean)) + " --append --record " + Quoted(copy));
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_TRUE(Whole_File(copy) == "old" + Whole_File(Recording(clean)));
}

TEST_F(gnss_replay, explains_itself)
{
    const struct {
        const char *arguments;
        int exit;
        const char *out, *err;
    } cases[] = {
        {"--help", 0, "Exit status", ""},
        {"--version", 0, "gnss_replay ", ""},
        {"", 2, "", "FILE is required"},
        {"--nonsense x", 2, "", "--nonsense"},
        {"one two", 2, "", "two"},
        {"\"\"", 2, "", "must not be empty"},
        {"--rate fast x", 2, "", "--rate"},
        {"--rate -1 x", 2, "", "--rate"},
        {"--csv \"\" x", 2, "", "must not be empty"},
        {"--near-week 1700 x", 2, "", "--decode"},
        {"--beidou-gps-time x", 2, "", "--decode"},
        {"--decode --near-week -1 x", 2, "", "--near-week"},
        {"--append x", 2, "", "--record"},
        {"--quiet --progress x", 2, "", "--quiet"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.arguments);
        const Result result = Run(c.arguments);
        EXPECT_EQ(result.exit, c.exit);
        EXPECT_NE(result.out.find(c.out), std::string::npos) << result.out;
        EXPECT_NE(result.err.find(c.err), std::string::npos) << result.err;
    }
}

#ifndef _WIN32
TEST_F(gnss_replay, ends_in_order_when_interrupted)
{
    for (const std::string signal : {"INT", "TERM"}) {
        const std::string copy = folder / signal;
        const Result result = Run("--rate 50000 --record " + Quoted(copy) + " " + Quoted(Recording(week_change)),
                                  "timeout --foreground --preserve-status -s " + signal + " 0.7 ");
        EXPECT_EQ(result.exit, 0) << result.err;
        EXPECT_GT(result.totals.at("frames"), 0u);
        EXPECT_LT(result.totals.at("bytes read"), 262144u);
        EXPECT_EQ(Whole_File(copy).size(), result.totals.at("bytes read"));
    }
}

// The server repeats a failed read for ever.
TEST_F(gnss_replay, can_be_interrupted_while_reads_fail)
{
    const Result result = Run("/proc/self/mem", "timeout --foreground --preserve-status -k 10 -s INT 0.5 ");
    EXPECT_EQ(result.exit, 0);  // killed: 137
    EXPECT_NE(result.err.find("Interrupted."), std::string::npos) << result.err;
    EXPECT_EQ(result.totals.at("bytes read"), 0u);
}

TEST_F(gnss_replay, says_when_the_recording_cannot_be_written)
{
    const Result result = Run(Quoted(Recording(clean)) + " --record /dev/full");
    EXPECT_EQ(result.exit, 1);
    EXPECT_EQ(result.messages, Counts_Of(clean));
    EXPECT_NE(result.err.find("Could not write to file /dev/full"), std::string::npos) << result.err;
}
#endif
