// A server of a named pipe: makes the pipe and serves one client after another.
#pragma once

#include "kernel/transports/Named_Pipe_Client_Server_Base.h"

namespace kernel {

// A client that opens the pipe between Create and the start of the thread is thrown out by the thread's first
// disconnect. A disconnect drops what the client has not read; Close does not.
//
// Threads:   as the base.
// Ownership: as the base.
// Errors:    kernel/Named_Pipe_Client_Server_as_Server: code 89 for Create (1, 3; 4 without memory), code 91 for
//            clients that come and go, the stop (1), and a wait that is no longer wanted (3); the system's errors (3,
//            15).
class KERNEL_API Named_Pipe_Client_Server_as_Server : public Named_Pipe_Client_Server_Base {
public:
    static const char Name[];  // "Client/Server for Named Pipes as Server": also the name of each object
    static const char *ClassName() { return "Named_Pipe_Client_Server_as_Server"; }
    bool IsInheritedFrom(const char *name) const override;  // of either text

    // buffer_size: of the writer, see SetBufferSize. The second form reports to the default handler.
    static Named_Pipe_Client_Server_as_Server *Construct(Error_Handler &handler, unsigned int buffer_size);
    static Named_Pipe_Client_Server_as_Server *Construct(unsigned int buffer_size);
    static void Destruct(Named_Pipe_Client_Server_as_Server *object) { Object::Destruct(object); }

    // Makes the pipe, which has one instance: 1, or 0 with a report. Ends a thread that runs; call Work after it.
    int Create(const char *const name);

    const char *GetRemoteName() override;  // "Idle Named Pipe Server NAME", "Working Named Pipe Server NAME", ...

    ~Named_Pipe_Client_Server_as_Server() override;

protected:
    Named_Pipe_Client_Server_as_Server(Error_Handler &handler, unsigned int buffer_size);
    explicit Named_Pipe_Client_Server_as_Server(unsigned int buffer_size);

    unsigned long thread() override;  // 0 after a stop, a failure or without a client; 1 when the pipe was closed
    bool Is_Server() const override { return true; }

private:
    struct Visit;  // the pipe, and its client
    bool Wait_For_Client(Visit &visit);
    void Serve(Visit &visit);
    void Fail(std::uint32_t error);
    void Say(unsigned int line, const char *before, const char *behind) const;  // around the quoted name of the pipe
};

}  // namespace kernel
