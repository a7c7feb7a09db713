// The receiving half under a transport that is made up: its bytes come at once, and its steps are written down.
#include "kernel/transports/stream_reader_internal.h"

#include "platform/clock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

using namespace kernel;

namespace {

using Kind = Stream_Reader::Kind;
using Steps = std::vector<std::string>;

// Its client asks for two bytes, gets three, and takes what `takes` says.
class Made_Up : public Stream_Reader {
public:
    explicit Made_Up(Kind kind) : Stream_Reader(kind) {}
    using Stream_Reader::Begin;
    using Stream_Reader::Is_Patient;
    using Stream_Reader::Run;
    using Stream_Reader::Still_Wanted;
    using Stream_Reader::Tick;

    Steps Steps_Of_A_Run()
    {
        EXPECT_TRUE(Begin());
        Run();
        return steps;
    }

    long asks = 2, takes = 2, bytes_left = 6;
    bool accepts = true;  // data, and the question after the minute
    std::function<void()> in_receive = [] {};
    Steps steps;
    double silent_seconds = 0;

private:
    bool Tell(CL_Mesg message) override
    {
        unsigned char bytes[8];
        switch (message) {
        case Mesg_Attached: steps.push_back("attached"); return true;
        case Mesg_Second: steps.push_back("second"); return true;
        case Mesg_Status_50: steps.push_back("wanted?"); return accepts;
        case Mesg_Data_Ready: steps.push_back("data"); return Take(bytes, takes), accepts;
        default: ADD_FAILURE() << message; return false;
        }
    }
    bool Is_Stopping() const override { return false; }
    bool Invite() override
    {
        steps.push_back("invite");
        return Want(asks) > 0;
    }
    bool Receive() override
    {
        in_receive();
        const long n = std::min(bytes_left, 3L);
        steps.push_back("read");
        if (n < 1) return false;
        Buffer().Compact();
        Buffer().Add(static_cast<std::size_t>(n));
        bytes_left -= n;
        return true;
    }
    bool Refused() override { return steps.push_back("refused"), false; }
    bool Unwanted(double seconds) override
    {
        silent_seconds = seconds;
        return false;
    }
};

TEST(Stream_Reader, invites_fills_and_offers_in_the_order_of_its_kind)
{
    EXPECT_EQ(Made_Up(Kind::serial_line).Steps_Of_A_Run(), (Steps{"attached", "invite", "read", "data", "invite",
                                                                  "read", "data", "invite", "data", "invite", "read"}));
    EXPECT_EQ(Made_Up(Kind::connection).Steps_Of_A_Run(),
              (Steps{"attached", "invite", "read", "invite", "data", "invite", "read", "invite", "data", "invite",
                     "data", "invite", "read"}));
}

TEST(Stream_Reader, a_refusal_after_something_was_taken_ends_a_serial_line_only)
{
    struct {
        Kind kind;
        long takes;
        bool ends;
    } const cases[] = {{Kind::serial_line, 2, true}, {Kind::connection, 2, false}, {Kind::connection, 0, true}};
    for (const auto &row : cases) {
        Made_Up reader(row.kind);
        reader.accepts = false;
        reader.takes = row.takes;
        const Steps steps = reader.Steps_Of_A_Run();
        EXPECT_EQ(steps.back() == "refused", row.ends) << row.takes;
    }
}

TEST(Stream_Reader, a_late_tick_puts_off_the_next_one_of_a_connection_only)
{
    for (const auto &[kind, ticks] : {std::pair{Kind::serial_line, 3}, {Kind::connection, 1}}) {
        Made_Up reader(kind);
        reader.Begin();
        reader.Tick();
        EXPECT_EQ(reader.steps, (Steps{"attached"}));
        platform::advance_clock(3000);
        for (int look = 0; look < 5; ++look) reader.Tick();
        EXPECT_EQ(std::count(reader.steps.begin(), reader.steps.end(), "second"), ticks);
    }
}

// Data come after 40 s, and the question 30 s later: too early where the minute began with the request.
TEST(Stream_Reader, the_minute_of_patience_begins_with_the_request_or_with_the_connection)
{
    for (const Kind kind : {Kind::serial_line, Kind::connection}) {
        Made_Up reader(kind);
        std::vector<bool> is_patient;
        reader.in_receive = [&] {
            platform::advance_clock(is_patient.empty() ? 40000 : 30000);
            is_patient.push_back(reader.Is_Patient());
        };
        reader.Steps_Of_A_Run();
        EXPECT_EQ(is_patient, (std::vector<bool>{true, kind == Kind::serial_line, kind == Kind::serial_line}));
        platform::advance_clock(60000);
        EXPECT_TRUE(reader.Still_Wanted() && reader.Is_Patient()) << "another minute";
        platform::advance_clock(60000);
        EXPECT_FALSE(reader.Is_Patient());
        reader.accepts = false;
        EXPECT_FALSE(reader.Still_Wanted() || reader.Is_Patient());
        EXPECT_NEAR(reader.silent_seconds, kind == Kind::serial_line ? 150 : 220, 5);
    }
}

TEST(Stream_Reader, a_request_has_limits_and_bytes_given_back_raise_it)
{
    Made_Up reader(Kind::connection);
    EXPECT_EQ(reader.Want(-1), 0);
    EXPECT_EQ(reader.Want(Stream_Reader::most + 1), Stream_Reader::most);
    for (int margin = 0; margin < 16; ++margin) EXPECT_EQ(reader.Put_Back('x'), 'x');
    EXPECT_EQ(reader.Put_Back('x'), No_Byte);
    EXPECT_EQ(reader.Requested(), Stream_Reader::most);
    unsigned char bytes[32];
    EXPECT_EQ(reader.Take(bytes, 10), 10);
    EXPECT_EQ(reader.Requested(), Stream_Reader::most - 10);
    reader.Drop_Later();
    EXPECT_EQ(reader.Take(bytes, 10), 0);
}

}  // namespace
