#include "platform/file.h"

#include "platform/error.h"
#include "platform/fault.h"

#include "tests/support/folder.h"

#include <gtest/gtest.h>

using namespace platform;

namespace {

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
        EXPECT_EQ(Read(*file, 4), "0123");
        EXPECT_EQ(file->position(), 4);
        EXPECT_EQ(Read(*file, 100), "456789");
        EXPECT_EQ(Read(*file, 100), "");
    }
    {
        const auto file = File::open(name.c_str(), File::Mode::append);
        EXPECT_EQ(file->position(), 0);
        EXPECT_TRUE(file->seek_end(0) && Write(*file, "ab", put));
        EXPECT_TRUE(file->seek_end(-1) && Write(*file, "c", put));
        EXPECT_FALSE(file->seek_end(-100));
        EXPECT_TRUE(Write(*file, "d", put));  // the position stayed
    }
    EXPECT_EQ(Whole_File(name), "0123456789acd");
    const auto file = File::open(name.c_str(), File::Mode::create);
    EXPECT_TRUE(Write(*file, "new", put));
    file->close();
    EXPECT_FALSE(Write(*file, "abc", put));
    EXPECT_EQ(put, 0u);
    EXPECT_EQ(last_error(), error_invalid_handle);
    EXPECT_EQ(Whole_File(name), "new");
}

TEST(file, says_why_it_does_not_open)
{
    Test_Folder folder;
    const std::string read = folder.Write("read", "abc"), written = folder.Write("written", "");
    const auto reader = File::open(read.c_str(), File::Mode::read);
    const auto writer = File::open(written.c_str(), File::Mode::append);
    const struct {
        std::string name;
        File::Mode mode;
        std::uint32_t error;
    } cases[] = {
        {folder / "missing", File::Mode::read, error_not_found},
        {folder / "no/where", File::Mode::create, error_path_not_found},
        {folder / "", File::Mode::read, error_access_denied},
        {folder / "", File::Mode::create, error_access_denied},
        {read, File::Mode::read, 0},
        {read, File::Mode::create, error_sharing_violation},
        {written, File::Mode::read, error_sharing_violation},
        {written, File::Mode::append, error_sharing_violation},
    };
    for (const auto &c : cases) {
        set_last_error(0);
        EXPECT_EQ(File::open(c.name.c_str(), c.mode) ? 0 : last_error(), c.error) << c.name;
    }
    EXPECT_EQ(Whole_File(read), "abc");  // the refused one cut nothing off
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
}

#ifdef __linux__
TEST(file, a_full_disk_says_so)
{
    std::size_t put = 9;
    EXPECT_FALSE(Write(*File::open("/dev/full", File::Mode::create), "abc", put));
    EXPECT_EQ(put, 0u);
    EXPECT_EQ(last_error(), error_disk_full);
}
#endif
