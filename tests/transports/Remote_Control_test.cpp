#include "kernel/transports/Message_Window.h"
#include "kernel/transports/Remote_Control.h"

#include "tests/support/full_window.h"
#include "tests/support/reports.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

using namespace kernel;

namespace {

constexpr long message = 0x8123, wparam = 77;

struct Line : Remote_Control {
    Line() : Object("line"), Remote_Control("line") {}
};

using Posted = std::vector<std::int64_t>;

Posted Statuses(Message_Window &window)
{
    Posted statuses;
    for (Message_Window::Message posted; window.Receive(posted, 0);) {
        if (posted.message == message && posted.wparam == wparam) statuses.push_back(posted.lparam);
    }
    return statuses;
}

}  // namespace

TEST(Remote_Control, posts_each_change_and_nothing_else)
{
    Heard_Reports reports;
    Line line;
    auto window = std::make_unique<Message_Window>();
    line.SetStatus(Remote_Control::Status_Connecting);  // no window yet
    line.SetMessage(window->GetHandle(), message, wparam);
    line.SetStatus(Remote_Control::Status_Connecting);
    line.SetStatus(Remote_Control::Status_Connected_As_Client);
    line.SetStatus(Remote_Control::Status_Failed);
    line.SetStatus(Remote_Control::Status_Failed);
    EXPECT_EQ(Statuses(*window), (Posted{12, 0}));
    unsigned long changes = 0;
    EXPECT_TRUE(line.GetStatus(&changes) == Remote_Control::Status_Failed && changes == 5);
    window.reset();
    line.SetStatus(Remote_Control::Status_Disconnected);  // returns, though the window is gone
    EXPECT_EQ(line.GetStatus(nullptr), 13);
    EXPECT_EQ(reports->Take(), Reports{});
}

TEST(Remote_Control, loses_no_change_to_a_full_queue)
{
    Heard_Reports reports;
    Line line;
    Message_Window window;
    line.SetMessage(window.GetHandle(), message, wparam);
    if (!Fill(window.GetHandle())) GTEST_SKIP() << "no limit here";
    std::thread transport([&] { line.SetStatus(Remote_Control::Status_Connecting); });
    const std::string text = "Driver tried 10 times without success to post a message (status 10).\n";
    EXPECT_TRUE(Soon([&] { return reports->Has(text); }));
    EXPECT_EQ(reports->Take().at(0), (Reported{2, 1, text, "kernel/Remote_Control"}));
    Posted posted = Statuses(window);
    transport.join();
    if (posted.empty()) posted = Statuses(window);
    EXPECT_EQ(posted, Posted{10});
}
