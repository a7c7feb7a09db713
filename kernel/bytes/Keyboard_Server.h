// Typed lines as a byte stream: the beginning of a chain in console programs.
#pragma once

#include "kernel/bytes/String_Byte_Server.h"

#include <string_view>

namespace kernel {

// Serves the lines of the standard input, each with "\r\n" behind it.
//
// A line is treated as a printf format without arguments: "%%" becomes a percent sign, the directive of a number a
// zero, and the directive of a text nothing. Width, precision and flags count; "%n" becomes nothing. Anything that is
// no directive stays as it was typed. A line may have any length: it is read in pieces of 5027 characters, and at most
// 5051 characters of the result of each piece are served. A result that the ring does not hold is served in parts, one
// after the other.
//
// Threads:   Work blocks while it waits for a line; call Put and its like on the same thread.
// Ownership: as String_Byte_Server.
// Errors:    kernel/Keyboard_Server: "Typed line does not fit into the buffer, %u characters discarded" (2, 15): the
//            client asks for more at once than the ring holds.
class KERNEL_API Keyboard_Server : public String_Byte_Server {
public:
    static const char Name[];  // "Server for Keyboard Input"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // size: bytes of the ring. Null when size < 2 or memory is short.
    static Keyboard_Server *Construct(unsigned long size = 256);
    static void Destruct(Keyboard_Server *server) { Object::Destruct(server); }

    bool IsValid() const override;
    // Reads and serves line by line. Returns true at the end of the input, and false when there is no client or the
    // client refused. What the client did not take is served before the next line.
    bool Work() override;

protected:
    explicit Keyboard_Server(unsigned long size = 256);

private:
    bool Put_Typed(std::string_view text);
};

}  // namespace kernel
