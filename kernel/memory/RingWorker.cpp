#include "kernel/memory/RingWorker.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/base/Immortal_internal.h"
#include "kernel/settings/arithmetic.h"

#include "platform/debug.h"
#include "platform/thread.h"
#include "platform/wait.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstdio>
#include <string_view>
#include <utility>

namespace kernel {

namespace {

const char unit[] = "kernel/RingWorker";
constexpr unsigned long pause_ms = 2;           // between two epochs
constexpr double work_tolerance = 0.001;        // [s] on both sides of a multiple of the interval
constexpr std::size_t destroyer_stack = 65536;  // [bytes], at least

}  // namespace

const char RingWorker::Name[] = "Ring to DD-Records";

struct RingWorker::Signal : platform::Event {};

// The worker of each station ring. The lock is held while one is used by its number, so that it stays alive.
struct RingWorker::Table {
    Semaphore lock;
    std::array<RingWorker *, Station_Rings> workers{};

    static Table &All();
    void Forget(const RingWorker *worker)
    {
        const Semaphore_Guard guard(lock);
        std::replace(workers.begin(), workers.end(), const_cast<RingWorker *>(worker),
                     static_cast<RingWorker *>(nullptr));
    }
};

RingWorker::Table &RingWorker::Table::All()
{
    static Immortal<Table> table;
    return *table;
}

// Runs the action on the worker of that number with the table's lock held. For other numbers traces the text, if any.
template <class Action>
auto RingWorker::With(int ring, const char *trace, Action action)
{
    using Result = decltype(action(std::declval<RingWorker &>()));
    if (ring < 0 || ring >= Station_Rings) {
        if (trace) platform::debug_output(trace);
        return Result();
    }
    const Semaphore_Guard guard(Table::All().lock);
    RingWorker *const worker = Table::All().workers[static_cast<std::size_t>(ring)];
    return worker ? action(*worker) : Result();
}

namespace {

struct Trace {
    char text[120];
    template <class... Arguments>
    explicit Trace(const char *format, Arguments... arguments)
    {
        std::snprintf(text, sizeof text, format, arguments...);
    }
};

}  // namespace

RingWorker *RingWorker::Search(int ring)
{
    return With(ring, Trace("RingWorker * RingWorker::Search ( %d ) => invalid\n", ring).text,
                [](RingWorker &worker) { return &worker; });
}

void RingWorker::Add(int ring)
{
    With(ring, Trace("void RingWorker::Add ( %d ) => invalid\n", ring).text, [](RingWorker &worker) { worker.Add(); });
}

void RingWorker::PreDisconnect(int ring)
{
    With(ring, Trace("void RingWorker::PreDisconnect\t ( %d ) => invalid\n", ring).text,
         [](RingWorker &worker) { worker.PreDisconnect(); });
}

unsigned RingWorker::ChangeInterval(int ring, unsigned seconds)
{
    const Trace trace("void RingWorker::ChangeInterval( %d , %u ) => invalid\n", ring, seconds);
    return With(ring, trace.text, [seconds](RingWorker &worker) { return worker.ChangeInterval(seconds); });
}

unsigned RingWorker::GetInterval(int ring)
{
    return With(ring, Trace("usigned RingWorker::getInterval( %d ) => invalid\n", ring).text,
                [](RingWorker &worker) { return worker.GetInterval(); });
}

void RingWorker::Delete(int ring)
{
    RingWorker *const worker = With(ring, nullptr, [ring](RingWorker &found) {
        Table::All().workers[static_cast<std::size_t>(ring)] = nullptr;
        return &found;
    });
    if (worker) Dispose(worker);
}

void RingWorker::Delete(RingWorker *&worker)
{
    if (RingWorker *const deleted = std::exchange(worker, nullptr))
        Dispose(deleted);
    else
        platform::debug_output(
            Trace("void RingWorker::Delete\t ( %p ) => invalid\n", static_cast<const void *>(nullptr)).text);
}

// A thread cannot wait for itself: in one of its functions another thread does it.
void RingWorker::Dispose(sharemem *segment)
{
    auto *const worker = static_cast<RingWorker *>(segment);
    Table::All().Forget(worker);
    Leave_List(worker);
    const auto destroy = [](void *context) {
        auto *const ended = static_cast<RingWorker *>(context);
        ended->stop();
        delete ended;
        return 0ul;
    };
    if (!worker->Is_Own_Thread()) {
        destroy(worker);
        return;
    }
    worker->PreDisconnect();
    if (!platform::Thread::start(destroy, worker, false, destroyer_stack))
        worker->Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Error, "No thread could be had to delete the worker of %s.",
                       worker->get_name());
}

// --- The object

// The thread must not use virtual functions until the subclass is complete, so it begins here and not in thread().
RingWorker::RingWorker(Error_Handler *handler, int ring)
    : Object(Name, handler), Ring(Get_Station_Ring_Name(ring), Station_Ring_Identity, ring & 7), signal_(new Signal)
{
    disposal_ = Dispose;
    if (handler) Set_Error_Handler(handler);
    if (!Ring::valid()) return;
    started_ = start(Entry, this, false);
    const Semaphore_Guard guard(Table::All().lock);
    Table::All().workers[static_cast<std::size_t>(ring)] = this;
}

RingWorker::~RingWorker()
{
    Table::All().Forget(this);
    stop();
}

unsigned long RingWorker::Entry(void *worker)
{
    auto *const self = static_cast<RingWorker *>(worker);
    return self->Begin() ? self->RingWorker::thread() : 0;
}

bool RingWorker::IsValid() const { return started_ && Ring::valid(); }

bool RingWorker::IsInheritedFrom(const char *name) const
{
    return name && (Object::IsInheritedFrom(name) || std::string_view(name) == Name);
}

void RingWorker::WorkEpo(const REFDATA *) {}

void RingWorker::SpareEpo(const REFDATA *) {}

void RingWorker::PreEpo(const REFDATA *) {}

void RingWorker::PostEpo(const REFDATA *) {}

unsigned RingWorker::ChangeInterval(unsigned seconds)
{
    const double own = get_interval() + 0.5;
    const unsigned ring_seconds = own >= 1 && own < UINT_MAX ? static_cast<unsigned>(own) : 0;
    requested_.store(seconds, std::memory_order_relaxed);
    const unsigned long common = ring_seconds == 0 ? seconds : kgv(seconds, ring_seconds);
    effective_.store(static_cast<std::uint32_t>(std::min<unsigned long>(common, UINT_MAX)), std::memory_order_relaxed);
    return GetInterval();
}

unsigned RingWorker::GetInterval() const { return effective_.load(std::memory_order_relaxed); }

// --- Waking and stopping

void RingWorker::Wake() { signal_->set(); }

void RingWorker::Add()
{
    wakes_.fetch_add(1, std::memory_order_release);
    Wake();
}

void RingWorker::PreDisconnect() { RingWorker::pre_stop(); }

void RingWorker::pre_stop()
{
    Base_Thread::pre_stop();
    Wake();
}

unsigned long RingWorker::terminate()
{
    Request_Stop();
    Wake();
    return Base_Thread::terminate();
}

// Waits for a wake-up that was not taken yet, and takes it alone or with all others. False: to stop.
bool RingWorker::Woken(bool one_by_one)
{
    while (!Stop_Requested()) {
        const std::uint32_t wakes = wakes_.load(std::memory_order_acquire);
        if (wakes != taken_) {
            taken_ = one_by_one ? taken_ + 1 : wakes;
            return true;
        }
        signal_->wait(platform::wait_forever);
    }
    return false;
}

// --- The thread

unsigned long RingWorker::thread()
{
    if (!Woken(true) || !Woken(true)) return 0;
    const REFDATA *last = get_head();
    double time = last ? last->time : 0;
    while (Woken(false) && Handle_New(last, time)) continue;
    return 0;
}

// The record after the last one. Another time in its place means that the writer has come round. The last one may also
// have left the readers' part when nothing was missed.
REFDATA *RingWorker::Next_After(const REFDATA *last, double time)
{
    if (last && Is_Readable(last) && last->time == time) return walk_succ(last);
    REFDATA *const oldest = get_tail();
    if (!last || !oldest || (find_succ(last) == oldest && last->time == time)) return oldest;
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Warning, "%s: epochs after %.3f were overwritten before they could be handled.",
                   get_name(), time);
    return oldest;
}

// False: to stop.
bool RingWorker::Handle_New(const REFDATA *&last, double &time)
{
    while (const REFDATA *const record = Next_After(last, time)) {
        last = record;
        time = record->time;
        Handle(record, time);
        if (Stop_Requested()) return false;
        Base_Thread::Sleep(pause_ms);
    }
    return true;
}

void RingWorker::Handle(const REFDATA *record, double time)
{
    const unsigned interval = GetInterval();
    PreEpo(record);
    if (interval != 0 && std::fmod(time + work_tolerance, interval) >= 2 * work_tolerance)
        SpareEpo(record);
    else
        WorkEpo(record);
    PostEpo(record);
}

}  // namespace kernel
