#include "platform/thread.h"

#include "platform/error.h"
#include "platform/wait.h"

#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <atomic>

#ifndef _WIN32
#include <csignal>
#endif

using namespace platform;

namespace {

// A thread that counts, or waits.
struct Counter {
    std::atomic<unsigned long> count{0};
    std::atomic<bool> end{false};
    Event wakes;

    static unsigned long Count(void *self)
    {
        auto &counter = *static_cast<Counter *>(self);
        while (!counter.end) ++counter.count;
        return 0x89ABCDEF;
    }
    static unsigned long Wait(void *self) { return static_cast<Counter *>(self)->wakes.wait(60000) ? 3 : 4; }

    std::shared_ptr<Thread> Start(Thread::Entry entry, bool suspended = false)
    {
        return Thread::start(entry, this, suspended, 8192);
    }
    bool Moves() const
    {
        return Soon([&, before = count.load()] { return count != before; });
    }
    bool Stands() const
    {
        const unsigned long before = count;
        sleep_ms(20);
        return count == before;
    }
};

}  // namespace

TEST(thread, stops_where_it_is_and_counts)
{
    Counter counter;
    const auto thread = counter.Start(Counter::Count, true);
    unsigned long previous = 99;
    const auto suspend = [&] { return thread->suspend(previous) ? static_cast<int>(previous) : -1; };
    const auto resume = [&] { return thread->resume(previous) ? static_cast<int>(previous) : -1; };
    EXPECT_EQ(thread->exit_code(), Thread::still_active);
    EXPECT_TRUE(counter.Stands());
    EXPECT_EQ(suspend(), 1);
    EXPECT_EQ(resume(), 2);
    EXPECT_TRUE(counter.Stands());
    EXPECT_EQ(resume(), 1);
    EXPECT_TRUE(counter.Moves());
    EXPECT_EQ(resume(), 0);          // not suspended: the count stays 0
    for (int i = 0; i < 200; ++i) {  // a resumed thread may be stopped again before it has woken
        ASSERT_EQ(suspend(), 0);
        ASSERT_EQ(resume(), 1);
    }
    EXPECT_EQ(suspend(), 0);
    EXPECT_TRUE(counter.Stands());
    EXPECT_EQ(resume(), 1);
    EXPECT_TRUE(counter.Moves());
    counter.end = true;
    EXPECT_TRUE(thread->wait(10000));
    EXPECT_EQ(thread->exit_code(), 0x89ABCDEFu);
    EXPECT_LE(resume(), 0);  // nothing to resume
    EXPECT_FALSE(thread->is_current());
}

TEST(thread, a_sleeper_sleeps_on_when_it_is_resumed)
{
    Counter counter;
    const auto thread = counter.Start(Counter::Wait);
    unsigned long previous = 0;
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(thread->suspend(previous));
        ASSERT_TRUE(thread->resume(previous));
    }
    EXPECT_EQ(thread->priority(), 0);
    EXPECT_TRUE(thread->set_priority(-2));
    EXPECT_FALSE(thread->set_priority(33));
    EXPECT_EQ(thread->priority(), -2);
    EXPECT_FALSE(thread->wait(20));
    ASSERT_TRUE(thread->suspend(previous));
    counter.wakes.set();
    EXPECT_FALSE(thread->wait(20));
    ASSERT_TRUE(thread->resume(previous));
    EXPECT_TRUE(thread->wait(10000));
    EXPECT_EQ(thread->exit_code(), 3u);
}

TEST(thread, a_killed_one_never_runs_on)
{
    auto *counter = new Counter;
    const auto thread = counter->Start(Counter::Count);
    EXPECT_TRUE(counter->Moves());
    EXPECT_TRUE(thread->kill(17));
    EXPECT_EQ(thread->exit_code(), 17u);
    EXPECT_TRUE(thread->wait(0));
    EXPECT_TRUE(thread->kill(18));  // ended already
    EXPECT_EQ(thread->exit_code(), 17u);
    unsigned long previous = 0;
    EXPECT_FALSE(thread->suspend(previous));
    thread->resume(previous);
    EXPECT_TRUE(counter->Stands());
    delete counter;  // a sanitizer would see the thread if it came back
    sleep_ms(20);
}

TEST(thread, a_suspended_one_is_killed_at_once)
{
    auto *counter = new Counter;
    for (const bool from_the_start : {true, false}) {
        const auto thread = counter->Start(Counter::Count, from_the_start);
        unsigned long previous = 0;
        EXPECT_TRUE(thread->suspend(previous));
        sleep_ms(20);  // it sleeps
        EXPECT_LT(Elapsed([&] { EXPECT_TRUE(thread->kill(17)); }), 500u);
        EXPECT_EQ(thread->exit_code(), 17u);
    }
    EXPECT_TRUE(counter->Stands());
    delete counter;
}

#ifndef _WIN32
TEST(thread, one_that_blocks_signals_is_not_said_to_obey)
{
    struct Deaf : Counter {
        std::atomic<bool> deaf{false}, listen{false};

        static unsigned long Run(void *self)
        {
            auto &counter = *static_cast<Deaf *>(self);
            sigset_t all, before;
            sigfillset(&all);
            pthread_sigmask(SIG_BLOCK, &all, &before);
            counter.deaf = true;
            while (!counter.listen) ++counter.count;
            pthread_sigmask(SIG_SETMASK, &before, nullptr);
            return Count(self);
        }
    };
    auto *counter = new Deaf;
    const auto thread = counter->Start(Deaf::Run);
    EXPECT_TRUE(Soon([&] { return counter->deaf.load(); }));
    unsigned long previous = 99;
    EXPECT_FALSE(thread->suspend(previous));
    EXPECT_EQ(last_error(), std::uint32_t{error_busy});
    EXPECT_TRUE(counter->Moves());
    EXPECT_TRUE(thread->resume(previous));
    EXPECT_EQ(previous, 0u);  // a refused suspension does not count
    EXPECT_FALSE(thread->kill(17));
    EXPECT_EQ(last_error(), std::uint32_t{error_busy});
    EXPECT_EQ(thread->exit_code(), Thread::still_active);
    EXPECT_FALSE(thread->wait(20));
    EXPECT_TRUE(counter->Moves());
    counter->listen = true;  // the kill takes effect when the signal is unblocked
    EXPECT_TRUE(thread->wait(10000));
    EXPECT_EQ(thread->exit_code(), 17u);
    EXPECT_TRUE(counter->Stands());
    delete counter;
}
#endif
