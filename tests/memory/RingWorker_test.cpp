#include "kernel/memory/RingWorker.h"

#include "platform/debug.h"
#include "tests/support/reports.h"
#include "tests/support/rings.h"
#include "tests/support/segments.h"
#include "tests/support/timing.h"

#include <functional>
#include <mutex>
#include <thread>

using namespace kernel;

namespace {

using RingWorker_test = Segments;

// Notes the hooks: 'p' PreEpo, 'w' WorkEpo, 's' SpareEpo, 'q' PostEpo.
class Noting_Worker : public RingWorker {
public:
    explicit Noting_Worker(int ring = 0, std::function<void()> in_hook = {})
        : Object("worker"), RingWorker(nullptr, ring), in_hook_(std::move(in_hook))
    {
    }
    ~Noting_Worker() override { stop(), ++destroyed; }

    void WorkEpo(const REFDATA *) override { Note('w'); }
    void SpareEpo(const REFDATA *) override { Note('s'); }
    void PreEpo(const REFDATA *record) override
    {
        Note('p');
        if (in_hook_) in_hook_();
        const std::lock_guard guard(lock_);
        times_.push_back(record->time);
    }
    void PostEpo(const REFDATA *) override { Note('q'); }

    std::vector<double> Times()
    {
        const std::lock_guard guard(lock_);
        return times_;
    }
    std::string Hooks()
    {
        const std::lock_guard guard(lock_);
        return hooks_;
    }
    void Wake_Twice()  // from here on epochs are handled
    {
        for (int i = 0; i < 2; ++i) Add();
        platform::sleep_ms(50);
    }
    bool Comes_To(std::size_t n)
    {
        return Soon([&] { return Hooks().size() >= 3 * n; });
    }
    static inline std::atomic<int> destroyed{0};

private:
    void Note(char hook)
    {
        const std::lock_guard guard(lock_);
        hooks_ += hook;
    }
    const std::function<void()> in_hook_;
    std::mutex lock_;
    std::vector<double> times_;
    std::string hooks_;
};

thread_local std::string *traced = nullptr;

}  // namespace

TEST_F(RingWorker_test, other_numbers_are_traced)
{
    std::string heard;
    traced = &heard;
    const auto before = platform::set_debug_output([](const char *text) {
        if (traced) *traced += text;
    });
    EXPECT_EQ(RingWorker::Search(4), nullptr);
    RingWorker::Add(-1);
    RingWorker::PreDisconnect(5);
    EXPECT_EQ(RingWorker::ChangeInterval(6, 30), 0u);
    EXPECT_EQ(RingWorker::GetInterval(7), 0u);
    RingWorker::Delete(8);
    EXPECT_EQ(RingWorker::Search(0), nullptr);  // no worker: nothing to say
    RingWorker::Add(0);
    platform::set_debug_output(before);
    EXPECT_EQ(heard, "RingWorker * RingWorker::Search ( 4 ) => invalid\n"
                     "void RingWorker::Add ( -1 ) => invalid\n"
                     "void RingWorker::PreDisconnect\t ( 5 ) => invalid\n"
                     "void RingWorker::ChangeInterval( 6 , 30 ) => invalid\n"
                     "usigned RingWorker::getInterval( 7 ) => invalid\n");
    Noting_Worker missing(0);  // no such ring
    EXPECT_FALSE(missing.IsValid());
    EXPECT_EQ(RingWorker::Search(0), nullptr);
}

TEST_F(RingWorker_test, hands_over_new_epochs_and_tells_work_from_spare)
{
    const auto segment = Ring_0(100, 100);
    const Ring_Owner writer = Opened(Ring::Create(0));
    for (int i = 0; i < 3; ++i) Publish(*writer, 100 + i, 1);
    auto *worker = new Noting_Worker;
    ASSERT_TRUE(worker->IsValid());
    EXPECT_TRUE(worker->IsInheritedFrom("Ring to DD-Records"));
    EXPECT_EQ(RingWorker::Search(0), worker);
    EXPECT_EQ(RingWorker::GetInterval(0), 0u);
    writer->set_interval(2);
    EXPECT_EQ(RingWorker::ChangeInterval(0, 5), 10u);
    for (int i = 0; i < 2; ++i) worker->Add();  // counted, though the thread may not have run between them
    EXPECT_TRUE(Soon([&] { return worker->Search(0) != nullptr; }));
    platform::sleep_ms(50);
    for (const double time : {120.0005, 122.0, 139.9995, 150.002}) Publish(*writer, time, 1);
    RingWorker::Add(0);
    EXPECT_TRUE(worker->Comes_To(4));
    EXPECT_EQ(worker->Hooks(), "pwqpsqpwqpsq");
    EXPECT_EQ(worker->Times(), (std::vector<double>{120.0005, 122.0, 139.9995, 150.002}));
    writer->set_interval(0.2);  // faster than 1 Hz
    EXPECT_EQ(worker->ChangeInterval(5), 5u);
    EXPECT_EQ(worker->ChangeInterval(0), 0u);
    Publish(*writer, 153.3, 1);
    worker->Add();
    EXPECT_TRUE(worker->Comes_To(5));
    EXPECT_EQ(worker->Hooks().substr(12), "pwq");
    RingWorker::Delete(0);
    EXPECT_EQ(RingWorker::Search(0), nullptr);
    EXPECT_EQ(Ring::First(), writer.get());
}

TEST_F(RingWorker_test, begins_with_the_first_record_of_an_empty_ring)
{
    const auto segment = Ring_0(100, 100);
    const Ring_Owner writer = Opened(Ring::Create(0));
    Noting_Worker worker;
    worker.Wake_Twice();
    for (int i = 0; i < 3; ++i) Publish(*writer, 100 + i, 1);
    worker.Add();
    EXPECT_TRUE(worker.Comes_To(3));
    EXPECT_EQ(worker.Times(), (std::vector<double>{100, 101, 102}));
}

// A writer of 400 epochs a second, and a thread that does nothing but wake.
TEST_F(RingWorker_test, misses_nothing_and_ends_soon)
{
    const auto segment = Ring_0(100, 100);
    const Ring_Owner writer = Opened(Ring::Create(0));
    for (int i = 0; i < 3; ++i) Publish(*writer, 100 + i, 1);
    auto *worker = new Noting_Worker;
    worker->Wake_Twice();
    std::jthread waker([](const std::stop_token &stop) {
        while (!stop.stop_requested()) RingWorker::Add(0);
    });
    constexpr int epochs = 200;
    for (int i = 0; i < epochs; ++i) {
        Publish(*writer, 200 + i, 1);
        worker->Add();
        while (worker->Times().size() + 30 < static_cast<std::size_t>(i)) platform::sleep_ms(1);  // on a loaded machine
        platform::sleep_ms(2);
    }
    EXPECT_TRUE(worker->Comes_To(epochs));
    const std::vector<double> times = worker->Times();
    ASSERT_EQ(times.size(), std::size_t{epochs});
    for (int i = 0; i < epochs; ++i) EXPECT_EQ(times[static_cast<std::size_t>(i)], 200 + i);
    const int before = Noting_Worker::destroyed;
    EXPECT_LT(Elapsed([] { RingWorker::Delete(0); }), 1000u);
    EXPECT_EQ(Noting_Worker::destroyed, before + 1);
}

TEST_F(RingWorker_test, reports_that_it_was_lapped)
{
    Heard_Reports reports;
    const auto segment = Ring_0(50, 100);
    const Ring_Owner writer = Opened(Ring::Create(0));
    for (int i = 0; i < 3; ++i) Publish(*writer, 100 + i, 1);
    Noting_Worker worker;
    worker.Wake_Twice();
    for (int i = 0; i < 103; ++i) Publish(*writer, 200 + i, 1);  // the last one's place has another time
    worker.Add();
    EXPECT_TRUE(worker.Comes_To(34));
    EXPECT_EQ(worker.Times().front(), writer->get_tail_rtime());
    EXPECT_TRUE(reports->Has("RING_0: epochs after 102.000 were overwritten before they could be handled."));
}

// The pool holds 17 epochs, so that readers see the newest one only, and none while the next is being written.
TEST_F(RingWorker_test, reports_nothing_when_the_pool_makes_the_window_small)
{
    const auto segment = Ring_0(40, 17);
    const Ring_Owner writer = Opened(Ring::Create(0));
    double time = 100;
    while (time < 130) Publish(*writer, time++, 1);
    Heard_Reports reports;
    Noting_Worker worker;
    worker.Wake_Twice();
    for (std::size_t i = 1; i <= 5; ++i) {
        REFDATA *const record = writer->ins_meas(200.0 + static_cast<double>(i), 1);
        worker.Add();  // too early: nothing is readable
        platform::sleep_ms(10);
        writer->ins_done_meas(record);
        worker.Add();
        EXPECT_TRUE(worker.Comes_To(i));
    }
    EXPECT_EQ(worker.Times(), (std::vector<double>{201, 202, 203, 204, 205}));
    EXPECT_EQ(reports->Take(), Reports{});
}

TEST_F(RingWorker_test, may_be_deleted_inside_of_its_own_functions)
{
    const auto segment = Ring_0(100, 100);
    const Ring_Owner writer = Opened(Ring::Create(0));
    const std::function<void()> ways[] = {[] { RingWorker::Delete(0); },
                                          [] {
                                              RingWorker *worker = RingWorker::Search(0);
                                              if (worker) RingWorker::Delete(worker);
                                          },
                                          [] {
                                              Ring *worker = RingWorker::Search(0);
                                              Ring::Delete(worker);
                                          }};
    double time = 100;
    for (const auto &way : ways) {
        const int before = Noting_Worker::destroyed;
        auto *const worker = new Noting_Worker(0, way);
        worker->Wake_Twice();
        for (int i = 0; i < 2; ++i) Publish(*writer, time += 1, 1);
        RingWorker::Add(0);
        EXPECT_TRUE(Soon([&] { return Noting_Worker::destroyed == before + 1; }));
        EXPECT_EQ(RingWorker::Search(0), nullptr);
    }
}
