#include "host/gnss_stream/Console.h"

#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <string>
#include <vector>

using namespace host;
using kernel::Error_Handler;

namespace {

// What stands on standard error, in lines and without time stamps.
std::vector<std::string> Printed(const std::function<void()> &action)
{
    testing::internal::CaptureStderr();
    action();
    const std::string text = testing::internal::GetCapturedStderr();
    const std::regex line(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z (.*)\n)");
    std::vector<std::string> lines;
    std::size_t used = 0;
    for (std::sregex_iterator at(text.begin(), text.end(), line), end; at != end; ++at) {
        lines.push_back((*at)[1]);
        used += static_cast<std::size_t>(at->length());
    }
    EXPECT_EQ(used, text.size()) << text;  // nothing but such lines
    return lines;
}

using Lines = std::vector<std::string>;

}  // namespace

TEST(Console, prints_a_line_with_the_date_for_each_report)
{
    Console console;
    const Lines lines = Printed([&] {
        console.Print_Out(Error_Handler::ES_Error, "Not found.\r\n");
        console.Print_Out(Error_Handler::ES_Warning, "one\r\ntwo\nthree\n\n");
    });
    EXPECT_EQ(lines, (Lines{"Error: Not found.", "Warning: one, two, three"}));
    EXPECT_EQ(console.Faults(), 1u);
}

TEST(End_Handler, names_its_end_and_the_cause)
{
    const std::pair<const char *, const char *> cases[] = {
        {"Could not write to file day.rtcm3", "Could not write to file day.rtcm3"},
        {"EOF", "day.rtcm3: EOF"},
        {"Initialization Error\nCode: NT ErrorCode: 112 = 0x00000070", "day.rtcm3: the disk is full"},
        {"Initialization Error\nCode: NT ErrorCode: 39 = 0x00000027", "day.rtcm3: the disk is full"},
        {"Initialization Error\nCode: NT ErrorCode: 77 = 0x0000004D", "day.rtcm3: NT ErrorCode: 77 = 0x0000004D"},
        {"Initialization Error\nCode: access denied", "day.rtcm3: access denied"},
    };
    Console console;
    for (const auto &[text, printed] : cases) {
        End_Handler handler(console, "day.rtcm3", true);
        const Lines lines =
            Printed([&handler, said = text] { handler.Print_Out(Error_Handler::ES_Error, "%s", said); });
        EXPECT_EQ(lines, Lines{"Error: " + std::string(printed)});
    }
}

TEST(End_Handler, tells_once_what_lasts_and_counts_what_is_a_fault)
{
    Console console;
    Lines lines = Printed([&] {
        End_Handler comes_and_goes(console, "end", false);
        for (const int seconds : {1, 11, 21})
            comes_and_goes.Print_Out(Error_Handler::ES_Message, "Waiting for host x:1 since %d sec.", seconds);
        comes_and_goes.Print_Out(Error_Handler::ES_Message, "Waiting for host x:2 since 1 sec.");
        comes_and_goes.Print_Out(Error_Handler::ES_Error, "lost");
    });
    EXPECT_EQ(lines, (Lines{"Message: end: Waiting for host x:1 since 1 sec.",
                            "Message: end: Waiting for host x:1 since 21 sec. (2 more times)",
                            "Message: end: Waiting for host x:2 since 1 sec.", "Error: end: lost"}));
    EXPECT_EQ(console.Faults(), 0u);
    lines = Printed([&] {
        End_Handler comes_and_goes(console, "end", false), stays(console, "file", true);
        for (int i = 0; i < 3; ++i) comes_and_goes.Print_Out(Error_Handler::ES_Fatal, "no thread");
        stays.Print_Out(Error_Handler::ES_Error, "lost");
    });
    EXPECT_EQ(lines, (Lines{"Fatal Error: end: no thread", "Error: file: lost",
                            "Fatal Error: end: no thread (2 more times)"}));
    EXPECT_EQ(console.Faults(), 4u);
}
