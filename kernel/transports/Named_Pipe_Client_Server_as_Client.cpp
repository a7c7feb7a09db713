#include "kernel/transports/Named_Pipe_Client_Server_as_Client.h"

#include "kernel/transports/pipe_reader_internal.h"

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/pipe.h"

#include <cstring>

namespace kernel {

namespace {

const char unit[] = "kernel/Named_Pipe_Client_Server_as_Client";

constexpr Err_Code open_code = 89;
constexpr int most_tries = 7;  // to open a busy pipe
constexpr unsigned long busy_wait_ms = 500;

}  // namespace

const char Named_Pipe_Client_Server_as_Client::Name[] = "Client/Server for Named Pipes as Client";

Named_Pipe_Client_Server_as_Client::Named_Pipe_Client_Server_as_Client(Error_Handler &handler, unsigned int buffer_size)
    : Object(Name, &handler), Named_Pipe_Client_Server_Base(handler, buffer_size, Name)
{
}

Named_Pipe_Client_Server_as_Client::Named_Pipe_Client_Server_as_Client(unsigned int buffer_size)
    : Object(Name), Named_Pipe_Client_Server_Base(buffer_size, Name)
{
}

Named_Pipe_Client_Server_as_Client::~Named_Pipe_Client_Server_as_Client() { Stop_Threads(); }

Named_Pipe_Client_Server_as_Client *Named_Pipe_Client_Server_as_Client::Construct(Error_Handler &handler,
                                                                                  unsigned int buffer_size)
{
    return Constructed([&] { return new Named_Pipe_Client_Server_as_Client(handler, buffer_size); });
}

Named_Pipe_Client_Server_as_Client *Named_Pipe_Client_Server_as_Client::Construct(unsigned int buffer_size)
{
    return Constructed([&] { return new Named_Pipe_Client_Server_as_Client(buffer_size); });
}

bool Named_Pipe_Client_Server_as_Client::IsInheritedFrom(const char *name) const
{
    return (name && (std::strcmp(name, Name) == 0 || std::strcmp(name, ClassName()) == 0)) ||
           Named_Pipe_Client_Server_Base::IsInheritedFrom(name);
}

const char *Named_Pipe_Client_Server_as_Client::GetRemoteName() { return Remote_Name("Client"); }

void Named_Pipe_Client_Server_as_Client::Enable_Auto_Reconnect(unsigned long seconds)
{
    auto_reconnect_ms_.store(static_cast<std::uint32_t>(seconds) * 1000, std::memory_order_relaxed);
}

// Opening.

int Named_Pipe_Client_Server_as_Client::Create(const char *const name)
{
    if (!Make_Way()) return 0;
    const bool is_named = !name || Set_Pipe_Name(name);
    const std::string pipe = Pipe_Name();
    Tried tried = is_named && !pipe.empty() ? Tried::again : Tried::failed;
    if (tried == Tried::again) SetStatus(Status_Connecting);
    for (int i = 1; tried == Tried::again && i <= most_tries; ++i) tried = Try_To_Open(pipe.c_str(), i);
    if (tried == Tried::open || tried == Tried::later) return 1;
    Close();
    SetStatus(Status_Failed);
    if (tried == Tried::again)
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Error, open_code, "Timeout opening Named Pipe Client \"%s\".", pipe.c_str());
    return 0;
}

Named_Pipe_Client_Server_as_Client::Tried Named_Pipe_Client_Server_as_Client::Try_To_Open(const char *name, int number)
{
    if (auto connection = platform::open_pipe(name)) {
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Information, open_code, "Opened Named Pipe Client \"%s\" successfully.", name);
        reader_->Connect(std::move(connection));
        return Tried::open;
    }
    const std::uint32_t error = platform::last_error();
    const bool has_time = Get_Auto_Reconnect_Time() > 0;
    Error_Handler &report = Report(unit, __LINE__);
    switch (error) {
    case platform::error_not_found:
        report.Print_Out(Error_Handler::ES_Error, open_code, "No Server for Named Pipe \"%s\" present.", name);
        return has_time ? Tried::later : Tried::failed;
    case platform::error_path_not_found:
        report.Print_Out(Error_Handler::ES_Error, open_code,
                         "Server for Named Pipe \"%s\" is present, but no free instance available.", name);
        return has_time ? Tried::later : Tried::failed;
    case platform::error_pipe_busy:
        report.Print_Out(Error_Handler::ES_Warning, open_code, "Waiting on busy Named Pipe \"%s\" (%d. retry).", name,
                         number);
        if (has_time) return Tried::later;
        SetStatus(Status_Pipe_Busy);
        platform::wait_for_pipe(name, busy_wait_ms);
        return Tried::again;
    default: ReportErrorIntern(error, "Open Client", open_code, Error_Handler::ES_Error); return Tried::failed;
    }
}

// The thread.

unsigned long Named_Pipe_Client_Server_as_Client::thread()
{
    Next next = Next::serve;
    while (next == Next::serve) {
        Named_Pipe_Client_Server_Base::thread();
        next = Reconnect();
    }
    Close();
    SetStatus(next == Next::end ? Status_Waiting : Status_Failed);
    return next == Next::end ? 1 : 0;
}

Named_Pipe_Client_Server_as_Client::Next Named_Pipe_Client_Server_as_Client::Reconnect()
{
    const std::uint64_t start = platform::clock_ms();
    while (Get_Auto_Reconnect_Time() > 0 && !Stop_Requested()) {
        reader_->End_Connection();
        reader_->Pause(Get_Auto_Reconnect_Time());
        if (Stop_Requested()) break;
        const auto seconds = static_cast<unsigned int>((platform::clock_ms() - start + 1000) / 1000);
        const std::string name = Pipe_Name();
        auto connection = platform::open_pipe(name);
        if (!connection && May_Try_Again(platform::last_error(), name.c_str(), seconds)) continue;
        if (!connection) return Next::give_up;
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Information, open_code,
                       "Opened Named Pipe Client \"%s\" after %u sec was successfully.", name.c_str(), seconds);
        reader_->Connect(std::move(connection));
        return Next::serve;
    }
    return Next::end;
}

// Reports why the pipe could not be opened. A busy pipe is waited for under the class's name, which no pipe has, so
// that the wait ends at once; this is part of the interface.
bool Named_Pipe_Client_Server_as_Client::May_Try_Again(std::uint32_t error, const char *name, unsigned int seconds)
{
    Error_Handler &report = Report(unit, __LINE__);
    switch (error) {
    case platform::error_not_found:
        report.Print_Out(Error_Handler::ES_Information, open_code,
                         "No Server for Named Pipe \"%s\" present, waiting since %u sec.", name, seconds);
        return true;
    case platform::error_path_not_found:
        report.Print_Out(Error_Handler::ES_Information, open_code,
                         "Server for Named Pipe \"%s\" is present, but no free instance available.\nWaiting since %u "
                         "sec.",
                         name, seconds);
        return true;
    case platform::error_pipe_busy:
        report.Print_Out(Error_Handler::ES_Information, open_code, "Waiting on busy Named Pipe \"%s\" since %u sec.",
                         name, seconds);
        SetStatus(Status_Pipe_Busy);
        platform::wait_for_pipe(Name, busy_wait_ms);
        return true;
    case platform::error_bad_network_path:
        report.Print_Out(Error_Handler::ES_Fatal, open_code, "Server Name for Named Pipe \"%s\" invalid.", name);
        return false;
    default: ReportErrorIntern(error, "Open Client", open_code, Error_Handler::ES_Error); return false;
    }
}

}  // namespace kernel
