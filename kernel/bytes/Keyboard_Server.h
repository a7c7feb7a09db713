// Typed lines as a byte stream: the beginning of a chain in console programs.
#pragma once

#include "kernel/bytes/String_Byte_Server.h"

#include <string_view>

namespace kernel {

// Serves the lines of the standard input, each with "\r\n" behind it.
//
// A line is a printf format that has no arguments: "%%" is a percent sign, a number's directive a zero, a text's is
// empty; width, precision and flags count, and "%n" is nothing. What is no directive stays as it was typed. Of what
// a line becomes, at most 5051 characters are served. A line may have any length: it is read in pieces of 5027
// characters, and pieces that the ring does not hold are served one after the other.
//
// Threads:   Work blocks while it waits for a line; Put and the like are for the same thread.
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
    // Reads and serves line by line. True at the end of the input; false when no client is there, or it refused: what
    // it has not taken is served in front of the next line.
    bool Work() override;

protected:
    explicit Keyboard_Server(unsigned long size = 256);

private:
    bool Put_Typed(std::string_view text);
};

}  // namespace kernel
