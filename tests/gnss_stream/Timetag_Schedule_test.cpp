#include "host/gnss_stream/Timetag_Schedule.h"
#include "kernel/files/timetag_row_internal.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

using namespace host;

namespace {

// The steps as "END@TIME END@TIME", then what was reported: "line 3 is cut", "4 lines in all", ...
std::string Steps_Of(const std::string &text, std::uint64_t size)
{
    std::istringstream rows(text);
    Capturing_Handler handler;
    Timetag_Schedule schedule(rows, size, handler);
    std::string seen;
    while (const auto step = schedule.Next()) {
        char shown[80];
        std::snprintf(shown, sizeof shown, "%s%.0f@%.2f", seen.empty() ? "" : " ", static_cast<double>(step->end),
                      step->time);
        seen += shown;
    }
    EXPECT_FALSE(schedule.Next());
    for (const Reported &report : handler.Take()) {
        EXPECT_EQ(report.level, kernel::Error_Handler::ES_Warning);
        std::string said = report.text.substr(0, report.text.find(": its bytes"));
        if (said.starts_with("Time tags")) said.erase(0, 11);
        seen += " | " + said;
    }
    return seen;
}

}  // namespace

TEST(Timetag_Schedule, makes_steps_of_good_rows_and_says_which_are_not)
{
    const std::string header = kernel::Timetag_Header("rec.bin");  // eight lines
    const std::string none =
        " | The time tags have no row that could be used: the recording is replayed without pauses.";
    const struct {
        const char *what;
        std::string text;
        const char *expected;
    } cases[] = {
        {"as written", header + "500.25;100;100\n501.25;150;50\n501.25;150;0\n", "100@0.00 150@1.00"},
        {"CR LF, comments, empty lines", "#Data\r\n\r\n5;10;10\r\n# noon\r\n6;20;10\r\n", "10@0.00 20@1.00"},
        {"without a header", "5;10;10\n6;20;10\n", "10@0.00 20@1.00"},
        {"the clock starts with an empty row", header + "5;0;0\n7.5;10;10\n", "10@2.50"},
        {"a clock that was set back is no pause, and none that was set forward again",
         header + "5;10;10\n6;20;10\n-3600;30;10\n-3598;40;10\n", "10@0.00 20@1.00 30@1.00 40@3.00"},
        {"bytes without rows come at once behind those before", header + "5;20;10\n6;30;10\n8;50;10\n",
         "10@0.00 20@0.00 30@1.00 40@1.00 50@3.00"},
        {"rows that are none",
         header + "5;10;10\n6;20\n6;20;10;1\n;;\nnan;20;10\n6;20;-1\n6;20;30\n1e11;20;10\n7;30;10\n",
         "10@0.00 20@0.00 30@2.00 | line 10 is no row | 7 lines in all could not be used."},
        {"a long line, and a zero byte",
         header + std::string(1000, '5') + '\n' + std::string("5;5;5\0x\n", 8) + "6;9;9\n",
         "9@0.00 | line 9 is no row | 2 lines in all could not be used."},
        {"a last row without its end", header + "5;10;10\n6;200;19", "10@0.00 | line 10 is cut"},
        {"beyond the end", header + "5;10;10\n6;901;891\n7;20;10\n",
         "10@0.00 20@2.00 | line 10 is beyond the end of the recording"},
        {"out of order", header + "5;10;10\n6;5;5\n7;15;10\n8;20;10\n",
         "10@0.00 20@3.00 | line 10 is out of order | 2 lines in all could not be used."},
        {"one offset is damaged", header + "5;10;10\n6;820;10\n7;30;10\n8;40;10\n",
         "10@0.00 20@0.00 30@2.00 40@3.00 | line 10 is out of order"},
        {"no rows at all", header, none.c_str()},
        {"nothing", "", none.c_str()},
    };
    for (const auto &c : cases) EXPECT_EQ(Steps_Of(c.text, 900), c.expected) << c.what;
}
