#include "host/gnss_stream/Mail_Watch.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using namespace host;
using namespace std::chrono_literals;
using kernel::Error_Handler;

namespace {

class Fake_Output : public Output {
public:
    bool Open() override { return true; }
    Stream_Status Status() const override { return {}; }
    bool Close() override { return true; }
    bool Is_Up() const override { return is_up; }
    std::size_t Room() const override { return 0; }
    void Put(std::span<const unsigned char>) override {}
    bool Is_Drained() const override { return true; }
    std::uint64_t Sent() const override { return 0; }
    bool Has_Failed() const override { return has_failed; }

    bool is_up = true, has_failed = false;
};

}  // namespace

TEST(Mail_Rule, tells_what_lasts_and_its_end_and_at_most_one_of_them_in_a_quarter_of_an_hour)
{
    // In each case the cause is bad from the first to the second of each pair of minutes; it is looked at each minute.
    const struct {
        int after;
        std::vector<std::pair<int, int>> bad;
        std::string mails;
    } cases[] = {
        {5, {{10, 14}}, ""},
        {5, {{10, 16}}, "15: bad, 5 min; 30: well, 6 min; "},  // the end comes due 15 minutes after the begin
        {5, {{10, 50}}, "15: bad, 5 min; 50: well, 40 min; "},
        {5, {{10, 16}, {20, 40}}, "15: bad, 5 min; 40: well, 30 min; "},  // bad again when its end comes due
        {5, {{10, 40}, {41, 60}}, "15: bad, 5 min; 40: well, 30 min; 55: bad, 14 min; 70: well, 19 min; "},
        {5, {{10, 40}, {41, 54}}, "15: bad, 5 min; 40: well, 30 min; "},  // well again when it comes due
        {0, {{10, 11}, {12, 13}, {40, 41}}, "10: bad, 0 min; 25: well, 3 min; 40: bad, 0 min; 55: well, 1 min; "},
        {20, {{0, 19}, {20, 41}}, "40: bad, 20 min; 55: well, 21 min; "},
    };
    for (const auto &[after, bad, expected] : cases) {
        const Mail_Rule::Clock::time_point begin{1000h};
        Mail_Rule rule{std::chrono::minutes(after)};
        std::string mails;
        for (int minute = 0; minute < 100; ++minute) {
            const auto now = begin + std::chrono::minutes(minute);
            auto last_well = now;
            for (const auto &[from, to] : bad)
                if (minute >= from && minute < to) last_well = begin + std::chrono::minutes(from) - 1us;
            const Mail_Rule::Mail mail = rule.Pass(last_well, now);
            if (mail == Mail_Rule::Mail::none) continue;
            mails += std::to_string(minute) + (mail == Mail_Rule::Mail::bad ? ": bad, " : ": well, ") +
                     std::to_string(std::chrono::floor<std::chrono::minutes>(rule.Lasted()).count()) + " min; ";
        }
        EXPECT_EQ(mails, expected);
    }
}

TEST(Mail_Watch, mails_silence_outages_and_full_disks_with_the_last_lines)
{
    std::string mails, text;
    const auto send = [&](const std::string &subject, const std::string &whole) {
        mails += subject + "|" + whole.substr(0, whole.find("\r\n")) + "\n";
        text = whole;
    };
    bool has_room = false;
    Mail_Watch watch(10min, send, [&] { return has_room; });
    const auto expect = [&](const std::string &expected) {
        EXPECT_EQ(mails, expected);
        mails.clear();
    };
    auto now = Mail_Watch::Clock::now();
    auto last_byte = now;
    Fake_Output up, failing;
    watch.Watch_Input("input a", [&] { return last_byte; });
    watch.Watch_Output("output 1 b", up, now);
    watch.Watch_Output("output 2 c", failing, now);
    watch.Pass(now);
    failing.has_failed = true;
    watch.Pass(now += 10min - 1s);
    expect("");
    watch.Pass(now += 1s);
    expect("gnss_stream: input a is silent|input a is silent (for 10 min 0 s).\n"
           "gnss_stream: output 2 c is down|output 2 c is down (for 10 min 0 s).\n");
    EXPECT_TRUE(text.ends_with("The last lines of the report:\r\n(none)\r\n")) << text;

    for (int i = 0; i < 25; ++i) watch.On_Report(Error_Handler::ES_Warning, "number " + std::to_string(i));
    watch.On_Report(Error_Handler::ES_Error, "c: gone since 5 sec.");
    watch.On_Report(Error_Handler::ES_Error, "c: the disk\nis full");
    watch.On_Report(Error_Handler::ES_Error, "c: gone since 99 sec.");
    watch.Note_Full_Disk();
    last_byte = now;
    watch.Last(now += 1s);
    expect("gnss_stream: the disk is full|the disk is full (for 0.0 s).\n");
    EXPECT_EQ(text.find("number 6\r\n"), text.npos);
    const std::size_t end = text.find("number 7\r\n");
    ASSERT_NE(end, text.npos) << text;
    EXPECT_NE(text.find("Warning: number 24\r\n", end), text.npos);
    EXPECT_NE(text.find("Z Error: c: the disk, is full\r\n", end), text.npos) << text;
    EXPECT_TRUE(text.ends_with("Z Error: c: gone since 99 sec. (2 times)\r\n")) << text;

    watch.Pass(now += 14min);  // no room yet
    has_room = true;
    last_byte = now;
    watch.Pass(now += 9s);
    expect("");
    watch.Pass(now += 2min);
    expect("gnss_stream: the disk has room again|the disk has room again (after 16 min 9 s). An output or record that "
           "could not be written stays closed until the program is started again.\n"
           "gnss_stream: input a gives bytes again|input a gives bytes again (after 24 min 1 s).\n");
    up.is_up = false;
    watch.Last(now += 20min);
    expect("");
    watch.Pass(now);
    expect("gnss_stream: input a is silent|input a is silent (for 22 min 9 s).\n"
           "gnss_stream: output 1 b is down|output 1 b is down (for 20 min 0 s).\n");
}
