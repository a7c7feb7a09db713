#include "platform/window.h"

#include "platform/error.h"

#include "tests/support/environment.h"
#include "tests/support/folder.h"
#include "tests/support/full_window.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <thread>

using namespace platform;

namespace {

constexpr std::uint32_t first_message = filling_message, broadcast = 27003;
constexpr char folder_variable[] = "WINDOW_FOLDER";

// Of this test's broadcasts: taken from the folder that its two processes share. On Windows a broadcast reaches the
// windows of every program, so also those of other runs of these tests.
std::uint64_t Own_Mark()
{
    const char *const folder = std::getenv(folder_variable);
    return std::hash<std::string>()(folder ? folder : "") % 0x7FFFFFFF;
}

// "message wparam lparam", or "nothing" when none comes. A broadcast that is not this test's own is passed over.
std::string Received(Window &window, unsigned long ms = 0)
{
    Window_Message message;
    do {
        if (!window.receive(message, ms)) return "nothing";
    } while (message.message == broadcast && message.wparam != Own_Mark());
    std::ostringstream text;
    text << message.message << ' ' << message.wparam << ' ' << message.lparam;
    return text.str();
}

// The POSIX half keeps its windows in it, and so does the other process of a test; elsewhere it stays empty.
class Runtime_Folder : public Test_Folder {
public:
    Runtime_Folder() { std::filesystem::permissions(*this / "", std::filesystem::perms::owner_all); }
    std::size_t Entries() const
    {
        using Iterator = std::filesystem::directory_iterator;
        return static_cast<std::size_t>(std::distance(Iterator(*this / ""), Iterator()));
    }

private:
    Environment_Setting setting_{"GNSS_KERNEL_RUNTIME_DIR", std::filesystem::path(*this / "").parent_path().string()};
};

// The second process of reaches_windows_of_other_processes is this program with the variable set. It writes its
// window's number and the first message to files, and ends without destroying the window.
const bool is_other_process = [] {
    const char *folder = std::getenv(folder_variable);
    if (!folder || !*folder) return false;
    const auto window = Window::create();
    std::ofstream(std::string(folder) + "/number.new") << reinterpret_cast<std::uintptr_t>(window->handle());
    std::filesystem::rename(std::string(folder) + "/number.new", std::string(folder) + "/number");
    std::ofstream(std::string(folder) + "/received") << Received(*window, 30000);
    std::_Exit(0);
}();

}  // namespace

TEST(window, gets_messages_in_order)
{
    const auto window = Window::create(), other = Window::create();
    ASSERT_TRUE(window && other);
    EXPECT_NE(window->handle(), nullptr);
    for (std::uint32_t i = 0; i < 1000; ++i) ASSERT_TRUE(post_message(window->handle(), {first_message + i, i, -7}));
    ASSERT_TRUE(post_message(other->handle(), {first_message, 0x7FFFFFFF, 0x7FFFFFFF}));
    for (std::uint32_t i = 0; i < 1000; ++i)
        ASSERT_EQ(Received(*window), std::to_string(first_message + i) + " " + std::to_string(i) + " -7");
    EXPECT_EQ(Received(*other), "1024 2147483647 2147483647");
    EXPECT_GE(Elapsed([&] { EXPECT_EQ(Received(*window, 30), "nothing"); }), 29u);
    std::thread sender([&] {
        sleep_ms(30);
        post_message(window->handle(), {first_message, 1, 2});
    });
    EXPECT_EQ(Received(*window, 30000), "1024 1 2");  // wakes
    sender.join();
}

TEST(window, the_dead_and_the_unborn_take_nothing)
{
    for (void *window : {Window::create()->handle(), static_cast<void *>(nullptr), reinterpret_cast<void *>(0xFFFF)}) {
        EXPECT_FALSE(is_window(window));
        set_last_error(0);
        EXPECT_FALSE(post_message(window, {first_message, 0, 0}));
        EXPECT_EQ(last_error(), 1400u);
    }
}

TEST(window, a_full_queue_refuses_and_loses_nothing)
{
    const auto window = Window::create();
    ASSERT_TRUE(window);
    const std::uint32_t posted = Fill(window->handle());
    if (!posted) GTEST_SKIP() << "no limit here";
    EXPECT_EQ(last_error(), 1816u);
    EXPECT_TRUE(is_window(window->handle()));
    EXPECT_GE(posted, 1000u);
    for (std::uint32_t i = 0; i < posted; ++i) ASSERT_EQ(Received(*window), "1024 " + std::to_string(i) + " 0");
    EXPECT_EQ(Received(*window), "nothing");
    EXPECT_TRUE(post_message(window->handle(), {first_message, posted, 0}));
}

TEST(window, reaches_windows_of_other_processes)
{
    Runtime_Folder runtime;
    Test_Folder folder;
    const auto here = Window::create();
    ASSERT_TRUE(here);
    const Environment_Setting setting(folder_variable, folder / "");
    std::thread process(
        [self = "\"" + ::testing::internal::GetArgvs()[0] + "\""] { (void)!std::system(self.c_str()); });
    std::uintptr_t number = 0;  // a file that is being renamed may be there and not open (Windows)
    EXPECT_TRUE(Soon([&] { return static_cast<bool>(std::istringstream(Whole_File(folder / "number")) >> number); }));
    auto *const there = reinterpret_cast<void *>(number);
    EXPECT_TRUE(is_window(there));
    EXPECT_GE(broadcast_message({broadcast, Own_Mark(), -5}), 2);
    process.join();
    const std::string beginning = "27003 " + std::to_string(Own_Mark()) + ' ';
    EXPECT_EQ(Whole_File(folder / "received"), beginning + "-5");
    EXPECT_EQ(Received(*here), beginning + "-5");

    EXPECT_FALSE(is_window(there));
    const std::size_t with_leftover = runtime.Entries();
    EXPECT_GE(broadcast_message({broadcast, Own_Mark(), 0}), 1);
    EXPECT_EQ(Received(*here), beginning + "0");
    EXPECT_TRUE(with_leftover == 0 || (with_leftover == 2 && runtime.Entries() == 1)) << with_leftover;
}
