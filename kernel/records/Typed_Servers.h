// The record kinds. Each kind has a server whose records are of one type, and a client that takes only these.
// Pos_Server and Pos_Client do this for Position; every row of KERNEL_RECORD_KINDS gives the same for its own X and
// Record:
//
//   Pos_Server *Pos_Server::Construct()  a server named with its ClassName()
//   Position *Malloc_Pos()               a new record, all zero, or in static mode the server's; null: memory is short
//   bool Send_Pos(Position *&record)     hands it over and makes the pointer null; false: no client, or it refused
//   void Free_Pos(Position *&record)     gives back the producer's record, or one a client owns, and makes it null
//   Position *Get_Pos()                  for the client, inside Mesg_Data_Ready: the record, or null
//   bool Connect(Object_Client *client)  also sends the type; a refusal is reported (3, 26), disconnects, returns false
//   Pos_Client                           replies true to Mesg_Type_Pos; for all else see Object_Client
//
// Macros make the classes and their functions from one table, KERNEL_RECORD_KINDS. What they make, as words to search
// for:
//
//   Eph_Server, Eph_Client: KeplerData; Malloc_Eph, Send_Eph, Free_Eph, Get_Eph
//   Pos_Server, Pos_Client: Position; Malloc_Pos, Send_Pos, Free_Pos, Get_Pos
//   Alm_Server, Alm_Client: almanac; Malloc_Alm, Send_Alm, Free_Alm, Get_Alm
//   UTC_Server, UTC_Client: UTCT; Malloc_UTC, Send_UTC, Free_UTC, Get_UTC
//   Voltage_Server, Voltage_Client: Voltage_Data; Malloc_Voltage, Send_Voltage, Free_Voltage, Get_Voltage
//   Event_Server, Event_Client: EventData; Malloc_Event, Send_Event, Free_Event, Get_Event
//   IONO_Server, IONO_Client: IONOT; Malloc_IONO, Send_IONO, Free_IONO, Get_IONO
//   Glo_Eph_Server, Glo_Eph_Client: GlonassEph; Malloc_Glo_Eph, Send_Glo_Eph, Free_Glo_Eph, Get_Glo_Eph
//   WAAS_Server, WAAS_Client: WAAS_Data; Malloc_WAAS, Send_WAAS, Free_WAAS, Get_WAAS
//   RTCM_Server, RTCM_Client: rtcm_epo_data; Malloc_RTCM, Send_RTCM, Free_RTCM, Get_RTCM
//   Met_Server, Met_Client (below the table): Met_Data; Malloc_Met, Send_Met, Free_Met, getMet
//
// A subclass of either names itself through the virtual base Object, which the most derived class constructs. A name
// that it passes to Pos_Server or Pos_Client is ignored:
//
//   class My_Server : public Pos_Server {
//   public:
//       My_Server() : Object("mine") {}
//   };
//
// Threads, ownership and errors are those of Object_Server and Object_Client. Observation epochs have their own unit,
// OBS_SERV. For its own kind a host derives from Typed_Server and Typed_Client with one of the types from 10100 on.
#pragma once

#include "kernel/connections/OBJ_SERV.h"
#include "kernel/records/Position.h"
#include "kernel/records/Records.h"
#include "kernel/records/comorb.h"

#include <new>
#include <utility>

namespace kernel {

// One row per kind: X, Record, type, and the names of server and client, which IsInheritedFrom compares. Meteorological
// data follow below, because their wrappers differ.
//
// Classes made from the rows: Eph_Server, Eph_Client, Pos_Server, Pos_Client, Alm_Server, Alm_Client, UTC_Server,
// UTC_Client, Voltage_Server, Voltage_Client, Event_Server, Event_Client, IONO_Server, IONO_Client, Glo_Eph_Server,
// Glo_Eph_Client, WAAS_Server, WAAS_Client, RTCM_Server, RTCM_Client.
#define KERNEL_RECORD_KINDS(KIND)                                                                                      \
    KIND(Eph, KeplerData, Mesg_Type_Eph, "gps_Eph_Server", "gps_Eph_Client")                                           \
    KIND(Pos, Position, Mesg_Type_Pos, "Pos_Server", "Pos_Client")                                                     \
    KIND(Alm, almanac, Mesg_Type_Alm, "Alm_Server", "Alm_Client")                                                      \
    KIND(UTC, UTCT, Mesg_Type_UTC, "UTC_Server", "UTC_Client")                                                         \
    KIND(Voltage, Voltage_Data, Mesg_Type_Voltage, "Voltage_Server", "Voltage_Client")                                 \
    KIND(Event, EventData, Mesg_Type_Event, "Event_Server", "Event_Client")                                            \
    KIND(IONO, IONOT, Mesg_Type_IONO, "IONO_Server", "IONO_Client")                                                    \
    KIND(Glo_Eph, GlonassEph, Mesg_Type_Glo_Eph, "Glo_Eph_Server", "Glo_Eph_Client")                                   \
    KIND(WAAS, WAAS_Data, Mesg_Type_WAAS, "WAAS_Server", "WAAS_Client")                                                \
    KIND(RTCM, rtcm_epo_data, Mesg_Type_RTCM, "RTCM_Server", "RTCM_Client")

// The common part of the servers of all kinds.
//
// Threads:   as Object_Server.
// Ownership: as Object_Server.
// Errors:    as Object_Server; a client that refuses the type is reported (3, 26).
template <class Record, CL_Mesg type>
class Typed_Server : public Object_Server {
public:
    bool Connect(Object_Client *client) override
    {
        // The text for ephemerides differs; both are part of the interface.
        return Connect_Typed(client,
                             type == Mesg_Type_Eph ? "Client %s couldn't work with type %d"
                                                   : "Client %s could not work with type %d.",
                             "kernel/Typed_Servers", __LINE__);
    }
    ~Typed_Server() override { End(); }

protected:
    Typed_Server() : Object(nullptr), Object_Server(type) {}

    void *_Alloc_Object() override { return new (std::nothrow) Record(); }
    void _Free_Object(void *record) override { delete static_cast<Record *>(record); }

    Record *Malloc_Record() { return static_cast<Record *>(Malloc()); }
    Record *Get_Record() { return static_cast<Record *>(Get_Object()); }
    bool Send_Record(Record *record)
    {
        void *sent = record;
        return Send_Data(sent);
    }
    void Free_Record(Record *record)
    {
        void *freed = record;
        Free(freed);
    }
};

// The common part of the clients of all kinds.
//
// Threads:   as Object_Client.
// Ownership: as Object_Client.
// Errors:    as Object_Client.
template <CL_Mesg type>
class Typed_Client : public Object_Client {
public:
    bool Send(Object_Server &server, CL_Mesg message) override
    {
        return message == type || Object_Client::Send(server, message);
    }

protected:
    Typed_Client() : Object(nullptr) {}
};

// The declarations that all classes have; Typed_Servers.cpp defines them. The destructor of each server calls End()
// itself, so that its client can still call the wrappers, such as Free_Pos.
#define KERNEL_NAMED_CLASS(Class)                                                                                      \
public:                                                                                                                \
    static const char Name[];                                                                                          \
    static const char *ClassName() { return Name; }                                                                    \
    bool IsInheritedFrom(const char *name) const override;                                                             \
    static Class *Construct();                                                                                         \
    static void Destruct(Class *object) { Object::Destruct(object); }                                                  \
                                                                                                                       \
protected:                                                                                                             \
    explicit Class(const char *name = Name);

#define KERNEL_DECLARE_KIND(X, Record, type, server_name, client_name)                                                 \
    class KERNEL_API X##_Server : public Typed_Server<Record, type> {                                                  \
        KERNEL_NAMED_CLASS(X##_Server)                                                                                 \
    public:                                                                                                            \
        ~X##_Server() override { End(); }                                                                              \
        Record *Malloc_##X() { return Malloc_Record(); }                                                               \
        bool Send_##X(Record *&record) { return Send_Record(std::exchange(record, nullptr)); }                         \
        void Free_##X(Record *&record) { Free_Record(std::exchange(record, nullptr)); }                                \
        Record *Get_##X() { return Get_Record(); }                                                                     \
    };                                                                                                                 \
    class KERNEL_API X##_Client : public Typed_Client<type> {                                                          \
        KERNEL_NAMED_CLASS(X##_Client)                                                                                 \
    };

KERNEL_RECORD_KINDS(KERNEL_DECLARE_KIND)
#undef KERNEL_DECLARE_KIND

// Meteorological data: the getter has another name, and Send_Met and Free_Met do not set the caller's pointer to null.
// It must not be used afterwards.
//
// Threads:   as Object_Server.
// Ownership: as Object_Server.
// Errors:    as Typed_Server.
class KERNEL_API Met_Server : public Typed_Server<Met_Data, Mesg_Type_Met> {
    KERNEL_NAMED_CLASS(Met_Server)  // "Meterologic-Server"
public:
    ~Met_Server() override { End(); }
    Met_Data *Malloc_Met() { return Malloc_Record(); }
    bool Send_Met(Met_Data *record) { return Send_Record(record); }
    void Free_Met(Met_Data *record) { Free_Record(record); }
    Met_Data *getMet() { return Get_Record(); }
};

// Takes meteorological data.
//
// Threads:   as Object_Client.
// Ownership: as Object_Client.
// Errors:    as Object_Client.
class KERNEL_API Met_Client : public Typed_Client<Mesg_Type_Met> {
    KERNEL_NAMED_CLASS(Met_Client)  // "Meterologic_Client"
};
#undef KERNEL_NAMED_CLASS

}  // namespace kernel
