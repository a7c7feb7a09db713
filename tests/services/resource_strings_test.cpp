#include "kernel/services/resource_strings.h"

#include "kernel/services/resource_table_internal.h"
#include "platform/library.h"
#include "tests/support/folder.h"
#include "tests/support/short_memory.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace kernel;

namespace {

std::vector<std::string> heard;
void Hear(const char *message) { heard.push_back(message); }

// What a text is read as: "NUMBER@LINE=TEXT " for each entry, and how reading ended.
std::string Read(const std::string &text)
{
    heard.clear();
    Resource_Reader reader(text, Hear);
    if (!reader.Read_Header()) return "no header, line " + std::to_string(reader.Line());
    std::string found;
    for (Resource_Entry entry; !reader.At_End();) {
        if (!reader.Read_Entry(entry)) return found + "broken, line " + std::to_string(reader.Line());
        found += std::to_string(entry.number) + '@' + std::to_string(entry.line) + '=' + entry.text + ' ';
    }
    return found + "end";
}

// A copy of the library with its file in a folder of its own.
struct Installed : Test_Folder {
    Installed() { Write("library.x", Whole_File(KERNEL_LIBRARY)); }
};

// The library, loaded from that place.
struct Loaded {
    explicit Loaded(const std::string &name) : library(platform::load_library(name.c_str())) {}
    ~Loaded() { platform::free_library(library); }
    const char *Text(int number) const
    {
        return reinterpret_cast<const char *(*)(int)>(platform::function_of(library, "CST"))(number);
    }

    void *const library;
};

constexpr char two_texts[] = "\"a\" \"b\" {\n1, \"Ja\";\n2, \"Nein\";\n";

}  // namespace

TEST(Resource_Reader, reads_entries_and_stops_at_the_first_broken_one)
{
    const std::string limit(Resource_Reader::longest_text, 'x'), comment(2000, 'c');
    const struct {
        std::string text, read;
        std::vector<std::string> heard;
    } rows[] = {
        {"{1,\"Ja\";2,\"Nein\";", "1@1=Ja 2@1=Nein end", {}},
        {"{", "end", {}},
        {"{ // no entry\n /* at all\n */ \t\f\n", "end", {}},
        {"{1,\"a\";\x1A 2,\"b\";", "1@1=a end", {}},
        {"{1,\"ab\" \t\f\n \"cd\"\"ef\";2,\"g\";", "1@1=abcdef 2@2=g end", {}},
        {"{1,\"a\" /**/ \"b\";", "broken, line 1", {}},
        {"{1,word_9;2,_;3,a b;", "1@1=word_9 2@1=_ broken, line 1", {}},
        {"{1,w\"b\";", "broken, line 1", {}},
        {"{1,\"\\n\\t\\v\\b\\r\\f\\a\\\\\\'\\\"\\?\\z\";", "1@1=\n\t\v\b\r\f\a\\'\"?z end", {}},
        {"{1,\"a\\\nb\";2,\"c\";", "1@1=a\nb 2@2=c end", {}},  // a line end behind a backslash belongs to the text
        {"{\r\n1,\"a\r\n\";", "broken, line 2", {"missing quote - a"}},
        {"{\n1,\"a\n;2,\"b\";", "broken, line 2", {"missing quote - a"}},
        {"{1,\"a\"\n\"b", "broken, line 2", {"missing quote - ab"}},
        {"{1,\"a\\", "broken, line 1", {"missing quote - a\\"}},
        {"{1,\"" + limit + "\";", "1@1=" + limit + " end", {}},
        {"{1,\"" + limit + "y\";", "broken, line 1", {"string to long - " + limit}},
        {"{1,\"" + limit + "\"\n\"y\";", "broken, line 2", {"string to long - " + limit}},
        {"{1," + limit + "y;", "broken, line 1", {"string to long - " + limit}},
        {"{1/ \"a\";2/\n\"b\"; 3/!\"c\";", "1@1=a 2@1=b 3@2=c end", {}},  // takes the next character along
        {"{1,\"a\"; //" + comment + "2,\"b\";\n", "1@1=a 2@1=b end", {}},
        {"{1,\"a\"; //" + comment + "\n2,\"b\";", "1@1=a 2@2=b end", {}},
        {"{1,\"a\";\n/* open\n\n2,\"b\";", "1@1=a broken, line 2", {}},
        {"{/*/ 1,\"a\"; */2,\"b\";", "2@1=b end", {}},
        {"{0,\"a\";1.9,\"b\";.5,\"c\";0x1F,\"d\";1e3,\"e\";", "0@1=a 1@1=b 0@1=c 31@1=d 1000@1=e end", {}},
        {"{2147483647,\"a\";2147483648,\"b\";", "2147483647@1=a broken, line 1", {}},
        {"{1e400,\"b\";", "broken, line 1", {}},
        {"{.,\"b\";", "broken, line 1", {}},
        {"{-1,\"b\";", "broken, line 1", {}},
        {"{1,\"a\";\n}\n", "1@1=a broken, line 2", {}},
        {"{1,\"a\";\n\n2,\n\n", "1@1=a broken, line 3", {}},  // the last line that has something
        {"{1,\"a\"\n\n2,\"b\";", "broken, line 3", {}},
        {"{1,\xC3;", "broken, line 1", {}},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(Read("\"a\" \"b\"" + row.text), row.read) << row.text;
        EXPECT_EQ(heard, row.heard) << row.text;
    }
    EXPECT_EQ(Read("\xEF\xBB\xBF/* */ a\r\n_1 // \r\n{2,\"b\";"), "2@3=b end");
    for (const char *text : {"", "{", "\"a\" {", "1 \"a\" {", "\"a\" \"b\" 1"})
        EXPECT_EQ(Read(text), "no header, line 1");
    EXPECT_EQ(Read("\n\"a\n\" {"), "no header, line 2");
}

TEST(Resource_Table, returns_texts_or_the_reason_why_there_is_none)
{
    const Test_Folder folder;
    const std::string good = folder.Write("good.dat", two_texts), missing = folder / "missing.dat",
                      twice = folder.Write("twice.dat", "a b {\n3,\"c\";\n\n1,\n\"d\";4,\"e\";"),
                      headless = folder.Write("headless.dat", "a\n{5,\"f\";"),
                      brace = folder.Write("brace.dat", "a b {6,\"g\";\n}");
    const std::string none = "Call CSTINT before CST", is_missing = "Couldn't open file " + missing;
    const struct {
        std::vector<std::string> files;  // loaded one after the other
        int number;
        std::string text;
        std::vector<std::string> heard;
        std::string output;
    } rows[] = {
        {{}, 5, none, {}, ""},
        {{good}, 2, "Nein", {}, ""},
        {{good}, -3, "Entry -3 not in File " + good, {}, ""},
        {{missing}, 2, is_missing, {}, ""},
        {{missing, good}, 2, "Nein", {}, ""},
        {{missing, good}, 3, is_missing, {}, ""},
        {{missing, folder / "other"}, 3, is_missing, {}, ""},
        {{good, twice}, 1, "Ja", {"LOCALE ERROR, Line(4)"}, "Error in line 4 of File " + twice + '\n'},
        {{good, twice}, 3, "c", {"LOCALE ERROR, Line(4)"}, "Error in line 4 of File " + twice + '\n'},
        {{good, twice}, 4, none, {"LOCALE ERROR, Line(4)"}, "Error in line 4 of File " + twice + '\n'},
        {{missing, good, twice},
         4,
         " (4) Nr 1 allready in " + twice,
         {"LOCALE ERROR, Line(4)"},
         "Error in line 4 of File " + twice + '\n'},
        {{headless}, 5, none, {"LOCALE ERROR, Line(2)"}, ""},
        {{missing, headless}, 5, "(2) Syntax Error in " + headless + ' ', {"LOCALE ERROR, Line(2)"}, ""},
        {{brace}, 6, "g", {"LOCALE ERROR, Line(2)"}, "Error in line 2 of File " + brace + '\n'},
        {{brace},
         7,
         "Entry 7 not in File " + brace,
         {"LOCALE ERROR, Line(2)"},
         "Error in line 2 of File " + brace + '\n'},
        {{folder / ""}, 1, "Couldn't open file " + (folder / ""), {}, ""},
    };
    for (const auto &row : rows) {
        heard.clear();
        Resource_Table table;
        testing::internal::CaptureStdout();
        for (const std::string &file : row.files) table.Load(file.c_str(), Hear);
        std::fflush(stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.output);
        EXPECT_EQ(table.Text(row.number), row.text) << row.number;
        EXPECT_EQ(heard, row.heard) << row.text;
    }
    Resource_Table table;
    table.Load(nullptr, nullptr);
    EXPECT_STREQ(table.Text(1), "Couldn't open file RESOURCE.DAT");
    Resource_Table freed;
    freed.Load(good.c_str(), nullptr);
    freed.Free();
    EXPECT_EQ(freed.Text(1), none);
}

TEST(Resource_Table, neither_throws_nor_overruns_a_text)
{
    const Test_Folder folder;
    const std::string good = folder.Write("good.dat", two_texts), broken = folder.Write("broken.dat", "a b {\n!");
    testing::internal::CaptureStdout();
    const int refused = Refused_Without_Memory([&] {
        Resource_Table table;
        table.Load(good.c_str(), nullptr);
        return std::string_view(table.Text(2)) == "Nein";
    });
    EXPECT_GT(refused, 2);
    Resource_Table table;
    table.Load(broken.c_str(), [](const char *) { throw 1; });
    std::fflush(stdout);
    EXPECT_TRUE(testing::internal::GetCapturedStdout().ends_with("of File " + broken + '\n'));
    const std::string endless(5000, 'x');
    table.Load(endless.c_str(), nullptr);
    EXPECT_EQ(table.Text(1), ("Couldn't open file " + endless).substr(0, 1023));
}

TEST(Resource_Table, is_loaded_while_others_read_and_gives_each_thread_a_text_of_its_own)
{
    const Test_Folder folder;
    const std::string good = folder.Write("good.dat", two_texts);
    std::string more = "a b {";
    for (int i = 3; i < 2000; ++i) more += std::to_string(i) + ",\"t\";";
    Resource_Table table;
    table.Load(good.c_str(), nullptr);
    const char *const ja = table.Text(1), *const own = table.Text(-1);
    std::thread loader([&, name = folder.Write("more.dat", more)] { table.Load(name.c_str(), nullptr); });
    std::thread reader([&] {
        for (int i = 0; i < 2000; ++i) EXPECT_STREQ(table.Text(2), "Nein");
        EXPECT_TRUE(std::string_view(table.Text(-2)).starts_with("Entry -2 not in File "));
    });
    loader.join();
    reader.join();
    EXPECT_STREQ(table.Text(1999), "t");
    EXPECT_STREQ(ja, "Ja");
    EXPECT_EQ(own, "Entry -1 not in File " + good);
}

TEST(resource_strings, come_and_go_with_the_library)
{
    const Installed folder;
    folder.Write("decoder.dat", two_texts);
    const long living = replaced_new::living;
    for (int i = 0; i < 3; ++i) {
        const Loaded library(folder / "library.x");
        EXPECT_STREQ(library.Text(2), "Nein");
        reinterpret_cast<void (*)(const char *, void *)>(platform::function_of(library.library, "CSTINIT"))(
            folder.Write("more.dat", "a b {3, Vielleicht;").c_str(), nullptr);
        EXPECT_STREQ(library.Text(3), "Vielleicht");  // and with the next load it is not there
    }
    EXPECT_EQ(replaced_new::living, living);  // on Windows the library's memory is not counted here
    const Installed empty;
    EXPECT_EQ(Loaded(empty / "library.x").Text(1), "Couldn't open file " + (empty / "decoder.dat"));
}

TEST(resource_strings, of_the_shipped_file_load_without_a_word)
{
    heard.clear();
    testing::internal::CaptureStdout();
    CSTFREE();
    CSTINIT(DECODER_DAT, Hear);
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(heard, std::vector<std::string>());
    EXPECT_STREQ(CST(1005), "Antenna reference point of the station");
    EXPECT_STREQ(CST(1230), "GLONASS code-phase biases");
    const Loaded library(KERNEL_LIBRARY);
    EXPECT_STREQ(library.Text(1230), "GLONASS code-phase biases");
    CSTFREE();
}

#ifndef _WIN32
TEST(resource_strings, come_from_the_folder_of_the_link_or_of_what_it_leads_to)
{
    const Installed folder;
    const Test_Folder links;
    folder.Write("decoder.dat", two_texts);
    std::filesystem::create_symlink(folder / "library.x", links / "link.x");
    EXPECT_STREQ(Loaded(links / "link.x").Text(1), "Ja");
    links.Write("decoder.dat", "a b {1, Oui;");
    EXPECT_STREQ(Loaded(links / "link.x").Text(1), "Oui");
}

// Registered before the library is loaded, so that it runs when the library's statics are gone.
TEST(resource_strings, can_be_read_until_the_process_ends)
{
    const Installed folder;
    folder.Write("decoder.dat", two_texts);
    EXPECT_EXIT(
        {
            static const Loaded *library;
            std::atexit([] { _exit(std::string_view(library->Text(2)) == "Nein" ? 7 : 1); });
            library = new Loaded(folder / "library.x");
            std::exit(0);
        },
        testing::ExitedWithCode(7), "");
}
#endif
