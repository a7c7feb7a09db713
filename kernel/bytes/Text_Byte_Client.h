// Received bytes on the screen: the end of a chain in console programs.
#pragma once

#include "kernel/connections/BYTE_SER.h"

namespace kernel {

// Prints each byte on the standard output, one per Mesg_Data_Ready. The stream is not flushed: a program that shows
// prompts without a line end takes its buffer away (setvbuf).
//
// Threads:   prints on the server's delivering thread; a byte is never torn.
// Ownership: as Byte_Client.
// Errors:    none; what the standard output refuses is lost. A server that has no byte although it told so gives
//            No_Byte, and 255 is printed: kept as it is.
class KERNEL_API Text_Byte_Client : public Byte_Client {
public:
    static const char Name[];  // "Text_Byte_Client"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    static Text_Byte_Client *Construct();
    static void Destruct(Text_Byte_Client *client) { Object::Destruct(client); }

    bool Send(Byte_Server &server, CL_Mesg message) override;

protected:
    explicit Text_Byte_Client(const char *name);
};

}  // namespace kernel
