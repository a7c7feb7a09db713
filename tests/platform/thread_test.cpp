#include "platform/thread.h"

#include "platform/clock.h"
#include "platform/wait.h"

#include <gtest/gtest.h>

#include <atomic>

using namespace platform;

namespace {

struct Counter {
    std::atomic<unsigned long> count{0};
    std::atomic<bool> end{false};
    Event sleep;

    static unsigned long Count(void *self)
    {
        auto &counter = *static_cast<Counter *>(self);
        while (!counter.end) ++counter.count;
        return counter.count;
    }
    static unsigned long Wait(void *self) { return static_cast<Counter *>(self)->sleep.wait(60000) ? 3 : 4; }

    bool Moves()
    {
        const unsigned long before = count;
        for (int i = 0; i < 400 && count == before; ++i) sleep_ms(5);
        return count != before;
    }
    bool Stands()
    {
        const unsigned long before = count;
        sleep_ms(20);
        return count == before;
    }
};

}  // namespace

TEST(thread, runs_to_its_exit_code)
{
    const auto thread = Thread::start([](void *) { return 0x89ABCDEFUL; }, nullptr, false, 8192);
    ASSERT_TRUE(thread);
    EXPECT_FALSE(thread->is_current());
    EXPECT_TRUE(thread->wait(10000));
    EXPECT_EQ(thread->exit_code(), 0x89ABCDEFu);
    unsigned long previous = 0;
    EXPECT_FALSE(thread->resume(previous) && previous > 0);  // nothing to resume
}

TEST(thread, stops_where_it_is_and_counts)
{
    Counter counter;
    const auto thread = Thread::start(Counter::Count, &counter, true, 8192);
    ASSERT_TRUE(thread);
    unsigned long previous = 99;
    EXPECT_EQ(thread->exit_code(), Thread::still_active);
    EXPECT_TRUE(counter.Stands());
    EXPECT_TRUE(thread->suspend(previous));
    EXPECT_EQ(previous, 1u);
    EXPECT_TRUE(thread->resume(previous));
    EXPECT_TRUE(counter.Stands());
    EXPECT_TRUE(thread->resume(previous));
    EXPECT_EQ(previous, 1u);
    EXPECT_TRUE(counter.Moves());
    EXPECT_TRUE(thread->resume(previous));  // runs already: the count stays 0
    EXPECT_EQ(previous, 0u);
    for (int i = 0; i < 200; ++i) {  // a resumed thread may be stopped again before it has woken
        ASSERT_TRUE(thread->suspend(previous));
        EXPECT_EQ(previous, 0u);
        ASSERT_TRUE(thread->resume(previous));
    }
    ASSERT_TRUE(thread->suspend(previous));
    EXPECT_TRUE(counter.Stands());
    ASSERT_TRUE(thread->resume(previous));
    EXPECT_TRUE(counter.Moves());
    counter.end = true;
    EXPECT_TRUE(thread->wait(10000));
}

TEST(thread, a_sleeper_sleeps_on_when_it_is_resumed)
{
    Counter counter;
    const auto thread = Thread::start(Counter::Wait, &counter, false, 8192);
    ASSERT_TRUE(thread);
    unsigned long previous = 0;
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(thread->suspend(previous));
        ASSERT_TRUE(thread->resume(previous));
    }
    EXPECT_FALSE(thread->wait(20));
    ASSERT_TRUE(thread->suspend(previous));
    counter.sleep.set();
    EXPECT_FALSE(thread->wait(20));
    ASSERT_TRUE(thread->resume(previous));
    EXPECT_TRUE(thread->wait(10000));
    EXPECT_EQ(thread->exit_code(), 3u);
}

TEST(thread, a_killed_one_never_runs_on)
{
    auto *counter = new Counter;
    const auto thread = Thread::start(Counter::Count, counter, false, 8192);
    ASSERT_TRUE(thread);
    EXPECT_TRUE(counter->Moves());
    thread->kill(17);
    EXPECT_EQ(thread->exit_code(), 17u);
    EXPECT_TRUE(thread->wait(0));
    EXPECT_TRUE(counter->Stands());
    unsigned long previous = 0;
    EXPECT_FALSE(thread->suspend(previous));
    thread->resume(previous);
    EXPECT_TRUE(counter->Stands());
    delete counter;  // a sanitizer would see the thread if it came back
    sleep_ms(20);
}

TEST(thread, lowers_its_priority)
{
    Counter counter;
    const auto thread = Thread::start(Counter::Wait, &counter, false, 8192);
    ASSERT_TRUE(thread);
    EXPECT_EQ(thread->priority(), 0);
    EXPECT_TRUE(thread->set_priority(-2));
    EXPECT_EQ(thread->priority(), -2);
    EXPECT_FALSE(thread->set_priority(33));
    EXPECT_EQ(thread->priority(), -2);
    counter.sleep.set();
    EXPECT_TRUE(thread->wait(10000));
}
