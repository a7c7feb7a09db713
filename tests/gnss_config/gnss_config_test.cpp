#include "host/gnss_config/Config_Run.h"
#include "tests/support/registry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#ifndef _WIN32
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

using namespace host;
namespace fs = std::filesystem;
using std::string_literals::operator""s;

namespace {

// What a command line shows, behind its exit status; errors are cut at their first line.
std::string Ran(std::vector<const char *> words, const std::string &input = "")
{
    words.insert(words.begin(), "gnss_config");
    Config_Options options;
    int exit = 0;
    std::istringstream in(input);
    std::ostringstream out, err;
    testing::internal::CaptureStderr();
    const bool runs = Parse_Config_Line(static_cast<int>(words.size()), words.data(), options, exit);
    const std::string usage = testing::internal::GetCapturedStderr();
    if (!runs) return std::to_string(exit) + " " + usage.substr(0, usage.find('\n'));
    exit = Run_Config(options, in, out, err);
    return std::to_string(exit) + " " + out.str() + err.str().substr(0, err.str().find('\n'));
}

const Key_Name some_key{kernel::ARegistry::Current_User, "A\\B"};

}  // namespace

TEST(gnss_config, text_of_values_is_lossless)
{
    std::mt19937 random(5);
    const std::string odd = "\\ \n\r\t\0\x7F\xE9x0;("s;
    const auto bytes = [&](std::size_t most) {
        std::string text;
        for (std::size_t size = random() % (most + 1); size > 0; --size)
            text += random() % 2 == 0 ? odd[random() % odd.size()] : static_cast<char>(random() % 256);
        return text;
    };
    for (int round = 0; round < 2000; ++round) {
        Registry_Content content{some_key, {}};
        std::string text = "; a comment\r\n" + Shown(content.key) + "\n\n";
        for (int i = 0; i < 5; ++i) {
            std::string name = bytes(6);
            std::erase(name, '\0');
            if (i == 0) name = "(Default)";
            constexpr unsigned long types[] = {0, 1, 2, 3, 4, 5, 7, 7, 11, 99};
            const unsigned long type = types[random() % 10];
            content.values.push_back({name, type, bytes(8) + (type == 7 ? "\0\0"s : type == 1 ? "\0"s : "")});
            text += Shown(content.values.back()) + (i % 2 == 0 ? "\n" : "\r\n");
        }
        std::vector<Registry_Content> contents;
        std::string error;
        ASSERT_TRUE(Parse_Registry_Text(text, contents, error)) << error << '\n' << text;
        ASSERT_EQ(contents, std::vector{content}) << text;
    }
    const std::pair<Registry_Value, const char *> shown[] = {
        {{"Port", type_dword, Word_Bytes(2101)}, "    Port    REG_DWORD    0x835"},
        {{"", type_sz, "two  words \0"s}, "    (Default)    REG_SZ    two \\x20words\\x20"},
        {{"L", type_multi_sz, "a\0\0b\0\0"s}, "    L    REG_MULTI_SZ    a\\0\\0b\\0"},
        {{"L", type_multi_sz, "\0"s}, "    L    REG_MULTI_SZ"},
        {{"B", type_binary, "\x0A\xFF"}, "    B    REG_BINARY    0AFF"},
        {{"E", type_dword_big_endian, "\0\0\1\2"s}, "    E    REG_DWORD_BIG_ENDIAN    0x102"},
        {{"S", type_sz, "abc"}, "    S    REG_SZ:hex    616263"},
    };
    for (const auto &[value, text] : shown) EXPECT_EQ(Shown(value), text);
}

TEST(gnss_config, text_with_a_fault_is_refused_with_its_line)
{
    const std::pair<const char *, const char *> rows[] = {
        {"A\\B\n", "line 1: neither a key, nor a value behind white space"},
        {";\n  v    REG_SZ    x\n", "line 2: a value before the first key"},
        {"HKCU\\A\n v REG_SZ x\n", "line 2: four spaces are missing between name and type"},
        {"HKCU\\A\n\n v    REG_WORD    1\n", "line 3: the type is unknown"},
        {"HKCU\\A\n v    REG_TYPE_    1\n", "line 2: the type is unknown"},
        {"HKCU\\A\n v    REG_DWORD    0x100000000\n", "line 2: the data does not fit the type"},
        {"HKCU\\A\n v    REG_DWORD    1 \n", "line 2: the data does not fit the type"},
        {"HKCU\\A\n v    REG_BINARY    123\n", "line 2: the data does not fit the type"},
        {"HKCU\\A\n v    REG_SZ    a\\q\n", "line 2: the data does not fit the type"},
        {"HKCU\\A\n v\\x1    REG_SZ    a\n", "line 2: a backslash in the name begins nothing known"},
        {"HKCU\\A\r\\\n", "line 1: a zero byte or a stray carriage return"},
        {"HKCU\\A\n v\\0    REG_SZ    a\n", "line 2: a name cannot have a zero"},
    };
    for (const auto &[text, expected] : rows) {
        std::vector<Registry_Content> contents;
        std::string error;
        EXPECT_FALSE(Parse_Registry_Text(text, contents, error)) << text;
        EXPECT_EQ(error, expected) << text;
    }
    Key_Name key;
    EXPECT_TRUE(Parse_Key("hkey_local_machine\\\\A\\B\\", key));
    EXPECT_EQ(Shown(key), "HKEY_LOCAL_MACHINE\\A\\B");
    EXPECT_FALSE(Parse_Key("HKEY", key));
}

TEST(gnss_config, does_what_its_command_line_says)
{
    const Own_Registry registry;
    const struct {
        std::vector<const char *> words;
        const char *input, *result;
    } rows[] = {
        {{"list", "HKCU\\S"}, "", "1 gnss_config: Creation/Open of Key \"HKEY_CURRENT_USER\\\\S\" failed!"},
        {{"delete", "HKCU\\S", "text"}, "", "1 gnss_config: Creation/Open of Key \"HKEY_CURRENT_USER\\\\S\" failed!"},
        {{"list", "HKCU\\S"}, "", "1 gnss_config: Creation/Open of Key \"HKEY_CURRENT_USER\\\\S\" failed!"},
        {{"write", "HKCU\\S", "text", "two words"}, "", "0 "},
        {{"write", "HKCU\\S", "", "default", "-t", "expand"}, "", "0 "},
        {{"write", "HKCU\\S", "texts", "a", "", "c", "-t", "strings"}, "", "0 "},
        {{"write", "HKCU\\S", "texts", "b", "--index", "1"}, "", "0 "},
        {{"write", "HKCU\\S", "real", "-1.5", "-t", "double"}, "", "0 "},
        {{"write", "HKCU\\S", "reals", "2.5", "-t", "double", "--index", "1"}, "", "0 "},
        {{"write", "HKCU\\S", "int", "-5", "-t", "int"}, "", "0 "},
        {{"write", "HKCU\\S", "bool", "true", "-t", "bool"}, "", "0 "},
        {{"write", "HKCU\\S", "big", "0x102", "-t", "big-endian"}, "", "0 "},
        {{"write", "HKCU\\S", "words", "1", "0xFFFFFFFF", "-t", "words"}, "", "0 "},
        {{"write", "HKCU\\S", "words", "7", "-t", "byte", "--index", "2"}, "", "0 "},
        {{"write", "HKCU\\S", "bytes", "00ff", "-t", "binary"}, "", "0 "},
        {{"write", "HKCU\\S\\Below", "secret", "-", "-t", "password"}, "Hawk 7\r\nx", "0 "},
        {{"write", "HKCU\\S", "int", "65536", "-t", "word"}, "", "1 gnss_config: \"65536\" is no word"},
        {{"write", "HKCU\\S", "int", "1x", "-t", "double"}, "", "1 gnss_config: \"1x\" is no double"},
        {{"list", "HKCU\\S"},
         "",
         "0 HKEY_CURRENT_USER\\S\n"
         "    (Default)    REG_EXPAND_SZ    default\n"
         "    big    REG_DWORD_BIG_ENDIAN    0x102\n"
         "    bool    REG_DWORD    0x1\n"
         "    bytes    REG_BINARY    00FF\n"
         "    int    REG_DWORD    0xfffffffb\n"
         "    real    REG_SZ    -1.5\n"
         "    reals    REG_MULTI_SZ    \\02.5\\0\n"
         "    text    REG_SZ    two words\n"
         "    texts    REG_MULTI_SZ    a\\0b\\0c\\0\n"
         "    words    REG_BINARY    01000000FFFFFFFF07000000\n"
         "HKEY_CURRENT_USER\\S\\Below\n"},
        {{"read", "HKCU\\S", "text"}, "", "0 two words\n"},
        {{"read", "HKCU\\S", "texts", "--index", "2"}, "", "0 c\n"},
        {{"read", "HKCU\\S", "words", "--index", "1"}, "", "0 4294967295\n"},
        {{"read", "HKCU\\S", "words", "--index", "3"},
         "",
         "1 gnss_config: Index 3 out of range [0..3[ in variable \"words\" \"key \"HKEY_CURRENT_USER\\\\S\" in "
         "ReadDWord[3]!"},
        {{"read", "HKCU\\S\\Below", "secret", "--password"}, "", "0 Hawk 7\n"},
        {{"read", "HKCU\\S", "none"}, "", "1 gnss_config: There is no value \"none\" in key \"HKEY_CURRENT_USER\\S\""},
        {{"delete", "HKCU\\S", "none"},
         "",
         "1 gnss_config: There is no value \"none\" in key \"HKEY_CURRENT_USER\\S\""},
        {{"delete", "HKCU\\S", "text"}, "", "0 "},
        {{"read", "HKCU\\S", "text"}, "", "1 gnss_config: There is no value \"text\" in key \"HKEY_CURRENT_USER\\S\""},
        {{"import"},
         "HKCU\\T\n a    REG_SZ    x\n b    REG_BAD    x\n",
         "1 gnss_config: \"-\", line 3: the type is unknown"},
        {{"list", "HKCU\\T"}, "", "1 gnss_config: Creation/Open of Key \"HKEY_CURRENT_USER\\\\T\" failed!"},
        {{"delete", "HKCU\\S"}, "", "2 delete requires NAME, or --whole-key"},
        {{"list", "HKEY\\S"}, "", "2 KEY: begins with no root: HKEY\\S"},
        {{"write", "HKCU\\S", "x", "1", "2"}, "", "2 VALUE: one is needed for type string"},
        {{"write", "HKCU\\S", "texts", "x", "-t", "strings", "--index", "0"},
         "",
         "2 --index: type strings is not that of an element"},
        {{}, "", "2 A subcommand is required"},
    };
    for (const auto &row : rows) {
        const std::string words = testing::PrintToString(row.words);
        EXPECT_EQ(Ran(row.words, row.input), row.result) << words;
    }
    const Test_Folder folder;
    const std::string file = folder / "export.txt", listed = Ran({"list", "HKCU\\S", "-r"});
    EXPECT_EQ(Ran({"export", "HKCU\\S", file.c_str()}), "0 ");
    EXPECT_EQ("0 " + Whole_File(file), listed);
    EXPECT_EQ(Ran({"delete", "HKCU\\S", "--whole-key"}), "0 ");
    EXPECT_TRUE(Ran({"list", "HKCU\\S"}).starts_with("1 "));
    EXPECT_EQ(Ran({"import", file.c_str()}), "0 ");
    EXPECT_EQ(Ran({"list", "HKCU\\S", "-r"}), listed);
    EXPECT_EQ(Ran({"export", "HKCU\\None", file.c_str()}).substr(0, 2), "1 ");
    EXPECT_EQ("0 " + Whole_File(file), listed);  // the old file stays
}

TEST(gnss_config, export_takes_the_place_of_the_old_file_when_it_is_whole)
{
    const Own_Registry registry;
    const Test_Folder folder;
    const auto files = [&] {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(folder / "")) names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    };
    const std::string fresh = folder / "fresh.txt", old = folder / "old.txt", other = folder / "other.txt";
    const std::string refused = "1 gnss_config: \"" + old + "\" cannot be written";
    Ran({"write", "HKCU\\S", "text", std::string(90'000, 'x').c_str()});
    const std::string text = Ran({"export", "HKCU\\S"}).substr(2);
    std::ofstream(old, std::ios::binary) << "old";
    fs::create_hard_link(old, other);

    fs::permissions(old, fs::perms::owner_read);
    EXPECT_EQ(Ran({"export", "HKCU\\S", old.c_str()}), refused);  // write-protected
    const fs::perms rights = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
    fs::permissions(old, rights);
#ifndef _WIN32
    rlimit former{}, tight{};
    getrlimit(RLIMIT_FSIZE, &former);
    tight = {60'000, former.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &tight);
    EXPECT_EQ(Ran({"export", "HKCU\\S", old.c_str()}).substr(0, refused.size()), refused);  // in the middle
    setrlimit(RLIMIT_FSIZE, &former);
#endif
    EXPECT_EQ(Whole_File(old), "old");
    EXPECT_EQ(Ran({"export", "HKCU\\S", old.c_str()}), "0 ");
    EXPECT_EQ(Ran({"export", "HKCU\\S", fresh.c_str()}), "0 ");
    EXPECT_EQ(Whole_File(old), text);
    EXPECT_EQ(Whole_File(fresh), text);
    EXPECT_EQ(Whole_File(other), "old");  // the file itself was not written
    EXPECT_EQ(files(), (std::vector<std::string>{"fresh.txt", "old.txt", "other.txt"}));
#ifndef _WIN32
    EXPECT_EQ(fs::status(old).permissions(), rights);
    EXPECT_EQ(fs::status(fresh).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink(old, folder / "link");
    fs::remove(other);
    fs::create_hard_link(old, other);
    Ran({"write", "HKCU\\S", "text", "y"});
    EXPECT_EQ(Ran({"export", "HKCU\\S", (folder / "link").c_str()}), "0 ");
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_NE(Whole_File(old), text);
    const std::string queue = folder / "queue";  // is written as it is
    ASSERT_EQ(mkfifo(queue.c_str(), 0600), 0);
    const int reader = open(queue.c_str(), O_RDWR | O_NONBLOCK);
    EXPECT_EQ(Ran({"export", "HKCU\\S", queue.c_str()}), "0 ");
    std::string read_back(text.size(), '\0');
    read_back.resize(static_cast<std::size_t>(std::max<ssize_t>(read(reader, read_back.data(), text.size()), 0)));
    close(reader);
    EXPECT_EQ(read_back, Whole_File(old));
#endif
}
