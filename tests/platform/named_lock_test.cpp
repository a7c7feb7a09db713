#include "platform/named_lock.h"

#include "tests/support/environment.h"
#include "tests/support/folder.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#endif

using namespace platform;

namespace {

bool Exists(const std::string &file)
{
    return Soon([&] { return std::filesystem::exists(file); });
}

constexpr char between_processes[] = "C:\\recordings\\a/b.bin";

// The second process of serialises_processes is this program with HOLDER_FOLDER set. It holds the lock and never
// reaches main.
const bool is_holder = [] {
    const char *folder_name = std::getenv("HOLDER_FOLDER");
    if (!folder_name || !*folder_name) return false;
    const std::string folder = folder_name;
    Named_Lock lock(between_processes);
    lock.lock();
    std::ofstream(folder + "/held") << "x";
    Exists(folder + "/release");
    std::ofstream(folder + "/released") << "x";
    std::_Exit(0);  // dies with the lock
}();

}  // namespace

TEST(named_lock, serialises_threads_by_name)
{
    const std::string name = "one " + std::to_string(clock_ms());
    Named_Lock a(name), same(name), other(name + "x"), nameless(""), nameless_too("");
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

    for (Named_Lock *lock : {&a, &nameless}) lock->lock();
    std::thread([&] {
        for (Named_Lock *lock : {&other, &nameless_too}) {  // does not wait
            lock->lock();
            EXPECT_TRUE(lock->try_lock());
            for (int i = 0; i < 2; ++i) lock->unlock();
        }
        same.unlock();  // no effect: another thread holds the lock
        EXPECT_FALSE(same.try_lock());
    }).join();
    for (Named_Lock *lock : {&a, &nameless}) lock->unlock();
}

TEST(named_lock, serialises_processes_and_outlives_a_dead_one)
{
    Test_Folder folder;
    const Environment_Setting setting("HOLDER_FOLDER", folder / "");
    std::thread process(
        [self = "\"" + ::testing::internal::GetArgvs()[0] + "\""] { (void)!std::system(self.c_str()); });
    EXPECT_TRUE(Exists(folder / "held"));
    Named_Lock lock(between_processes);
    EXPECT_FALSE(lock.try_lock());
    std::atomic<bool> got{false};
    std::thread waiter([&] {
        lock.lock();
        EXPECT_TRUE(std::filesystem::exists(folder / "released"));
        got = true;
        lock.unlock();
    });
    sleep_ms(100);
    EXPECT_FALSE(got);
    folder.Write("release", "x");
    waiter.join();
    process.join();
}

#ifdef _WIN32
TEST(named_lock, has_a_name_of_its_own_among_other_programs_objects)
{
    const std::string name = "запись " + std::to_string(clock_ms());
    HANDLE const event = CreateEventA(nullptr, FALSE, FALSE, name.c_str());
    EXPECT_TRUE(Named_Lock(name).valid());
    EXPECT_TRUE(Named_Lock(std::string(1000, 'x') + name).valid());
    CloseHandle(event);
}
#else
TEST(named_lock, an_unlock_too_many_does_not_end_the_exclusion)
{
    Test_Folder folder;
    const std::string runtime = folder / "run";
    const Environment_Setting setting("GNSS_KERNEL_RUNTIME_DIR", runtime);
    Named_Lock lock("x");
    const int other = open(std::filesystem::directory_iterator(runtime)->path().c_str(), O_RDWR);  // another process
    const auto is_free = [&] { return flock(other, LOCK_EX | LOCK_NB) == 0 && flock(other, LOCK_UN) == 0; };
    lock.lock();
    for (int i = 0; i < 2; ++i) lock.unlock();
    EXPECT_TRUE(is_free());
    lock.lock();
    EXPECT_FALSE(is_free());
    std::thread([&] { lock.unlock(); }).join();
    EXPECT_FALSE(is_free());
    lock.unlock();
    EXPECT_TRUE(is_free());
    close(other);
}

TEST(named_lock, lives_in_a_folder_of_its_own_and_leaves_nothing_behind)
{
    Test_Folder folder;
    const std::string runtime = folder / "run";
    const Environment_Setting setting("GNSS_KERNEL_RUNTIME_DIR", runtime);
    const auto files = [&] { return std::distance(std::filesystem::directory_iterator(runtime), {}); };
    {
        Named_Lock a("x"), b("x");
        a.lock();
        a.unlock();
        EXPECT_EQ(files(), 1);
    }
    EXPECT_EQ(files(), 0);
    {
        Named_Lock waiting("x");
        std::filesystem::remove(*std::filesystem::directory_iterator(runtime));  // another program removes the file
        waiting.lock();
        EXPECT_EQ(files(), 1);
        waiting.unlock();
        std::filesystem::remove_all(runtime);
        waiting.lock();
        waiting.unlock();
    }
    std::filesystem::create_directories(runtime);
    std::filesystem::permissions(runtime, std::filesystem::perms::all);  // open to others: must not be used
    EXPECT_FALSE(Named_Lock("x").valid());
}
#endif
