#include "kernel/transports/Serial_Client_Server.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/transports/receive_buffer_internal.h"
#include "kernel/transports/serial_line_internal.h"

#include "platform/error.h"

#include <algorithm>
#include <cstring>

namespace kernel {

const char Serial_Client_Server::Name[] = "Server for serial Communication";

Serial_Client_Server::Serial_Client_Server(Error_Handler &handler, const char *name)
    : Object(name, &handler), Serial_Client_Server_Base(handler, name)
{
}

Serial_Client_Server::~Serial_Client_Server()
{
    stop();
    Serial_Client_Server_Base::Close();
}

Serial_Client_Server *Serial_Client_Server::Construct(Error_Handler &handler, const char *const name)
{
    return Constructed([&] { return new Serial_Client_Server(handler, name ? name : ClassName()); });
}

bool Serial_Client_Server::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Serial_Client_Server_Base::IsInheritedFrom(name);
}

bool Serial_Client_Server::OpenFile(int port)
{
    const std::string name = Device_Name(port);
    SetComName(name.c_str());
    return Open_Device(name.c_str());
}

bool Serial_Client_Server::Request(long n)
{
    if (!Accept_Request(n)) return false;
    if (Held() < n) Read(static_cast<std::size_t>(n - Held()));
    return Held() >= n;
}

unsigned long Serial_Client_Server::Run()
{
    if (!Get_Byte_Client()) return static_cast<unsigned long>(-1);
    read_error_ = platform::error_none;
    Attach();
    while (IsActive() && !Stop_Requested() && Tell(Mesg_Request_Invite)) {
        if (Requested() < 1) Sleep(1);  // it accepts and wants nothing: not as fast as the machine can
        if (!Fill() || !Deliver()) return 0;
    }
    Detach();
    return 0;
}

// Reads until what was requested is held, or the port is closed, or a stop comes. False when the line is given up: the
// client has been told.
bool Serial_Client_Server::Fill()
{
    Be_Patient();
    while (Held() < Requested()) {
        const auto port = line_->Get();
        std::uint32_t errors = 0;
        if (!port || Stop_Requested()) break;
        if (port->clear_error(errors) && (errors & platform::serial_break) != 0) Tell(Mesg_Status_250);
        const bool came = Read(block_size);
        if (Stop_Requested()) break;
        if (read_error_ == platform::error_invalid_handle && IsActive()) return Lost();
        if (!came && !Nothing_Came()) return false;
    }
    return true;
}

// The tick is looked at only here: a client with data to work on has its own idea of the time.
bool Serial_Client_Server::Nothing_Came()
{
    Sleep(1);
    Tick();
    if (!Is_Patient() && !Still_Wanted("data")) return Lost();
    Tell(Mesg_Pause);
    return true;
}

// What is there, at most n bytes; whether something was. Looking every millisecond, it reports an error that stays
// once, and not a thousand times a second.
bool Serial_Client_Server::Read(std::size_t n)
{
    const auto port = line_->Get();
    if (!port) return false;
    received_->Compact();
    std::size_t got = 0;
    const bool good = port->read(received_->End(), std::min(n, received_->Room()), got);
    const std::uint32_t error = good ? std::uint32_t{platform::error_none} : platform::last_error();
    received_->Add(got);
    // A port that was closed under the read is no failure of the port's.
    if (error != 0 && error != read_error_ && !port->closed()) Fail(error);
    read_error_ = error;
    return got > 0;
}

// The stop event may be left from a stop that found nobody writing: it is cleared before the flag is looked at, which
// is set before the event. A stop on the way into the write is therefore seen by the one or the other.
bool Serial_Client_Server::Send(Byte_Server &server, CL_Mesg message)
{
    if (message != Mesg_Data_Ready) return Serial_Client_Server_Base::Send(server, message);
    line_->send_stop.reset();
    const auto port = line_->Get();
    if (!port || Stop_Requested()) return false;
    unsigned char block[block_size];
    const long n = Take(server, block);
    if (n < 1) return n == 0;
    std::size_t put = 0;
    const bool written = port->write(block, static_cast<std::size_t>(n), put, line_->send_stop);
    const std::uint32_t error = written ? std::uint32_t{platform::error_none} : platform::last_error();
    Count_Out(put);
    if (error == platform::error_operation_aborted || port->closed()) return false;  // by a stop, or Close
    if (error != 0) Fail(error);
    return true;
}

}  // namespace kernel
