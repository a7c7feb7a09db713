// Observation epochs from producer to client. The server can check the codes of each satellite against each other.
#pragma once

#include "kernel/connections/OBJ_SERV.h"
#include "kernel/records/EPO_DATA.h"

namespace kernel {

// Hands over EPO_DATA records, type Mesg_Type_Obs. A subclass names itself like a subclass of Pos_Server
// (Typed_Servers.h).
//
// Threads:   as Object_Server. The check runs on the producer's thread without the lock: the producer still owns the
//            epoch.
// Ownership: as Object_Server.
// Errors:    as Object_Server; also inconsistent codes (3, 47), a TRACKING_FLAG that is not 1 to 7 (4, 47), an epoch
//            that could not be allocated (3, 18).
class KERNEL_API Obs_Server : public Object_Server {
public:
    static const char Name[];  // "Obs_Server"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    static Obs_Server *Construct();
    static void Destruct(Obs_Server *server) { Object::Destruct(server); }

    bool Connect(Object_Client *client) override;  // also asks the client whether it takes epochs
    // Checks the codes if Max_Code_Delta_Sat is set, and hands the epoch over; the pointer becomes null. Returns what
    // Object_Server::Work returns.
    virtual bool Send_Obs(EPO_DATA *&epoch);

    static constexpr int Default_Capacity = 24;  // [satellites], also of the static record
    EPO_DATA *Malloc_Obs() { return Malloc_Obs(Default_Capacity); }
    // A new epoch. In static mode the static record, which ignores `capacity` and keeps its values, see EPO_DATA.
    EPO_DATA *Malloc_Obs(int capacity);
    void Free_Obs(EPO_DATA *&epoch);
    EPO_DATA *Get_Obs() { return static_cast<EPO_DATA *>(Get_Object()); }  // for the client, inside Mesg_Data_Ready

    // [m]. The largest accepted difference between two codes of a satellite. If it is exceeded, all codes of its
    // TRACKING_FLAG are marked as unusable (OBS_VALID_A to OBS_VALID_C become 255), and this is reported. With 0, the
    // initial value, or less there is no check.
    //   TRACKING_FLAG 3, 5, 6   the codes on A and C
    //   7                       each pair
    //   1, 2, 4                 nothing to compare
    // A code of 0, or one that the epoch does not have, is not compared.
    void Max_Code_Delta_Sat(double difference);

    ~Obs_Server() override;

protected:
    explicit Obs_Server(const char *name = nullptr);

    void *_Alloc_Object() override;
    void _Free_Object(void *record) override;

private:
    void Check_Codes(EPO_DATA &epoch, unsigned char sat, double limit);
    void Check_Two_Codes(EPO_DATA &epoch, unsigned char sat, double limit);
    void Check_Three_Codes(EPO_DATA &epoch, unsigned char sat, double limit);

    double max_code_delta_ = 0.0;  // [m]
};

// Takes epochs. A subclass takes the epoch with Get_Obs when it receives Mesg_Data_Ready.
//
// Threads:   as Object_Client.
// Ownership: as Object_Client.
// Errors:    as Client.
class KERNEL_API Obs_Client : public Object_Client {
public:
    static const char Name[];  // "Obs_Client"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    static Obs_Client *Construct();
    static void Destruct(Obs_Client *client) { Object::Destruct(client); }

    bool Send(Object_Server &server, CL_Mesg message) override;

protected:
    explicit Obs_Client(const char *name = nullptr);
};

}  // namespace kernel
