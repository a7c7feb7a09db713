#include "kernel/Error_Handler.h"

#include "kernel/Object.h"

#include "platform/debug.h"
#include "platform/error.h"

#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>

using namespace kernel;

namespace {

std::string debug_text;

std::string Traced(Error_Handler::Enum_Status level, const char *text)
{
    debug_text.clear();
    const auto before = platform::set_debug_output([](const char *part) { debug_text += std::string(part) + '|'; });
    Trace_Handler.Print_Out(level, "%s", text);
    platform::set_debug_output(before);
    return debug_text;
}

std::string Contents(std::FILE *file)
{
    std::string text;
    std::rewind(file);
    for (int c; (c = std::fgetc(file)) != EOF;) text += static_cast<char>(c);
    return text;
}

}  // namespace

TEST(Error_Handler, prints_with_unit_and_code_and_forgets_the_place)
{
    Capturing_Handler handler;
    handler.Set("kernel/X", 7)->Print_Out(Error_Handler::ES_Warning, 42, "%d of %s", 3, "four");
    EXPECT_EQ(handler.Take(), (Reports{{2, 42, "3 of four", "kernel/X"}}));
    EXPECT_EQ(handler.File(), nullptr);
    EXPECT_EQ(handler.Line(), 0u);
    handler.Print_Out(Error_Handler::ES_Message, "short");
    const char *volatile no_format = nullptr;
    handler.Print_Out(Error_Handler::ES_Error, 5, no_format);
    EXPECT_EQ(handler.Take(), (Reports{{0, 1, "short", ""}, {3, 5, "", ""}}));
}

TEST(Error_Handler, cuts_long_texts_but_never_the_cause)
{
    Capturing_Handler handler;
    const std::string text(5000, 'x');
    handler.Print_Out(Error_Handler::ES_Error, "%s", text.c_str());
    EXPECT_EQ(handler.Take().at(0).text, text.substr(0, 2047));
    handler.OS_Error(5, Error_Handler::ES_Error, "%s", text.c_str());
    const std::string report = handler.Take().at(0).text;
    const std::string end = " failed!\nOS Error-Code: 5=0x00000005 => " + platform::error_text(5);
    EXPECT_EQ(report.size(), 2047u);
    EXPECT_EQ(report.substr(report.size() - end.size()), end);
}

TEST(Error_Handler, reports_errors_of_the_system)
{
    Capturing_Handler handler;
    handler.Set("kernel/X", 7);
    handler.OS_Error(0, Error_Handler::ES_Error, "nothing");
    platform::set_last_error(0);
    handler.OS_Error(Error_Handler::ES_Error, "nothing");
    EXPECT_EQ(handler.Take(), Reports{});

    const std::string denied = "OS Error-Code: 5=0x00000005 => " + platform::error_text(5);
    handler.OS_Error(5, Error_Handler::ES_Error, "Open %s", "it");
    handler.OS_Error(5, Error_Handler::ES_Fatal, nullptr);
    platform::set_last_error(10061);
    handler.OS_Error(Error_Handler::ES_Warning, nullptr);
    EXPECT_EQ(handler.Take(),
              (Reports{{3, 3, "Open it failed!\n" + denied, "kernel/X"},
                       {4, 3, denied, "kernel/X"},
                       {2, 3, "OS Error-Code: 10061=0x0000274D => " + platform::error_text(10061), "kernel/X"}}));
    EXPECT_STREQ(handler.File(), "kernel/X");
    EXPECT_EQ(handler.Line(), 7u);
}

TEST(Error_Handler, knows_words_for_its_levels)
{
    struct Words : Capturing_Handler {
        using Error_Handler::StatusMesg;
    };
    const char *const words[] = {"Message", "Information", "Warning", "Error", "Fatal Error", "Unrecoverble Error"};
    for (int level = 0; level < 6; ++level) EXPECT_STREQ(Words::StatusMesg[level], words[level]);
}

TEST(Error_Handler, simple_handler_prints_lines)
{
    std::FILE *file = std::tmpfile();
    ASSERT_TRUE(file);
    Simple_Error_Handler plain(file, false), located(file, true);
    plain.Set("kernel/X", 7)->Print_Out(Error_Handler::ES_Fatal, "one");
    located.Set("kernel/X", 7)->Print_Out(Error_Handler::ES_Message, "two");
    located.Print_Out(Error_Handler::ES_Error, "three");
    EXPECT_EQ(Contents(file), "one\nLine 7 in File kernel/X\ntwo\nLine 0 in File (null)\nthree\n");
    std::fclose(file);
}

TEST(Error_Handler, trace_handler_prefixes_by_level)
{
    EXPECT_EQ(Traced(Error_Handler::ES_Message, "t"), "t|\n|");
    EXPECT_EQ(Traced(Error_Handler::ES_Information, "t"), "t|\n|");
    EXPECT_EQ(Traced(Error_Handler::ES_Warning, "t"), "Warning: |t|\n|");
    EXPECT_EQ(Traced(Error_Handler::ES_Error, "t"), "Error  : |t|\n|");
    EXPECT_EQ(Traced(Error_Handler::ES_Fatal, "t"), "Fatal  : |t|\n|");
}

TEST(Error_Handler, two_threads_share_one_handler)
{
    std::FILE *file = std::tmpfile();
    ASSERT_TRUE(file);
    Simple_Error_Handler handler(file, true);
    const auto report = [&handler] {
        for (int i = 0; i < 200; ++i) handler.Set("kernel/X", 1)->Print_Out(Error_Handler::ES_Error, 1, "text");
    };
    std::thread other(report);
    report();
    other.join();
    const std::string text = Contents(file);
    std::size_t lines = 0;  // a place and a text in turn
    for (std::size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1, ++lines) {
        const std::string line = text.substr(at, end - at);
        ASSERT_TRUE(lines % 2 == 0 ? line.starts_with("Line ") : line == "text") << lines << ": " << line;
    }
    EXPECT_EQ(lines, 800u);
    std::fclose(file);
}

TEST(Error_Handler, level_5_ends_the_process_unless_nobody_listens)
{
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
#ifdef _WIN32
    const int status = -1;  // the whole of it comes through
#else
    const int status = 255;
#endif
    const auto end = Error_Handler::ES_Unrecoverable;
    EXPECT_EXIT(Simple_Error_Handler().Print_Out(end, "last words"), ::testing::ExitedWithCode(status),
                "^last words\n$");
    EXPECT_EXIT(NULL_Error_Handler().Print_Out(end, "silent"), ::testing::ExitedWithCode(status), "^$");
    const auto trace = [] {
        platform::set_debug_output([](const char *text) { std::fputs(text, stderr); });
        Trace_Handler.Print_Out(Error_Handler::ES_Unrecoverable, "traced");
    };
    EXPECT_EXIT(trace(), ::testing::ExitedWithCode(status), "^Terminate: traced\n$");
    const auto together = [] {  // the process ends once, whoever comes first
        std::thread other([] { NULL_Error_Handler().Print_Out(Error_Handler::ES_Unrecoverable, "a"); });
        NULL_Error_Handler().Print_Out(Error_Handler::ES_Unrecoverable, "b");
        other.join();
    };
    EXPECT_EXIT(together(), ::testing::ExitedWithCode(status), "^$");

    Object mute("mute");
    mute.Set_Error_Handler(nullptr);
    mute.Report("kernel/X", 1).Print_Out(end, 1, "nobody hears");
}
