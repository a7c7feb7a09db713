// The program as its users start it: command line, exit status, tables, files, peers.
#include "tests/support/caster.h"
#include "tests/support/environment.h"
#include "tests/support/gnss_stream.h"

#include <algorithm>
#include <cstdio>

namespace {

Message_Counts Sum(Message_Counts a, const Message_Counts &b)
{
    for (const auto &[message, count] : b) {
        a[message].first += count.first;
        a[message].second += count.second;
    }
    return a;
}

}  // namespace

TEST_F(gnss_stream, gives_the_same_table_and_copy_by_every_way)
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
        const Result result = Run(way + " --frames --record " + Quoted(copy));
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

TEST_F(gnss_stream, plays_the_recordings_of_a_list_as_one_stream)
{
    const std::string bytes = Whole_File(Recording(week_change));
    const std::string first = folder.Write("first", bytes.substr(0, 100001));  // cut inside a frame
    const std::string second = folder.Write("second", bytes.substr(100001));
    const std::string list = List({Recording(clean), first, "// a comment", second});
    const std::string copy = folder / "copy";
    const Result result = Run("--frames --list " + Quoted(list) + " --record " + Quoted(copy));
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(result.messages, Sum(Counts_Of(clean), Counts_Of(week_change)));
    EXPECT_TRUE(Whole_File(copy) == Whole_File(Recording(clean)) + bytes);
}

TEST_F(gnss_stream, goes_past_a_missing_entry_and_says_so)
{
    for (const std::string rate : {"", "--rate 2000000 "}) {
        const std::string list = List({Recording(clean), folder / "missing", Recording(week_change)});
        const Result result = Run(rate + "--frames --list " + Quoted(list));
        EXPECT_EQ(result.exit, 1);
        EXPECT_EQ(result.messages, Sum(Counts_Of(clean), Counts_Of(week_change)));
        EXPECT_NE(result.err.find("Z Error: Could not open file " + (folder / "missing")), std::string::npos)
            << result.err;
    }
}

TEST_F(gnss_stream, says_when_frames_are_damaged)
{
    const Result result = Run("--frames " + Quoted(Recording("day30_dirty4h.rtcm3")));
    EXPECT_EQ(result.exit, 1);
    EXPECT_EQ(result.totals.at("frames"), 3764u);
    EXPECT_GT(result.totals.at("CRC failures"), 0u);
    EXPECT_GT(result.totals.at("skipped bytes"), 0u);
}

TEST_F(gnss_stream, does_not_start_without_usable_files)
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
        good + "--out " + Quoted(folder / "missing/copy"),
        good + "--out " + Quoted(Recording(clean)),
        good + "--out " + Quoted(folder / "twice") + " --record " + Quoted(folder / "./twice"),
        "ntrip://127.0.0.1:1/M --user me --password-file " + Quoted(folder / "missing"),
        "ntrip://127.0.0.1:1/" + std::string(256, 'M'),
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

TEST_F(gnss_stream, leaves_no_record_file_when_the_input_is_missing)
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

TEST_F(gnss_stream, decodes_by_every_way)
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

TEST_F(gnss_stream, shows_where_gps_satellites_stand)
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

TEST_F(gnss_stream, does_not_start_when_a_table_cannot_be_created)
{
    const std::string copy = folder / "copy";
    const Result result =
        Run(Quoted(Recording(clean)) + " --csv " + Quoted(folder / "missing/table") + " --record " + Quoted(copy));
    EXPECT_EQ(result.exit, 4);
    EXPECT_NE(result.err.find("Could not create file"), std::string::npos) << result.err;
    EXPECT_FALSE(std::filesystem::exists(copy));
}

TEST_F(gnss_stream, appends_when_told)
{
    const std::string copy = folder.Write("copy", "old");
    const Result result = Run(Quoted(Recording(clean)) + " --append --record " + Quoted(copy));
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_TRUE(Whole_File(copy) == "old" + Whole_File(Recording(clean)));
}

TEST_F(gnss_stream, explains_itself)
{
    const struct {
        const char *arguments;
        int exit;
        const char *out, *err;
    } cases[] = {
        {"--help", 0, "Exit status", ""},
        {"--version", 0, "gnss_stream ", ""},
        {"--nonsense x", 2, "", "--nonsense"},
        {"one two", 2, "", "two"},
        {"one --in two", 2, "", "--in"},
        {"tcpcli://host", 2, "", "INPUT: there is no port"},
        {"x --out serial://7", 2, "", "--out: a number"},
        {"x --out ntrip://host", 2, "", "inputs only"},
        {"x --out - --out -", 2, "", "one output only"},
        {"x --out - --frames", 2, "", "--frames"},
        {"x --out - --csv y --epochs", 2, "", "--epochs"},
        {"--list", 2, "", "--list"},
        {"--rate 5 tcpsvr://:0", 2, "", "--rate"},
        {"--user me x", 2, "", "ntrip://"},
        {"--user me ntrip://you@host", 2, "", "--user"},
        {"--password-file y ntrip://host", 2, "", "--user"},
        {"--rate fast x", 2, "", "--rate"},
        {"--rate -1 x", 2, "", "--rate"},
        {"--csv \"\" x", 2, "", "must not be empty"},
        {"--near-week 1700 x", 2, "", "--decode"},
        {"--beidou-gps-time x", 2, "", "--decode"},
        {"--decode --near-week -1 x", 2, "", "--near-week"},
        {"--append x", 2, "", "--record"},
        {"--quiet --progress x", 2, "", "--quiet"},
        {"--reconnect -1 x", 2, "", "--reconnect"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.arguments);
        const Result result = Run(c.arguments);
        EXPECT_EQ(result.exit, c.exit);
        EXPECT_NE(result.out.find(c.out), std::string::npos) << result.out;
        EXPECT_NE(result.err.find(c.err), std::string::npos) << result.err;
    }
}

TEST_F(gnss_stream, passes_bytes_on_to_every_output)
{
    const std::string bytes = Pattern(1000000);  // all values, among them those at which text would end
    const std::string file = Quoted(folder.Write("bytes", bytes));
    const std::string one = folder / "one", two = folder / "two", record = folder / "record";
    const std::string cases[] = {file, "< " + file, "- --out \"\" < " + file, "--in " + file + " --out -"};
    for (const std::string &arguments : cases) {
        SCOPED_TRACE(arguments);
        const Result result = Run(arguments);
        EXPECT_EQ(result.exit, 0) << result.err;
        EXPECT_TRUE(result.out == bytes);
    }
    const Result result = Run(file + " --out " + Quoted(one) + " --out file://" + Quoted(two) +
                              " --out - --append --record " + Quoted(record));
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_TRUE(result.out == bytes);
    for (const std::string &copy : {one, two, record}) EXPECT_TRUE(Whole_File(copy) == bytes) << copy;
}

TEST_F(gnss_stream, goes_from_file_to_file_through_a_server_and_a_client)
{
    const std::string recording = Recording(week_change), copy = folder / "copy";
    Started server = Start(Quoted(recording) + " --out tcpsvr://:0 --wait 30 --status-interval 1");
    const std::uint16_t port = Port_Of(server);
    ASSERT_NE(port, 0);
    const Result result = Run("--in tcpcli://127.0.0.1:" + std::to_string(port) + " --reconnect 0 --out " +
                              Quoted(copy) + " --csv " + Quoted(folder / "table"));
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(result.messages, Counts_Of(week_change));
    EXPECT_TRUE(Whole_File(copy) == Whole_File(recording));
    const Result sent = server.result.get();
    EXPECT_EQ(sent.exit, 0) << sent.err;
    EXPECT_NE(sent.err.find("output 1 tcpsvr://:0: connected, 262144 bytes, "), std::string::npos) << sent.err;
}

TEST_F(gnss_stream, sends_to_a_peer_that_comes_back)
{
    Host host = Host().Open();
    const std::string bytes = Pattern(300000);
    Started sender = Start(Quoted(folder.Write("bytes", bytes)) +
                           " --rate 200000 --reconnect 1 --out tcpcli://127.0.0.1:" + std::to_string(host.Port()));
    Peer first = host.Accept();
    EXPECT_EQ(first.Hear(1000), bytes.substr(0, 1000));
    first.Leave();
    const std::string heard = host.Accept().Hear(bytes.size());  // until the end
    EXPECT_GT(heard.size(), 0u);
    EXPECT_TRUE(bytes.ends_with(heard));
    EXPECT_EQ(sender.result.get().exit, 0);
}

TEST_F(gnss_stream, tells_the_caster_the_password_and_nobody_else)
{
    const std::string data = Pattern(5000), answer = "ICY 200 OK\r\n\r\n" + data;
    Caster caster([&](Peer &client) { client.Say(answer); });
    const std::string host = "127.0.0.1:" + std::to_string(caster.Port()) + "/MOUNT";
    const Environment_Setting password("GNSS_STREAM_PASSWORD", "hush:hush");
    const std::string file = Quoted(folder.Write("password", "hush:hush\r\nsecond line\n"));
    const std::string ways[] = {"ntrip://secretary:hush:hush@" + host, "ntrip://" + host + " --user secretary",
                                "ntrip://" + host + " --user secretary --password-file " + file};
    for (const std::string &way : ways) {
        SCOPED_TRACE(way);
        const Result result = Run(way + " --reconnect 0 --status-interval 1 --out " + Quoted(folder / "copy"));
        EXPECT_EQ(result.exit, 0) << result.err;
        EXPECT_TRUE(Whole_File(folder / "copy") == data);
        EXPECT_NE(caster.Requests().back().find("Basic c2VjcmV0YXJ5Omh1c2g6aHVzaA==\r\n"), std::string::npos);
        EXPECT_NE(result.err.find("input ntrip://" + host + ": "), std::string::npos) << result.err;
        EXPECT_EQ((result.out + result.err).find("hush"), std::string::npos) << result.err;
        EXPECT_EQ((result.out + result.err).find("secretary"), std::string::npos) << result.err;
    }
    EXPECT_EQ(Run("ntrip://" + host.substr(0, host.find('/')) + " --reconnect 0").out, answer);
    EXPECT_TRUE(caster.Requests().back().starts_with("GET / HTTP/1.0\r\n"));  // for the source table
    const Result usage = Run(ways[0] + " " + ways[0]);
    EXPECT_EQ(usage.exit, 2);
    EXPECT_EQ(usage.err.find("hush"), std::string::npos) << usage.err;
}

TEST_F(gnss_stream, says_when_the_caster_refuses)
{
    Caster caster([](Peer &client) { client.Say("HTTP/1.0 401 Unauthorized\r\nServer: caster on loopback\r\n\r\n"); });
    const Result result = Run("ntrip://127.0.0.1:" + std::to_string(caster.Port()) + "/M --reconnect 0");
    EXPECT_EQ(result.exit, 1);
    EXPECT_NE(result.err.find("Unauthorized"), std::string::npos) << result.err;
}

TEST_F(gnss_stream, starts_without_a_peer_unless_it_is_strict)
{
    const std::string bytes = "some bytes", file = Quoted(folder.Write("bytes", bytes)) + " --wait 1 ";
    Host refuses, taken = Host().Open();
    const struct {
        std::string arguments;
        int exit;
    } cases[] = {
        {file + "--out tcpcli://127.0.0.1:" + std::to_string(refuses.Port()), 0},
        {file + "--out tcpsvr://:" + std::to_string(taken.Port()), 0},
        {file + "--out serial://none/such", 0},
        {"tcpcli://127.0.0.1:" + std::to_string(refuses.Port()) + " --reconnect 0", 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.arguments);
        const std::string copy = " --out " + Quoted(folder / "copy");
        const Result result = Run(c.arguments + copy);
        EXPECT_EQ(result.exit, c.exit) << result.err;
        EXPECT_EQ(Whole_File(folder / "copy"), c.exit == 0 ? bytes : "");
        const Result strict = Run(c.arguments + copy + " --strict");
        EXPECT_EQ(strict.exit, 4) << strict.err;
        EXPECT_NE(strict.err.find("Could not start"), std::string::npos) << strict.err;
    }
}
