#include "platform/clock.h"

#include "platform/debug.h"
#include "platform/message_box.h"

#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <string>

using namespace platform;

TEST(clock, is_wall_time_that_tests_can_push)
{
    const std::uint64_t slept = Elapsed([] { sleep_ms(60); });  // costs no processor time
    EXPECT_GE(slept, 59u);
    EXPECT_LT(slept, 10000u);
    const std::uint64_t pushed = Elapsed([] { advance_clock(3600000); });
    EXPECT_GE(pushed, 3600000u);
    EXPECT_LT(pushed, 3700000u);
}

TEST(message_box, goes_where_the_host_says)
{
    static std::string seen;
    const Message_Box mine = [](const char *text, const char *title) { seen = std::string(title) + "/" + text; };
    EXPECT_EQ(set_message_box(mine), nullptr);
    message_box("a\nb", "Error");
    EXPECT_EQ(seen, "Error/a\nb");
    EXPECT_EQ(set_message_box(nullptr), mine);
#ifndef _WIN32
    testing::internal::CaptureStderr();
    message_box("a\nb", "Error");  // one line where there is no desktop
    debug_output("c");
    debug_break();  // nothing without a debugger
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: a b\nc");
#endif
}
