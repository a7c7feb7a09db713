#include "kernel/records/OBS_SERV.h"

#include "kernel/base/Error_Handler.h"

#include <cmath>
#include <cstring>
#include <initializer_list>
#include <new>
#include <utility>

namespace kernel {

namespace {

const char unit[] = "kernel/OBS_SERV";

// [m] 0 when not measured; a code that the epoch does not have reads -1.
double Code(const EPO_DATA &epoch, ObsDataTypes type, unsigned char sat)
{
    const double code = epoch.ReadDoubleObs(type, sat);
    return code == -1.0 ? 0.0 : code;
}

// A code that is not a number differs from nothing: it goes on unmarked.
bool Differ(double one, double other, double limit)
{
    return one != 0.0 && other != 0.0 && std::fabs(other - one) > limit;
}

void Invalidate(EPO_DATA &epoch, unsigned char sat, std::initializer_list<ObsDataTypes> types)
{
    for (const ObsDataTypes type : types) epoch.StoreUint8Obs(type, 255, sat);  // without a place it reads 255 anyway
}

}  // namespace

const char Obs_Server::Name[] = "Obs_Server";

// Object is a virtual base: it is named here, and what Object_Server would name it does not count.
Obs_Server::Obs_Server(const char *name) : Object(name ? name : ClassName()), Object_Server(Mesg_Type_Obs) {}

Obs_Server::~Obs_Server() { End(); }

Obs_Server *Obs_Server::Construct()
{
    return Constructed([&] { return new Obs_Server; });
}

bool Obs_Server::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Object_Server::IsInheritedFrom(name);
}

bool Obs_Server::Connect(Object_Client *client)
{
    // The text has no full stop at its end, other than the base's; both stay as they are.
    return Connect_Typed(client, "Client %s couldn't work with type %d", unit, __LINE__);
}

// Null rather than an exception: Object_Server reports it. The arrays come later, each with its first store.
void *Obs_Server::_Alloc_Object() { return new (std::nothrow) EPO_DATA(Default_Capacity); }

void Obs_Server::_Free_Object(void *record) { delete static_cast<EPO_DATA *>(record); }

EPO_DATA *Obs_Server::Malloc_Obs(int capacity)
{
    // One lock for question and answer: Connect may not change the mode in between. Malloc reports its own failure.
    const Semaphore_Guard guard(*this);
    if (StaticAlloc()) return static_cast<EPO_DATA *>(Malloc());
    auto *epoch = new (std::nothrow) EPO_DATA(capacity);
    if (!epoch)
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, 18, "Couldn't allocate epoch data (no memory)");
    return epoch;
}

void Obs_Server::Free_Obs(EPO_DATA *&epoch)
{
    // The base takes its pointer by reference to a void pointer, which the caller's is not.
    void *record = std::exchange(epoch, nullptr);
    Free(record);
}

void Obs_Server::Max_Code_Delta_Sat(double difference)
{
    const Semaphore_Guard guard(*this);
    max_code_delta_ = difference;
}

bool Obs_Server::Send_Obs(EPO_DATA *&epoch)
{
    // Copied, so that no report of the check, which is the host's code, runs inside the lock.
    double limit = 0.0;
    {
        const Semaphore_Guard guard(*this);
        limit = max_code_delta_;
    }
    // Asked for first: without a count 255 is read, and that many entries would be checked. A limit that is not a
    // number checks nothing either.
    if (limit > 0.0 && epoch && epoch->is_ava_epo(EPO_SATELLITES)) {
        const unsigned char count = epoch->ReadUint8Epo(EPO_SATELLITES);
        for (unsigned char sat = 0; sat < count; ++sat) Check_Codes(*epoch, sat, limit);
    }
    void *record = std::exchange(epoch, nullptr);
    return Send_Data(record);
}

void Obs_Server::Check_Codes(EPO_DATA &epoch, unsigned char sat, double limit)
{
    const unsigned char flag = epoch.ReadUint8Obs(TRACKING_FLAG, sat);
    switch (flag) {
    case 1:
    case 2:
    case 4: break;
    case 3:
    case 5:
    case 6: Check_Two_Codes(epoch, sat, limit); break;
    case 7: Check_Three_Codes(epoch, sat, limit); break;
    // 255 where the entry was never filled, or lies behind the capacity. Fatal does not end the process: the epoch goes
    // out, too.
    default:
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Fatal, 47, "TRACKING_FLAG %d of EPO_DATA not implemented", int{flag});
    }
}

// A and C also for the flags 3 and 6, which have B and one of them: the other is 0 then, and nothing is compared. So it
// is meant to be; two codes belong in A and C.
void Obs_Server::Check_Two_Codes(EPO_DATA &epoch, unsigned char sat, double limit)
{
    const double a = Code(epoch, OBS_CODE_A, sat), c = Code(epoch, OBS_CODE_C, sat);
    if (!Differ(a, c, limit)) return;
    Invalidate(epoch, sat, {OBS_VALID_A, OBS_VALID_C});
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, 47, "%.2f : Code consistency bad for sat %d -> %.3f %.3f",
                   epoch.ReadDoubleEpo(EPO_SECONDS), int{epoch.ReadUint8Obs(OBS_SATELLITE, sat)}, a, c);
}

// A code of 0 falls out of its pairs, so that this serves one and two measured codes as well. The report's order, B, C,
// A, is part of the text.
void Obs_Server::Check_Three_Codes(EPO_DATA &epoch, unsigned char sat, double limit)
{
    const double a = Code(epoch, OBS_CODE_A, sat), b = Code(epoch, OBS_CODE_B, sat), c = Code(epoch, OBS_CODE_C, sat);
    if (!Differ(b, c, limit) && !Differ(b, a, limit) && !Differ(c, a, limit)) return;
    Invalidate(epoch, sat, {OBS_VALID_B, OBS_VALID_C, OBS_VALID_A});
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, 47, "%.2f : Code consistency bad for sat %d -> %.3f %.3f %.3f",
                   epoch.ReadDoubleEpo(EPO_SECONDS), int{epoch.ReadUint8Obs(OBS_SATELLITE, sat)}, b, c, a);
}

const char Obs_Client::Name[] = "Obs_Client";

Obs_Client::Obs_Client(const char *name) : Object(name ? name : ClassName()) {}

Obs_Client *Obs_Client::Construct()
{
    return Constructed([&] { return new Obs_Client; });
}

bool Obs_Client::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Object_Client::IsInheritedFrom(name);
}

bool Obs_Client::Send(Object_Server &server, CL_Mesg message)
{
    return message == Mesg_Type_Obs || Object_Client::Send(server, message);
}

}  // namespace kernel
