#include "platform/wait.h"

#include "platform/clock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace platform;

TEST(wait, an_event_ends_one_wait)
{
    Event event;
    ASSERT_TRUE(event.valid());
    EXPECT_FALSE(event.wait(0));
    event.set();
    event.set();
    EXPECT_TRUE(event.wait(0));
    EXPECT_FALSE(event.wait(0));
    event.set();
    event.reset();
    const std::uint64_t begin = clock_ms();
    EXPECT_FALSE(event.wait(30));
    EXPECT_GE(clock_ms() - begin, 29u);
}

TEST(wait, the_lowest_index_wins_and_keeps_the_others_signalled)
{
    Event a, b, c;
    Waitable *const all[] = {&a, &b, &c};
    EXPECT_EQ(wait_any(all, 10), wait_timeout);
    c.set();
    b.set();
    EXPECT_EQ(wait_any(all, wait_forever), 1);
    EXPECT_EQ(wait_any(all, 0), 2);
    EXPECT_EQ(wait_any(all, 0), wait_timeout);
    EXPECT_EQ(wait_any({}, 0), wait_failed);
    EXPECT_EQ(wait_any(std::vector<Waitable *>(65, &a), 0), wait_failed);
}

TEST(wait, wakes_a_sleeper_from_another_thread)
{
    Event event;
    std::thread setter([&] {
        sleep_ms(20);
        event.set();
    });
    EXPECT_TRUE(event.wait(10000));
    setter.join();
}

TEST(wait, each_signal_goes_to_one_of_many_waiters)
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
        ASSERT_TRUE(taken.wait(10000)) << i;
    }
    for (std::thread &waiter : waiters) waiter.join();
    EXPECT_EQ(total, 500);
}
