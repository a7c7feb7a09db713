// Recordings with time tags: written by the program's output, given back by its input.
#include "host/gnss_stream/Fan_Out.h"
#include "host/gnss_stream/File_Endpoint.h"
#include "kernel/base/Message_Box.h"
#include "kernel/files/timetag_row_internal.h"
#include "platform/error.h"
#include "platform/fault.h"
#include "tests/support/folder.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

using namespace host;

namespace {

std::span<const unsigned char> Bytes_Of(const std::string &text)
{
    return {reinterpret_cast<const unsigned char *>(text.data()), text.size()};
}

bool Has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

// A chain from a recording to a file.
struct Replayed {
    Replayed(const std::string &name, const std::string &copy, Replay_Pace pace)
        : output(copy, console), input(name, {false, false, 0, pace}, console)
    {
        kernel::Set_Message_Box([](const char *, const char *) {});  // as the program does: it would block
        fan_out.Dont_Delete_Me();
        fan_out.Add(output);
        begun = output.Open() && input.Open() && input.Connect(fan_out);
        if (begun) input.Start();
    }
    Console console;
    Fan_Out fan_out{Fan_Out::Source::can_wait, Fan_Out::for_ever};
    File_Output output;
    File_Input input;
    bool begun = false;
};

}  // namespace

TEST(Tagged_Replay, gives_every_byte_and_none_before_its_time)
{
    const Test_Folder folder;
    const std::string bytes = Pattern(3'000'000), rows = kernel::Timetag_Header("rec.bin");
    const std::string name = folder.Write("rec.bin", bytes);
    // 200 s; the last third of the recording has no rows.
    folder.Write("rec.tmt", rows + "100;1000000;1000000\n200;1500000;500000\nbad\n300;2000000;500000\n300;99");
    const struct {
        Replay_Pace pace;
        std::uint64_t least_ms;
        std::size_t begin;
    } cases[] = {{{1000, 0}, 200, 0}, {{1000, 100}, 100, 1000000}, {{1, 199.9}, 100, 1500000}};
    for (const auto &c : cases) {
        const std::string copy = folder / ("copy " + std::to_string(c.begin));
        testing::internal::CaptureStderr();
        {
            Replayed replay(name, copy, c.pace);
            ASSERT_TRUE(replay.begun);
            EXPECT_GE(Elapsed([&] { EXPECT_TRUE(Soon([&] { return replay.input.Ended(); })); }), c.least_ms);
            EXPECT_EQ(replay.console.Faults(), 0u);
        }
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(Whole_File(copy) == bytes.substr(c.begin));
        EXPECT_TRUE(Has(said, "line 11 is no row") && Has(said, "line 13 is cut") && Has(said, "EOF of file")) << said;
    }
}

TEST(Tagged_Replay, stops_in_a_silence_which_is_no_failure)
{
    const Test_Folder folder;
    const std::string name = folder.Write("rec.bin", "abcdef"), copy = folder / "copy";
    folder.Write("rec.tmt", "100;3;3\n1000000;6;3\n");
    testing::internal::CaptureStderr();
    platform::fault::fail_after(platform::fault::Operation::read, 1, 23);
    {
        Replayed replay(name, copy, {});
        EXPECT_TRUE(Soon([&] { return replay.output.Sent() == 1; }));
        platform::fault::clear();  // the disk reads again: the error is over when the silence begins
        EXPECT_TRUE(Soon([&] { return replay.output.Sent() == 3; }));
        EXPECT_FALSE(Soon([&] { return replay.input.Watch(false), replay.input.Ended(); }, 3500));
        EXPECT_LT(Elapsed([&] { replay.input.Stop(); }), 1000u);
        EXPECT_TRUE(replay.input.Ended());
    }
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(Has(said, "silent until +999900 s") && !Has(said, "cannot be read any further")) << said;
    EXPECT_EQ(Whole_File(copy), "abc");
}

TEST(Tagged_Replay, says_why_there_is_nothing_to_replay)
{
    const Test_Folder folder;
    const std::string name = folder.Write("rec.bin", "abcdef");
    const auto said = [&](Replay_Pace pace, bool begins) {
        testing::internal::CaptureStderr();
        Replayed replay(name, folder / "copy", pace);
        EXPECT_EQ(replay.begun, begins);
        EXPECT_TRUE(!begins || Soon([&] { return replay.input.Ended(); }));
        EXPECT_GT(replay.console.Faults(), 0u);
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_TRUE(Has(said({}, false), "The time tags cannot be opened: " + (folder / "rec.tmt")));
    folder.Write("rec.tmt", "100;3;3\n160;6;3\n");
    EXPECT_TRUE(Has(said({1, 61}, true), "The last time tag is at +60 s"));
    EXPECT_EQ(Whole_File(folder / "copy"), "");
}

TEST(Tagged_Output, takes_a_new_name_and_goes_on_when_the_tags_fail)
{
    const Test_Folder folder;
    const std::string name = folder.Write("rec.bin", "precious"), block = Pattern(4096);
    folder.Write("rec-2.tmt", "precious");
    Console console;
    testing::internal::CaptureStderr();
    {
        Tagged_Output output(name, console);
        ASSERT_TRUE(output.Open());
        output.Put(Bytes_Of(block));
        platform::fault::fail_after(platform::fault::Operation::write, 4096, platform::error_disk_full);
        output.Put(Bytes_Of(block));  // its row finds the disk full
        platform::fault::clear();
        output.Put(Bytes_Of(block));
        EXPECT_TRUE(output.Is_Up() && output.Sent() == 3 * 4096 && console.Faults() > 0);
        platform::fault::fail_after(platform::fault::Operation::write, 10, platform::error_disk_full);
        output.Put(Bytes_Of(block));
        platform::fault::clear();
        output.Put(Bytes_Of(block));
        EXPECT_TRUE(output.Has_Failed() && output.Sent() == 3 * 4096 && output.Close());
    }
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(Has(said, "exist: the stream goes to " + (folder / "rec-3.bin"))) << said;
    EXPECT_TRUE(Has(said, "Could not write to timetag file") && Has(said, "Could not write to file")) << said;
    EXPECT_TRUE(Whole_File(folder / "rec-3.bin") == block + block + block + block.substr(0, 10));
    EXPECT_TRUE(Whole_File(folder / "rec-3.tmt").ends_with(";4096;4096\n"));
    EXPECT_TRUE(Whole_File(name) == "precious" && Whole_File(folder / "rec-2.tmt") == "precious");
    EXPECT_FALSE(std::filesystem::exists(folder / "rec.tmt") || std::filesystem::exists(folder / "rec-2.bin"));
}

TEST(Tagged_Output, refuses_names_that_cannot_have_tags_beside_them)
{
    const Test_Folder folder;
    std::filesystem::create_directory(folder / "d.1");
    std::filesystem::create_directory(folder / "folder.bin");
    const std::pair<std::string, const char *> cases[] = {{folder / "d.1/rec", "it needs an extension"},
                                                          {folder / "folder.bin", "that is no file"},
                                                          {folder / std::string(260, 'x'), "it is too long"}};
    for (const auto &[name, why] : cases) {
        Console console;
        testing::internal::CaptureStderr();
        Tagged_Output output(name, console);
        EXPECT_FALSE(output.Open()) << name;
        EXPECT_TRUE(Has(testing::internal::GetCapturedStderr(), why)) << why;
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "d.tmt"));
}
