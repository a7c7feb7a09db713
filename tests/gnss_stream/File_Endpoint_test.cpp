// Files that fail in the middle of a run.
#include "host/gnss_stream/Fan_Out.h"
#include "host/gnss_stream/File_Endpoint.h"
#include "kernel/base/Message_Box.h"
#include "platform/error.h"
#include "platform/fault.h"
#include "tests/support/folder.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

using namespace host;

namespace {

struct Fault {
    Fault(platform::fault::Operation operation, std::uint64_t bytes, std::uint32_t error)
    {
        platform::fault::fail_after(operation, bytes, error);
    }
    ~Fault() { platform::fault::clear(); }
};

std::span<const unsigned char> Bytes_Of(const std::string &text)
{
    return {reinterpret_cast<const unsigned char *>(text.data()), text.size()};
}

}  // namespace

TEST(File_Input, ends_with_reads_that_fail_and_not_while_its_client_is_busy)
{
    kernel::Set_Message_Box([](const char *, const char *) {});  // as the program does: it would block
    const Test_Folder folder;
    const std::string name = folder.Write("bytes", Pattern(20000)), copy = folder / "copy";
    for (const std::uint32_t rate : {0u, 1'000'000u}) {
        Console console;
        File_Output output(copy + std::to_string(rate), console);
        Fan_Out fan_out(Fan_Out::Source::can_wait, Fan_Out::for_ever);
        fan_out.Dont_Delete_Me();
        fan_out.Add(output);
        const Fault fault(platform::fault::Operation::read, 10000, 23);  // a bad sector
        testing::internal::CaptureStderr();
        {
            File_Input input(name, {false, false, rate}, console);
            ASSERT_TRUE(output.Open() && input.Open() && input.Connect(fan_out));
            input.Start();
            const auto watched = [&](bool busy) { return input.Watch(busy), input.Ended(); };
            EXPECT_FALSE(Soon([&] { return watched(true); }, rate == 0 ? 3500 : 0));
            EXPECT_TRUE(Soon([&] { return watched(false); }));
            input.Stop();
        }
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_NE(said.find(name + "\" cannot be read any further"), std::string::npos) << said;
        EXPECT_NE(said.find(name + ": NT ErrorCode: 23"), std::string::npos) << said;
        EXPECT_GT(console.Faults(), 0u);
        EXPECT_EQ(output.Sent(), 10000u);
    }
}

TEST(File_Output, goes_on_at_the_end_and_tells_that_the_disk_is_full)
{
    const Test_Folder folder;
    const std::string name = folder.Write("record", "old"), block = Pattern(4096);
    Console console;
    testing::internal::CaptureStderr();
    {
        File_Output output(name, console);
        ASSERT_TRUE(output.Open());
        const Fault fault(platform::fault::Operation::write, 5000, platform::error_disk_full);
        output.Put(Bytes_Of(block));
        EXPECT_TRUE(output.Is_Up());
        output.Put(Bytes_Of(block));
        output.Put(Bytes_Of(block));
        EXPECT_TRUE(output.Has_Failed() && !output.Is_Up() && output.Close());
        EXPECT_EQ(output.Sent(), 4096u);
    }
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find(name + " has 3 bytes already"), std::string::npos) << said;
    EXPECT_NE(said.find(name + ": the disk is full"), std::string::npos) << said;
    EXPECT_TRUE(Whole_File(name) == ("old" + block + block).substr(0, 3 + 5000));
}
