#include "kernel/transports/Serial_Client_Server_Overlapped.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/transports/serial_reader_internal.h"

#include "platform/clock.h"
#include "platform/error.h"

#include <atomic>
#include <cstring>
#include <utility>

namespace kernel {

namespace {

const char unit[] = "kernel/Serial_Client_Server_Overlapped";

constexpr Err_Code serial_code = 72;
constexpr unsigned long look_again_ms = 100;  // while a write is waited for, see platform::Transfer::write
constexpr unsigned long last_write_ms = 500;

using platform::error_invalid_handle;
using platform::error_io_pending;
using platform::error_none;
using platform::error_operation_aborted;

}  // namespace

// A write that is pending goes on only while somebody waits for it (POSIX). The reader does so whenever it waits, so
// that Send need not. Without a reader, Send waits.
struct Serial_Client_Server_Overlapped::Writing {
    platform::Transfer transfer;
    platform::Event done;  // set by the reader, which may have taken the transfer's signal from a waiting Send
    std::atomic<bool> closing{false};  // no further write is begun
    bool unjudged = false;             // the last write was pending, and its error was not asked for yet
    unsigned char block[block_size];   // of the write
};

// Waits for its transfers, and for the end of a write as well.
class Serial_Overlapped_Reader : public Serial_Reader {
public:
    explicit Serial_Overlapped_Reader(Serial_Client_Server_Overlapped &port) : Serial_Reader(port), port_(port) {}

    void Wake() override { stop_.set(); }
    bool Is_Valid() const { return stop_.valid() && transfer.valid(); }

    platform::Transfer transfer;

private:
    bool Prepare() override;
    bool Invite() override;
    bool Receive() override;
    bool Filled() override { return Offer(); }  // at least once
    bool Unwanted(double silent_seconds) override { return Unwanted_For(silent_seconds, "Data"); }
    bool Read_Ended(Read_End end) override;
    bool Read_Failed(const platform::Stream &line, std::uint32_t error) override;
    bool Stop_Seen() override;
    bool Wait_Failed(std::uint32_t error) override;
    void Look_After_Other(bool is_signalled) override;
    bool Begin_Read();
    void Read_Ahead();
    std::size_t Bytes_Come();
    bool Nothing_Came();

    Serial_Client_Server_Overlapped &port_;
    platform::Event stop_;
};

const char Serial_Client_Server_Overlapped::Name[] = "Server for overlapped serial Communication";

Serial_Client_Server_Overlapped::Serial_Client_Server_Overlapped(Error_Handler &handler, const char *name)
    : Object(name, &handler),
      Serial_Client_Server_Base(handler, name, std::make_unique<Serial_Overlapped_Reader>(*this)),
      overlapped_(static_cast<Serial_Overlapped_Reader &>(*reader_)), writing_(std::make_unique<Writing>())
{
}

Serial_Client_Server_Overlapped::~Serial_Client_Server_Overlapped()
{
    stop();
    Serial_Client_Server_Overlapped::Close();
    overlapped_.transfer.cancel();  // a reader thread that could not be stopped may have left one
}

Serial_Client_Server_Overlapped *Serial_Client_Server_Overlapped::Construct(Error_Handler &handler,
                                                                            const char *const name)
{
    return Constructed([&] { return new Serial_Client_Server_Overlapped(handler, name ? name : ClassName()); });
}

bool Serial_Client_Server_Overlapped::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Serial_Client_Server_Base::IsInheritedFrom(name);
}

bool Serial_Client_Server_Overlapped::IsValid() const
{
    return Serial_Client_Server_Base::IsValid() && overlapped_.Is_Valid() && writing_->done.valid() &&
           writing_->transfer.valid();
}

bool Serial_Client_Server_Overlapped::OpenFile(int port)
{
    SetComName(("COM" + std::to_string(port) + " (overlapped)").c_str());
    return Open_Device(Device_Name(port).c_str());
}

// Send has returned true for the write under way, so the write gets half a second while the port is open. Then it is
// cancelled, because it would keep the port from being opened again.
void Serial_Client_Server_Overlapped::Close()
{
    writing_->closing = true;
    for (unsigned long ms = 0; ms < last_write_ms && writing_->transfer.pending(); ++ms) platform::sleep_ms(1);
    Serial_Client_Server_Base::Close();
    writing_->transfer.cancel();
    writing_->closing = false;
}

bool Serial_Client_Server_Overlapped::Request(long n) { return reader_->Accept(n) && reader_->Held() >= n; }

// The thread.

// Clears the event before the flag is checked. A stop sets the flag before the event, so that none is lost.
bool Serial_Overlapped_Reader::Prepare()
{
    if (!port_.Get_Byte_Client() || !port_.IsActive()) return false;
    stop_.reset();
    return true;
}

bool Serial_Overlapped_Reader::Invite()
{
    if (Is_Stopping()) return End();
    if (Requested() > 0) return true;
    Move_To_Start();
    Tell(Mesg_Request_Invite);
    if (Requested() > 0) return true;
    port_.Report(unit, __LINE__).Print_Out(Error_Handler::ES_Fatal, serial_code, "Client did not want data.");
    return End();
}

// Cancels a read that is still under way when the loop ends: the buffer is free again, and bytes that came are kept.
bool Serial_Overlapped_Reader::Receive()
{
    if (!port_.IsActive()) {
        port_.Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, serial_code, "Handle not valid");
        return End();
    }
    if (Is_Stopping()) return Stop_Seen();
    Tick();
    const bool goes_on = Begin_Read();
    if (Is_Reading()) {
        transfer.cancel();
        Bytes_Come();
    }
    if (goes_on && Held() >= Requested()) Read_Ahead();
    return goes_on;
}

// Reads no more than requested, so that the read ends as soon as that is there. The client may have closed the port, or
// requested less, when it heard the tick.
bool Serial_Overlapped_Reader::Begin_Read()
{
    const auto line = Line();
    const long n = Requested() - Held();
    return !line || n < 1 || Read(line, static_cast<std::size_t>(n), {stop_, transfer, &port_.writing_->transfer});
}

// The request is met. A second read takes what else the driver holds, so that a client that asks for single bytes does
// not cost system calls for each byte. An error is found by the next read that waits.
void Serial_Overlapped_Reader::Read_Ahead()
{
    const auto line = Line();
    std::size_t got = 0;
    Buffer().Compact();
    if (!line || Buffer().Room() == 0) return;
    line->read_held(Buffer().End(), Buffer().Room(), got);
    Buffer().Add(got);
}

bool Serial_Overlapped_Reader::Read_Ended(Read_End end)
{
    return Bytes_Come() > 0 || end == Read_End::after_wait || Nothing_Came();
}

// A read that failed adds nothing; the next one fails again and reports the error.
std::size_t Serial_Overlapped_Reader::Bytes_Come()
{
    std::size_t moved = 0;
    return Take_In(transfer, moved) ? moved : 0;
}

// Windows, with these time-outs, returns at once instead of waiting. Mesg_Pause paces the loop then.
bool Serial_Overlapped_Reader::Nothing_Came()
{
    port_.Sleep(1);
    if (!Is_Patient()) return Still_Wanted();
    Tell(Mesg_Pause);
    return true;
}

// Receive reports a port that was closed during the read.
bool Serial_Overlapped_Reader::Read_Failed(const platform::Stream &line, std::uint32_t error)
{
    if (line.closed()) return true;
    port_.Set_Last_Error(error);
    if (error == error_invalid_handle) return Lost();
    port_.Close();
    End();
    port_.ErrorBox();
    return false;
}

bool Serial_Overlapped_Reader::Stop_Seen()
{
    End();
    port_.Report(unit, __LINE__).Print_Out(Error_Handler::ES_Message, serial_code, "Terminate Thread requested");
    return false;
}

bool Serial_Overlapped_Reader::Wait_Failed(std::uint32_t)
{
    Lost();
    port_.Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, serial_code, "Unexpected Wait return value '%lx'",
                   static_cast<unsigned long>(platform::win32_wait_failed));
    return false;
}

// After a second without a signal, pending() moves a write on that no other thread waits for.
void Serial_Overlapped_Reader::Look_After_Other(bool is_signalled)
{
    if (is_signalled)
        port_.writing_->done.set();
    else
        port_.writing_->transfer.pending();
}

// Writing.

// The block is free only when the previous write has ended. Send waits for that before it pulls bytes from the server,
// so that a stop or Close leaves them there.
bool Serial_Client_Server_Overlapped::Send(Byte_Server &server, CL_Mesg message)
{
    if (message != Mesg_Data_Ready) return Serial_Client_Server_Base::Send(server, message);
    line_->send_stop.reset();
    if (!Previous_Write_Ended()) return false;
    const auto port = line_->Get();
    if (!port || writing_->closing || Stop_Requested()) return false;
    const long n = Take(server, writing_->block);
    if (n < 1) return n == 0;
    const bool done = writing_->transfer.write(port, writing_->block, static_cast<std::size_t>(n));
    const std::uint32_t error = done ? std::uint32_t{error_none} : platform::last_error();
    if (port->closed()) return false;
    if (error == error_none || error == error_io_pending)
        Count_Out(static_cast<std::size_t>(n));
    else
        Fail(error);
    writing_->unjudged = error == error_io_pending;
    return !writing_->unjudged || is_running() || Previous_Write_Ended();
}

// False when a stop or Close came first. Reports an error of that write here, because its Send did not wait for it.
bool Serial_Client_Server_Overlapped::Previous_Write_Ended()
{
    platform::Waitable *const waited_for[] = {&line_->send_stop, &writing_->transfer, &writing_->done};
    while (writing_->transfer.pending()) {
        if (Stop_Requested()) return false;
        if (platform::wait_any(waited_for, look_again_ms) == 0) return false;
    }
    std::size_t moved = 0;
    if (!std::exchange(writing_->unjudged, false) || writing_->transfer.result(moved)) return true;
    const std::uint32_t error = platform::last_error();
    if (error == error_operation_aborted) return IsActive();
    Fail(error);
    return true;
}

// Comm events. Nothing in the library waits for them or calls this; it is kept for the interface.

int Serial_Client_Server_Overlapped::HandleCommEvent(int pending)
{
    const auto port = line_->Get();
    std::size_t moved = 0;
    std::uint32_t errors = 0;
    if (!port) return Comm_Event_Failed(error_invalid_handle);
    if (pending != 0 && !overlapped_.transfer.result(moved)) return Comm_Event_Failed(platform::last_error());
    if (!port->clear_error(errors)) return Comm_Event_Failed(platform::last_error());
    constexpr struct {
        std::uint32_t bits;
        const char *name;
    } names[] = {
        {platform::serial_frame, "CE_FRAME"},
        {platform::serial_overrun, "CE_OVERRUN"},
        {platform::serial_parity, "CE_RXPARITY"},
        {~(platform::serial_frame | platform::serial_overrun | platform::serial_parity), "EV_ERR Unknown EvtMask"}};
    std::string text;
    for (const auto &error : names) {
        if ((errors & error.bits) != 0) text += (text.empty() ? "" : " and ") + std::string(error.name);
    }
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, serial_code, "Comm Event: '%s', EvtMask = '%lx'\n",
                   text.empty() ? "NULL Error" : text.c_str(), static_cast<unsigned long>(errors));
    return 1;
}

int Serial_Client_Server_Overlapped::Comm_Event_Failed(std::uint32_t error)
{
    Set_Last_Error(error);
    if (error == error_invalid_handle) {
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Error, serial_code, "Likely that the Service Provider has closed the port");
        Close();
        Tell(Mesg_Status_110);
    } else {
        ErrorBox();
    }
    return 0;
}

}  // namespace kernel
