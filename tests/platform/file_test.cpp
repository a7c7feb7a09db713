#include "platform/file.h"

#include "platform/error.h"
#include "platform/fault.h"

#include "tests/support/folder.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include "platform/win32/wide_text.h"
constexpr bool windows = true;
#else
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
constexpr bool windows = false;
#endif

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
        EXPECT_TRUE(Write(*file, "d", put));  // at the old position
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
    EXPECT_EQ(Whole_File(read), "abc");  // the refused open truncated nothing
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

TEST(file, names_are_utf_8_and_of_any_length)
{
    Test_Folder folder;
    for (const std::string &name : {folder / "запись.bin", folder.Long_Name()}) {
        std::size_t put = 0;
        EXPECT_TRUE(Write(*File::open(name.c_str(), File::Mode::create), "abc", put));
        EXPECT_EQ(Whole_File(name), "abc");
        EXPECT_EQ(Read(*File::open(name.c_str(), File::Mode::read), 9), "abc");
    }
#ifdef _WIN32
    EXPECT_FALSE(File::open((folder / "a").append("\xE7\xE0").c_str(), File::Mode::create));  // another encoding
    EXPECT_EQ(last_error(), error_invalid_name);
#endif
}

TEST(file, a_shared_reader_lets_others_write)
{
    Test_Folder folder;
    const std::string name = folder.Write("a", "abc");
    const auto reader = File::open(name.c_str(), File::Mode::read_shared);
    const auto writer = File::open(name.c_str(), File::Mode::append);
    std::size_t put = 0;
    EXPECT_TRUE(writer && writer->seek_end(0) && Write(*writer, "d", put));
    EXPECT_EQ(Read(*reader, 9), "abcd");
    EXPECT_FALSE(File::open(name.c_str(), File::Mode::read));
    EXPECT_TRUE(File::open(name.c_str(), File::Mode::read_shared) || windows);
}

TEST(file, refuses_what_is_no_regular_file_and_does_not_wait_for_it)
{
    Test_Folder folder;
#ifdef _WIN32
    const std::string names[] = {"NUL"};
#else
    const std::string names[] = {folder / "fifo", folder / "link", "/dev/null", "/dev/full"};
    ASSERT_EQ(mkfifo(names[0].c_str(), 0600), 0);
    ASSERT_EQ(symlink(names[0].c_str(), names[1].c_str()), 0);
#endif
    using enum File::Mode;
    for (const std::string &name : names)
        for (const File::Mode mode : {read, read_shared, create, append}) {
            EXPECT_FALSE(File::open(name.c_str(), mode)) << name;
            EXPECT_EQ(last_error(), error_bad_file_type) << name;
        }
}

#ifdef _WIN32
TEST(file, long_names_get_the_form_that_has_no_limit)
{
    const std::string a(300, 'a');
    const std::pair<std::string, std::string> cases[] = {
        {"C:/b", "C:/b"},
        {"NUL", "NUL"},
        {"", ""},
        {"C:/b/" + a, "\\\\?\\C:\\b\\" + a},
        {"C:/b/../" + a, "\\\\?\\C:\\" + a},
        {"\\\\server\\share\\" + a, "\\\\?\\UNC\\server\\share\\" + a},
        {"\\\\?\\C:\\" + a, "\\\\?\\C:\\" + a},
    };
    for (const auto &[name, expected] : cases) {
        std::wstring wide;
        EXPECT_TRUE(win32::file_name(name.c_str(), wide));
        EXPECT_EQ(wide, win32::wide(expected)) << name;
    }
}
#else
TEST(file, the_limit_of_a_files_size_is_an_error_and_no_end)
{
    Test_Folder folder;
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small{2, before.rlim_max};
    const auto file = File::open((folder / "a").c_str(), File::Mode::create);
    setrlimit(RLIMIT_FSIZE, &small);
    std::size_t put = 9;
    EXPECT_FALSE(Write(*file, "abc", put));
    const std::uint32_t error = last_error();
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(put, 2u);
    EXPECT_EQ(error, 223u);
}
#endif
