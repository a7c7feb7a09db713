// The program as its users start it: command line, exit status, tables, files, peers.
#include "tests/support/caster.h"
#include "tests/support/environment.h"
#include "tests/support/gnss_stream.h"
#include "tests/support/pipes.h"

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

std::vector<std::string> Lines(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line); lines.push_back(line))
        if (!line.empty() && line.back() == '\r') line.pop_back();
    return lines;
}

bool Has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

}  // namespace

TEST_F(gnss_stream, decodes_and_copies_by_every_way)
{
    const std::string recording = Quoted(Recording(week_change)), list = Quoted(List({Recording(week_change)}));
    const std::string ways[] = {recording, "--list " + list, "--simulator " + recording,
                                "--simulator --rate 2000000 --list " + list, "--rate 2000000 --progress " + recording};
    Result first;
    std::string all;
    for (const std::string &way : ways) {
        SCOPED_TRACE(way);
        const std::string copy = folder / ("copy " + std::to_string(&way - ways));
        const Result result = Run(way + " --decode --epochs --start-week 1709 --beidou-gps-time --csv " +
                                  Quoted(folder / "table") + " --record " + Quoted(copy));
        EXPECT_EQ(result.exit, 0) << result.err;
        EXPECT_EQ(result.messages, Counts_Of(week_change));
        EXPECT_TRUE(Whole_File(copy) == Whole_File(Recording(week_change)));
        EXPECT_TRUE(Has(result.err, "EOF of file")) << result.err;
        EXPECT_EQ(Has(result.err, "MB/s"), Has(way, "--progress"));
        const std::string tables =
            result.out + Whole_File(folder / "table_epochs.csv") + Whole_File(folder / "table_satellites.csv");
        if (all.empty()) all = tables, first = result;
        EXPECT_TRUE(tables == all);
    }
    const std::pair<const char *, std::uint64_t> totals[] = {
        {"bytes read", 262144}, {"frames", 1143},        {"CRC failures", 0},        {"incomplete frame bytes", 302},
        {"epochs", 257},        {"GPS ephemerides", 15}, {"GLONASS ephemerides", 16}};
    for (const auto &[name, value] : totals) EXPECT_EQ(first.totals.at(name), value) << name;
    EXPECT_TRUE(first.out.starts_with("> 1709 604784.000  2012-10-13 23:59:44.000  27 satellites"));
    EXPECT_EQ(Lines(first.out)[1].substr(0, 49), "G01  A 24922227.578 130967156.067  3694.043 35.38");
    EXPECT_TRUE(Has(first.out, "station position [m]             none"));
    const auto epochs = Lines(Whole_File(folder / "table_epochs.csv"));
    EXPECT_TRUE(epochs.size() == 1 + 257 && epochs.back() == "1710,240,2012-10-14 00:04:00.000,27") << epochs.back();
    const auto rows = Lines(Whole_File(folder / "table_satellites.csv"));
    EXPECT_EQ(rows.size(), 1u + 6951);
    EXPECT_EQ(std::count(rows[1].begin(), rows[1].end(), ','), std::count(rows[0].begin(), rows[0].end(), ','));
}

TEST_F(gnss_stream, shows_what_was_wrong_with_the_epochs_and_what_stands_at_the_station)
{
    const Result dirty = Run(Quoted(Recording("day30_dirty4h.rtcm3")) + " --decode");
    EXPECT_TRUE(dirty.exit == 1 && dirty.totals.at("CRC failures") > 0 && dirty.totals.at("skipped bytes") > 0);
    for (const auto &[name, value] :
         {std::pair("frames", 3764), std::pair("incomplete epochs", 10), std::pair("repeated signals", 151),
          std::pair("steps back in time", 0), std::pair("doubts about the week", 0)})
        EXPECT_EQ(dirty.totals.at(name), static_cast<std::uint64_t>(value)) << name;
    for (const char *line : {"week                     1712, by the stream",
                             "leap seconds             16, by the stream", "receiver                 SIMULATED",
                             "antenna                  SIMANT          NONE", "antenna height [m]             0.0000"})
        EXPECT_TRUE(Has(dirty.out, line)) << line;
    const Result told = Run(Quoted(Recording(clean)) + " --decode --start-week 1711");
    EXPECT_EQ(told.exit, 0);
    EXPECT_TRUE(Has(told.err, "Warning: GPS week 1711 is in doubt: ephemerides say 1712.")) << told.err;
    const auto lines = Lines(told.out);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "week                     1711, as told"), 1) << told.out;
    EXPECT_EQ(told.totals.at("doubts about the week"), 247u);
}

TEST_F(gnss_stream, plays_a_list_as_one_stream_and_says_what_is_missing)
{
    const std::string bytes = Whole_File(Recording(week_change)), copy = folder / "copy";
    const std::string first = folder.Write("first", bytes.substr(0, 100001));  // cut inside a frame
    const std::string second = folder.Write("second", bytes.substr(100001));
    const std::string list = Quoted(List({Recording(clean), first, "// a comment", folder / "missing", second}));
    for (const std::string rate : {"", "--rate 2000000 "}) {
        const Result result = Run(rate + "--frames --list " + list + " --append --record " + Quoted(copy));
        EXPECT_EQ(result.exit, 1);
        EXPECT_EQ(result.messages, Sum(Counts_Of(clean), Counts_Of(week_change)));
        EXPECT_TRUE(Has(result.err, "Could not open file " + (folder / "missing"))) << result.err;
    }
    const std::string once = Whole_File(Recording(clean)) + bytes;
    EXPECT_TRUE(Whole_File(copy) == once + once);
}

TEST_F(gnss_stream, takes_names_in_utf_8_and_of_any_length)
{
    const std::string bytes = Whole_File(Recording(clean)), long_name = folder.Long_Name();
    const std::string name = folder.Write("запись № 1", bytes), copy = folder / "копия", record = folder / "журнал";
    const std::string password = folder.Write("пароль", "x");
    const Result result = Run(Quoted(name) + " --frames --out " + Quoted(copy) + " --out " + Quoted(long_name) +
                              " --record " + Quoted(record) + " --csv " + Quoted(folder / "таблица"));
    EXPECT_EQ(result.exit, 0) << result.err;
    for (const std::string &written : {copy, long_name, record}) EXPECT_TRUE(Whole_File(written) == bytes) << written;
    EXPECT_FALSE(Whole_File(folder / "таблица_epochs.csv").empty());
    EXPECT_EQ(Run("--list " + Quoted(List({name, copy})) + " --frames").messages,
              Sum(Counts_Of(clean), Counts_Of(clean)));
    for (const std::string &arguments : {Quoted(name) + " --record " + Quoted(record),  // existing files are kept
                                         Quoted(long_name) + " --out " + Quoted(long_name)})
        EXPECT_EQ(Run(arguments).exit, 4) << arguments;
    EXPECT_TRUE(Whole_File(record) == bytes && Whole_File(long_name) == bytes);
    EXPECT_FALSE(Has(Run("ntrip://127.0.0.1:1/M --strict --user me --password-file " + Quoted(password)).err,
                     "There is no password"));
}

TEST_F(gnss_stream, shows_where_gps_satellites_stand)
{
    const Result result = Run(Quoted(Recording(clean)) + " --epochs");
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(result.totals.at("epochs"), 125u);
    EXPECT_TRUE(Has(result.out, "station position [m]     -3607665.5418 4147867.8786 3223716.9177"));
    std::size_t seen = 0;
    for (const std::string &line : Lines(result.out)) {
        double elevation = 0, azimuth = 0, range = 0, rate = 0;
        const char *const view = "  el %lf az %lf range %lf rate %lf";
        const std::size_t at = line.find("  el ");
        if (at == std::string::npos) continue;
        EXPECT_EQ(std::sscanf(line.c_str() + at, view, &elevation, &azimuth, &range, &rate), 4) << line;
        EXPECT_TRUE(elevation > 4 && elevation <= 90 && azimuth >= 0 && azimuth < 360) << line;
        EXPECT_TRUE(range > 1.9e7 && range < 2.7e7 && rate > -1000 && rate < 1000) << line;
        ++seen;
    }
    EXPECT_GT(seen, 1000u);
}

TEST_F(gnss_stream, does_not_start_without_usable_files)
{
    const std::string good = Quoted(Recording(clean)) + " ", missing = Quoted(folder / "missing");
    const std::string full = folder.Write("full", "old"), copy = " --record " + Quoted(folder / "copy");
    const std::string cases[] = {
        missing + copy,
        "--simulator " + missing,
        "--list " + Quoted(folder.Write("empty", "")),
        "--list " + Quoted(List({folder / "missing", folder / "missing, too"})),
        good + "--record " + Quoted(full),
        good + "--out " + Quoted(folder / "missing/copy"),
        good + "--out " + Quoted(Recording(clean)),
        good + "--out " + Quoted(folder / "twice") + " --record " + Quoted(folder / "./twice"),
        good + "--csv " + Quoted(folder / "missing/table") + copy,
        "ntrip://127.0.0.1:1/M --user me --password-file " + missing,
        "ntrip://127.0.0.1:1/" + std::string(256, 'M'),
    };
    for (const std::string &arguments : cases) {
        SCOPED_TRACE(arguments);
        const Result result = Run(arguments);
        EXPECT_TRUE(result.exit == 4 && result.out.empty()) << result.exit;
        EXPECT_TRUE(Has(result.err, " Error: ")) << result.err;
    }
    EXPECT_EQ(Whole_File(full), "old");
    EXPECT_FALSE(std::filesystem::exists(folder / "copy"));
}

TEST_F(gnss_stream, explains_itself)
{
    EXPECT_TRUE(Has(Run("--help").out, "Exit status"));
    EXPECT_TRUE(Run("--version").out.starts_with("gnss_stream "));
    const std::pair<const char *, const char *> cases[] = {
        {"one --in two", "--in"},
        {"tcpcli://host", "INPUT: there is no port"},
        {"x --out serial://7", "--out: a number"},
        {"x --out ntrip://host", "inputs only"},
        {"x --out - --out -", "one output only"},
        {"x --out - --frames", "--frames"},
        {"--rate 5 tcpsvr://:0", "--rate"},
        {"--user me ntrip://you@host", "--user"},
        {"--password-file y ntrip://host", "--user"},
        {"--near-week 1700 x", "--decode"},
        {"--append x", "--record"},
        {"--csv \"\" x", "must not be empty"},
        {"--rate 5 x::tmt", "excludes an input with ::tmt"},
        {"x --out y::tmt::x10", "for inputs only"},
    };
    for (const auto &[arguments, said] : cases) {
        const Result result = Run(arguments);
        EXPECT_TRUE(result.exit == 2 && result.out.empty() && Has(result.err, said)) << arguments << result.err;
    }
}

TEST_F(gnss_stream, passes_bytes_on_to_every_output)
{
    const std::string bytes = Pattern(1000000);  // all values, among them those at which text would end
    const std::string file = Quoted(folder.Write("bytes", bytes)), old = folder.Write("old", "old");
    const std::string one = folder / "one", two = folder / "two";
    for (const std::string &arguments : {"< " + file, "- --out \"\" < " + file,
                                         "--in " + file + " --out " + Quoted(one) + " --out file://" + Quoted(two) +
                                             " --out - --append --record " + Quoted(old)}) {
        SCOPED_TRACE(arguments);
        const Result result = Run(arguments);
        EXPECT_EQ(result.exit, 0) << result.err;
        EXPECT_TRUE(result.out == bytes);
    }
    EXPECT_TRUE(Whole_File(one) == bytes && Whole_File(two) == bytes && Whole_File(old) == "old" + bytes);
}

// The word behind the name of an output is the input, and not another output, to which the program would append.
TEST_F(gnss_stream, records_and_replays_with_time_tags)
{
    const std::string bytes = Pattern(100000), name = folder / "day.bin";
    const std::string record = " --out " + Quoted(name + "::tmt") + " < " + Quoted(folder.Write("bytes", bytes));
    EXPECT_EQ(Run(record).exit, 0);
    EXPECT_EQ(Run(record).exit, 0);
    EXPECT_TRUE(Whole_File(name) == bytes && Whole_File(folder / "day-2.bin") == bytes);
    const Result replay = Run(Quoted("file://" + name + "::tmt::x100"));
    EXPECT_EQ(replay.exit, 0) << replay.err;
    EXPECT_TRUE(replay.out == bytes && Lines(Whole_File(folder / "day.tmt")).size() > 8 + 20);
    const Result refused = Run(Quoted(name + "::tmt") + " --out " + Quoted(folder / "day.tmt"));
    EXPECT_TRUE(refused.exit == 4 && Has(refused.err, "used twice")) << refused.err;
    EXPECT_EQ(Run(Quoted(name + "::tmt::+3600")).exit, 1);
}

TEST_F(gnss_stream, an_input_may_stand_behind_an_output)
{
    const std::string input = folder.Write("input", "precious"), copy = folder / "copy";
    const Result result = Run("--out " + Quoted(copy) + " " + Quoted(input) + (windows ? " < NUL" : " < /dev/null"));
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(Whole_File(copy), "precious");
    EXPECT_EQ(Whole_File(input), "precious");
}

TEST_F(gnss_stream, goes_from_file_to_file_through_a_server_and_a_client)
{
    const std::string recording = Recording(week_change), copy = folder / "copy";
    Started server = Start(Quoted(recording) + " --out tcpsvr://:0 --wait 30 --status-interval 1");
    const Result result = Run("--in tcpcli://127.0.0.1:" + std::to_string(Port_Of(server)) + " --reconnect 0 --out " +
                              Quoted(copy) + " --csv " + Quoted(folder / "table"));
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(result.messages, Counts_Of(week_change));
    EXPECT_TRUE(Whole_File(copy) == Whole_File(recording));
    const Result sent = server.result.get();
    EXPECT_EQ(sent.exit, 0) << sent.err;
    EXPECT_TRUE(Has(sent.err, "output 1 tcpsvr://:0: connected, 262144 bytes, ")) << sent.err;
}

// The server is ready when it says so: before that a client may be thrown out.
TEST_F(gnss_stream, goes_from_file_to_file_through_a_pipe)
{
    const test::Pipe_Name pipe;
    const std::string recording = Recording(week_change), copy = folder / "copy";
    Started server = Start(Quoted(recording) + " --wait 30 --status-interval 1 --out pipe://" + pipe.name + "?server");
    ASSERT_TRUE(Soon([&] { return Has(Whole_File(server.err), "waiting for a client"); }));
    const Result result = Run("--reconnect 0 --in pipe://" + pipe.name + " --out " + Quoted(copy));
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(server.result.get().exit, 0);
    EXPECT_TRUE(Whole_File(copy) == Whole_File(recording));
    EXPECT_NE(Run("--reconnect 0 --in pipe://" + pipe.name).exit, 0);  // nobody serves it any more
}

TEST_F(gnss_stream, sends_to_a_peer_that_comes_back)
{
    Host host = Host().Open();
    const std::string bytes = Pattern(300000), lost = " of 300000 bytes are lost";
    Started sender = Start(Quoted(folder.Write("bytes", bytes)) +
                           " --rate 200000 --reconnect 1 --out tcpcli://127.0.0.1:" + std::to_string(host.Port()));
    Peer first = host.Accept();
    EXPECT_EQ(first.Hear(1000), bytes.substr(0, 1000));
    first.Leave();
    const std::string heard = host.Accept().Hear(bytes.size());  // until the end
    EXPECT_TRUE(!heard.empty() && bytes.ends_with(heard));
    const Result result = sender.result.get();
    EXPECT_TRUE(result.exit == 1 && Has(result.err, lost)) << result.err;
    EXPECT_FALSE(Has(result.err, " 300000" + lost)) << result.err;
}

TEST_F(gnss_stream, keeps_a_history)
{
    Host host = Host().Open();
    const std::string events = folder / "events", stream = "tcpcli://127.0.0.1:" + std::to_string(host.Port());
    const std::string more = " --out " + Quoted(folder / "copy") + " --events " + Quoted(events);
    Started run = Start(stream + " --reconnect 0" + more);
    Peer peer = host.Accept();
    peer.Say(Whole_File(Recording("day30_dirty4h.rtcm3")).substr(0, 100000));
    EXPECT_TRUE(Soon([&] { return Has(Whole_File(events), "connection made"); }));  // while it runs
    peer.Leave();
    const Result result = run.result.get();
    EXPECT_EQ(result.exit, 0) << result.err;  // nobody asked for the frames
    EXPECT_EQ(result.out, "");
    const std::string history = Whole_File(events);
    const std::string parts[] = {"~\"connection lost\"",
                                 "~\"connection made\"",
                                 "~\"CRC failure\"",
                                 "~\"started\"",
                                 "~\"ended\"",
                                 "gnss_stream: the end of the stream, 100000 bytes\"",
                                 "input " + stream + ", output 1 "};
    for (const std::string &part : parts) EXPECT_TRUE(Has(history, part)) << part << '\n' << history;
    const std::size_t lost = history.find("input " + stream + ": ended, after ");
    EXPECT_TRUE(lost != std::string::npos && history.find(" s: Client disconnected", lost) < history.find('\n', lost))
        << history;

    const std::string recording = folder.Write("recording", Pattern(1000));
    EXPECT_EQ(Run(Quoted(recording) + " --out " + Quoted(events) + " --events " + Quoted(events)).exit, 4);
    EXPECT_EQ(Run("--out - --events " + Quoted(recording) + " < " + Quoted(events)).exit, 4);
    EXPECT_TRUE(Whole_File(recording) == Pattern(1000) && Whole_File(events) == history);
}

TEST_F(gnss_stream, tells_what_a_peer_that_went_has_not_taken)
{
    Host host = Host().Open();
    const std::string bytes = Pattern(15000000);
    Started sender =
        Start(Quoted(folder.Write("bytes", bytes)) + " --out tcpcli://127.0.0.1:" + std::to_string(host.Port()));
    Peer peer = host.Accept();
    EXPECT_EQ(peer.Hear(100000).size(), 100000u);
    peer.Leave();
    const Result result = sender.result.get();
    EXPECT_TRUE(result.exit == 1 && Has(result.err, " of 15000000 bytes are lost")) << result.err;
}

TEST_F(gnss_stream, writes_no_refusal_into_a_recording)
{
    const std::string copy = folder / "copy";
    for (const std::string answer :
         {"ERROR - Bad Password", "SOURCETABLE 200 OK\n", "HTTP/1.0 401 Unau", "ICY 200 O"}) {
        SCOPED_TRACE(answer);
        Caster caster([&](Peer &client) { client.Say(answer); });
        const Result result =
            Run("ntrip://127.0.0.1:" + std::to_string(caster.Port()) + "/M --reconnect 0 --out " + Quoted(copy));
        EXPECT_EQ(result.exit, 1);
        EXPECT_TRUE(Has(result.err, "the caster refuses: " + answer.substr(0, answer.find('\n')))) << result.err;
        EXPECT_EQ(Whole_File(copy), "");
    }
}

TEST_F(gnss_stream, tells_the_caster_the_password_and_nobody_else)
{
    const std::string data = Pattern(5000);
    const std::string answer = "ICY 200 OK\r\n\r\n" + data;
    Caster caster([&](Peer &client) { client.Say(answer); });
    const std::string host = "127.0.0.1:" + std::to_string(caster.Port()), stream = host + "/MOUNT";
    const Environment_Setting user("GNSS_STREAM_USER", "secretary"), password("GNSS_STREAM_PASSWORD", "hush:hush");
    const std::string file = Quoted(folder.Write("password", "hush:hush\r\nsecond line\n"));
    const std::string ways[] = {"ntrip://secretary:hush:hush@" + stream, "ntrip://" + stream,
                                "ntrip://" + stream + " --user secretary --password-file " + file};
    std::vector<Started> started;
    for (const std::string &way : ways) started.push_back(Start(way + " --reconnect 0 --status-interval 1 --out -"));
    for (Started &one : started) {
        const Result result = one.result.get();
        EXPECT_EQ(result.exit, 0) << result.err;
        EXPECT_TRUE(result.out == data);
        EXPECT_TRUE(Has(result.err, "input ntrip://" + stream + ": ")) << result.err;
        EXPECT_FALSE(Has(result.err, "hush") || Has(result.err, "secretary")) << result.err;
    }
    for (const std::string &request : caster.Requests())
        EXPECT_TRUE(request.ends_with("Basic c2VjcmV0YXJ5Omh1c2g6aHVzaA==\r\n\r\n")) << request;
    EXPECT_EQ(Run("ntrip://" + host + " --reconnect 0").out, answer);
    EXPECT_TRUE(caster.Requests().back().starts_with("GET / HTTP/1.0\r\n"));  // for the source table
    Caster denying([](Peer &client) { client.Say("HTTP/1.0 401 Unauthorized\r\nServer: caster on loopback\r\n\r\n"); });
    const Result refused = Run("ntrip://127.0.0.1:" + std::to_string(denying.Port()) + "/MOUNT --reconnect 0");
    EXPECT_TRUE(refused.exit == 1 && Has(refused.err, "Unauthorized")) << refused.err;
    const Result usage = Run(ways[0] + " " + ways[0]);
    EXPECT_TRUE(usage.exit == 2 && !Has(usage.err, "hush")) << usage.err;
}

TEST_F(gnss_stream, starts_without_a_peer_unless_it_is_strict)
{
    const std::string bytes = "some bytes", file = Quoted(folder.Write("bytes", bytes)) + " --wait 1 --out - ";
    Host refuses, taken = Host().Open();
    const std::string cases[] = {
        file + "--out tcpcli://127.0.0.1:" + std::to_string(refuses.Port()),
        file + "--out tcpsvr://:" + std::to_string(taken.Port()),
        file + "--out serial://none/such",
        "tcpcli://127.0.0.1:" + std::to_string(refuses.Port()) + " --reconnect 0",
    };
    for (const std::string &arguments : cases) {
        SCOPED_TRACE(arguments);
        Started tolerant = Start(arguments), strict = Start(arguments + " --strict");
        const Result result = tolerant.result.get(), refused = strict.result.get();
        EXPECT_EQ(result.exit, 1) << result.err;
        EXPECT_EQ(result.out, arguments.starts_with(file) ? bytes : "");
        EXPECT_EQ(Has(result.err, ": 10 of 10 bytes are lost."), arguments.starts_with(file)) << result.err;
        // Each of two alternating texts is printed once, and once at the end with the number of repetitions.
        const std::size_t first = result.err.find("Could not bind"), last = result.err.rfind("Could not bind");
        EXPECT_TRUE(first == last || result.err.find("Could not bind", first + 1) == last) << result.err;
        EXPECT_TRUE(refused.exit == 4 && Has(refused.err, "Could not start")) << refused.err;
    }
}

TEST_F(gnss_stream, shows_the_records_of_a_driver)
{
    folder.Write("nmea_100.x", Whole_File(NMEA_DRIVER));
    const std::string later = folder / "nmea_099.x";  // is not there
    const std::string gga = "$GNGGA,123519.50,4807.0380,N,01131.0000,W,4,08,0.9,545.40,M,46.90,M,1.0,0001*4B\r\n";
    const std::string stream =
        folder.Write("nmea.txt", "$GPRMC,123519.50,A,4807.038,N,01131.000,W,022.4,084.4,230394,003.1,W*53\r\n" + gga +
                                     "$GNGGA,1*00\r\n");
    const std::string copy = folder / "copy";
    const Result nmea = Run("--driver " + Quoted(later) + " --driver-option leap_seconds=9 --out " + Quoted(copy) +
                            ' ' + Quoted(stream));
    EXPECT_EQ(nmea.exit, 0) << nmea.err;
    EXPECT_TRUE(nmea.out.starts_with(">  741 304528.500  1994-03-23 12:35:28.500  0 satellites")) << nmea.out;
    EXPECT_NE(nmea.out.find("P 1994-03-23 12:35:28.500  4180514.5663 -851801.7749 4726034.6864  FIXED_SOL"),
              std::string::npos)
        << nmea.out;
    EXPECT_NE(nmea.err.find("1 sentences were cut short"), std::string::npos) << nmea.err;
    EXPECT_EQ(Whole_File(copy), Whole_File(stream));

    const std::string rtcm3 = "--driver " + Quoted(folder.Write("rtcm3_100.x", Whole_File(RTCM3_DRIVER))) + ' ';
    const Result with = Run(rtcm3 + Quoted(Recording(clean))), without = Run("--decode " + Quoted(Recording(clean)));
    for (const char *total : {"epochs", "satellites in epochs", "GPS ephemerides", "GLONASS ephemerides"})
        EXPECT_EQ(with.totals.at(total), without.totals.at(total)) << total;
    EXPECT_NE(with.out.find("\nE G05 1712 "), std::string::npos);
    EXPECT_NE(with.out.find("\nE R09 "), std::string::npos);

    const struct {
        std::string arguments, words;
        int exit;
    } refused[] = {
        {"--driver " + Quoted(folder / "none.x"), "There is no such file.", 4},
        {"--driver nmea_100.x", "Its folder is not named", 4},
        {"--driver " + Quoted(stream), "It is no library of this system", 4},
        {rtcm3 + "--driver-option start_week=x", "The driver refuses start_week=x: ", 4},
        {rtcm3 + "--driver-option start_week", "NAME=VALUE", 2},
        {"--driver-option start_week=1", "--driver", 2},
        {rtcm3 + "--out -", "standard output", 2},
    };
    for (const auto &row : refused) {
        const Result result = Run(row.arguments + ' ' + Quoted(stream));
        EXPECT_EQ(result.exit, row.exit) << row.arguments;
        EXPECT_NE(result.err.find(row.words), std::string::npos) << result.err;
    }
}
