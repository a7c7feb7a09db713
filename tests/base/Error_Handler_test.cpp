#include "kernel/base/Error_Handler.h"

#include "platform/debug.h"
#include "platform/error.h"

#include "tests/support/ending.h"
#include "tests/support/reports.h"
#include "tests/support/short_memory.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <type_traits>

using namespace kernel;

namespace {

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

TEST(Error_Handler, knows_words_for_its_levels)
{
    struct Words : Capturing_Handler {
        using Error_Handler::StatusMesg;
    };
    std::string words;
    for (const char *word : Words::StatusMesg) words += std::string(word) + ",";
    EXPECT_EQ(words, "Message,Information,Warning,Error,Fatal Error,Unrecoverble Error,");
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

TEST(Error_Handler, reports_without_memory)
{
    struct Fixed_Handler : Error_Handler {
        void Do_Print(Enum_Status, Err_Code, const char *text) override
        {
            std::snprintf(at, sizeof heard - static_cast<std::size_t>(at - heard), "%s|", text);
            at += std::strlen(at);
        }
        char heard[4096];
        char *at = heard;
    } handler;
    {
        const Short_Memory memory(0);
        handler.Print_Out(Error_Handler::ES_Error, "No %s", "memory");
        handler.OS_Error(8, Error_Handler::ES_Error, "Create %d", 7);
        handler.OS_Error(0x7FFFFFF1, Error_Handler::ES_Error, nullptr);
    }
    EXPECT_EQ(std::string(handler.heard), "No memory|Create 7 failed!\nOS Error-Code: 8=0x00000008 => " +
                                              platform::error_text(8) + "|OS Error-Code: 2147483633=0x7FFFFFF1 => " +
                                              platform::error_text(0x7FFFFFF1) + "|");
}

// A zero is no stream; a stream alone would be taken for the flag.
static_assert(std::is_constructible_v<Simple_Error_Handler, int> &&
              !std::is_constructible_v<Simple_Error_Handler, std::FILE *>);

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
    static std::string traced;
    traced.clear();
    const auto before = platform::set_debug_output([](const char *part) { traced += std::string(part) + '|'; });
    for (int level = 0; level < 5; ++level)
        Trace_Handler.Print_Out(static_cast<Error_Handler::Enum_Status>(level), "t");
    platform::set_debug_output(before);
    EXPECT_EQ(traced, "t|\n|t|\n|Warning: |t|\n|Error  : |t|\n|Fatal  : |t|\n|");
}

TEST(Error_Handler, two_threads_share_one_handler)
{
    std::FILE *file = std::tmpfile();
    ASSERT_TRUE(file);
    std::setvbuf(file, nullptr, _IONBF, 0);
    Simple_Error_Handler handler(file, true);
    const auto report = [&handler] {
        for (int i = 0; i < 2000; ++i) handler.Print_Out(Error_Handler::ES_Error, "text");
    };
    std::thread other(report);
    report();
    other.join();
    std::string expected;
    for (int i = 0; i < 4000; ++i) expected += "Line 0 in File (null)\ntext\n";
    EXPECT_TRUE(Contents(file) == expected);
    std::fclose(file);
}

TEST(Error_Handler, level_5_ends_the_process_unless_nobody_listens)
{
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    const ::testing::ExitedWithCode ended = Ended_With(-1);
    const auto end = [](Error_Handler &&handler) { handler.Print_Out(Error_Handler::ES_Unrecoverable, "words"); };
    EXPECT_EXIT(end(Simple_Error_Handler()), ended, "^words\n$");
    EXPECT_EXIT(end(NULL_Error_Handler()), ended, "^$");
    const auto trace = [&] {
        platform::set_debug_output([](const char *text) { std::fputs(text, stderr); });
        end(Trace_Error_Handler());
    };
    EXPECT_EXIT(trace(), ended, "^Terminate: words\n$");
    const auto together = [&] {  // the process ends once, in any order of the threads
        std::thread other([&] { end(NULL_Error_Handler()); });
        end(NULL_Error_Handler());
        other.join();
    };
    EXPECT_EXIT(together(), ended, "^$");
    Error_Handler::Or_Silent(nullptr).Print_Out(Error_Handler::ES_Unrecoverable, "nobody hears");
}
