#include "kernel/transports/serial_reader_internal.h"

#include "kernel/base/Error_Handler.h"

namespace kernel {

namespace {

const char unit[] = "kernel/Serial_Client_Server_Base";

constexpr Err_Code serial_code = 72;

}  // namespace

unsigned long Serial_Reader::Work()
{
    if (!Prepare()) return static_cast<unsigned long>(-1);
    port_.SetCommNoWait();
    if (const auto line = Line()) line->set_event_mask(platform::serial_event_received | platform::serial_event_error);
    Begin();
    Run();
    return 0;
}

// From here on Serial_Client_Server_Base::Work asks for another run.
bool Serial_Reader::End()
{
    port_.Enter(Serial_Client_Server_Base::Phase::ending);
    Tell(Mesg_Detached);
    return false;
}

// The client hears Mesg_Status_110 while the port is still open, and Mesg_Detached when it is closed. Another run is
// excluded first, because it would have no port.
bool Serial_Reader::Lost()
{
    port_.Enter(Serial_Client_Server_Base::Phase::ended);
    Tell(Mesg_Status_110);
    port_.Close();
    return End();
}

bool Serial_Reader::Unwanted_For(double silent_seconds, const char *what)
{
    port_.Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, serial_code, "Timeout no %s since %.3f sec", what, silent_seconds);
    return Lost();
}

bool Serial_Reader::Accept(long n)
{
    if (n > most) {
        port_.Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Fatal, serial_code, "%s could not handle more than %u-Bytes", port_.GetName(),
                       static_cast<unsigned int>(most));
        return false;
    }
    Want(n);
    return true;
}

}  // namespace kernel
