#include "kernel/base/ipcSemaphore.h"

#include "tests/support/short_memory.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <utility>
#include <vector>

using namespace kernel;

TEST(osSemaphore, lets_as_many_pass_as_it_counts)
{
    for (const auto &[count, passes] : {std::pair{-3L, 0}, {0L, 0}, {1L, 1}, {3L, 3}}) {
        osSemaphore semaphore(count);
        EXPECT_FALSE(!semaphore);
        std::atomic<int> passed{0};
        std::thread other([&] {
            for (int i = 0; i < 4; ++i) {
                semaphore.Request();
                ++passed;
            }
        });
        EXPECT_TRUE(Soon([&] { return passed == passes; }));
        platform::sleep_ms(20);
        EXPECT_EQ(passed, passes);
        for (int i = passes; i < 4; ++i) semaphore.Release();
        other.join();
    }
}

// Each waits for the other: one wake-up that is lost stops both.
TEST(osSemaphore, loses_no_wake_up)
{
    constexpr int rounds = 20000;
    osSemaphore there(0), back(0), done(0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                there.Request();
                back.Release();
            }
            done.Release();
        });
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                there.Release();
                back.Request();
            }
            done.Release();
        });
    }
    for (int i = 0; i < 4; ++i) done.Request();
    for (std::thread &thread : threads) thread.join();
}

TEST(ipcMutexSemaphore, is_invalid_without_memory)
{
    ipcMutexSemaphore("short");  // what is made once
    const long before = replaced_new::living;
    const int refused = Refused_Without_Memory([] {
        ipcMutexSemaphore lock("short");
        lock.Request();
        lock.Release();
        const bool failed = !lock;
        EXPECT_EQ(lock.rdstate(), failed ? 8u : 0u);
        return !failed;
    });
    EXPECT_GT(refused, 0);
    EXPECT_EQ(replaced_new::living, before);
}
