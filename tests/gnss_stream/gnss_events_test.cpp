#include "host/gnss_stream/Event_File.h"

#include "tests/support/gnss_stream.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// The program gnss_events on a file with four entries.
class gnss_events : public testing::Test {
protected:
    gnss_events()
    {
        const host::Event_Table table(kernel::EventTabelle::Create(host::all_events, nullptr));
        table->SetInterval(0);
        table->Insert(1798761599.5, "gap", "input a: no bytes", 0);
        table->Insert(1798761600, "gap", "input a:\tbytes\x1b again", 1);
        table->Insert(1798761660, "disk full", "\xc3\xa4", 0);
        table->Insert(1798765200, "gap", "last", 0);
        EXPECT_TRUE(host::Write_Event_File(file, *table));
    }
    int Run(const std::string &arguments)
    {
        const std::string out_name = folder / "out", err_name = folder / "err";
        std::string command =
            Quoted(Native(GNSS_EVENTS)) + " " + arguments + " > " + Quoted(out_name) + " 2> " + Quoted(err_name);
        if (windows) command = Quoted(command);  // the command interpreter takes the outer pair away
        const int exit = Exit_Status(std::system(command.c_str()));
        out = Whole_File(out_name);
        err = Whole_File(err_name);
        return exit;
    }

    const Test_Folder folder;
    const std::string file = folder / "events.txt";
    std::string out, err;
};

}  // namespace

TEST_F(gnss_events, lists_filters_and_counts)
{
    const std::string entries[] = {"2026-12-31T23:59:59.500Z   gap: input a: no bytes\n",
                                   "2027-01-01T00:00:00.000Z * gap: input a:\\tbytes\\x1b again\n",
                                   "2027-01-01T00:01:00.000Z   disk full: \xc3\xa4\n",
                                   "2027-01-01T01:00:00.000Z   gap: last\n"};
    const struct {
        std::string arguments, out;
    } cases[] = {
        {"", entries[0] + entries[1] + entries[2] + entries[3]},
        {" --event GAP --from 2027-01-01 --to 2027-01-01T01", entries[1]},
        {" --event gap --event \"disk full\" --unmarked --from 1798761600", entries[2] + entries[3]},
        {" --marked --seconds", "1798761600.000 * gap: input a:\\tbytes\\x1b again\n"},
        {" --per-hour", "2026-12-31T23:00:00.000Z        1 gap\n"
                        "2027-01-01T00:00:00.000Z        1 disk full\n"
                        "2027-01-01T00:00:00.000Z        1 gap\n"
                        "2027-01-01T01:00:00.000Z        1 gap\n"},
        {" --summary --to 1798765200", "       1 disk full, from 2027-01-01T00:01:00.000Z to 2027-01-01T00:01:00.000Z, "
                                       "0 marked\n"
                                       "       2 gap, from 2026-12-31T23:59:59.500Z to 2027-01-01T00:00:00.000Z, "
                                       "1 marked\n"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(Run(Quoted(file) + one.arguments), 0) << one.arguments << err;
        EXPECT_EQ(out, one.out) << one.arguments;
    }
}

TEST_F(gnss_events, marks_what_is_selected_and_loses_nothing_by_mistake)
{
    EXPECT_EQ(Run(Quoted(file) + " --mark --event gap --to 2027-01-01T00:30"), 0);
    EXPECT_EQ(out, "1 entries marked.\n");
    Run(Quoted(file) + " --marked --seconds");
    EXPECT_EQ(out.substr(0, 16), "1798761599.500 *");
    EXPECT_EQ(Run(Quoted(file) + " --unmark"), 0);
    EXPECT_EQ(out, "2 entries unmarked.\n");

    const std::string recording = folder.Write("recording", "\xd3 bytes");
    EXPECT_EQ(Run(Quoted(recording) + " --mark"), 1);
    EXPECT_EQ(Whole_File(recording), "\xd3 bytes");
    EXPECT_EQ(Run(Quoted(file) + " --event gaps"), 1);
    EXPECT_NE(err.find("has no event \"gaps\""), std::string::npos);
    EXPECT_EQ(Run(Quoted(folder / "none")), 1);
    for (const char *wrong : {" --from yesterday", " --mark --unmark", " --marked --unmarked", " x"})
        EXPECT_EQ(Run(Quoted(file) + wrong), 2) << wrong;
}
