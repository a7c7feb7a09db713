// A serial port that is read without waiting, by a thread that looks once a millisecond.
#pragma once

#include "kernel/transports/Serial_Client_Server_Base.h"

namespace kernel {

class Serial_Polling_Reader;

// Beside what the base says, the client hears Mesg_Pause whenever nothing was there to read, and Mesg_Status_250
// for a break on the line. A client that does not handle the pause sleeps 40 ms in it.
//
// Threads:   as the base. Send waits until the bytes are written. A stop of the reader thread ends that, and without
//            one pre_stop and Close do.
// Ownership: as the base.
// Errors:    kernel/Serial_Client_Server, level 3, code 72: "Timeout no data since ..." (closes the port); the system's
//            errors. Those of reading are reported once until another one comes or bytes do. A port that is lost (error
//            6) ends the thread.
class KERNEL_API Serial_Client_Server : public Serial_Client_Server_Base {
public:
    static const char Name[];  // "Server for serial Communication"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // A null name is the class's.
    static Serial_Client_Server *Construct(Error_Handler &handler, const char *const name);
    static void Destruct(Serial_Client_Server *object) { Object::Destruct(object); }

    // At most 4096 bytes. Reads what is missing, if it is there; true when n bytes are held.
    bool Request(long n) override;
    bool Send(Byte_Server &server, CL_Mesg message) override;

    ~Serial_Client_Server() override;

protected:
    Serial_Client_Server(Error_Handler &handler, const char *name);
    bool OpenFile(int port) override;

private:
    friend class Serial_Polling_Reader;
};

}  // namespace kernel
