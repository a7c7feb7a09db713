// Epochs on their way from gnss_stream through a ring to gnss_ring, as users start both.
#include "tests/support/environment.h"
#include "tests/support/gnss_stream.h"
#include "tests/support/segments.h"

#include <algorithm>
#include <sstream>

namespace {

// The programs use the rings of this test.
class gnss_ring : public gnss_stream {
protected:
    void SetUp() override { lock_.Request(); }
    void TearDown() override { lock_.Release(); }

    std::pair<int, std::vector<std::string>> Ring(const std::string &arguments)
    {
        const std::string out = folder / "ring.out";
        std::string command = Quoted(Native(GNSS_RING)) + " " + arguments + " > " + Quoted(out) + " 2>&1";
        if (windows) command = Quoted(command);
        const int exit = Exit_Status(std::system(command.c_str()));
        std::istringstream text(Whole_File(out));
        std::vector<std::string> lines;
        for (std::string line; std::getline(text, line);)
            lines.push_back(line.substr(0, line.find_last_not_of('\r') + 1));
        return {exit, lines};
    }

private:
    const Environment_Setting runtime_{"GNSS_KERNEL_RUNTIME_DIR", folder / "run"};
    kernel::ipcMutexSemaphore lock_{"segments of gnss-kernel tests"};
};

}  // namespace

TEST_F(gnss_ring, shows_what_gnss_stream_publishes)
{
    const std::string recording = Quoted(Recording(week_change)) + " --start-week 1709 --beidou-gps-time ";
    EXPECT_EQ(Run(recording + "--ring 0").exit, 4);
    EXPECT_EQ(Ring("0").first, 4);
    EXPECT_EQ(Ring("7").first, 2);
    EXPECT_EQ(Ring("0 --from yesterday").first, 2);

    std::string error;
    const auto segment = host::Station_Segment::Create(0, {}, error);  // it outlives the programs
    ASSERT_TRUE(segment) << error;
    auto follower = std::async(std::launch::async, [&] {
        const std::string out = folder / "follower.out";
        std::string command = Quoted(Native(GNSS_RING)) + " 0 --count 257 > " + Quoted(out);
        if (windows) command = Quoted(command);
        return Exit_Status(std::system(command.c_str())) == 0 ? Whole_File(out) : std::string();
    });
    kernel::ipcMutexSemaphore writer("writer of ring 0");
    writer.Request();
    const Result second_writer = Run(recording + "--ring 0 --decode");
    EXPECT_EQ(second_writer.exit, 4);
    EXPECT_TRUE(second_writer.err.find("Ring 0 is written by another program.") != std::string::npos);
    writer.Release();
    kernel::sharemem watched("RING_0", 0, 0);
    EXPECT_TRUE(Soon([&] { return watched.in_use() == 3; }));
    const Result result = Run(recording + "--ring 0 --create-ring 100 --decode --rate 100000");
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(result.totals.at("epochs in the ring"), 257u);
    EXPECT_EQ(result.totals.at("epochs not in the ring"), 0u);
    EXPECT_EQ(result.totals.at("satellites left out"), 6951u - 257 * 24);
    const std::string followed = follower.get();
    EXPECT_EQ(std::count(followed.begin(), followed.end(), '\n'), 257);
    EXPECT_TRUE(followed.starts_with("2012-10-13 23:59:44.000  24 satellites  gap        -  age ")) << followed;

    const auto [exit, lines] = Ring("0 --from 1709:604799 --to \"2012-10-14 00:00:02.5\"");
    EXPECT_EQ(exit, 0);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_TRUE(lines[0].starts_with("2012-10-13 23:59:59.000")) << lines[0];
    EXPECT_TRUE(lines[3].starts_with("2012-10-14 00:00:02.000  24 satellites  gap    1.0 s")) << lines[3];
    EXPECT_EQ(Ring("0 --from 2000-01-01T00:00:00 --to 1000000").second.size(), 0u);
    const auto stats = Ring("0 --stats").second;
    EXPECT_EQ(std::count(stats.begin(), stats.end(), "newest                   2012-10-14 00:04:00.000"), 1);
    EXPECT_EQ(std::count(stats.begin(), stats.end(), "records for readers               257"), 1);
    // The same epochs again are older than the newest.
    EXPECT_EQ(Run(recording + "--ring 0 --decode").totals.at("epochs not in the ring"), 256u);

    EXPECT_EQ(Run(recording + "--ring 1 --create-ring 300 --decode").totals.at("epochs in the ring"), 257u);
    EXPECT_EQ(Ring("1").first, 4);  // gone with the program that made it
}
