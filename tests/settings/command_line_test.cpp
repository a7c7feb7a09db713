#include "kernel/settings/command_line.h"

#include "tests/support/folder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace kernel;

namespace {

using Outcome = Command_Line::Outcome;

// A program with an option of each kind.
struct Program {
    Command_Line line{"reader", "Prints the epochs of a recording."};
    CL_Int port{line, 'p', "port", "TCP port to listen on", 2101, -5, 65535};
    CL_Double speed{line, '\0', "speed", "times the pace of the recording", 1, 0.1, 1000};
    CL_String name{line, 'n', "name", "the station's name", "NONE"};
    CL_String kind{line, '\0', "kind", "what is in the file", "", {"ubx", "rtcm3"}};
    CL_Bool quiet{line, 'q', "quiet", "print no epochs"};
    CL_Bool verbose{line, 'v', "verbose", "tell more"};
    CL_Words files{line, "FILE", "recordings", 0, 2};

    std::string Parse(const std::vector<std::string> &words)
    {
        std::vector<const char *> argv = {"reader"};
        for (const std::string &word : words) argv.push_back(word.c_str());
        const Outcome outcome = line.Parse(static_cast<int>(argv.size()), argv.data());
        EXPECT_EQ(outcome == Outcome::wrong, *line.Error() != '\0');
        return outcome == Outcome::help ? "help" : line.Error();
    }
    std::string Values() const
    {
        std::string text = std::to_string(static_cast<long long>(port)) + " " + std::to_string(static_cast<int>(speed));
        text +=
            std::string(" ") + name.Get() + " " + kind.Get() + (quiet ? " quiet" : "") + (verbose ? " verbose" : "");
        for (std::size_t i = 0; i < files.Count(); ++i) text += std::string(" [") + files.Get(i) + "]";
        return text;
    }
};

}  // namespace

TEST(Command_Line, understands_every_way_of_writing_a_value)
{
    const struct {
        std::vector<std::string> words;
        const char *values;
    } lines[] = {
        {{}, "2101 1 NONE "},
        {{"--port", "5015"}, "5015 1 NONE "},
        {{"--port=5015", "--speed=1e2"}, "5015 100 NONE "},
        {{"-p", "5015", "-n=A"}, "5015 1 A "},
        {{"-p5015", "-nA=B"}, "5015 1 A=B "},
        {{"-p", "-5", "-n", "--port"}, "-5 1 --port "},
        {{"-p", "0x10", "-n", ""}, "16 1  "},
        {{"-qv", "--kind", "ubx"}, "2101 1 NONE ubx quiet verbose"},
        {{"-vp7", "--quiet=false"}, "7 1 NONE  verbose"},
        {{"a", "-q", "-"}, "2101 1 NONE  quiet [a] [-]"},
        {{"--", "-q", "@b"}, "2101 1 NONE  [-q] [@b]"},
    };
    Program program;  // one for all: each line begins with the defaults
    for (const auto &line : lines) {
        EXPECT_EQ(program.Parse(line.words), "");
        EXPECT_EQ(program.Values(), line.values);
    }
    EXPECT_FALSE(program.quiet.Is_Given());
}

TEST(Command_Line, says_which_word_is_wrong_and_why)
{
    const struct {
        std::vector<std::string> words;
        const char *error;
    } lines[] = {
        {{"--port", "70000"}, "--port: '70000' is not between -5 and 65535"},
        {{"--port", "-6"}, "--port: '-6' is not between -5 and 65535"},
        {{"--port=99999999999999999999"}, "--port: '99999999999999999999' is not between -5 and 65535"},
        {{"-p", "12a"}, "-p: '12a' is no whole number"},
        {{"-p+-5"}, "-p: '+-5' is no whole number"},
        {{"--port="}, "--port: '' is no whole number"},
        {{"--port"}, "--port: the value is missing"},
        {{"--port", "1", "-p2"}, "-p: given twice"},
        {{"-vqp7", "-q=false"}, "-q: given twice"},
        {{"--prot", "1"}, "--prot: no such option; --port is one"},
        {{"--station=x"}, "--station: no such option"},
        {{"-x"}, "-x: no such option"},
        {{"--speed", "1,5"}, "--speed: '1,5' is no number"},
        {{"--speed", "nan"}, "--speed: 'nan' is no number"},
        {{"--speed", "0.05"}, "--speed: '0.05' is not between 0.1 and 1000"},
        {{"--kind", "UBX"}, "--kind: 'UBX' is none of ubx rtcm3"},
        {{"--quiet=1"}, "--quiet: '1' is neither true nor false"},
        {{"a", "b", "c"}, "'c': one too many"},
        {{"-q", "--help", "--nonsense"}, "help"},
        {{"-qh"}, "help"},
    };
    Program program;
    for (const auto &line : lines) EXPECT_EQ(program.Parse(line.words), line.error);

    Command_Line bare("bare", "");
    CL_Int must(bare, 'm', "must", "", 0, 0, 9);
    must.Require();
    const char *argv[] = {"bare", "x", "-m1"};
    EXPECT_EQ(bare.Parse(3, argv), Outcome::wrong);
    EXPECT_STREQ(bare.Error(), "'x': no such word is expected");
    EXPECT_EQ(bare.Parse(1, argv), Outcome::wrong);
    EXPECT_STREQ(bare.Error(), "--must is missing");
    CL_Words words(bare, "WORD", "", 1);
    argv[1] = "-m1";
    EXPECT_EQ(bare.Parse(2, argv), Outcome::wrong);
    EXPECT_STREQ(bare.Error(), "WORD is missing");
    const CL_Bool twin(bare, 'm', "other", "");
    EXPECT_EQ(bare.Parse(2, argv), Outcome::wrong);
    EXPECT_STREQ(bare.Error(), "--other is declared twice");
}

TEST(Command_Line, takes_words_from_files)
{
    const Test_Folder folder;
    const auto file = [&folder](const char *name, const std::string &text) { return "@" + folder.Write(name, text); };
    file("inner", "\xEF\xBB\xBF-q # quiet, -p 9\r\n'a \"b\"' C:\\x\ty#z");
    const std::string outer = file("outer", "--name \"two\nlines\" @" + (folder / "inner"));
    Program program;
    EXPECT_EQ(program.Parse({outer}), (folder / "inner") + ", line 2: 'y#z': one too many");
    EXPECT_EQ(program.Values(), "2101 1 two\nlines  quiet [a \"b\"] [C:\\x]");
    EXPECT_EQ(program.Parse({file("wrong", "-q\n\n--port no\n")}),
              (folder / "wrong") + ", line 3: --port: 'no' is no whole number");
    EXPECT_EQ(program.Parse({file("open", "-q\n \"a\n")}),
              (folder / "open") + ", line 2: the closing quote is missing");
    EXPECT_EQ(program.Parse({file("zero", std::string("\n-\0", 3))}), (folder / "zero") + ", line 2: a zero byte");
    EXPECT_EQ(program.Parse({file("after", "-n 'a\nb' -x")}), (folder / "after") + ", line 2: -x: no such option");
    const std::string loop = file("loop", "@" + (folder / "loop"));
    EXPECT_NE(program.Parse({loop}).find("more than 8 deep"), std::string::npos);
    const std::string none = "@" + (folder / "none");
    EXPECT_EQ(program.Parse({none}).find(none + ": "), 0u);
    EXPECT_EQ(program.Parse({"-n", outer}), "");  // a value is no file
    EXPECT_EQ(program.name.Get(), outer);
    file("more", "x");
    const std::string good = file("good", "-n 'a b' -p\n 7 @" + (folder / "more"));
    EXPECT_EQ(program.Parse({good, "z"}), "");
    EXPECT_EQ(program.Values(), "7 1 a b  [x] [z]");
}

TEST(Command_Line, lists_options_with_limits_and_defaults)
{
    Program program;
    EXPECT_EQ(std::string(program.line.Listing()),
              "Usage: reader [options] [FILE]...\n"
              "Prints the epochs of a recording.\n"
              "\n"
              "  FILE                    recordings\n"
              "  -p, --port N            TCP port to listen on (-5 to 65535; default 2101)\n"
              "      --speed X           times the pace of the recording (0.1 to 1000; default\n"
              "                          1)\n"
              "  -n, --name TEXT         the station's name (default NONE)\n"
              "      --kind TEXT         what is in the file (ubx, rtcm3)\n"
              "  -q, --quiet             print no epochs\n"
              "  -v, --verbose           tell more\n"
              "  -h, --help              this list\n");
}
