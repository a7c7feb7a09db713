#include "kernel/time/TimeDispatcher.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

using namespace kernel;

namespace {

struct Listener final : TimeDispatcherFunction {
    void NewTime(Gps_Time time) override { heard += "new " + std::to_string(time.week) + ";"; }
    void Tick(Gps_Time time) { heard += "tick " + std::to_string(time.week) + ";"; }
    std::string heard;
};

// Writes its name on an update, then does what the test says.
class Simulator final : public SynchronReceiverSimulator {
public:
    explicit Simulator(std::string name) : name_(std::move(name)) {}

    void NewTime(Gps_Time) override {}
    void UpdateTo(Gps_Time time) override
    {
        updated += name_ + std::to_string(time.week) + " ";
        if (const auto act = then) act();  // it may destroy this simulator
    }
    static std::string Update(unsigned short week)
    {
        UpdateAllObjectsTo(Gps_Time(week, 0));
        return std::exchange(updated, {});
    }
    unsigned int Key() const { return Creation_Number(); }
    static unsigned int Created() { return ObjCount; }
    static std::size_t Living() { return tree.size(); }

    std::function<void()> then;

private:
    std::string name_;
    static inline std::string updated;
};

}  // namespace

TEST(TimeDispatcher, calls_the_one_operation_that_is_registered)
{
    Listener listener;
    TimeDispatcher dispatcher;
    dispatcher.NewTime({1, 0});  // no listener
    dispatcher.Register(&listener, &TimeDispatcherFunction::NewTime);
    dispatcher.NewTime({2, 0});
    dispatcher.Register(&listener, static_cast<TimeDispatcher::Function>(&Listener::Tick));
    dispatcher.NewTime({3, 0});
    dispatcher.Register(&listener, nullptr);
    dispatcher.NewTime({4, 0});
    EXPECT_EQ(listener.heard, "new 2;tick 3;");
}

TEST(SynchronReceiverSimulator, moves_all_that_live_in_the_order_of_their_creation)
{
    const unsigned int before = Simulator::Created();
    {
        Simulator a("a");
        auto b = std::make_unique<Simulator>("b");
        Simulator c("c"), first_copy(*b), second_copy(first_copy);  // copies stand behind their original
        EXPECT_EQ(Simulator::Update(1), "a1 b1 b1 b1 c1 ");
        b.reset();
        EXPECT_EQ(Simulator::Update(2), "a2 b2 b2 c2 ");
        second_copy = c;
        Simulator d("d");
        EXPECT_EQ(Simulator::Update(3), "a3 b3 c3 c3 d3 ");
        EXPECT_EQ(Simulator::Created(), before + 4);  // never fewer; copies do not count
        EXPECT_EQ(first_copy.Key(), before + 1);
    }
    EXPECT_EQ(Simulator::Living(), 0u);
}

TEST(SynchronReceiverSimulator, an_update_may_change_the_register)
{
    auto a = std::make_unique<Simulator>("a"), b = std::make_unique<Simulator>("b");
    auto c = std::make_unique<Simulator>("c"), d = std::make_unique<Simulator>("d");
    std::unique_ptr<Simulator> e;
    a->then = [&] { a.reset(); };
    b->then = [&] { c.reset(); };
    d->then = [&] {
        b.reset();
        e = std::make_unique<Simulator>("e");
    };
    EXPECT_EQ(Simulator::Update(1), "a1 b1 d1 e1 ");
    d->then = nullptr;
    EXPECT_EQ(Simulator::Update(2), "d2 e2 ");
}
