#include "platform/file.h"

#include "platform/error.h"
#include "platform/fault.h"

#include "tests/support/folder.h"

#include <gtest/gtest.h>

using namespace platform;

namespace {

std::uint32_t Open_Error(const std::string &name, File::Mode mode)
{
    set_last_error(0);
    return File::open(name.c_str(), mode) ? 0 : last_error();
}

std::string Read(File &file, std::size_t n)
{
    std::string bytes(n, '\0');
    std::size_t got = 0;
    EXPECT_TRUE(file.read(bytes.data(), n, got));
    bytes.resize(got);
    return bytes;
}

bool Write(File &file, const std::string &bytes, std::size_t &put)
{
    return file.write(bytes.data(), bytes.size(), put);
}

}  // namespace

TEST(file, opens_in_three_ways)
{
    Test_Folder folder;
    const std::string name = folder.Write("a", "0123456789");
    std::size_t put = 0;
    {
        const auto file = File::open(name.c_str(), File::Mode::read);
        ASSERT_TRUE(file);
        EXPECT_EQ(Read(*file, 4), "0123");
        EXPECT_EQ(file->position(), 4);
        EXPECT_EQ(Read(*file, 100), "456789");
        EXPECT_EQ(Read(*file, 100), "");
    }
    {
        const auto file = File::open(name.c_str(), File::Mode::append);
        ASSERT_TRUE(file);
        EXPECT_EQ(file->position(), 0);
        EXPECT_TRUE(file->seek_end(0) && Write(*file, "ab", put));
        EXPECT_TRUE(file->seek_end(-1) && Write(*file, "c", put));
        EXPECT_FALSE(file->seek_end(-100));
        EXPECT_TRUE(Write(*file, "d", put));  // the position stayed
    }
    EXPECT_EQ(Whole_File(name), "0123456789acd");
    EXPECT_TRUE(Write(*File::open(name.c_str(), File::Mode::create), "new", put));
    EXPECT_EQ(Whole_File(name), "new");
}

TEST(file, says_why_it_does_not_open)
{
    Test_Folder folder;
    const std::string name = folder.Write("a", "abc");
    EXPECT_EQ(Open_Error(folder / "missing", File::Mode::read), error_not_found);
    EXPECT_EQ(Open_Error(folder / "no/where", File::Mode::create), error_path_not_found);
    EXPECT_EQ(Open_Error(folder / "", File::Mode::read), error_access_denied);
    EXPECT_EQ(Open_Error(folder / "", File::Mode::create), error_access_denied);

    const auto reader = File::open(name.c_str(), File::Mode::read);
    EXPECT_EQ(Open_Error(name, File::Mode::read), 0u);
    EXPECT_EQ(Open_Error(name, File::Mode::create), error_sharing_violation);
    EXPECT_EQ(Whole_File(name), "abc");  // the refused one cut nothing off
    const std::string other = folder / "b";
    const auto writer = File::open(other.c_str(), File::Mode::create);
    EXPECT_EQ(Open_Error(other, File::Mode::read), error_sharing_violation);
    EXPECT_EQ(Open_Error(other, File::Mode::append), error_sharing_violation);
}

TEST(file, a_closed_one_moves_nothing)
{
    Test_Folder folder;
    const auto file = File::open((folder / "a").c_str(), File::Mode::create);
    std::size_t put = 9;
    file->close();
    EXPECT_FALSE(Write(*file, "abc", put));
    EXPECT_EQ(put, 0u);
    EXPECT_EQ(last_error(), error_invalid_handle);
}

TEST(file, failures_on_purpose_move_what_is_left)
{
    Test_Folder folder;
    const std::string name = folder / "a";
    std::size_t moved = 0;
    {
        const auto file = File::open(name.c_str(), File::Mode::create);
        fault::fail_after(fault::Operation::write, 5, error_disk_full);
        EXPECT_TRUE(Write(*file, "abc", moved));
        EXPECT_FALSE(Write(*file, "defg", moved));
        EXPECT_EQ(moved, 2u);
        EXPECT_EQ(last_error(), error_disk_full);
        fault::clear();
        EXPECT_TRUE(Write(*file, "!", moved));
    }
    EXPECT_EQ(Whole_File(name), "abcde!");
}

TEST(file, short_transfers_are_continued)
{
    Test_Folder folder;
    const std::string name = folder / "a", bytes = Pattern(1000);
    fault::move_at_most(7);
    std::size_t put = 0;
    EXPECT_TRUE(Write(*File::open(name.c_str(), File::Mode::create), bytes, put));
    EXPECT_EQ(put, 1000u);
    EXPECT_EQ(Read(*File::open(name.c_str(), File::Mode::read), 2000), bytes);
    fault::clear();
    EXPECT_EQ(Whole_File(name), bytes);
}

#ifdef __linux__
TEST(file, a_full_disk_says_so)
{
    const auto file = File::open("/dev/full", File::Mode::create);
    ASSERT_TRUE(file);
    std::size_t put = 9;
    EXPECT_FALSE(Write(*file, "abc", put));
    EXPECT_EQ(put, 0u);
    EXPECT_EQ(last_error(), error_disk_full);
}
#endif
