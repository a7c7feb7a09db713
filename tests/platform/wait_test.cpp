#include "platform/wait.h"

#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace platform;

TEST(wait, an_event_ends_one_wait)
{
    Event event;
    EXPECT_FALSE(event.wait(0));
    event.set();
    event.set();
    EXPECT_TRUE(event.wait(0));
    EXPECT_FALSE(event.wait(0));
    event.set();
    event.reset();
    EXPECT_GE(Elapsed([&] { EXPECT_FALSE(event.wait(30)); }), 29u);
}

TEST(wait, the_lowest_index_wins_and_keeps_the_others_signalled)
{
    Event a, b, c;
    Waitable *const all[] = {&a, &b, &c};
    c.set();
    b.set();
    EXPECT_EQ(wait_any(all, wait_forever), 1);
    EXPECT_EQ(wait_any(all, 0), 2);
    EXPECT_EQ(wait_any(all, 0), wait_timeout);
    EXPECT_EQ(wait_any({}, 0), wait_failed);
    EXPECT_EQ(wait_any(std::vector<Waitable *>(65, &a), 0), wait_failed);
}

TEST(wait, each_signal_wakes_one_of_many_sleepers)
{
    Event event, taken;
    std::atomic<int> total{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i) {
        waiters.emplace_back([&] {
            while (event.wait(500)) {
                ++total;
                taken.set();
            }
        });
    }
    for (int i = 0; i < 500; ++i) {
        event.set();
        EXPECT_TRUE(taken.wait(10000)) << i;
    }
    for (std::thread &waiter : waiters) waiter.join();
    EXPECT_EQ(total, 500);
}
