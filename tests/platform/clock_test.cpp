#include "platform/clock.h"

#include "platform/debug.h"
#include "platform/message_box.h"

#include <gtest/gtest.h>

#include <string>

using namespace platform;

TEST(clock, is_wall_time_that_tests_can_push)
{
    const std::uint64_t begin = clock_ms();
    sleep_ms(60);  // costs no processor time
    const std::uint64_t slept = clock_ms() - begin;
    EXPECT_GE(slept, 59u);
    EXPECT_LT(slept, 10000u);
    advance_clock(3600000);
    EXPECT_GE(clock_ms() - begin, 3600059u);
    EXPECT_LT(clock_ms() - begin, 3700000u);
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
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: a b\n");
#endif
}

TEST(debug, goes_where_the_host_says)
{
    static std::string seen;
    set_debug_output([](const char *text) { seen += text; });
    debug_output("a");
    debug_output("\n");
    debug_break();  // nothing without a debugger
    EXPECT_EQ(seen, "a\n");
    set_debug_output(nullptr);
#ifndef _WIN32
    testing::internal::CaptureStderr();
    debug_output("b");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "b");
#endif
}
