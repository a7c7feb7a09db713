#include "kernel/transports/Named_Pipe_Client_Server_as_Server.h"

#include "kernel/transports/pipe_reader_internal.h"

#include "platform/error.h"
#include "platform/pipe.h"

#include <cstring>

namespace kernel {

namespace {

const char unit[] = "kernel/Named_Pipe_Client_Server_as_Server";

constexpr Err_Code open_code = 89, transfer_code = 91, server_code = 15;

}  // namespace

const char Named_Pipe_Client_Server_as_Server::Name[] = "Client/Server for Named Pipes as Server";

Named_Pipe_Client_Server_as_Server::Named_Pipe_Client_Server_as_Server(Error_Handler &handler, unsigned int buffer_size)
    : Object(Name, &handler), Named_Pipe_Client_Server_Base(handler, buffer_size, Name)
{
}

Named_Pipe_Client_Server_as_Server::Named_Pipe_Client_Server_as_Server(unsigned int buffer_size)
    : Object(Name), Named_Pipe_Client_Server_Base(buffer_size, Name)
{
}

Named_Pipe_Client_Server_as_Server::~Named_Pipe_Client_Server_as_Server() { Stop_Threads(); }

Named_Pipe_Client_Server_as_Server *Named_Pipe_Client_Server_as_Server::Construct(Error_Handler &handler,
                                                                                  unsigned int buffer_size)
{
    return Constructed([&] { return new Named_Pipe_Client_Server_as_Server(handler, buffer_size); });
}

Named_Pipe_Client_Server_as_Server *Named_Pipe_Client_Server_as_Server::Construct(unsigned int buffer_size)
{
    return Constructed([&] { return new Named_Pipe_Client_Server_as_Server(buffer_size); });
}

bool Named_Pipe_Client_Server_as_Server::IsInheritedFrom(const char *name) const
{
    return (name && (std::strcmp(name, Name) == 0 || std::strcmp(name, ClassName()) == 0)) ||
           Named_Pipe_Client_Server_Base::IsInheritedFrom(name);
}

const char *Named_Pipe_Client_Server_as_Server::GetRemoteName() { return Remote_Name("Server"); }

int Named_Pipe_Client_Server_as_Server::Create(const char *const name)
{
    if (!Make_Way()) return 0;
    if (!Set_Pipe_Name(name)) {
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Fatal, open_code, "No memory for Named Pipe Server \"%s\".", name);
        return 0;
    }
    auto pipe = platform::Server_Pipe::create(name ? name : "");
    if (!pipe) {
        ReportErrorIntern(platform::last_error(), "Open Server", open_code, Error_Handler::ES_Error);
        Set_Pipe_Name(nullptr);
        SetStatus(Status_Failed);
        return 0;
    }
    reader_->Listen(std::move(pipe));
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Information, open_code, "Named Pipe Server \"%s\" opened successfully.", name);
    return 1;
}

// The thread.

struct Named_Pipe_Client_Server_as_Server::Visit {
    std::shared_ptr<platform::Server_Pipe> pipe;
    std::shared_ptr<platform::Stream> client;
};

// The first disconnect of a new pipe fails, which is not reported.
unsigned long Named_Pipe_Client_Server_as_Server::thread()
{
    reader_->Renew_Stop_Signal();
    if (!Get_Byte_Client()) {
        SetStatus(Status_Failed);
        return 0;
    }
    for (Visit visit{reader_->Pipe(), nullptr}; visit.pipe; visit = {reader_->Pipe(), nullptr}) {
        if (Stop_Requested()) {
            Close();
            return 0;
        }
        SetStatus(Status_Waiting);
        visit.pipe->disconnect();
        Say(__LINE__, "Named Pipe Server ", " waiting for new client.");
        if (!Wait_For_Client(visit)) return 0;
        Serve(visit);
    }
    return 1;
}

// False: the thread ends, and what led to that was reported, except for a close on this side.
bool Named_Pipe_Client_Server_as_Server::Wait_For_Client(Visit &visit)
{
    if (!visit.pipe->listen()) {
        Fail(platform::last_error());
        return false;
    }
    switch (reader_->Wait_For_Client(*visit.pipe, visit.client)) {
    case Pipe_Reader::Woken::by_stop:
        Say(__LINE__, "Termination of Named Pipe Server thread ", " requested.");
        Close();
        break;
    case Pipe_Reader::Woken::by_signal:
        if (!visit.client) Fail(platform::last_error());
        break;
    case Pipe_Reader::Woken::given_up: break;
    }
    return visit.client != nullptr;
}

void Named_Pipe_Client_Server_as_Server::Say(unsigned int line, const char *before, const char *behind) const
{
    Report(unit, line)
        .Print_Out(Error_Handler::ES_Information, transfer_code, "%s\"%s\"%s", before, Pipe_Name().c_str(), behind);
}

void Named_Pipe_Client_Server_as_Server::Fail(std::uint32_t error)
{
    if (reader_->Pipe()) ReportErrorIntern(error, "Server", server_code, Error_Handler::ES_Error);
    SetStatus(Status_Disconnected);
    Close();
}

void Named_Pipe_Client_Server_as_Server::Serve(Visit &visit)
{
    Say(__LINE__, "Client connected with Named Pipe Server ", ".");
    if (!reader_->Connect(std::move(visit.client))) return;
    SetStatus(Status_Connected_As_Server);
    Named_Pipe_Client_Server_Base::thread();
    reader_->End_Connection();
    Say(__LINE__, "Client disconnected from Named Pipe Server ", ".");
    SetStatus(Status_Disconnected);
}

}  // namespace kernel
