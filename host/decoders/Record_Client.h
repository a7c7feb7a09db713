// A client of a record server that calls a function per record.
#pragma once

#include "kernel/records/OBS_SERV.h"
#include "kernel/records/Typed_Servers.h"

#include <functional>
#include <memory>
#include <utility>

namespace host {

// Base: the client class of the kind; get: the server's getter. The aliases below name the kinds.
//
// Threads:   the function runs on the producer's thread, while the server holds its lock.
// Ownership: the function gets the record. The client belongs to the server it is connected to, unless Dont_Delete_Me
//            was called (see Client_Server).
// Errors:    as Object_Client.
template <class Base, class Server, class Record, Record *(Server::*get)()>
class Record_Client : public Base {
public:
    using Sink = std::function<void(std::unique_ptr<Record>)>;

    explicit Record_Client(Sink sink) : kernel::Object("Record_Client"), sink_(std::move(sink)) {}

    bool Send(kernel::Object_Server &server, kernel::CL_Mesg message) override
    {
        if (message == kernel::Mesg_Request_Invite) return true;
        if (message != kernel::Mesg_Data_Ready) return Base::Send(server, message);
        std::unique_ptr<Record> record((static_cast<Server &>(server).*get)());
        if (record) sink_(std::move(record));
        return true;
    }

private:
    Sink sink_;
};

using Obs_Record_Client =
    Record_Client<kernel::Obs_Client, kernel::Obs_Server, kernel::EPO_DATA, &kernel::Obs_Server::Get_Obs>;
using Eph_Record_Client =
    Record_Client<kernel::Eph_Client, kernel::Eph_Server, kernel::KeplerData, &kernel::Eph_Server::Get_Eph>;
using Glo_Eph_Record_Client = Record_Client<kernel::Glo_Eph_Client, kernel::Glo_Eph_Server, kernel::GlonassEph,
                                            &kernel::Glo_Eph_Server::Get_Glo_Eph>;
using Pos_Record_Client =
    Record_Client<kernel::Pos_Client, kernel::Pos_Server, kernel::Position, &kernel::Pos_Server::Get_Pos>;

}  // namespace host
