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

constexpr Err_Code no_memory = 18;
constexpr Err_Code bad_codes = 47;  // codes that differ too much, and a TRACKING_FLAG that does not say which there are
constexpr unsigned char unusable = 255;

// [m]. 0 when not measured. EPO_DATA returns -1 for a code that the epoch does not have.
double Code(const EPO_DATA &epoch, ObsDataTypes type, unsigned char sat)
{
    const double code = epoch.ReadDoubleObs(type, sat);
    return code == -1.0 ? 0.0 : code;
}

// False for a code that is not a number: it is passed on and not marked.
bool Differ(double one, double other, double limit)
{
    return one != 0.0 && other != 0.0 && std::fabs(other - one) > limit;
}

void Invalidate(EPO_DATA &epoch, unsigned char sat, std::initializer_list<ObsDataTypes> types)
{
    // A quantity for which there is no place reads 255 as well.
    for (const ObsDataTypes type : types) epoch.StoreUint8Obs(type, unusable, sat);
}

}  // namespace

const char Obs_Server::Name[] = "Obs_Server";

// Object is a virtual base, so the most derived class names it. The name that Object_Server would pass is ignored.
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
    // Unlike the text of the base this one has no full stop; both are part of the interface.
    return Connect_Typed(client, "Client %s couldn't work with type %d", unit, __LINE__);
}

// Returns null without memory, which Object_Server reports. Each array is allocated by its first store.
void *Obs_Server::_Alloc_Object() { return new (std::nothrow) EPO_DATA(Default_Capacity); }

void Obs_Server::_Free_Object(void *record) { delete static_cast<EPO_DATA *>(record); }

EPO_DATA *Obs_Server::Malloc_Obs(int capacity)
{
    // Holds the lock over both steps, so that Connect cannot change the mode in between. Malloc reports its own
    // failure.
    const Semaphore_Guard guard(*this);
    if (StaticAlloc()) return static_cast<EPO_DATA *>(Malloc());
    auto *epoch = new (std::nothrow) EPO_DATA(capacity);
    if (!epoch)
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Error, no_memory, "Couldn't allocate epoch data (no memory)");
    return epoch;
}

void Obs_Server::Free_Obs(EPO_DATA *&epoch)
{
    // Free takes a reference to a void pointer; the caller's pointer has another type.
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
    // Copied, so that the check runs without the lock: its reports call the host's handler.
    double limit = 0.0;
    {
        const Semaphore_Guard guard(*this);
        limit = max_code_delta_;
    }
    // is_ava_epo first: an absent count reads 255, and 255 entries would be checked. The comparison is also false for a
    // limit that is not a number.
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
    // The flag is 255 when the entry was never stored or is beyond the capacity. ES_Fatal does not end the process; the
    // epoch is still sent.
    default:
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Fatal, bad_codes, "TRACKING_FLAG %d of EPO_DATA not implemented", int{flag});
    }
}

// Compares A and C also for the flags 3 (A and B) and 6 (B and C). One of them is 0 then, and nothing is compared:
// EPO_DATA asks producers to store two codes in A and C.
void Obs_Server::Check_Two_Codes(EPO_DATA &epoch, unsigned char sat, double limit)
{
    const double a = Code(epoch, OBS_CODE_A, sat), c = Code(epoch, OBS_CODE_C, sat);
    if (!Differ(a, c, limit)) return;
    Invalidate(epoch, sat, {OBS_VALID_A, OBS_VALID_C});
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, bad_codes, "%.2f : Code consistency bad for sat %d -> %.3f %.3f",
                   epoch.ReadDoubleEpo(EPO_SECONDS), int{epoch.ReadUint8Obs(OBS_SATELLITE, sat)}, a, c);
}

// A pair with a code of 0 is not compared, so that one or two measured codes are handled as well. The order B, C, A in
// the report is part of its text.
void Obs_Server::Check_Three_Codes(EPO_DATA &epoch, unsigned char sat, double limit)
{
    const double a = Code(epoch, OBS_CODE_A, sat), b = Code(epoch, OBS_CODE_B, sat), c = Code(epoch, OBS_CODE_C, sat);
    if (!Differ(b, c, limit) && !Differ(b, a, limit) && !Differ(c, a, limit)) return;
    Invalidate(epoch, sat, {OBS_VALID_B, OBS_VALID_C, OBS_VALID_A});
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, bad_codes, "%.2f : Code consistency bad for sat %d -> %.3f %.3f %.3f",
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
