#include "host/gnss_stream/Console.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

using namespace host;
using kernel::Error_Handler;

namespace {

// Whether the text matches "dddd-dd-ddTdd:dd:dd.dddZ ", where d is a digit.
bool Is_Stamp(const std::string &text)
{
    const std::string form = "0000-00-00T00:00:00.000Z ";
    return std::equal(text.begin(), text.end(), form.begin(), form.end(),
                      [](char c, char f) { return f == '0' ? c >= '0' && c <= '9' : c == f; });
}

// What stands on standard error, in lines and without time stamps.
std::vector<std::string> Printed(const std::function<void()> &action)
{
    constexpr std::size_t stamp_size = 25;  // characters
    testing::internal::CaptureStderr();
    action();
    const std::string text = testing::internal::GetCapturedStderr();
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\n', at);
        EXPECT_TRUE(end != std::string::npos && Is_Stamp(text.substr(at, stamp_size))) << text;
        if (end == std::string::npos || end < at + stamp_size) break;
        lines.push_back(text.substr(at + stamp_size, end - at - stamp_size));
        at = end + 1;
    }
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
        End_Handler handler(console, "day.rtcm3", End_Handler::Faults::from_error);
        const Lines lines =
            Printed([&handler, said = text] { handler.Print_Out(Error_Handler::ES_Error, "%s", said); });
        EXPECT_EQ(lines, Lines{"Error: " + std::string(printed)});
    }
}

TEST(End_Handler, tells_once_what_lasts_and_counts_what_is_a_fault)
{
    Console console;
    Lines lines = Printed([&] {
        End_Handler comes_and_goes(console, "end", End_Handler::Faults::from_fatal);
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
        End_Handler comes_and_goes(console, "end", End_Handler::Faults::from_fatal),
            stays(console, "file", End_Handler::Faults::from_error);
        for (int i = 0; i < 3; ++i) comes_and_goes.Print_Out(Error_Handler::ES_Fatal, "no thread");
        stays.Print_Out(Error_Handler::ES_Error, "lost");
    });
    EXPECT_EQ(lines, (Lines{"Fatal Error: end: no thread", "Error: file: lost",
                            "Fatal Error: end: no thread (2 more times)"}));
    EXPECT_EQ(console.Faults(), 4u);
}
