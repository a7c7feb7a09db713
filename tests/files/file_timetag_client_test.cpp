#include "kernel/files/file_timetag_client.h"
#include "kernel/files/timetag_row_internal.h"

#include "kernel/bytes/String_Byte_Server.h"
#include "kernel/time/mTime.h"

#include "platform/fault.h"

#include "tests/support/folder.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <sstream>
#include <vector>

using namespace kernel;

namespace {

const char unit[] = "Kernel/file_timetag_client";
const char data_unit[] = "kernel/file_client";

struct Row {
    double time = 0;
    long long offset = 0;
    int length = 0;
};

// A recorder behind a ring, in a folder of its own.
class Tagged : public ::testing::Test {
protected:
    ~Tagged() override { platform::fault::clear(); }

    bool Begin() { return server->Connect(recorder) && recorder->Create(name.c_str()); }

    bool Feed(const std::string &bytes)
    {
        server->PutStr(bytes.c_str());
        return server->Work();
    }

    // The rows of the tag file, behind the header that is expected there.
    std::vector<Row> Rows() const
    {
        std::istringstream text(Whole_File(tags));
        std::string line, header;
        while (std::getline(text, line) && header.find("#Data\n") == std::string::npos) header += line + "\n";
        EXPECT_EQ(header, "#Header\nVersion=0.01\nDataFile=" + name +
                              "\nModuleIntentifier=File_TimeTag_Client\nInterface=unknown\nTimeSystem=UTC\n"
                              "#Column description: GPSTime[sec];FileOffset[bytes from start];Length[bytes]\n#Data\n");
        std::vector<Row> rows;
        do {
            Row row;
            if (std::sscanf(line.c_str(), "%lf;%lld;%d", &row.time, &row.offset, &row.length) == 3) rows.push_back(row);
        } while (std::getline(text, line));
        return rows;
    }

    const Test_Folder folder;
    const std::string name = folder / "rec.bin", tags = folder / "rec.tmt";
    Heard_Reports reports;
    File_TimeTag_Client *const recorder = File_TimeTag_Client::Construct();  // the server's
    const std::unique_ptr<String_Byte_Server> server{String_Byte_Server::Construct(20000, nullptr)};
};

std::string Row_Text(double time, std::int64_t offset, std::uint32_t length)
{
    char row[timetag_row_size];
    return {row, Format_Timetag_Row(row, time, offset, length)};
}

}  // namespace

TEST_F(Tagged, says_when_each_block_came_and_where_it_ends)
{
    ASSERT_TRUE(Begin());
    EXPECT_STREQ(recorder->GetName(), "File_TimeTag_Client");
    const double before = mTime(mTime::UTC_Now).get_roguetime();
    EXPECT_TRUE(Feed(std::string(100, 'a')) && Feed(std::string(50, 'b')));
    EXPECT_TRUE(recorder->Send(*server, Mesg_Data_Ready));  // nothing is there: a row all the same
    EXPECT_TRUE(Feed(std::string(5000, 'c')));              // more than a block
    const double after = mTime(mTime::UTC_Now).get_roguetime();
    const std::pair<long long, int> expected[] = {{100, 100}, {150, 50}, {150, 0}, {4246, 4096}, {5150, 904}};
    const std::vector<Row> rows = Rows();
    ASSERT_EQ(rows.size(), std::size(expected));
    double last = before;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(std::pair(rows[i].offset, rows[i].length), expected[i]) << i;
        EXPECT_GE(rows[i].time, last - 0.00001);
        last = rows[i].time;
    }
    EXPECT_LE(last, after + 0.00001);
    EXPECT_EQ(Whole_File(name).size(), 5150u);
    EXPECT_EQ(reports->Take(), Reports{});
    EXPECT_TRUE(recorder->Create(nullptr) && Feed("dropped") && recorder->IsValid());
    EXPECT_EQ(Rows().size(), 5u);
}

TEST_F(Tagged, goes_on_when_it_is_opened_again_under_its_name)
{
    ASSERT_TRUE(Begin() && Feed("abc"));
    EXPECT_TRUE(recorder->Create(name.c_str()) && Feed("d"));
    EXPECT_EQ(reports->Take(), (Reports{{2, 9, "File " + name + " already open", data_unit},
                                        {2, 9, "Timetag file " + tags + " already open", unit}}));
    EXPECT_EQ(Rows().size(), 2u);
    const std::string other = folder / "rec.raw";  // the same tag file: it is kept open and goes on
    EXPECT_TRUE(recorder->Create(other.c_str()) && Feed("e"));
    EXPECT_EQ(reports->Take(), (Reports{{2, 9, "Timetag file " + tags + " already open", unit}}));
    EXPECT_EQ(Rows().size(), 3u);
    EXPECT_EQ(Rows().back().offset, 1);
}

TEST_F(Tagged, goes_on_without_tags_when_there_can_be_none)
{
    const std::string long_name = folder / (std::string(256 - (folder / "").size(), 'x'));
    ASSERT_TRUE(Begin());
    EXPECT_FALSE(recorder->Create(long_name.c_str()));  // 256 bytes: no room for ".tmt"
    EXPECT_TRUE(Feed("abc"));
    EXPECT_EQ(Whole_File(long_name), "abc");
    const std::string blocked = folder / "blocked.bin", in_the_way = folder / "blocked.tmt";
    std::filesystem::create_directory(in_the_way);
    EXPECT_FALSE(recorder->Create(blocked.c_str()));
    EXPECT_TRUE(recorder->IsValid() && Feed("def"));
    EXPECT_EQ(Whole_File(blocked), "def");
    EXPECT_EQ(reports->Take(),
              (Reports{{3, 9, "Could not open file " + in_the_way, unit},
                       {3, 15, "Initialization Error\nCode: access denied (File open ?)", data_unit}}));
}

TEST_F(Tagged, a_full_disk_ends_what_it_hits)
{
    const std::string full = "Initialization Error\nCode: NT ErrorCode: 112 = 0x00000070";
    const struct {
        std::uint64_t room;  // bytes, both files together, from the Create on
        std::vector<std::string> heard;
        std::string recorded;
    } cases[] = {{10, {"Could not write header of timetag file " + tags}, "abcdefgh"},
                 {400, {"Could not write to timetag file " + tags}, "abcdefgh"},
                 {0, {"Could not write to file " + name}, "abcd"}};
    ASSERT_TRUE(Begin());
    const std::size_t header = Whole_File(tags).size();
    for (const auto &c : cases) {
        SCOPED_TRACE(c.heard.front());
        ASSERT_TRUE(recorder->Create(nullptr));
        // The header and four bytes of data; then a row is begun, or the data fail in a second block.
        const std::size_t row = Row_Text(mTime(mTime::UTC_Now).get_roguetime(), 4, 4).size();
        const std::uint64_t room = c.room == 400 ? header + 4 + 3 : c.room == 0 ? header + 4 + row : c.room;
        platform::fault::fail_after(platform::fault::Operation::write, room, 112);
        EXPECT_TRUE(recorder->Create(name.c_str()));
        if (c.room == 0) {
            EXPECT_TRUE(Feed("abcd") && Feed("efgh"));
        } else if (c.room == 10) {
            platform::fault::clear();
            EXPECT_TRUE(Feed("abcd") && Feed("efgh"));
        } else {
            EXPECT_TRUE(Feed("abcd"));
            platform::fault::clear();
            EXPECT_TRUE(Feed("efgh"));
        }
        platform::fault::clear();
        const Reports heard = reports->Take();
        ASSERT_EQ(heard.size(), 2u);
        EXPECT_EQ(heard[0], (Reported{3, 9, c.heard.front(), unit}));
        EXPECT_EQ(heard[1], (Reported{3, 15, full, data_unit}));
        EXPECT_EQ(Whole_File(name), c.recorded);
        EXPECT_TRUE(recorder->IsValid());
        recorder->Close();
        EXPECT_TRUE(Feed("dropped"));
        EXPECT_EQ(Whole_File(name), c.recorded);
    }
}

TEST(Timetag_Name, has_its_own_rules)
{
    const std::string a255(255, 'a'), a256(256, 'a'), dotted = std::string(256, 'a') + ".b";
    const std::pair<std::string, std::string> cases[] = {{"rec.bin", "rec.tmt"},
                                                         {"rec", "rec.tmt"},
                                                         {"rec.TMT", "rec.TMT.tmt"},
                                                         {"a.b.c", "a.b.tmt"},
                                                         {"/d.1/rec", "/d.tmt"},
                                                         {"", ".tmt"},
                                                         {"rec.", "rec.tmt"},
                                                         {".tmt", ".tmt.tmt"},
                                                         {a255, a255 + ".tmt"},
                                                         {a256, ""},
                                                         {dotted, ""},
                                                         {std::string(260, '.'), ""},
                                                         {"a." + std::string(257, 'b'), "a.tmt"},
                                                         {"a." + std::string(258, 'b'), ""}};
    for (const auto &[data, tags] : cases) EXPECT_EQ(File_TimeTag_Client::Tag_File_Name(data.c_str()), tags) << data;
}

TEST(Timetag_Row, is_written_alike_in_every_locale)
{
    const char *const before = std::setlocale(LC_ALL, nullptr);
    const std::string kept = before ? before : "C";
    for (const char *locale : {"C", "de_DE.UTF-8", "German"}) {
        std::setlocale(LC_ALL, locale);
        EXPECT_EQ(Row_Text(1034250000.123456, 4294967296, 4096), "1034250000.12346;4294967296;4096\n");
        EXPECT_EQ(Row_Text(-0.5, 0, 0), "-0.50000;0;0\n");
    }
    std::setlocale(LC_ALL, kept.c_str());
}
