#include "kernel/base/Base_Thread.h"

#include "platform/thread.h"

#include "tests/support/short_memory.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <thread>

#ifdef _WIN32
#include <windows.h>
#else
#include <sched.h>
#include <sys/resource.h>
#endif

using namespace kernel;

namespace {

// A thread whose body is the test's.
class Test_Thread : public Base_Thread {
public:
    using Body = std::function<unsigned long(Test_Thread &)>;

    explicit Test_Thread(Body body, bool quiet = false) : Base_Thread(0, quiet), body_(std::move(body)) {}
    ~Test_Thread() override { stop(); }
    unsigned long thread() override
    {
        in_body_ = true;
        return body_(*this);
    }
    // Started, and in its body: a stop right after start() would come before it.
    bool Begins()
    {
        in_body_ = false;
        return start(false) && Soon([this] { return in_body_.load(); });
    }

    using Base_Thread::Begin;
    using Base_Thread::start;
    using Base_Thread::Stop_Requested;
    using Base_Thread::terminate;
    // The exit code, or 259 when it does not come to its end.
    std::uint32_t Ends() const
    {
        GetHandleThread()->wait(10000);
        return GetHandleThread()->exit_code();
    }

private:
    Body body_;
    std::atomic<bool> in_body_{false};
};

unsigned long Until_Stopped(Test_Thread &self)
{
    while (!self.Stop_Requested()) self.Sleep(1000);
    return 1;
}

// What a leak would show in: threads and handles of this process.
#ifdef _WIN32
long Resources()
{
    DWORD count = 0;
    return GetProcessHandleCount(GetCurrentProcess(), &count) ? static_cast<long>(count) : -1;
}
#else
long Entries(const char *folder)
{
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}
long Resources() { return Entries("/proc/self/task") + Entries("/proc/self/fd"); }
#endif

}  // namespace

TEST(Base_Thread, starts_runs_and_stops_again_and_again)
{
    Test_Thread thread(Until_Stopped);
    thread.stop();  // never started
    thread.pre_stop();
    EXPECT_FALSE(thread.Stop_Requested() || thread.is_running());  // no stop is left behind
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(thread.start(false));
        EXPECT_FALSE(thread.start(false));
        EXPECT_TRUE(thread.is_running());
        EXPECT_LT(Elapsed([&] { thread.stop(); }), 900u);  // the sleep of a second is not waited out
        EXPECT_FALSE(thread.is_running());
        EXPECT_EQ(thread.GetHandleThread(), nullptr);
    }
    EXPECT_TRUE(thread.start_virtual());
    thread.pre_stop();
    EXPECT_LE(thread.Ends(), 1u);  // 0: the stop came before the body
    EXPECT_TRUE(thread.start(false));
    EXPECT_EQ(thread.terminate(), 1u);
    EXPECT_FALSE(thread.Stop_Requested());
}

TEST(Base_Thread, pre_stop_wakes_a_sleeper)
{
    std::atomic<bool> sleeps{false};
    Test_Thread thread([&](Test_Thread &self) {
        sleeps = true;
        self.Sleep(60000);  // once: the flag alone does not end it
        return 3UL;
    });
    ASSERT_TRUE(thread.start(false));
    EXPECT_TRUE(Soon([&] { return sleeps.load(); }));
    thread.pre_stop();
    EXPECT_EQ(thread.Ends(), 3u);
}

TEST(Base_Thread, exit_codes)
{
    using Code = std::pair<unsigned long, std::uint32_t>;
    for (const auto &[result, code] : {Code{7, 7}, {259, 0}, {~0UL, 0xFFFFFFFF}}) {
        const auto body = [r = result](Test_Thread &) { return r; };
        Test_Thread traced(body), quiet(body, true);
        ASSERT_TRUE(traced.start(false) && quiet.start(false));
        EXPECT_EQ(traced.Ends(), code);
        EXPECT_EQ(quiet.Ends(), code);
    }
    Test_Thread thread(Until_Stopped);  // an entry of a subclass
    const auto entry = [](void *self) { return static_cast<Test_Thread *>(self)->Begin() ? 21UL : 22UL; };
    EXPECT_LT(Elapsed([&] { thread.start(entry, &thread, false); }), 1500u);
    EXPECT_EQ(thread.Ends(), 21u);
}

TEST(Base_Thread, started_suspended_waits_its_two_seconds_out)
{
    std::atomic<int> ran{0};
    const auto body = [&](Test_Thread &) { return 0UL + ++ran; };
    Test_Thread resumed(body), stopped(body);
    std::thread other([&] { stopped.start(true); });
    EXPECT_GE(Elapsed([&] { EXPECT_TRUE(resumed.start(true)); }), 1990u);
    other.join();
    EXPECT_TRUE(resumed.is_running() && stopped.is_running());
    stopped.pre_stop();  // before the body begins: not forgotten
    stopped.ResumeAll();
    EXPECT_EQ(stopped.Ends(), 0u);
    EXPECT_EQ(ran, 0);
    EXPECT_TRUE(resumed.ResumeAll());
    EXPECT_EQ(resumed.Ends(), 1u);
}

#ifndef _WIN32
// The stop of a destructor, as a rule, and then the object is half gone. On one processor, and with a lower priority,
// the new thread is put aside where it ends the start's wait.
TEST(Base_Thread, a_stop_right_after_the_start_comes_before_the_body)
{
    cpu_set_t before, one;
    ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
    int processor = 0;
    while (!CPU_ISSET(processor, &before)) ++processor;
    CPU_ZERO(&one);
    CPU_SET(processor, &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    for (const bool quiet : {false, true}) {
        std::atomic<int> ran{0};
        for (int i = 0; i < 50; ++i) {
            Test_Thread thread([&](Test_Thread &) { return 0UL + ++ran; }, quiet);
            thread.SetPriorty(-15);
            ASSERT_TRUE(thread.start(false));
            thread.pre_stop();
            thread.Ends();
        }
        EXPECT_LT(ran, 50) << quiet;
    }
    sched_setaffinity(0, sizeof before, &before);
}
#endif

// The first stop is held up between the end of its run and its return; by then the next run has been asked to stop.
TEST(Base_Thread, a_late_stop_does_not_take_back_the_next_one)
{
    std::atomic<bool> look{false};
    std::atomic<int> heard{0};
    Test_Thread thread([&](Test_Thread &self) {
        while (!look) platform::sleep_ms(1);
        heard += self.Stop_Requested();
        return 0UL;
    });
    ASSERT_TRUE(thread.Begins());
    Test_Thread late([&](Test_Thread &) { return thread.stop(), 0UL; });
    ASSERT_TRUE(late.start(false));
    EXPECT_TRUE(Soon([&] { return thread.Stop_Requested(); }));
    platform::sleep_ms(20);  // it waits for the run's end
    ASSERT_TRUE(late.Suspend());
    look = true;
    EXPECT_EQ(thread.Ends(), 0u);
    look = false;
    ASSERT_TRUE(thread.Begins());
    std::thread stopper([&] { thread.stop(); });
    EXPECT_TRUE(Soon([&] { return thread.Stop_Requested(); }));
    late.ResumeAll();
    EXPECT_EQ(late.Ends(), 0u);
    look = true;
    stopper.join();
    EXPECT_EQ(heard, 2);
}

// One thread starts the next run as soon as the last is over, two stop: no stop is lost, none takes the next run's
// back.
TEST(Base_Thread, starts_and_stops_from_several_threads)
{
    std::atomic<int> begun{0}, ended{0};
    const auto race = [&] {
        Test_Thread thread([&](Test_Thread &self) {
            ++begun;
            while (!self.Stop_Requested()) self.Sleep(5);
            return 0UL + ++ended;
        });
        std::atomic<bool> done{false};
        const auto stop_often = [&] {
            while (!done) thread.stop();
        };
        std::thread one(stop_often), other(stop_often);
        for (int run = 0; run < 60; ++run) {
            while (thread.is_running()) std::this_thread::yield();
            EXPECT_TRUE(thread.start(false));
        }
        done = true;
        one.join();
        other.join();
    };
    EXPECT_LT(Elapsed(race), 3000u);
    EXPECT_EQ(begun, ended);
}

TEST(Base_Thread, may_stop_and_suspend_itself)
{
    std::atomic<int> stage{0};
    Test_Thread thread([&](Test_Thread &self) {
        EXPECT_EQ(self.GetSuspendCount(), 0u);
        stage = 1;
        EXPECT_TRUE(self.Suspend());
        stage = 2;
        self.stop();  // asks, and comes back
        return self.Stop_Requested() ? 5UL : 6UL;
    });
    ASSERT_TRUE(thread.start(false));
    EXPECT_TRUE(Soon([&] { return stage == 1 && thread.GetSuspendCount() == 1; }));  // the bookkeeping is free
    platform::sleep_ms(20);
    EXPECT_EQ(stage, 1);
    thread.Resume();
    EXPECT_EQ(thread.Ends(), 5u);
}

TEST(Base_Thread, is_suspended_from_outside_with_a_count)
{
    Test_Thread thread(Until_Stopped);
    EXPECT_FALSE(thread.Suspend() || thread.ResumeAll());
    EXPECT_TRUE(thread.Resume());  // with nothing to resume
    ASSERT_TRUE(thread.Begins());
    EXPECT_TRUE(thread.Suspend() && thread.Suspend());
    EXPECT_EQ(thread.GetSuspendCount(), 2u);
    EXPECT_TRUE(thread.Resume());
    EXPECT_EQ(thread.GetSuspendCount(), 1u);
    thread.pre_stop();
    EXPECT_FALSE(thread.GetHandleThread()->wait(20));  // it stands
    EXPECT_TRUE(thread.Suspend() && thread.ResumeAll());
    EXPECT_EQ(thread.Ends(), 1u);
    EXPECT_EQ(thread.GetSuspendCount(), 0u);
}

TEST(Base_Thread, keeps_a_priority)
{
    Test_Thread thread(Until_Stopped);
    EXPECT_TRUE(thread.SetPriorty(0));    // as it is
    EXPECT_FALSE(thread.SetPriorty(-1));  // kept for the start
    ASSERT_TRUE(thread.start(false));
    EXPECT_EQ(thread.GetPriorty(), -1);
    EXPECT_TRUE(thread.SetPriorty(-2));
    EXPECT_FALSE(thread.SetPriorty(77));
    EXPECT_EQ(thread.GetPriorty(), -2);
}

#ifndef _WIN32
TEST(Base_Thread, works_without_descriptors)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the check of virtual calls looks at memory through a pipe, and takes a failure for a fault";
#endif
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    std::atomic<int> looks{0};
    setrlimit(RLIMIT_NOFILE, &none);
    Test_Thread thread([&](Test_Thread &self) {
        for (; !self.Stop_Requested(); ++looks) self.Sleep(20);
        return 1UL;
    });
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_TRUE(thread.start(false));
    EXPECT_TRUE(Soon([&] { return looks > 2; }));
    thread.pre_stop();
    EXPECT_EQ(thread.Ends(), 1u);
    EXPECT_TRUE(thread.start(false));
    thread.stop();
    EXPECT_FALSE(thread.is_running());
}
#endif

TEST(Base_Thread, is_made_without_memory)
{
    Test_Thread::Body body = Until_Stopped;
    alignas(Test_Thread) std::byte place[sizeof(Test_Thread)];
    Test_Thread *thread = nullptr;
    {
        const Short_Memory memory(0);
        thread = ::new (static_cast<void *>(place)) Test_Thread(std::move(body));
    }
    EXPECT_TRUE(thread->Begins());  // its events are missing
    EXPECT_TRUE(thread->is_running());
    thread->pre_stop();
    EXPECT_EQ(thread->Ends(), 1u);
    thread->~Test_Thread();
}

TEST(Base_Thread, hundreds_in_turn_leak_nothing)
{
    const auto run_one = [] {
        Test_Thread thread(Until_Stopped);
        ASSERT_TRUE(thread.start(false));
        thread.stop();
    };
    run_one();  // a sanitizer's runtime brings a thread of its own with the first
    const long before = Resources();
    for (int i = 0; i < 300; ++i) run_one();
    EXPECT_TRUE(Soon([&] { return Resources() <= before; })) << Resources() - before;
}

TEST(Base_Thread, two_starts_at_once_make_one_thread)
{
    for (int round = 0; round < 10; ++round) {
        std::atomic<int> ready{0}, begun{0};
        std::atomic<int> made{0};
        Test_Thread thread([&](Test_Thread &self) { return ++begun, Until_Stopped(self); });
        const auto start = [&] {
            for (++ready; ready < 2;) continue;
            made += thread.start(false);
        };
        std::thread one(start), other(start);
        one.join();
        other.join();
        thread.stop();
        EXPECT_EQ(made, 1);
        EXPECT_LE(begun, 1);
    }
}

// A terminate that only asks leaves the waiting to stop().
TEST(Base_Thread, notices_an_end_at_once)
{
    struct Asking_Thread : Test_Thread {
        using Test_Thread::Test_Thread;
        unsigned long terminate() override { return pre_stop(), 0; }
    };
    std::uint64_t fastest = 1000;
    for (int i = 0; i < 5; ++i) {
        Asking_Thread thread([](Test_Thread &self) {
            while (!self.Stop_Requested()) platform::sleep_ms(1);
            return platform::sleep_ms(5), 0UL;
        });
        ASSERT_TRUE(thread.Begins());
        fastest = std::min(fastest, Elapsed([&] { thread.stop(); }));
    }
    EXPECT_LT(fastest, 40u);
}

// The 5 s of terminate are waited out, the 10 s of stop only counted.
TEST(Base_Thread, gives_up_on_a_body_that_never_ends)
{
    struct Impatient_Thread : Test_Thread {
        using Test_Thread::Test_Thread;
        void Sleep(unsigned long ms) override { slept += ms; }
        unsigned long slept = 0;
    };
    static std::atomic<bool> release;  // outlives the thread, in case the body should run on
    release = false;
    Impatient_Thread thread([](Test_Thread &) {
        while (!release) platform::sleep_ms(1);
        return 9UL;
    });
    ASSERT_TRUE(thread.Begins());
    const std::uint64_t waited = Elapsed([&] { thread.stop(); });
    EXPECT_GE(waited, 4900u);
    EXPECT_LT(waited, 15000u);
    EXPECT_EQ(thread.slept, 10000u);
    EXPECT_FALSE(thread.is_running());
    release = true;
    EXPECT_TRUE(thread.start(false));  // as if nothing had happened
    EXPECT_EQ(thread.Ends(), 9u);
}

TEST(Function_Thread, runs_functions_and_kills_at_once)
{
    static std::atomic<bool> release;
    release = false;
    int context = 42;
    const auto body = [](void *) {
        while (!release) platform::sleep_ms(1);
        return 0;
    };
    Function_Thread thread;
    thread.Init(nullptr, body, nullptr);
    EXPECT_EQ(thread.thread(), ~0UL);  // a function, but nothing to run it on
    thread.Init(
        &context, [](void *c) { return *static_cast<int *>(c); }, nullptr);
    EXPECT_EQ(thread.thread(), 42u);
    thread.Init(&context, body, [](void *) { return -5; });
    ASSERT_TRUE(thread.start(false));
    EXPECT_LT(Elapsed([&] { thread.stop(); }), 2000u);
    EXPECT_FALSE(thread.is_running());
    release = true;
}

TEST(Member_Thread, runs_members)
{
    struct Worker {
        unsigned long Body()
        {
            while (!ends) platform::sleep_ms(1);
            return 11;
        }
        unsigned long Terminate() { return ends = true, ++terminated; }
        void Pre_Stop() { ends = true; }
        std::atomic<bool> ends{false};
        unsigned long terminated = 0;
    } worker;
    Member_Thread<Worker> thread;
    EXPECT_EQ(thread.thread(), ~0UL);
    thread.Init(&worker, &Worker::Body, &Worker::Terminate, &Worker::Pre_Stop);
    ASSERT_TRUE(thread.start(false));
    thread.pre_stop();
    EXPECT_TRUE(Soon([&] { return !thread.is_running(); }));
    thread.stop();
    EXPECT_EQ(worker.terminated, 0u);  // it had ended by itself
    worker.ends = false;
    ASSERT_TRUE(thread.start(false));
    thread.stop();
    EXPECT_EQ(worker.terminated, 1u);
}
