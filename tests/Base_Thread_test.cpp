#include "kernel/Base_Thread.h"

#include "platform/clock.h"
#include "platform/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <thread>

#ifdef _WIN32
#include <windows.h>
#endif

using namespace kernel;

namespace {

// A thread whose body is the test's.
class Test_Thread : public Base_Thread {
public:
    explicit Test_Thread(std::function<unsigned long(Test_Thread &)> body, bool quiet = false)
        : Base_Thread(0, quiet), body_(std::move(body))
    {
    }
    ~Test_Thread() override { stop(); }
    unsigned long thread() override { return body_(*this); }

    using Base_Thread::Begin;
    using Base_Thread::start;
    using Base_Thread::Stop_Requested;
    using Base_Thread::terminate;
    std::uint32_t Exit_Code() const { return GetHandleThread()->exit_code(); }
    bool Ends_Within(unsigned long ms) const { return GetHandleThread()->wait(ms); }

private:
    std::function<unsigned long(Test_Thread &)> body_;
};

unsigned long Until_Stopped(Test_Thread &self)
{
    while (!self.Stop_Requested()) self.Sleep(1000);
    return 1;
}

std::uint64_t Elapsed(std::function<void()> action)
{
    const std::uint64_t begin = platform::clock_ms();
    action();
    return platform::clock_ms() - begin;
}

// True once `done` is; false after ten seconds.
bool Comes(std::function<bool()> done)
{
    for (int i = 0; i < 2000 && !done(); ++i) platform::sleep_ms(5);
    return done();
}

// What a leak would show in: threads and handles of this process.
#ifdef _WIN32
long Tasks() { return 0; }  // a handle each

long Handles()
{
    DWORD count = 0;
    return GetProcessHandleCount(GetCurrentProcess(), &count) ? static_cast<long>(count) : -1;
}
#else
long Entries(const char *folder)
{
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}
long Tasks() { return Entries("/proc/self/task"); }
long Handles() { return Entries("/proc/self/fd"); }
#endif

}  // namespace

TEST(Base_Thread, starts_runs_and_stops_again_and_again)
{
    Test_Thread thread(Until_Stopped);
    EXPECT_FALSE(thread.is_running());
    thread.stop();  // never started
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(thread.start(false));
        EXPECT_TRUE(thread.is_running());
        EXPECT_FALSE(thread.start(false));
        EXPECT_TRUE(thread.is_running());
        EXPECT_LT(Elapsed([&] { thread.stop(); }), 900u);  // the sleep of a second is not waited out
        EXPECT_FALSE(thread.is_running());
        EXPECT_EQ(thread.GetHandleThread(), nullptr);
    }
    EXPECT_TRUE(thread.start_virtual());
}

TEST(Base_Thread, exit_codes)
{
    for (const bool quiet : {false, true}) {
        for (const auto &[result, code] :
             {std::pair<unsigned long, std::uint32_t>{7, 7}, {259, 0}, {~0UL, 0xFFFFFFFF}}) {
            Test_Thread thread([r = result](Test_Thread &) { return r; }, quiet);
            ASSERT_TRUE(thread.start(false));
            ASSERT_TRUE(thread.Ends_Within(10000));
            EXPECT_EQ(thread.Exit_Code(), code);
            EXPECT_FALSE(thread.is_running());
        }
    }
}

TEST(Base_Thread, asks_a_body_to_end)
{
    std::atomic<bool> ended{false};
    Test_Thread thread([&](Test_Thread &self) {
        while (!self.Stop_Requested()) self.Sleep(10000);
        ended = true;
        return 0UL;
    });
    thread.pre_stop();
    EXPECT_FALSE(thread.Stop_Requested());  // not running: no stop is left behind
    ASSERT_TRUE(thread.start(false));
    thread.pre_stop();
    EXPECT_TRUE(thread.Ends_Within(5000));
    EXPECT_TRUE(ended);

    ASSERT_TRUE(thread.start(false));
    EXPECT_EQ(thread.terminate(), 1u);
    EXPECT_FALSE(thread.Stop_Requested());
}

TEST(Base_Thread, a_stop_before_the_body_begins_is_not_forgotten)
{
    std::atomic<bool> ran{false};
    Test_Thread thread([&](Test_Thread &) {
        ran = true;
        return 3UL;
    });
    ASSERT_TRUE(thread.start(true));
    thread.pre_stop();
    thread.ResumeAll();
    EXPECT_TRUE(thread.Ends_Within(5000));
    EXPECT_FALSE(ran);
    EXPECT_EQ(thread.Exit_Code(), 0u);
}

TEST(Base_Thread, runs_an_entry_of_a_subclass)
{
    Test_Thread thread(Until_Stopped);
    const auto entry = [](void *self) { return static_cast<Test_Thread *>(self)->Begin() ? 21UL : 22UL; };
    EXPECT_LT(Elapsed([&] { EXPECT_TRUE(thread.start(entry, &thread, false)); }), 1500u);
    EXPECT_TRUE(thread.Ends_Within(5000));
    EXPECT_EQ(thread.Exit_Code(), 21u);
}

// Whoever starts and stops meanwhile: no body is left running, and none is waited out.
TEST(Base_Thread, starts_and_stops_from_several_threads)
{
    std::atomic<int> begun{0}, ended{0};
    const std::uint64_t begin = platform::clock_ms();
    {
        Test_Thread thread([&](Test_Thread &self) {
            ++begun;
            while (!self.Stop_Requested()) self.Sleep(5);
            ++ended;
            return 0UL;
        });
        std::thread others[] = {std::thread([&] {
                                    for (int i = 0; i < 60; ++i) thread.start(false);
                                }),
                                std::thread([&] {
                                    for (int i = 0; i < 60; ++i) thread.stop();
                                })};
        for (int i = 0; i < 60; ++i) thread.stop();
        for (std::thread &other : others) other.join();
    }
    EXPECT_EQ(begun, ended);
    EXPECT_LT(platform::clock_ms() - begin, 30000u);
}

TEST(Base_Thread, may_ask_for_its_own_end)
{
    Test_Thread thread([](Test_Thread &self) {
        self.stop();  // asks, and comes back
        return self.Stop_Requested() ? 5UL : 6UL;
    });
    ASSERT_TRUE(thread.start(false));
    ASSERT_TRUE(thread.Ends_Within(5000));
    EXPECT_EQ(thread.Exit_Code(), 5u);
}

TEST(Base_Thread, is_suspended_from_outside_with_a_count)
{
    std::atomic<unsigned long> count{0};
    Test_Thread thread([&](Test_Thread &self) {
        while (!self.Stop_Requested()) ++count;
        return 0UL;
    });
    EXPECT_FALSE(thread.Suspend());
    EXPECT_TRUE(thread.Resume());  // with nothing to resume
    EXPECT_FALSE(thread.ResumeAll());
    ASSERT_TRUE(thread.start(false));
    for (int round = 0; round < 50; ++round) {
        ASSERT_TRUE(thread.Suspend());
        const unsigned long seen = count;
        if (round % 10 == 0) platform::sleep_ms(20);
        EXPECT_EQ(count, seen);
        EXPECT_EQ(thread.GetSuspendCount(), 1u);
        thread.Resume();
        EXPECT_TRUE(round % 10 != 0 || Comes([&] { return count > seen; }));
    }
    thread.Suspend();
    thread.Suspend();
    EXPECT_EQ(thread.GetSuspendCount(), 2u);
    thread.Resume();
    const unsigned long seen = count;
    platform::sleep_ms(20);
    EXPECT_EQ(count, seen);
    thread.Suspend();
    EXPECT_TRUE(thread.ResumeAll());
    EXPECT_EQ(thread.GetSuspendCount(), 0u);
    EXPECT_TRUE(Comes([&] { return count > seen; }));
}

TEST(Base_Thread, may_suspend_itself)
{
    std::atomic<int> stage{0};
    Test_Thread thread([&](Test_Thread &self) {
        EXPECT_EQ(self.GetSuspendCount(), 0u);
        stage = 1;
        EXPECT_TRUE(self.Suspend());
        stage = 2;
        return 0UL;
    });
    ASSERT_TRUE(thread.start(false));
    EXPECT_TRUE(Comes([&] { return stage == 1 && thread.GetSuspendCount() == 1; }));  // the bookkeeping is free
    platform::sleep_ms(20);
    EXPECT_EQ(stage, 1);
    thread.Resume();
    EXPECT_TRUE(thread.Ends_Within(5000));
    EXPECT_EQ(stage, 2);
}

TEST(Base_Thread, started_suspended_waits_its_two_seconds_out)
{
    std::atomic<bool> ran{false};
    Test_Thread thread([&](Test_Thread &) {
        ran = true;
        return 0UL;
    });
    EXPECT_GE(Elapsed([&] { EXPECT_TRUE(thread.start(true)); }), 1990u);
    EXPECT_FALSE(ran);
    EXPECT_TRUE(thread.is_running());
    EXPECT_TRUE(thread.ResumeAll());
    EXPECT_TRUE(thread.Ends_Within(5000));
    EXPECT_TRUE(ran);
}

TEST(Base_Thread, keeps_a_priority)
{
    Test_Thread thread(Until_Stopped);
    EXPECT_TRUE(thread.SetPriorty(0));    // as it is
    EXPECT_FALSE(thread.SetPriorty(-1));  // kept for the start
    EXPECT_EQ(thread.GetPriorty(), -1);
    ASSERT_TRUE(thread.start(false));
    EXPECT_EQ(thread.GetPriorty(), -1);
    EXPECT_TRUE(thread.SetPriorty(-2));
    EXPECT_EQ(thread.GetPriorty(), -2);
    EXPECT_FALSE(thread.SetPriorty(77));
    EXPECT_EQ(thread.GetPriorty(), -2);
}

TEST(Base_Thread, a_thousand_in_turn_leak_nothing)
{
    std::atomic<int> runs{0};
    const auto run_one = [&] {
        Test_Thread thread([&](Test_Thread &self) {
            ++runs;
            return Until_Stopped(self);
        });
        ASSERT_TRUE(thread.start(false)) << runs;
        thread.stop();
    };
    run_one();  // a sanitizer's runtime brings a thread of its own with the first
    const auto tasks_before = Tasks(), handles_before = Handles();
    for (int i = 0; i < 1000; ++i) run_one();
    EXPECT_EQ(runs, 1001);
    EXPECT_TRUE(Comes([&] { return Tasks() <= tasks_before; }));
    EXPECT_EQ(Handles(), handles_before);
}

TEST(Base_Thread, gives_up_on_a_body_that_never_ends)
{
    static std::atomic<bool> release;  // outlives the thread, in case the body should run on
    release = false;
    Test_Thread thread([](Test_Thread &) {
        while (!release) platform::sleep_ms(1);
        return 9UL;
    });
    ASSERT_TRUE(thread.start(false));
    const std::uint64_t waited = Elapsed([&] { thread.stop(); });
    EXPECT_GE(waited, 14000u);  // 5 s of terminate, 10 s of stop
    EXPECT_LT(waited, 25000u);
    EXPECT_FALSE(thread.is_running());
    release = true;
    EXPECT_TRUE(thread.start(false));  // as if nothing had happened
    EXPECT_TRUE(thread.Ends_Within(5000));
    EXPECT_EQ(thread.Exit_Code(), 9u);
}

TEST(Function_Thread, runs_functions_and_kills_at_once)
{
    static std::atomic<bool> release;
    static std::atomic<bool> looping;
    release = looping = false;
    int context = 42;
    {
        Function_Thread empty;
        EXPECT_EQ(empty.thread(), ~0UL);
        empty.Init(
            nullptr, [](void *) { return 5; }, nullptr);
        EXPECT_EQ(empty.thread(), ~0UL);  // a function, but nothing to run it on
        Function_Thread thread;
        thread.Init(
            &context, [](void *c) { return *static_cast<int *>(c); }, nullptr);
        EXPECT_EQ(thread.thread(), 42u);
    }
    auto *thread = new Function_Thread;
    thread->Init(
        &context,
        [](void *) {
            looping = true;
            while (!release) platform::sleep_ms(1);
            looping = false;
            return 0;
        },
        [](void *) { return -5; });
    ASSERT_TRUE(thread->start(false));
    EXPECT_TRUE(Comes([] { return looping.load(); }));
    EXPECT_LT(Elapsed([&] { thread->stop(); }), 2000u);
    EXPECT_FALSE(thread->is_running());
    delete thread;  // the body touches nothing of it any more
    release = true;
    platform::sleep_ms(50);
    EXPECT_TRUE(looping);  // it never ran on
}

TEST(Member_Thread, runs_members)
{
    struct Worker {
        unsigned long Body() { return 11; }
        unsigned long Terminate() { return ++terminated; }
        void Pre_Stop() { ++pre_stopped; }
        unsigned long terminated = 0;
        int pre_stopped = 0;
    } worker;
    Member_Thread<Worker> thread;
    EXPECT_EQ(thread.thread(), ~0UL);
    thread.Init(&worker, &Worker::Body, &Worker::Terminate, &Worker::Pre_Stop);
    EXPECT_EQ(thread.thread(), 11u);
    ASSERT_TRUE(thread.start(false));
    thread.pre_stop();
    EXPECT_EQ(worker.pre_stopped, 1);
    EXPECT_TRUE(thread.GetHandleThread()->wait(5000));
    thread.stop();
    EXPECT_EQ(worker.terminated, 0u);  // it had ended by itself

    struct Waiter {
        unsigned long Body()
        {
            while (!ends) platform::sleep_ms(1);
            return 0;
        }
        unsigned long Terminate()
        {
            ends = true;
            return 0;
        }
        std::atomic<bool> ends{false};
    } waiter;
    Member_Thread<Waiter> waiting;
    waiting.Init(&waiter, &Waiter::Body, &Waiter::Terminate);
    ASSERT_TRUE(waiting.start(false));
    waiting.stop();
    EXPECT_TRUE(waiter.ends);
}
