#include "kernel/transports/Serial_Client_Server.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/transports/serial_reader_internal.h"

#include "platform/error.h"

#include <algorithm>
#include <cstring>

namespace kernel {

// Polls the port once a millisecond.
class Serial_Polling_Reader : public Serial_Reader {
public:
    explicit Serial_Polling_Reader(Serial_Client_Server &port) : Serial_Reader(port), port_(port) {}

    bool Poll(long n);  // adds what is there, at most n bytes; whether something was

private:
    bool Prepare() override;
    bool Invite() override;
    bool Receive() override;
    bool Unwanted(double silent_seconds) override { return Unwanted_For(silent_seconds, "data"); }
    bool Nothing_Came();

    Serial_Client_Server &port_;
    std::uint32_t read_error_ = platform::error_none;  // of the last read
};

const char Serial_Client_Server::Name[] = "Server for serial Communication";

Serial_Client_Server::Serial_Client_Server(Error_Handler &handler, const char *name)
    : Object(name, &handler), Serial_Client_Server_Base(handler, name, std::make_unique<Serial_Polling_Reader>(*this))
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
    if (!reader_->Accept(n)) return false;
    if (reader_->Held() < n) static_cast<Serial_Polling_Reader &>(*reader_).Poll(n - reader_->Held());
    return reader_->Held() >= n;
}

// Reading.

bool Serial_Polling_Reader::Prepare()
{
    read_error_ = platform::error_none;
    return port_.Get_Byte_Client() != nullptr;
}

bool Serial_Polling_Reader::Invite()
{
    if (!port_.IsActive() || Is_Stopping() || !Tell(Mesg_Request_Invite)) return End();
    if (Requested() < 1) port_.Sleep(1);  // the client accepts and wants nothing: ask it again, but not at full speed
    return true;
}

bool Serial_Polling_Reader::Receive()
{
    const auto line = Line();
    std::uint32_t errors = 0;
    if (!line || Is_Stopping()) return End();
    if (line->clear_error(errors) && (errors & platform::serial_break) != 0) Tell(Mesg_Status_250);
    const bool came = Poll(most);
    if (Is_Stopping()) return End();
    if (read_error_ == platform::error_invalid_handle && port_.IsActive()) return Lost();
    return came || Nothing_Came();
}

// Ticks are sent only from here, when no data came; this is part of the interface.
bool Serial_Polling_Reader::Nothing_Came()
{
    port_.Sleep(1);
    Tick();
    if (!Is_Patient() && !Still_Wanted()) return false;
    Tell(Mesg_Pause);
    return true;
}

// Reports an error that stays once, and not once a millisecond. A port that was closed during the read has not failed.
bool Serial_Polling_Reader::Poll(long n)
{
    const auto line = Line();
    if (!line) return false;
    Buffer().Compact();
    std::size_t got = 0;
    const bool good = line->read(Buffer().End(), std::min(static_cast<std::size_t>(n), Buffer().Room()), got);
    const std::uint32_t error = good ? std::uint32_t{platform::error_none} : platform::last_error();
    Buffer().Add(got);
    if (error != 0 && error != read_error_ && !line->closed()) port_.Fail(error);
    read_error_ = error;
    return got > 0;
}

// Writing.

// A stop that found no write under way has left its event set. The event is cleared before the flag is checked, and a
// stop sets the flag before the event: a stop that comes now is seen in one of the two.
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
    if (error == platform::error_operation_aborted || port->closed()) return false;  // ended by a stop or by Close
    if (error != 0) Fail(error);
    return true;
}

}  // namespace kernel
