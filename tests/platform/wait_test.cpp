#include "platform/wait.h"

#include "platform/thread.h"
#include "tests/support/sockets.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <filesystem>
#include <sys/resource.h>
#include <unistd.h>
#endif

using namespace platform;
using namespace test;

namespace {

// A read that waits for data.
struct Silent_Line {
    Connection ends;
    Transfer read;
    char byte = 0;

    Silent_Line() { read.read(ends.near, &byte, 1); }
};

}  // namespace

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

TEST(wait, a_stream_and_an_event_have_the_same_order)
{
    Silent_Line line;
    Event event;
    Waitable *const line_first[] = {&line.read, &event}, *const event_first[] = {&event, &line.read};
    Written(line.ends.far, "a");
    event.set();
    EXPECT_EQ(wait_any(line_first, wait_forever), 0);
    EXPECT_EQ(wait_any(line_first, wait_forever), 1);
    line.read.read(line.ends.near, &line.byte, 1);
    Written(line.ends.far, "b");
    event.set();
    EXPECT_EQ(wait_any(event_first, wait_forever), 0);
    EXPECT_EQ(wait_any(event_first, wait_forever), 1);
    EXPECT_EQ(wait_any(event_first, 0), wait_timeout);
}

// Setters signal events of their own; waiters, some of them with a stream, take what they find.
TEST(wait, no_signal_of_many_setters_is_lost_or_taken_twice)
{
    constexpr int rounds = 4000, setters = 3;
    for (const std::vector<bool> &polling : {std::vector{false}, {true}, {false, true, false, true}}) {
        Event signals[setters], taken[setters], end;
        std::atomic<int> total{0};
        std::vector<std::thread> waiters, signallers;
        for (const bool polls : polling)
            waiters.emplace_back([&, polls] {
                Silent_Line line;
                Waitable *const all[] = {&signals[0], &signals[1], &signals[2], &end, &line.read};
                for (int first; (first = wait_any({all, polls ? 5U : 4U}, wait_forever)) < setters; ++total)
                    taken[first].set();
                end.set();  // for the next one
            });
        for (int i = 0; i < setters; ++i)
            signallers.emplace_back([&, i] {
                for (int round = 0; round < rounds; ++round) {
                    signals[i].set();
                    if (!taken[i].wait(5000)) ADD_FAILURE() << "lost";
                    for (int turn = 0; turn < round % 100; ++turn) std::atomic_signal_fence(std::memory_order_seq_cst);
                }
            });
        for (std::thread &signaller : signallers) signaller.join();
        end.set();
        for (std::thread &waiter : waiters) waiter.join();
        EXPECT_EQ(total, rounds * setters);
    }
}

TEST(wait, the_woken_thread_may_destroy_the_event)
{
    for (int i = 0; i < 500; ++i) {
        auto event = std::make_unique<Event>();
        std::thread setter([&set = *event] { set.set(); });
        EXPECT_TRUE(event->wait(20000));
        event.reset();
        setter.join();
    }
}

#ifndef _WIN32
TEST(wait, costs_no_descriptor_but_one_for_a_thread_that_waits_for_a_stream)
{
    const auto descriptors = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    Silent_Line line;
    const auto before = descriptors();
    std::thread([&] {
        Event events[40];
        Transfer transfers[40];
        EXPECT_FALSE(events[0].wait(1));
        EXPECT_EQ(descriptors(), before);
        for (int i = 0; i < 3; ++i) EXPECT_FALSE(line.read.wait(1));
        EXPECT_EQ(descriptors(), before + 1);
    }).join();
    EXPECT_EQ(descriptors(), before);
}

TEST(wait, does_without_a_descriptor_of_its_own)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the check of virtual calls looks at memory through a pipe, and takes a failure for a fault";
#endif
    Silent_Line line;
    Event event;
    Waitable *const both[] = {&event, &line.read};
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const int next = dup(0);
    close(next);
    const rlimit none{static_cast<rlim_t>(next), limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    std::thread([&] {
        std::thread other([&] {
            sleep_ms(5);
            event.set();
        });
        EXPECT_EQ(wait_any(both, 20000), 0);
        EXPECT_GE(Elapsed([&] { EXPECT_EQ(wait_any(both, 30), wait_timeout); }), 29u);
        other.join();
    }).join();
    setrlimit(RLIMIT_NOFILE, &limit);
}
#endif

// A lock that a stopped thread held would make the calls of this one hang.
TEST(wait, a_thread_that_is_stopped_inside_an_operation_hinders_nobody)
{
    struct Busy {
        Silent_Line line;
        Event event, end;
        static unsigned long Work(void *self)
        {
            auto &busy = *static_cast<Busy *>(self);
            Waitable *const both[] = {&busy.event, &busy.line.read};
            while (!busy.end.wait(0)) {
                busy.event.set();
                wait_any(both, 0);
                busy.line.read.pending();
            }
            return 0;
        }
    } busy;
    const auto thread = Thread::start(Busy::Work, &busy, false, 8192);
    for (int i = 0; i < 1000; ++i) {
        unsigned long previous = 0;
        ASSERT_TRUE(thread->suspend(previous));
        busy.event.set();
        EXPECT_TRUE(busy.event.wait(20000));
        EXPECT_TRUE(busy.line.read.pending());
        ASSERT_TRUE(thread->resume(previous));
    }
    busy.end.set();
    EXPECT_TRUE(thread->wait(20000));
}
