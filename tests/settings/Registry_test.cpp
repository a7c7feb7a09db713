#include "kernel/settings/Registry.h"

#include "kernel/settings/registry_array_internal.h"
#include "kernel/settings/registry_password_internal.h"
#include "platform/registry.h"
#include "tests/support/registry.h"
#include "tests/support/reports.h"
#include "tests/support/short_memory.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <thread>

using namespace kernel;
using std::string_literals::operator""s;

namespace {

constexpr auto machine = ARegistry::Local_Machine;

// One key, Test, in a registry of its own; Shown is its name in reports.
class Registry_Test : public testing::Test {
protected:
    Own_Registry own_;
    Capturing_Handler heard;
    Registry key{machine, "Test", ARegistry::All, &heard};
    const std::string shown = "HKEY_LOCAL_MACHINE\\\\Test";

    // Type and bytes of a value.
    std::pair<unsigned long, std::string> Raw(const char *name)
    {
        unsigned long type = 0, size = 200000;
        std::string bytes(size, '?');
        const int error = key.ReadValue(name, &type, bytes.data(), &size);
        if (error != 0) return {static_cast<unsigned long>(error), "no value"};
        return {type, bytes.substr(0, size)};
    }
    bool Put(const char *name, unsigned long type, const std::string &bytes)
    {
        return key.WriteValue(name, type, bytes.data(), static_cast<unsigned long>(bytes.size())) == 0;
    }
    // The text of the only report since the last call; every report is an error of this unit.
    std::string Told()
    {
        const Reports reports = heard.Take();
        if (reports.empty()) return "";
        EXPECT_EQ(reports.size(), 1u) << reports.back();
        EXPECT_EQ(reports[0].level, Error_Handler::ES_Error);
        EXPECT_EQ(reports[0].unit, "kernel/Registry");
        return reports[0].text;
    }
};

using Raw_Value = std::pair<unsigned long, std::string>;

}  // namespace

TEST_F(Registry_Test, opens_by_mode)
{
    const struct {
        int mode;
        bool missing_opens, existing_opens, may_write;
        const char *told;  // on opening a key that is missing
    } rows[] = {
        {0, false, false, false, "Modus=0 is a illegal value for key HKEY_LOCAL_MACHINE\\\\Missing0!\n"},
        {1, true, true, true, ""},
        {2, true, true, true, ""},
        {3, false, true, false, "Creation/Open of Key \"HKEY_LOCAL_MACHINE\\\\Missing3\" failed!\nOS Error-Code: 2="},
        {4, true, true, true, ""},
        {5, true, true, true, ""},
        {6, false, false, false, "Modus=6 is a illegal value for key HKEY_LOCAL_MACHINE\\\\Missing6!\n"},
    };
    for (const auto &row : rows) {
        const auto mode = static_cast<ARegistry::Modus>(row.mode);
        const std::string path = "Missing" + std::to_string(row.mode);
        Registry missing(machine, path.c_str(), mode, &heard);
        EXPECT_EQ(missing.GetDisplayName() != nullptr, row.missing_opens) << row.mode;
        EXPECT_TRUE(Told().starts_with(row.told)) << row.mode;
        const std::unique_ptr<Registry> existing(Registry::Create(machine, "Test", mode, &heard));
        EXPECT_EQ(existing != nullptr, row.existing_opens) << row.mode;
        EXPECT_EQ(existing && existing->HasWriteAccess(), row.may_write) << row.mode;
        heard.Take();
    }
    const struct {
        std::uint32_t root;
        const char *path;
        std::string told;
    } refused[] = {
        {0x80000005, "x",
         "hKeyRoot=0x80000005! must be HKEY_LOCAL_MACHINE, HKEY_USERS, HKEY_CURRENT_USER, HKEY_CLASSES_ROOT\n"
         "HKEY_PERFORMANCE_DATA or HKEY_DYN_DATA!"},
        {machine, nullptr, "Base Key name not set"},
        {machine, "\\x",
         "Creation/Open of Key \"HKEY_LOCAL_MACHINE\\\\\\x\" failed!\nOS Error-Code: 161=0x000000A1 => "},
    };
    for (const auto &row : refused) {
        EXPECT_FALSE(key.Init(static_cast<ARegistry::Root>(row.root), row.path, ARegistry::All));
        EXPECT_EQ(Told().substr(0, row.told.size()), row.told);
        EXPECT_EQ(key.GetBaseName(), nullptr);  // closed by the failure
    }
    std::string deep = "a";
    for (int i = 0; i < 512; ++i) deep += "\\a";
    for (const std::string &path : {std::string(256, 'k'), deep}) {
        EXPECT_FALSE(key.Init(machine, path.c_str(), ARegistry::All));
        EXPECT_EQ(Told(), "Cannot create/open key. Key name \"HKEY_LOCAL_MACHINE\\\\" + path + "\" is too long.");
    }
    ASSERT_TRUE(key.Init(machine, "Test", ARegistry::All));
    EXPECT_FALSE(key.Init(nullptr, ARegistry::All));
    EXPECT_EQ(Told(), "Base Name missing!");
    EXPECT_STREQ(key.GetBaseName(), "Test");  // this failure alone changes nothing
}

TEST_F(Registry_Test, tells_which_operation_wants_an_open_key)
{
    Registry none(&heard);
    unsigned long number = 0;
    char text[9];
    const struct {
        bool answer;
        std::string told;
    } rows[] = {
        {none.ReadString("x", "d") == "d"s, "Key not open in ReadString!|" + Told()},
        {none.ReadString("x", 1, "d") == "d"s, "Key not open in ReadString[1]!|" + Told()},
        {!none.WriteString("x", "v"), "Key not open in WriteString!|" + Told()},
        {!none.WriteString("x", 1, "v"), "Key not open in WriteString[1]!|" + Told()},
        {none.ReadPassword("x", "d") == "d"s, "Key not open in ReadString!|" + Told()},
        {!none.WritePassword("x", "v"), "Key not open in WriteString!|" + Told()},
        {none.ReadDWord("x", 7) == 7, "Key not open in ReadDWord!|" + Told()},
        {none.ReadDWord("x", 1, 7) == 7, "Key not set in ReadDWord[1]!|" + Told()},
        {!none.WriteLong("x", std::numeric_limits<long>::max()), "Key not open in WriteDWord!|" + Told()},
        {!none.WriteDWord("x", 1, 7), "Key not open in WriteDWord[1]!|" + Told()},
        {none.ReadDouble("x", 0, 2.5) == 2.5, "Key not open in ReadString[0]!|" + Told()},
        {none.GetArraySize("x") == 0, "Key not open in GetArraySize!|" + Told()},
        {!none.DeleteArrayIndex("x", 0), "Key not open in DeleteArrayIndex!|" + Told()},
        {!none.Delete("x"), "Key not open in Delete!|" + Told()},
        {!none.Delete(), "Key not open in Delete!|" + Told()},
        {none.GetNumSubKeys(&number, nullptr) == 6, "Key not open in GetNumSubKeys!|" + Told()},
        {none.EnumSubKey(0, text, 9) == 6, "Key not open in EnumSubKey!|" + Told()},
        {none.GetNumValues(&number, nullptr) == 6, "Key not open in GetNumValues!|" + Told()},
        {none.EnumValue(0, text, &number, nullptr, nullptr, nullptr) == 6, "Key not open in EnumValue!|" + Told()},
    };
    for (const auto &row : rows) {
        const std::size_t bar = row.told.find('|');
        EXPECT_EQ(row.told.substr(bar + 1), row.told.substr(0, bar));
        EXPECT_TRUE(row.answer) << row.told;
    }
}

TEST_F(Registry_Test, makes_paths_of_the_program_word)
{
    const struct {
        const char *program, *sub_key, *path;
    } rows[] = {
        {nullptr, "Sub", "SOFTWARE\\MORVALEN\\DRUX\\Sub"},
        {nullptr, "\\Sub", "SOFTWARE\\MORVALEN\\DRUX\\Sub"},
        {"C:\\bin\\a.b\\My.Host.exe", "Sub", "SOFTWARE\\MORVALEN\\MY.HOST\\Sub"},
        {"/opt/station/reader", "Sub\\Deep", "SOFTWARE\\MORVALEN\\READER\\Sub\\Deep"},
    };
    for (const auto &row : rows) {
        ASSERT_TRUE(Registry::SetExePath(row.program));
        for (int again = 0; again < 2; ++again) {  // the word is cut once
            EXPECT_TRUE(key.Init(row.sub_key, ARegistry::All));
            EXPECT_STREQ(key.GetBaseName(), row.path);
        }
        const std::unique_ptr<UserRegistry> user(
            UserRegistry::CreateProgName(row.sub_key, ARegistry::Read_after_Write, &heard));
        ASSERT_TRUE(user);
        EXPECT_STREQ(user->GetBaseName(), row.path);
        EXPECT_STREQ(user->GetDisplayName(), ("HKEY_CURRENT_USER\\\\"s + row.path).c_str());
        EXPECT_EQ(user->GetHKeyRoot(), ARegistry::Current_User);
        EXPECT_EQ(user->GetModus(), ARegistry::Read_after_Write);
        EXPECT_TRUE(user->IsInheritedFrom("Registry") && user->IsInheritedFrom("UserRegistry"));
    }
    Registry::SetExePath(nullptr);
    EXPECT_EQ(heard.Take(), Reports{});

    EXPECT_STREQ(Registry::Key2Str(0x80000006), "HKEY_DYN_DATA");
    const char *const one = Registry::Key2Str(0x80000005), *const two = Registry::Key2Str(7);
    EXPECT_STREQ(one, "Key = 0x80000005");
    EXPECT_STREQ(two, "Key = 0x00000007");
    EXPECT_EQ(Registry::Key2Str(8), one);
}

TEST_F(Registry_Test, stores_each_type_as_it_should_be)
{
    using namespace platform;
    const struct {
        const char *what;
        bool written;
        Raw_Value stored;
    } rows[] = {
        {"text", key.WriteString("text", "abc"), {registry_sz, "abc\0"s}},
        {"double", key.WriteDouble("double", 0.1), {registry_sz, "0.10000000000000000555111512312578\0"s}},
        {"big", key.WriteDouble("big", -1.5e300), {registry_sz, "-1.5000000000000000787571403828066E+300\0"s}},
        {"dword", key.WriteDWord("dword", 0x01020304), {registry_dword, "\4\3\2\1"}},
        {"word", key.WriteWord("word", 0xFFFE), {registry_dword, "\xFE\xFF\0\0"s}},
        {"byte", key.WriteByte("byte", 200), {registry_dword, "\xC8\0\0\0"s}},
        {"bool", key.WriteBool("bool", true), {registry_dword, "\1\0\0\0"s}},
        {"int", key.WriteInt("int", -2), {registry_dword, "\xFE\xFF\xFF\xFF"}},
        {"long", key.WriteLong("long", -3), {registry_dword, "\xFD\xFF\xFF\xFF"}},
        {"texts", key.WriteString("texts", 2, "c"), {registry_multi_sz, "\0\0c\0\0"s}},
        {"words", key.WriteDWord("words", 3, 7), {registry_binary, "\0\0\0\0\0\0\0\0\0\0\0\0\7\0\0\0"s}},
        {"doubles",
         key.WriteDouble("doubles", 1, 2.5),
         {registry_multi_sz, "\0"
                             "2.5\0\0"s}},
        {"ints", key.WriteInt("ints", 0, -1), {registry_binary, "\xFF\xFF\xFF\xFF"}},
    };
    for (const auto &row : rows) {
        EXPECT_TRUE(row.written) << row.what;
        EXPECT_EQ(Raw(row.what), row.stored) << row.what;
    }
    EXPECT_STREQ(key.ReadString("text", "-"), "abc");
    EXPECT_EQ(key.ReadDouble("double", 0), 0.1);
    EXPECT_EQ(key.ReadDouble("big", 0), -1.5e300);
    EXPECT_EQ(key.ReadDouble("doubles", 1, 0), 2.5);
    EXPECT_EQ(key.ReadDWord("dword", 0), 0x01020304u);
    EXPECT_EQ(key.ReadWord("word", 0), 0xFFFE);
    EXPECT_EQ(key.ReadByte("dword", 0), 4);  // cut
    EXPECT_TRUE(key.ReadBool("byte", false));
    EXPECT_EQ(key.ReadInt("int", 0), -2);
    EXPECT_EQ(key.ReadInt("ints", 0, 5), -1);
    EXPECT_EQ(key.ReadLong("long", 0), -3);
    EXPECT_EQ(key.ReadLong("none", -9), -9);
    EXPECT_EQ(key.ReadString("none", 3, nullptr), nullptr);
    EXPECT_TRUE(std::isnan(key.ReadDouble("none", NAN)));
    EXPECT_TRUE(Put("swapped", registry_dword_big_endian, "\1\2\3\4") && Put("variable", registry_expand_sz, "%X%\0"s));
    EXPECT_EQ(key.ReadDWord("swapped", 0), 0x01020304u);
    EXPECT_EQ(key.ReadDWord("swapped", 0, 0), 0x01020304u);
    EXPECT_STREQ(key.ReadString("variable", 0, "-"), "%X%");
    EXPECT_TRUE(key.WriteDWord("swapped", 0, 9) &&
                key.WriteString("variable", 0, "b"));  // the simple types from now on
    EXPECT_EQ(Raw("swapped"), Raw_Value(registry_dword, "\x9\0\0\0"s));
    EXPECT_EQ(Raw("variable"), Raw_Value(registry_sz, "b\0"s));
    EXPECT_EQ(key.GetArraySize("texts"), 3u);
    EXPECT_EQ(key.GetArraySize("words"), 4u);
    EXPECT_EQ(key.GetArraySize("text"), 1u);
    EXPECT_EQ(key.GetArraySize("none"), 0u);
    for (const double value : {0.0, 1 / 3.0, 5e-324, 1.7976931348623157e308, -HUGE_VAL}) {
        key.WriteDouble("d", value);
        EXPECT_EQ(key.ReadDouble("d", 1), value);
    }
    const std::string zeros(400, '0');
    const std::pair<std::string, double> numbers[] = {{" +12.5 m", 12.5},
                                                      {"1e999", HUGE_VAL},
                                                      {"-1E-999", 0.0},
                                                      {"x", 0.0},
                                                      {"-0." + zeros + "1", 0.0},
                                                      {"-1" + zeros + "e-9", -HUGE_VAL},
                                                      {"0." + zeros + "1e+401", 1.0}};
    for (const auto &[text, number] : numbers) {
        key.WriteString("d", text.c_str());
        EXPECT_EQ(key.ReadDouble("d", 1), number) << text;
    }
    EXPECT_EQ(heard.Take(), Reports{});
}

TEST_F(Registry_Test, reports_what_cannot_be_done)
{
    using namespace platform;
    key.WriteString("text", "abc");
    key.WriteDWord("word", 5);
    key.WriteString("texts", 1, "b");
    key.WriteDWord("words", 1, 6);
    ASSERT_TRUE(Put("other", 11, "12345678"));
    const std::string in_text = "\" \"key \"" + shown + "\" with index 1 in ";
    const struct {
        std::string answer, told;
    } rows[] = {
        {key.ReadString("word", "d"),
         "DataType 4<=>0x04 not handled in variable \"word\" of key \"" + shown + "\" in ReadString.\n|" + Told()},
        {std::to_string(key.ReadDWord("text", 8)),
         "DataType 1<=>0x01 not handled in variable \"text\" of key \"" + shown + "\" in ReadDWord.\n|" + Told()},
        {key.ReadString("text", 1, "d"),
         "Can not access simple string variable \"text" + in_text + "ReadString[1]!|" + Told()},
        {std::to_string(key.WriteString("text", 1, "d")),
         "Can not access simple string variable \"text" + in_text + "WriteString[1]!|" + Told()},
        {std::to_string(key.ReadDWord("word", 1, 8)),
         "Can not access simple DWORD variable \"word" + in_text + "ReadDWord[1]!|" + Told()},
        {std::to_string(key.WriteDWord("word", 1, 8)),
         "Can not access simple DWORD variable \"word" + in_text + "WriteDWord[1]!|" + Told()},
        {key.ReadString("texts", 2, "d"),
         "Index 2 out of range [0..2[ in variable \"texts\" \"key \"" + shown + "\" in ReadString[2]!|" + Told()},
        {std::to_string(key.ReadDWord("words", 2, 8)),
         "Index 2 out of range [0..2[ in variable \"words\" \"key \"" + shown + "\" in ReadDWord[2]!|" + Told()},
        {key.ReadString("words", 0, "d"), "DataType 3<=>0x03 not handled in sub key \"words\" of base key \"" + shown +
                                              "\" in ReadString[0].|" + Told()},
        {std::to_string(key.WriteString("words", 0, "d")),
         "DataType 3<=>0x03 not handled in sub key \"words\" of base key \"" + shown + "\" in WriteString[0].|" +
             Told()},
        {std::to_string(key.WriteDWord("texts", 0, 1)),
         "DataType 7<=>0x07 not handled in sub key \"texts\" of base key \"" + shown + "\" in WriteString[0].|" +
             Told()},
        {std::to_string(key.GetArraySize("other")),
         "DataType 11<=>0x0B not handled in sub key \"other\" of base key \"" + shown + "\" in GetArraySize.\n|" +
             Told()},
        {std::to_string(key.DeleteArrayIndex("text", 0)),
         "Variable of key \"" + shown + "\" not supported in DeleteArrayIndex!|" + Told()},
        {std::to_string(key.DeleteArrayIndex("words", 2)),
         "Index 2 greater than array_size 2 of key \"" + shown + "\"in DeleteArrayIndex!|" + Told()},
        {std::to_string(key.WriteString("text", nullptr)),
         "NULL-Pointer to write for variable \"text\" of key \"" + shown + "\" in WriteString!|" + Told()},
        {std::to_string(key.WriteString(nullptr, "x")),
         "Variable of \"" + shown + "\" not set in WriteString!|" + Told()},
        {std::to_string(key.WriteDWord(nullptr, 1)),
         "Variable of key \"" + shown + "\" not set in WriteDWord!|" + Told()},
        {std::to_string(key.WriteString("texts", 100000, "x")),
         "Reallocation size 100004 of Key \"Test\" is unacceptable. Ignored!|" + Told()},
        {std::to_string(key.WriteDWord("words", 0xFFFFFFFF, 1)),
         "Reallocation size 2147483647 of Key \"Test\" is unacceptable. Ignored!|" + Told()},
        {std::to_string(key.Delete("none")), "|" + Told()},
        {std::to_string(key.DeleteArrayIndex("none", 4)), "|" + Told()},
    };
    const char *const answers[] = {"d", "8", "d", "0", "8", "0", "d", "8", "d", "1", "1",
                                   "0", "0", "0", "0", "0", "0", "0", "0", "1", "1"};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const std::size_t bar = rows[i].told.find('|');
        EXPECT_EQ(rows[i].told.substr(bar + 1), rows[i].told.substr(0, bar));
        EXPECT_EQ(rows[i].answer, answers[i]) << rows[i].told;
    }
    EXPECT_EQ(Raw("words").second, "\0\0\0\0\6\0\0\0"s);  // nothing of this has written
    EXPECT_EQ(Raw("texts").second, "\0b\0\0"s);
    if constexpr (sizeof(long) > 4) {
        const std::string why = " for variable \"word\" of key \"" + shown + "\" has more than 32 bits!";
        const auto wide = static_cast<long>(3'000'000'000);  // as a long, it would come back with a minus sign
        EXPECT_FALSE(key.WriteLong("word", wide));
        EXPECT_EQ(Told(), "Value 3000000000" + why);
        EXPECT_FALSE(key.WriteLong("word", 0, -wide));
        EXPECT_EQ(Told(), "Value -3000000000" + why);
        EXPECT_TRUE(key.WriteDWord("word", static_cast<unsigned long>(wide)));
        EXPECT_FALSE(key.WriteDWord("word", static_cast<unsigned long>(2 * wide)));
        EXPECT_EQ(Told(), "Value 6000000000" + why);
        EXPECT_EQ(key.ReadDWord("word", 0), static_cast<unsigned long>(wide));
    }
}

TEST_F(Registry_Test, keeps_long_and_odd_texts)
{
    for (const std::size_t size : {99'999u, 100'000u}) {  // with the final zero, one more
        const std::string text(size, 'x');
        EXPECT_TRUE(key.WriteString("long", text.c_str()));
        Registry reader(machine, "Test", ARegistry::Read_only, &heard);
        const std::string read = reader.ReadString("long", "too long");
        EXPECT_EQ(read, size < 100'000 ? text : "too long");
        EXPECT_EQ(Raw("long").second.size(), size + 1);
    }
    const Reports reports = heard.Take();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0].text, "Reallocation size 100001 of Key \"Test\" is unacceptable. Ignored!");
    EXPECT_TRUE(reports[1].text.starts_with("Variable \"long\" of key \"" + shown +
                                            "\" in ReadString failed!\nOS Error-Code: 234="));

    ASSERT_TRUE(Put("zeros", platform::registry_sz, "a\0b\0"s) && Put("bare", platform::registry_sz, "abc"));
    EXPECT_STREQ(key.ReadString("zeros", ""), "a");
    EXPECT_STREQ(key.ReadString("bare", ""), "abc");
    // A text that was read may be an argument of the next call.
    ASSERT_TRUE(key.WriteString("name", "target") && key.WriteString("target", "reached"));
    EXPECT_STREQ(key.ReadString(key.ReadString("name", ""), "lost"), "reached");
    ASSERT_TRUE(key.WriteString("list", 1, key.ReadString("target", "")));
    EXPECT_STREQ(key.ReadString("list", 1, ""), "reached");
    ASSERT_TRUE(key.WriteString("list", 2, key.ReadString("target", "")));
    EXPECT_STREQ(key.ReadString("list", 2, ""), "reached");
    EXPECT_STREQ(key.ReadString("none", key.ReadString("name", "")), "target");
    for (int i = 0; i < 2; ++i) EXPECT_STREQ(key.ReadString("target", ""), "reached");
    EXPECT_STREQ(key.ReadString("bare", ""), "abc");  // nothing is left of the longer text
}

TEST_F(Registry_Test, edits_arrays_like_a_list)
{
    std::mt19937 random(20261122);
    std::vector<std::string> texts;
    std::vector<std::uint32_t> words;
    std::string text_bytes = registry_texts::Completed(""), word_bytes;
    const auto check = [&] {
        ASSERT_EQ(registry_texts::Count(text_bytes), texts.size());
        ASSERT_EQ(registry_words::Count(word_bytes), words.size());
        for (std::size_t i = 0; i < texts.size(); ++i) ASSERT_EQ(registry_texts::At(text_bytes, i), texts[i]);
        for (std::size_t i = 0; i < words.size(); ++i) ASSERT_EQ(registry_words::At(word_bytes, i), words[i]);
    };
    for (int step = 0; step < 20'000; ++step) {
        const std::size_t index = random() % 12;
        const bool removes = random() % 3 == 0;
        if (removes && index < texts.size()) {
            registry_texts::Remove(text_bytes, index);
            texts.erase(texts.begin() + static_cast<std::ptrdiff_t>(index));
        } else if (!removes) {
            const std::string text(random() % 4, static_cast<char>('a' + random() % 26));
            const std::uint64_t size = registry_texts::Size_After_Set(text_bytes, index, text);
            registry_texts::Set(text_bytes, index, text);
            ASSERT_EQ(text_bytes.size(), size);
            if (texts.size() <= index) texts.resize(index + 1);
            texts[index] = text;
        }
        if (removes && index < words.size()) {
            registry_words::Remove(word_bytes, index);
            words.erase(words.begin() + static_cast<std::ptrdiff_t>(index));
        } else if (!removes) {
            if (words.size() <= index) words.resize(index + 1);
            words[index] = static_cast<std::uint32_t>(random());
            registry_words::Set(word_bytes, index, words[index]);
        }
        ASSERT_NO_FATAL_FAILURE(check()) << step;
    }
    for (const auto &[stored, count] : {std::pair(""s, 0),
                                        {"\0"s, 0},
                                        {"\0\0"s, 1},
                                        {"a"s, 1},
                                        {"a\0b"s, 2},
                                        {"a\0b\0"s, 2},
                                        {"a\0b\0\0"s, 2},
                                        {"\0\0c\0\0"s, 3}}) {
        ASSERT_TRUE(Put("texts", platform::registry_multi_sz, stored));
        EXPECT_EQ(key.GetArraySize("texts"), static_cast<unsigned>(count)) << testing::PrintToString(stored);
        EXPECT_TRUE(key.WriteString("texts", static_cast<unsigned>(count), "new"));
        EXPECT_STREQ(key.ReadString("texts", static_cast<unsigned>(count), ""), "new");
        EXPECT_TRUE(key.DeleteArrayIndex("texts", static_cast<unsigned>(count)));
        EXPECT_EQ(key.GetArraySize("texts"), static_cast<unsigned>(count));
    }
    ASSERT_TRUE(Put("odd", platform::registry_binary, "\1\2\3\4\5"));
    EXPECT_EQ(key.ReadDWord("odd", 1, 0), 5u);
    EXPECT_TRUE(key.WriteDWord("odd", 0, 9));
    EXPECT_EQ(Raw("odd").second, "\x9\0\0\0\5"s);
    EXPECT_TRUE(key.DeleteArrayIndex("odd", 0));
    EXPECT_EQ(Raw("odd").second, "\5");
}

TEST_F(Registry_Test, reads_back_passwords_of_all_lengths_and_bytes)
{
    for (std::size_t size = 0; size <= 600; ++size) {
        int lost = 0;
        for (int code = 1; code<256; code += size> 20 ? 51 : 1) {
            const std::string clear(size, static_cast<char>(code)), scrambled = Scrambled_Password(clear);
            ASSERT_EQ(scrambled.find('\0'), scrambled.npos) << size;
            ASSERT_GE(scrambled.size(), std::max<std::size_t>(size, 8) + 1);
            ASSERT_LE(scrambled.size(), std::max<std::size_t>(size, 15) + 1);
            const std::string read = Clear_Password(scrambled);
            ASSERT_EQ(read.size(), size);
            for (std::size_t i = 0; i < size; ++i) lost += read[i] != clear[i];
            ASSERT_TRUE(read == clear || code == 0x7F || code == 0xFF) << code;  // no typed text has these
        }
        // One byte at each place is the substitute for 0.
        EXPECT_EQ(lost, size <= 20 ? static_cast<int>(size) : lost);
    }
    EXPECT_EQ(Clear_Password("abcdefgh\x3C"), "");  // says that it has -1 characters
    EXPECT_TRUE(key.WritePassword("secret", "Hawk\xE9\xC3\xBC 7"));
    EXPECT_STREQ(key.ReadPassword("secret", ""), "Hawk\xE9\xC3\xBC 7");
    EXPECT_EQ(Raw("secret").second.find("Hawk"), std::string::npos);
    EXPECT_STREQ(key.ReadPassword("none", "d"), "d");
    EXPECT_TRUE(key.WriteString("secret", ""));
    EXPECT_STREQ(key.ReadPassword("secret", "d"), "");
}

TEST_F(Registry_Test, deletes_and_enumerates)
{
    for (const char *path : {"Test\\a\\b\\c", "Test\\a\\d", "Test\\longer"})
        EXPECT_TRUE(Registry(machine, path, ARegistry::All, &heard).WriteDWord("v", 1));
    unsigned long count = 0, longest = 0, size = 3, type = 0, data_size = 1;
    char name[8], data[4];
    EXPECT_EQ(key.GetNumSubKeys(&count, &longest), 0);
    EXPECT_EQ(std::pair(count, longest), std::pair(2ul, 6ul));
    EXPECT_EQ(key.EnumSubKey(1, name, 6), 234);
    EXPECT_EQ(key.EnumSubKey(1, name, 7), 0);
    EXPECT_STREQ(name, "longer");
    EXPECT_EQ(key.EnumSubKey(2, name, 7), 259);
    EXPECT_EQ(key.EnumSubKey(-1, name, 7), 259);
    key.WriteString("value", "abc");
    EXPECT_EQ(key.GetNumValues(&count, &longest), 0);
    EXPECT_EQ(std::pair(count, longest), std::pair(1ul, 5ul));
    EXPECT_EQ(key.EnumValue(0, name, &size, &type, data, &data_size), 234);
    size = sizeof name;
    EXPECT_EQ(key.EnumValue(0, name, &size, &type, data, &data_size), 234);
    EXPECT_EQ(data_size, 4u);
    size = sizeof name;
    EXPECT_EQ(key.EnumValue(0, name, &size, &type, data, &data_size), 0);
    EXPECT_STREQ(data, "abc");
    EXPECT_EQ(key.EnumValue(1, name, &size, nullptr, nullptr, nullptr), 259);
    EXPECT_EQ(key.EnumValue(0, name, &size, &type, data, nullptr), 87);  // how much is there room for?
    EXPECT_EQ(key.ReadValue("value", &type, data, nullptr), 87);

    Registry same(machine, "Test", ARegistry::All, &heard);
    EXPECT_TRUE(key.Delete());
    EXPECT_EQ(key.GetBaseName(), nullptr);
    EXPECT_EQ(heard.Take(), Reports{});
    EXPECT_FALSE(same.WriteDWord("v", 1));
    EXPECT_TRUE(
        Told().starts_with("Variable \"v\" of key \"" + shown + "\" in WriteDWord failed!\nOS Error-Code: 1018="));
    EXPECT_EQ(same.ReadString("v", 0, "d"), nullptr);  // and not the default
    EXPECT_EQ(same.ReadDWord("v", 4), 4u);
    EXPECT_EQ(heard.Take().size(), 2u);
    EXPECT_FALSE(Registry(machine, "Test", ARegistry::Read_only, &heard).GetBaseName());
    heard.Take();
    Registry root(machine, "", ARegistry::Read_and_Write, &heard);
    EXPECT_FALSE(root.Delete());
    EXPECT_TRUE(Told().starts_with("Delete of Key \"HKEY_LOCAL_MACHINE\\\\\" failed!\nOS Error-Code: 5="));
}

TEST_F(Registry_Test, does_without_memory)
{
    const std::string text(300, 'x'), path = "Test\\" + text.substr(0, 200);
    NULL_Error_Handler quiet;
    std::unique_ptr<Registry> made;
    EXPECT_GT(Refused_Without_Memory([&] {
                  made.reset(Registry::Create(machine, path.c_str(), ARegistry::All, &quiet));
                  return made != nullptr;
              }),
              2);
    EXPECT_GT(Refused_Without_Memory([&] { return made->WriteString("list", 1, text.c_str()); }), 0);
    EXPECT_GT(Refused_Without_Memory([&] { return made->WritePassword("secret", text.c_str()); }), 0);
    EXPECT_GT(Refused_Without_Memory([&] { return made->ReadPassword("secret", nullptr) != nullptr; }), 0);
    EXPECT_GT(Refused_Without_Memory([&] { return Registry::SetExePath(text.c_str()); }), 0);
    Registry::SetExePath(nullptr);
}

TEST_F(Registry_Test, serves_threads_with_objects_of_their_own)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([this, t] {
            const std::unique_ptr<UserRegistry> own(UserRegistry::Create("Shared", ARegistry::All, &heard));
            ASSERT_TRUE(own);
            for (unsigned i = 0; i < 25; ++i) {
                const std::string name = std::to_string(t) + "-" + std::to_string(i);
                EXPECT_TRUE(own->WriteDWord(name.c_str(), i));
                EXPECT_EQ(own->ReadDWord(name.c_str(), 99), i);
                EXPECT_STREQ(Registry::Key2Str(i), Registry::Key2Str(i));
            }
        });
    for (std::thread &thread : threads) thread.join();
    unsigned long count = 0;
    EXPECT_EQ(UserRegistry("Shared", ARegistry::Read_only, &heard).GetNumValues(&count, nullptr), 0);
    EXPECT_EQ(count, 100u);
    EXPECT_EQ(heard.Take(), Reports{});
}
