#include "kernel/settings/arithmetic.h"
#include "kernel/settings/file_helpers.h"
#include "platform/error.h"
#include "tests/support/folder.h"

#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace kernel;
namespace fs = std::filesystem;

// Only folders that the test made are ever handed over, even where a refusal is expected.
TEST(remove_dir, removes_all_that_is_inside_and_nothing_behind_links)
{
    const Test_Folder folder;
    const fs::path top = Utf8_Path(folder / "top");
    fs::create_directories(top / "a" / "b");
    fs::create_directories(top / "\xC3\xA4 x");
    folder.Write("kept.txt", "1");
    fs::create_directory(Utf8_Path(folder / "kept"));
    folder.Write("kept/file", "2");
    folder.Write("top/a/b/file", "3");
    fs::permissions(top / "a" / "b" / "file", fs::perms::owner_read);
    std::error_code no_links;  // not every system lets its users make them
    fs::create_directory_symlink(Utf8_Path(folder / "kept"), top / "a" / "link", no_links);
    if (!no_links) fs::create_symlink(Utf8_Path(folder / "kept.txt"), top / "link");

    EXPECT_FALSE(remove_dir((folder / "missing").c_str()));
    EXPECT_FALSE(remove_dir((folder / "kept.txt").c_str()));
    EXPECT_EQ(platform::last_error(), platform::error_directory);
    if (!no_links) {
        EXPECT_FALSE(remove_dir((folder / "top/a/link/").c_str()));
        EXPECT_EQ(platform::last_error(), platform::error_directory);
    }
    EXPECT_TRUE(remove_dir((folder / "top/").c_str()));
    EXPECT_FALSE(fs::exists(top));
    EXPECT_EQ(Whole_File(folder / "kept.txt") + Whole_File(folder / "kept/file"), "12");
}

TEST(remove_dir, refuses_the_folder_in_which_the_process_stands)
{
    const Test_Folder folder;
    const fs::path before = fs::current_path();
    fs::create_directories(Utf8_Path(folder / "top/own"));
    fs::current_path(Utf8_Path(folder / "top/own"));
    for (const char *name : {"top", "top/own"}) {
        EXPECT_FALSE(remove_dir((folder / name).c_str()));
        EXPECT_EQ(platform::last_error(), platform::error_sharing_violation);
    }
    EXPECT_FALSE(remove_dir((folder / "top/own/.").c_str()));
    EXPECT_EQ(platform::last_error(), platform::error_invalid_name);
    EXPECT_FALSE(remove_dir((folder / "top/own/..").c_str()));
    EXPECT_EQ(platform::last_error(), platform::error_invalid_name);
    fs::current_path(before);
    EXPECT_TRUE(fs::exists(Utf8_Path(folder / "top/own")));
}

TEST(FindFreeFileName, creates_the_first_free_name)
{
    const Test_Folder folder;
    fs::create_directory(Utf8_Path(folder / "d.x"));
    fs::create_directory(Utf8_Path(folder / "a-3.b"));
    char name[500];
    const struct {
        const char *wanted, *got;
    } cases[] = {{"a.b", "a.b"},
                 {"a.b", "a-2.b"},
                 {"a.b", "a-4.b"},
                 {"d.x/plain", "d.x/plain"},
                 {"d.x/plain", "d.x/plain-2"},
                 {".hidden", ".hidden"},
                 {".hidden", ".hidden-2"}};
    for (const auto &c : cases) {
        ASSERT_TRUE(FindFreeFileName((folder / c.wanted).c_str(), name, sizeof name)) << c.wanted;
        EXPECT_EQ(Utf8_Path(name), Utf8_Path(folder / c.got));
        EXPECT_TRUE(fs::is_regular_file(Utf8_Path(name)));
    }
    EXPECT_FALSE(FindFreeFileName((folder / "e").c_str(), name, (folder / "e").size()));
    EXPECT_EQ(platform::last_error(), platform::error_insufficient_buffer);
    EXPECT_FALSE(fs::exists(Utf8_Path(folder / "e")));
    EXPECT_FALSE(FindFreeFileName((folder / "missing/e").c_str(), name, sizeof name));
}

TEST(get_space, tells_what_the_disk_has)
{
    const Test_Folder folder;
    const auto space = static_cast<double>(fs::space(Utf8_Path(folder / "")).available);
    EXPECT_NEAR(static_cast<double>(get_space((folder / "").c_str())), space, 0.1 * space);
    EXPECT_EQ(get_space((folder / "missing").c_str()), -1);
}

TEST(arithmetic, holds_at_the_limits)
{
    constexpr unsigned long most = std::numeric_limits<unsigned long>::max();
    const struct {
        unsigned long a, b, divisor, multiple;
    } cases[] = {{12, 18, 6, 36},  {7, 0, 7, 0},       {0, 0, 0, 0},
                 {15, 15, 15, 15}, {most, 1, 1, most}, {most, most - 1, 1, most}};
    for (const auto &c : cases) {
        EXPECT_EQ(ggt(c.a, c.b), c.divisor) << c.a << ' ' << c.b;
        EXPECT_EQ(kgv(c.a, c.b), c.multiple) << c.a << ' ' << c.b;
    }
    unsigned char bytes[] = {1, 2, 3, 4, 5};
    swap_function(bytes, 4);
    EXPECT_TRUE(std::equal(bytes, bytes + 5, std::begin({4, 3, 2, 1, 5})));
}

}  // namespace
