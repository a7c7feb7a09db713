#include "platform/shared_memory.h"

#include "platform/error.h"
#include "tests/support/environment.h"
#include "tests/support/folder.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace platform;

namespace {

using Found = Shared_Memory::Found;

// The second process of the tests is this program with HOLDER set to the name of a segment. It never reaches main, and
// ends without closing the segment, as a killed process does.
const bool is_holder = [] {
    const char *name = std::getenv("HOLDER"), *folder = std::getenv("HOLDER_FOLDER");
    if (!name || !*name) return false;
    Found found = Found::existing;
    const auto segment = Shared_Memory::create(name, 100, found);
    if (segment) std::memcpy(segment->data(), found == Found::fresh ? "fresh" : "found", 6);
    std::ofstream(std::string(folder) + "/held") << "x";
    Soon([&] { return std::filesystem::exists(std::string(folder) + "/release"); });
    std::_Exit(0);
}();

struct shared_memory : testing::Test {
    Test_Folder folder;
    const Environment_Setting runtime{"GNSS_KERNEL_RUNTIME_DIR", folder / "run"};
    const std::string name = "kernel test " + std::to_string(std::hash<std::string>()(folder / ""));
};

}  // namespace

TEST_F(shared_memory, lives_as_long_as_somebody_holds_it)
{
    Found found = Found::existing;
    EXPECT_EQ(Shared_Memory::open(name), nullptr);
    EXPECT_EQ(last_error(), error_not_found);
    auto first = Shared_Memory::create(name, 5000, found);
    ASSERT_TRUE(first);
    EXPECT_EQ(found, Found::fresh);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(first->data()), 5000), std::string(5000, '\0'));
    std::memcpy(first->data() + 4990, "bytes", 6);
    auto second = Shared_Memory::create(name, 100000, found);
    ASSERT_TRUE(second);
    EXPECT_EQ(found, Found::existing);
    EXPECT_EQ(second->size(), first->size());  // as the first creator made it
    auto third = Shared_Memory::open("Local\\" + name);
    ASSERT_TRUE(third);
    EXPECT_STREQ(reinterpret_cast<char *>(third->data() + 4990), "bytes");
    first.reset();
    second.reset();
    EXPECT_TRUE(Shared_Memory::open(name));
    third.reset();
    EXPECT_EQ(Shared_Memory::open(name), nullptr);
    first = Shared_Memory::create(name, 5000, found);
    EXPECT_EQ(found, Found::fresh);
    EXPECT_EQ(std::to_integer<int>(first->data()[4990]), 0);
}

TEST_F(shared_memory, refuses_what_cannot_be_with_the_systems_numbers)
{
    const struct {
        std::string name;
        std::uint64_t size;
        std::uint32_t error;
    } cases[] = {{name, 0, error_invalid_parameter},
                 {"", 100, error_invalid_name},
                 {std::string(300, 'x'), 100, error_name_too_long},
                 {"folder\\" + name, 100, error_path_not_found}};
    for (const auto &c : cases) {
        Found found;
        EXPECT_EQ(Shared_Memory::create(c.name, c.size, found), nullptr) << c.name;
        EXPECT_EQ(last_error(), c.error) << c.name;
    }
    Found found;
    EXPECT_EQ(Shared_Memory::create(name, std::uint64_t{1} << 50, found), nullptr);
    EXPECT_NE(last_error(), error_none);
    EXPECT_EQ(Shared_Memory::open(name), nullptr);                 // nothing stays behind
    for (const std::string odd : {"../a", "a/b", "a.b", "A.b"}) {  // names like others
        const auto segment = Shared_Memory::create(name + odd, 8, found);
        EXPECT_TRUE(segment && found == Found::fresh) << odd;
    }
}

TEST_F(shared_memory, ends_with_a_process_that_dies)
{
    const Environment_Setting holder("HOLDER", name), where("HOLDER_FOLDER", folder / "");
    std::thread process(
        [self = "\"" + ::testing::internal::GetArgvs()[0] + "\""] { (void)!std::system(self.c_str()); });
    ASSERT_TRUE(Soon([&] { return std::filesystem::exists(folder / "held"); }));
    auto opened = Shared_Memory::open(name);
    ASSERT_TRUE(opened);
    EXPECT_STREQ(reinterpret_cast<char *>(opened->data()), "fresh");
    opened.reset();
    folder.Write("release", "x");
    process.join();
    EXPECT_EQ(Shared_Memory::open(name), nullptr);
    EXPECT_EQ(last_error(), error_not_found);
    Found found = Found::existing;
    EXPECT_TRUE(Shared_Memory::create(name, 100, found));
    EXPECT_EQ(found, Found::fresh);
}

TEST_F(shared_memory, has_one_lock_for_all_spellings_of_its_name)
{
    Named_Lock held(Shared_Memory::transition("Local\\" + name));
    const std::lock_guard guard(held);
    bool taken = true;
    std::thread([&] { taken = Shared_Memory::transition(name).try_lock(); }).join();
    EXPECT_FALSE(taken);
}

// With the transition's lock around creation, each first one finds what it wrote, and the count comes out.
TEST_F(shared_memory, transitions_exclude_each_other)
{
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                Named_Lock lock(Shared_Memory::transition(name));
                std::unique_lock guard(lock);
                Found found = Found::existing;
                const auto segment = Shared_Memory::create(name, 8, found);
                if (!segment) {
                    ++wrong;
                    continue;
                }
                if (found == Found::fresh) segment->data()[0] = std::byte{1};
                guard.unlock();
                if (segment->data()[0] != std::byte{1}) ++wrong;
            }
        });
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}
