// A record through a typed server, in static and in dynamic mode: against a bare virtual call, and against one that
// holds a lock of the same kind.
#include "bench/contest.h"
#include "kernel/records/Typed_Servers.h"

#include <memory>

namespace {

using namespace kernel;

constexpr int steps = 4096;  // per turn

// The least that a hand-over can cost: a record is given to somebody behind a virtual call.
class Receiver {
public:
    virtual ~Receiver() = default;
    virtual bool Take(Position *record) = 0;
    long sum = 0;
};

class Bare_Receiver : public Receiver {
    [[gnu::noinline]] bool Take(Position *record) override
    {
        sum += record->GetNSat();
        return true;
    }
};

class Locked_Receiver : public Receiver {
    [[gnu::noinline]] bool Take(Position *record) override
    {
        const Semaphore_Guard guard(lock_);
        sum += record->GetNSat();
        return true;
    }
    Semaphore lock_;
};

class Summing_Client : public Pos_Client {
public:
    explicit Summing_Client(bool owns) : Object("summing"), owns_(owns) {}
    bool Send(Object_Server &server, CL_Mesg message) override
    {
        switch (message) {
        case Mesg_Request_Invite: return true;
        case Mesg_Data_Ready: return Take(static_cast<Pos_Server &>(server));
        case Mesg_Object_Connect: return owns_;
        default: return Pos_Client::Send(server, message);
        }
    }
    long sum = 0;

private:
    bool Take(Pos_Server &server)
    {
        Position *record = server.Get_Pos();
        sum += record->GetNSat();
        server.Free_Pos(record);
        return true;
    }

    const bool owns_;
};

template <class Kind>
std::unique_ptr<Receiver> Make()
{
    return std::make_unique<Kind>();
}

void Compare_Hand_Over(benchmark::State &state, bool dynamic, std::unique_ptr<Receiver> (*make_peer)(), double limit)
{
    const std::unique_ptr<Pos_Server> server(Pos_Server::Construct());
    auto *client = new Summing_Client(dynamic);
    if (!server->Connect(client) || server->StaticAlloc() == dynamic) state.SkipWithError("not connected");
    const std::unique_ptr<Receiver> peer = make_peer();
    Position bare;
    bench::Contest contest;
    for (auto _ : state) {
        const auto through_server = [&] {
            for (int i = 0; i < steps; ++i) {
                Position *record = server->Malloc_Pos();
                record->SetNSat(i);
                server->Send_Pos(record);
            }
        };
        const auto by_virtual_call = [&] {
            for (int i = 0; i < steps; ++i) {
                bare.SetNSat(i);
                peer->Take(&bare);
            }
        };
        state.SetIterationTime(contest.Turn(through_server, by_virtual_call));
        if (client->sum != peer->sum) state.SkipWithError("records were lost");
    }
    contest.Show(state, limit, steps);
}
BENCHMARK_CAPTURE(Compare_Hand_Over, static_against_bare_call, false, Make<Bare_Receiver>, 80)->UseManualTime();
BENCHMARK_CAPTURE(Compare_Hand_Over, dynamic_against_bare_call, true, Make<Bare_Receiver>, 80)->UseManualTime();
BENCHMARK_CAPTURE(Compare_Hand_Over, static_against_locked_call, false, Make<Locked_Receiver>, 12)->UseManualTime();
BENCHMARK_CAPTURE(Compare_Hand_Over, dynamic_against_locked_call, true, Make<Locked_Receiver>, 12)->UseManualTime();

}  // namespace
