#include "platform/named_lock.h"

#include "platform/clock.h"

#include "tests/support/folder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#ifndef _WIN32
#include <sys/stat.h>
#endif

using namespace platform;

namespace {

void Wait_For(const std::string &file)
{
    for (int i = 0; i < 2000 && !std::filesystem::exists(file); ++i) sleep_ms(5);
    ASSERT_TRUE(std::filesystem::exists(file));
}

constexpr char between_processes[] = "C:\\recordings\\a/b.bin";

// The other process of serialises_processes is this program again, with HOLDER_FOLDER set: it holds the lock and never comes
// to main.
const bool is_holder = [] {
    const char *folder_name = std::getenv("HOLDER_FOLDER");
    if (!folder_name) return false;
    const std::string folder = folder_name;
    Named_Lock lock(between_processes);
    lock.lock();
    std::ofstream(folder + "/held") << "x";
    Wait_For(folder + "/release");
    std::ofstream(folder + "/released") << "x";
    std::_Exit(0);  // dies with the lock
}();

}  // namespace

TEST(named_lock, serialises_threads_by_name)
{
    const std::string name = "one " + std::to_string(clock_ms());
    Named_Lock a(name), same(name), other(name + "x");
    ASSERT_TRUE(a.valid() && same.valid() && other.valid());
    long shared = 0;
    const auto count = [&](Named_Lock &lock) {
        for (int i = 0; i < 2000; ++i) {
            lock.lock();
            lock.lock();  // re-entrant
            ++shared;
            lock.unlock();
            lock.unlock();
        }
    };
    std::thread thread(count, std::ref(same));
    count(a);
    thread.join();
    EXPECT_EQ(shared, 4000);

    a.lock();
    std::thread([&] {
        other.lock();  // another name does not wait
        other.unlock();
        Named_Lock nameless(""), nameless_too("");
        nameless.lock();
        nameless_too.lock();
        nameless_too.unlock();
        nameless.unlock();
    }).join();
    a.unlock();
}

TEST(named_lock, serialises_processes_and_outlives_a_dead_one)
{
    Test_Folder folder;
#ifdef _WIN32
    _putenv_s("HOLDER_FOLDER", (folder / "").c_str());
#else
    setenv("HOLDER_FOLDER", (folder / "").c_str(), 1);
#endif
    std::thread process([self = "\"" + ::testing::internal::GetArgvs()[0] + "\""] { std::system(self.c_str()); });
    Wait_For(folder / "held");
    Named_Lock lock(between_processes);
    std::atomic<bool> got{false};
    bool released_before = false;
    std::thread waiter([&] {
        lock.lock();
        released_before = std::filesystem::exists(folder / "released");
        got = true;
        lock.unlock();
    });
    sleep_ms(100);
    EXPECT_FALSE(got);
    folder.Write("release", "x");
    waiter.join();
    process.join();
    EXPECT_TRUE(released_before);
}

#ifndef _WIN32
TEST(named_lock, lives_in_a_folder_of_its_own_and_leaves_nothing_behind)
{
    Test_Folder folder;
    const std::string runtime = folder / "run";
    setenv("GNSS_KERNEL_RUNTIME_DIR", runtime.c_str(), 1);
    {
        Named_Lock a("x"), b("x");
        a.lock();
        a.unlock();
        EXPECT_FALSE(std::filesystem::is_empty(runtime));
    }
    EXPECT_TRUE(std::filesystem::is_empty(runtime));
    {
        Named_Lock waiting("x");
        std::filesystem::remove_all(runtime);  // somebody tidies up
        waiting.lock();
        waiting.unlock();
    }
    std::filesystem::create_directories(runtime);
    chmod(runtime.c_str(), 0777);  // open to others: not ours
    EXPECT_FALSE(Named_Lock("x").valid());
    unsetenv("GNSS_KERNEL_RUNTIME_DIR");
}
#endif
