#include "kernel/settings/profile.h"

#include "platform/error.h"
#include "tests/support/environment.h"
#include "tests/support/folder.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <thread>
#include <vector>
#ifdef _WIN32
#include <windows.h>
#else
#include <sys/stat.h>
#endif

namespace {

using namespace kernel;

std::string Text(const char *section, const char *key, const std::string &file)
{
    char text[64];
    const std::size_t n = GetPrivateProfileText(section, key, "none", text, sizeof text, file.c_str());
    EXPECT_EQ(n, std::string(text).size());
    return text;
}

struct Reading {
    const char *file, *section, *key, *value;
};
constexpr Reading readings[] = {
    {"[a]\nk=v\n", "a", "k", "v"},
    {"[A]\r\nK = v w \r\n", "a", "k", "v w"},
    {"k=0\n[b]\nk=1\n[a]\nk=2", "a", "k", "2"},
    {"[a]\nk='v'", "a", "k", "v"},
    {"[a]\nk=\" v \"", "a", "k", " v "},
    {"[a]\nk=\"v", "a", "k", "\"v"},
    {"[a]\nk='v\"", "a", "k", "'v\""},
    {"[a]\nk=\"", "a", "k", "\""},
    {"[a]\nk=''x''", "a", "k", "'x'"},
    {"[a]\nk=\"\"", "a", "k", ""},
    {"[a]\nk=\n", "a", "k", ""},
    {"[a]\nx=1\n[b]\nk=2\n[a]\nk=3\n", "a", "k", "none"},
    {"[a]\nk=1\nk=2\n", "a", "k", "1"},
    {"[a]\nk\nk=2\n", "a", "k", "none"},
    {"[a]\n;k=1\nk=2\n", "a", "k", "2"},
    {"  [ a ] ; c\n\tk\t=\t1=2\t\n", "a ", " k", "1=2"},
    {"[a]b]\nk=1", "a]b", "k", "1"},
    {"[a\nk=1", "a", "k", "none"},
    {"[a]\n[k=3\nk=4 ; c\n", "a", "k", "4 ; c"},
    {"[a]\nk=1\rm=2", "a", "m", "2"},
    {"[a]\n\n\nk=1\x1A", "a", "k", "1"},
    {"\xEF\xBB\xBF[a]\nk=\xC3\xA4", "a", "k", "\xC3\xA4"},
    {"[\xC3\xA4]\nk=1", "\xC3\x84", "k", "none"},
};

TEST(profile, is_read_by_the_rules_of_windows)
{
    const Test_Folder folder;
    const std::string file = folder / "p.ini";
    EXPECT_EQ(Text("a", "k", file), "none");
    for (const Reading &reading : readings) {
        folder.Write("p.ini", reading.file);
        EXPECT_EQ(Text(reading.section, reading.key, file), reading.value) << reading.file;
#ifdef _WIN32
        std::string name = file;
        for (char &c : name) c = c == '/' ? '\\' : c;
        WritePrivateProfileStringA(nullptr, nullptr, nullptr, name.c_str());  // the system keeps the last file
        char text[64];
        GetPrivateProfileStringA(reading.section, reading.key, "none", text, sizeof text, name.c_str());
        EXPECT_STREQ(text, reading.value) << reading.file;
#endif
    }
}

TEST(profile, has_no_keys_in_comments_and_broken_headers)
{
    const Test_Folder folder;
    const std::string file = folder.Write("p.ini", "[a]\n;k=1\n[m=2\n");
    EXPECT_EQ(Text("a", ";k", file) + Text("a", "[m", file), "nonenone");
}

TEST(profile, gives_numbers)
{
    const Test_Folder folder;
    const struct {
        const char *value;
        long whole;
        double number;
    } cases[] = {{"12", 12, 12},        {"-5", -5, -5},
                 {"+7", 7, 7},          {"0x1f", 31, 0},
                 {"12abc", 12, 12},     {"abc", 0, 77},
                 {"", 77, 77},          {"1.5", 1, 1.5},
                 {"'0.25'", 0, 0.25},   {"0b11", 3, 0},
                 {"0o17", 15, 0},       {"017", 17, 17},
                 {"- 5", 0, 77},        {"99999999999", 77, 99999999999.},
                 {"-1e3 m", -1, -1000}, {"inf", 0, 77},
                 {"1e999", 1, 77},      {"4294967295", -1, 4294967295.}};
    for (const auto &c : cases) {
        const std::string file = folder.Write("p.ini", std::string("[a]\nk=") + c.value + "\n");
        EXPECT_EQ(GetPrivateProfileInteger("a", "k", 77, file.c_str()), c.whole) << c.value;
        EXPECT_EQ(GetPrivateProfileDouble("a", "k", 77, file.c_str()), c.number) << c.value;
    }
}

TEST(profile, changes_nothing_but_the_value)
{
    const Test_Folder folder;
    const struct {
        const char *before, *section, *key, *value, *after;
    } cases[] = {
        {"", "a", "k", "v", "[a]\nk=v\n"},
        {"\xEF\xBB\xBF", "a", "k", "v", "\xEF\xBB\xBF[a]\nk=v\n"},
        {"[a]", "a", "k", "v", "[a]\nk=v\n"},
        {"; c\r\n\r\n[b]\r\nz=1\r\n\r\n[c]", "b", "k", "v", "; c\r\n\r\n[b]\r\nz=1\r\nk=v\r\n\r\n[c]"},
        {"[A]\n K = 1 \n;x\n", "a", "k", "2", "[A]\n K =2\n;x\n"},
        {"[a]\nk=1\nk=3\n[a]\nk=4", "a", "k", "2", "[a]\nk=2\nk=3\n[a]\nk=4"},
        {"[a]\nk\nk=1\n", "a", "k", "v", "[a]\nk=v\nk=1\n"},
        {"[a]\nk=1\n", "a", "k", " v ", "[a]\nk=\" v \"\n"},
        {"[a]\nk=1\n", "a", "k", "'v'", "[a]\nk=\"'v'\"\n"},
        {"[a]\nm=0\nk=1\n;x\n[b]\n", "a", "k", nullptr, "[a]\nm=0\n;x\n[b]\n"},
        {"[b]\n1\n[a]\nm=0\n;x\n[c]\n", "a", nullptr, nullptr, "[b]\n1\n[c]\n"},
        {"[b]\n", "a", "k", nullptr, "[b]\n"},
    };
    for (const auto &c : cases) {
        const std::string file = folder.Write("p.ini", c.before);
        EXPECT_TRUE(WritePrivateProfileText(c.section, c.key, c.value, file.c_str()));
        EXPECT_EQ(Whole_File(file), c.after);
        if (c.value) {
            EXPECT_EQ(Text(c.section, c.key, file), c.value);
        }
    }
}

TEST(profile, refuses_what_it_could_not_give_back)
{
    const Test_Folder folder;
    const std::string before = "[a]\nk=1\n", file = folder.Write("p.ini", before);
    const struct {
        const char *section, *key, *value;
    } cases[] = {{"", "k", "v"},    {"a\n", "k", "v"}, {nullptr, "k", "v"}, {"a", " ", "v"},     {"a", ";k", "v"},
                 {"a", " [k", "v"}, {"a", "k=l", "v"}, {"a", "k\r", "v"},   {"a", "k", "v\n[b]"}};
    for (const auto &c : cases) {
        EXPECT_FALSE(WritePrivateProfileText(c.section, c.key, c.value, file.c_str()));
        EXPECT_EQ(platform::last_error(), platform::error_invalid_parameter);
    }
    EXPECT_FALSE(WritePrivateProfileDouble("a", "k", std::numeric_limits<double>::infinity(), file.c_str()));
    EXPECT_FALSE(WritePrivateProfileInt("a", nullptr, 1, file.c_str()));  // would remove the section
    EXPECT_EQ(Whole_File(file), before);
    const std::string wide("\xFF\xFE[\0", 4);
    EXPECT_FALSE(WritePrivateProfileText("a", "k", "v", folder.Write("wide.ini", wide).c_str()));
    EXPECT_EQ(Whole_File(folder / "wide.ini"), wide);
    EXPECT_FALSE(WritePrivateProfileText("a", "k", "v", (folder / "missing/p.ini").c_str()));
}

TEST(profile, gives_back_numbers_that_it_wrote)
{
    const Test_Folder folder;
    const std::string file = folder / "p.ini";
    for (const double number : {0.1, -1e300, 5e-324, 123456789.123456789}) {
        EXPECT_TRUE(WritePrivateProfileDouble("a", "k", number, file.c_str()));
        EXPECT_EQ(GetPrivateProfileDouble("a", "k", 0, file.c_str()), number);
    }
    EXPECT_TRUE(WritePrivateProfileInt("a", "n", -2147483647L - 1, file.c_str()));
    EXPECT_EQ(GetPrivateProfileInteger("a", "n", 0, file.c_str()), -2147483647L - 1);
}

TEST(profile, cuts_a_text_between_characters)
{
    const Test_Folder folder;
    const std::string file = folder.Write("p.ini", "[a]\nk=x\xC3\xA4y");
    for (const auto &[size, expected] : {std::pair(5, "x\xC3\xA4y"), std::pair(4, "x\xC3\xA4"), std::pair(3, "x")}) {
        char text[5];
        GetPrivateProfileText("a", "k", "", text, static_cast<std::size_t>(size), file.c_str());
        EXPECT_STREQ(text, expected);
    }
}

// Each thread opens the file by itself, as processes do.
TEST(profile, loses_nothing_when_many_write)
{
    const Test_Folder folder;
    const std::string file = folder / "p.ini";
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 10; ++i) {
                const std::string key = std::to_string(t) + '.' + std::to_string(i);
                EXPECT_TRUE(WritePrivateProfileInt("a", key.c_str(), i, file.c_str())) << platform::last_error();
                EXPECT_EQ(GetPrivateProfileInteger("a", key.c_str(), -1, file.c_str()), i);
            }
        });
    for (std::thread &thread : threads) thread.join();
    for (int t = 0; t < 4; ++t)
        for (int i = 0; i < 10; ++i)
            EXPECT_EQ(Text("a", (std::to_string(t) + '.' + std::to_string(i)).c_str(), file), std::to_string(i));
}

#ifndef _WIN32
TEST(profile, keeps_the_rights_of_a_file)
{
    const Test_Folder folder;
    const Environment_Setting own("GNSS_KERNEL_REGISTRY_DIR", folder / "new/settings");
    EXPECT_EQ(GetProfileInteger("a", "k", 5), 5);
    struct stat status {};
    EXPECT_NE(stat((folder / "new").c_str(), &status), 0);  // reading makes no folder
    EXPECT_TRUE(WriteProfileInt("a", "k", 6));
    EXPECT_EQ(GetProfileDouble("a", "k", 5), 6);
    const std::string file = folder / "new/settings/win.ini";
    for (const mode_t mode : {0600u, 0664u, 0444u}) {
        EXPECT_EQ(stat(file.c_str(), &status), 0);
        if (mode != 0600) chmod(file.c_str(), mode);
        EXPECT_EQ(WritePrivateProfileInt("a", "k", static_cast<long>(mode), "win.ini"), mode != 0444);
        EXPECT_EQ(stat(file.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, mode);
    }
    EXPECT_EQ(platform::last_error(), platform::error_access_denied);
}
#endif

}  // namespace
