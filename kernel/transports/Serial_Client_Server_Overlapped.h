// A serial port that is read by transfers: the thread sleeps until something comes.
#pragma once

#include "kernel/transports/Serial_Client_Server_Base.h"

namespace kernel {

class Serial_Overlapped_Reader;

// Beside what the base says, the client hears Mesg_Status_40 for each second of waiting in which nothing came, and
// Mesg_Pause where the system reads nothing instead of waiting (Windows).
//
// Threads:   as the base. Send does not wait until its bytes are written, but for those of the Send before; a stop and
//            Close end that. Where no reader thread runs, it waits until its own are written; pre_stop and Close end
//            that. Close gives a write under way half a second, and refuses others.
// Ownership: as the base. The bytes of a write under way have a block of their own.
// Errors:    kernel/Serial_Client_Server_Overlapped, code 72: "Client did not want data." (level 4), "Handle not valid"
//            when the port is closed under the thread, "Timeout no Data since ...", "Unexpected Wait return value ..."
//            (level 3; the last two close the port), "Terminate Thread requested" (level 0), and the system's errors. A
//            port that is lost (error 6) ends the thread.
class KERNEL_API Serial_Client_Server_Overlapped : public Serial_Client_Server_Base {
public:
    static const char Name[];  // "Server for overlapped serial Communication"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // A null name is the class's.
    static Serial_Client_Server_Overlapped *Construct(Error_Handler &handler, const char *const name);
    static void Destruct(Serial_Client_Server_Overlapped *object) { Object::Destruct(object); }

    bool IsValid() const override;
    void Close() override;
    // At most 4096 bytes; true when they are held already.
    bool Request(long n) override;
    bool Send(Byte_Server &server, CL_Mesg message) override;

    ~Serial_Client_Server_Overlapped() override;

protected:
    Serial_Client_Server_Overlapped(Error_Handler &handler, const char *name);
    bool OpenFile(int port) override;

private:
    friend class Serial_Overlapped_Reader;
    friend struct Comm_Event_Access;  // for the test of HandleCommEvent
    struct Writing;

    bool Previous_Write_Ended();
    int HandleCommEvent(int pending);
    int Comm_Event_Failed(std::uint32_t error);

    Serial_Overlapped_Reader &overlapped_;  // the base's reader
    const std::unique_ptr<Writing> writing_;
};

}  // namespace kernel
