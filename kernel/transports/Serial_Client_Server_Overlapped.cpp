#include "kernel/transports/Serial_Client_Server_Overlapped.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/transports/receive_buffer_internal.h"
#include "kernel/transports/serial_line_internal.h"

#include "platform/clock.h"
#include "platform/error.h"

#include <atomic>
#include <cstring>
#include <utility>

namespace kernel {

namespace {

const char unit[] = "kernel/Serial_Client_Server_Overlapped";

constexpr Err_Code serial_code = 72;
constexpr std::uint64_t wait_ms = 1000;
constexpr unsigned long look_again_ms = 100;  // at a write, see platform::Transfer::write
constexpr unsigned long last_write_ms = 500;

using platform::error_invalid_handle;
using platform::error_io_pending;
using platform::error_none;
using platform::error_operation_aborted;

}  // namespace

// A write that is pending goes on only while somebody waits for it (POSIX). The reader does whenever it waits at all,
// so that Send need not; without a reader Send does.
struct Serial_Client_Server_Overlapped::Overlap {
    platform::Event stop;        // ends the reader's wait
    platform::Event write_done;  // set by the reader, who may have taken the write's signal from a waiting Send
    platform::Transfer reading, writing;
    unsigned char *read_at = nullptr;  // where the read under way puts its bytes; null: none is
    std::atomic<bool> closing{false};  // no further write is begun
    bool write_unjudged = false;       // the last write was pending, and its error was not asked for yet
    unsigned char block[block_size];   // of the write
};

const char Serial_Client_Server_Overlapped::Name[] = "Server for overlapped serial Communication";

Serial_Client_Server_Overlapped::Serial_Client_Server_Overlapped(Error_Handler &handler, const char *name)
    : Object(name, &handler), Serial_Client_Server_Base(handler, name), overlap_(std::make_unique<Overlap>())
{
}

Serial_Client_Server_Overlapped::~Serial_Client_Server_Overlapped()
{
    stop();
    Serial_Client_Server_Overlapped::Close();
    overlap_->reading.cancel();  // a reader that was given up on may have left one
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
    return Serial_Client_Server_Base::IsValid() && overlap_->stop.valid() && overlap_->write_done.valid() &&
           overlap_->reading.valid() && overlap_->writing.valid();
}

bool Serial_Client_Server_Overlapped::OpenFile(int port)
{
    SetComName(("COM" + std::to_string(port) + " (overlapped)").c_str());
    return Open_Device(Device_Name(port).c_str());
}

// Send has answered for the write under way: it gets its time while the port is open. Then it goes, since it would keep the
// port from being opened again.
void Serial_Client_Server_Overlapped::Close()
{
    overlap_->closing = true;
    for (unsigned long ms = 0; ms < last_write_ms && overlap_->writing.pending(); ++ms) platform::sleep_ms(1);
    Serial_Client_Server_Base::Close();
    overlap_->writing.cancel();
    overlap_->closing = false;
}

bool Serial_Client_Server_Overlapped::Request(long n) { return Accept_Request(n) && Held() >= n; }

// Flag first, event second: who finds the event looks at the flag, too.
void Serial_Client_Server_Overlapped::pre_stop()
{
    Serial_Client_Server_Base::pre_stop();
    if (Stop_Requested()) overlap_->stop.set();
}

unsigned long Serial_Client_Server_Overlapped::terminate()
{
    Request_Stop();
    overlap_->stop.set();
    return Serial_Client_Server_Base::terminate();
}

// The thread. Its steps answer false when they have ended it and told the client.

// The event is cleared before the flag is looked at, which is set before the event: no stop is lost in between.
unsigned long Serial_Client_Server_Overlapped::Run()
{
    if (!Get_Byte_Client() || !IsActive()) return static_cast<unsigned long>(-1);
    overlap_->stop.reset();
    Attach();
    while (!Stop_Requested()) {
        if (!Ask() || !Fill() || !Offer() || !Deliver()) return 0;
    }
    Detach();
    return 0;
}

bool Serial_Client_Server_Overlapped::Ask()
{
    if (Requested() > 0) return true;
    Move_to_Start();
    Tell(Mesg_Request_Invite);
    if (Requested() > 0) return true;
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Fatal, serial_code, "Client did not want data.");
    Detach();
    return false;
}

bool Serial_Client_Server_Overlapped::Fill()
{
    Be_Patient();
    if (Held() >= Requested()) return true;
    do {
        if (!IsActive()) {
            Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, serial_code, "Handle not valid");
            Detach();
            return false;
        }
        if (Stop_Requested()) return Stopped();
        Tick();
        const bool goes_on = Begin_Read();
        if (overlap_->read_at) {  // left by an end: the buffer is for others again, and what came meanwhile is kept
            overlap_->reading.cancel();
            Take_In();
        }
        if (!goes_on) return false;
    } while (Held() < Requested());
    Read_Ahead();
    return true;
}

// The request is met: what the driver holds behind it comes with a second read, so that a client that asks for single bytes
// does not cost calls of the system for each. An error is told by the next read that waits.
void Serial_Client_Server_Overlapped::Read_Ahead()
{
    const auto port = line_->Get();
    std::size_t got = 0;
    received_->Compact();
    if (!port || received_->Room() == 0) return;
    port->read_held(received_->End(), received_->Room(), got);
    received_->Add(got);
}

// No more than requested, so that it ends as soon as that is there.
bool Serial_Client_Server_Overlapped::Begin_Read()
{
    const auto port = line_->Get();
    const std::int32_t n = Requested() - Held();
    if (!port || n < 1) return true;  // the client may have closed, or wanted less, when it heard the tick
    received_->Compact();
    overlap_->read_at = received_->End();
    if (overlap_->reading.read(port, received_->End(), static_cast<std::size_t>(n)))
        return Take_In() > 0 || Nothing_Came();
    const std::uint32_t error = platform::last_error();
    if (error == error_io_pending) return Await();
    overlap_->read_at = nullptr;
    return Read_Failed(error, port->closed());
}

// A port that was closed under the read is found in Fill.
bool Serial_Client_Server_Overlapped::Read_Failed(std::uint32_t error, bool closed)
{
    if (closed) return true;
    Set_Last_Error(error);
    if (error == error_invalid_handle) return Lost();
    Close();
    Detach();
    ErrorBox();
    return false;
}

// Until the read has ended. Time-outs come once a second, however often a write wakes the reader in between.
bool Serial_Client_Server_Overlapped::Await()
{
    platform::Waitable *const waited_for[] = {&overlap_->stop, &overlap_->reading, &overlap_->writing};
    for (;;) {
        Tick();
        const std::uint64_t end = platform::clock_ms() + wait_ms;
        int index = 0;
        do {
            const std::uint64_t now = platform::clock_ms();
            index = platform::wait_any(waited_for, now < end ? static_cast<unsigned long>(end - now) : 0);
            if (index == 2) overlap_->write_done.set();
        } while (index == 2);
        if (index == 0) return Stopped();
        if (index == 1) {
            Take_In();
            return true;
        }
        if (index != platform::wait_timeout) return Wait_Failed();
        overlap_->writing.pending();  // for a write that nobody else looks after
        if (!Silence()) return false;
    }
}

bool Serial_Client_Server_Overlapped::Silence()
{
    Tell(Mesg_Status_40);
    return Is_Patient() || Still_Wanted("Data") || Lost();
}

bool Serial_Client_Server_Overlapped::Stopped()
{
    Detach();
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Message, serial_code, "Terminate Thread requested");
    return false;
}

bool Serial_Client_Server_Overlapped::Wait_Failed()
{
    Lost();
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, serial_code, "Unexpected Wait return value '%lx'",
                   static_cast<unsigned long>(platform::win32_wait_failed));
    return false;
}

// What a read that has ended brought; one that failed brings nothing, and the next one tells why.
std::size_t Serial_Client_Server_Overlapped::Take_In()
{
    std::size_t moved = 0;
    unsigned char *const at = std::exchange(overlap_->read_at, nullptr);
    if (!overlap_->reading.result(moved)) return 0;
    Held();  // the client may have changed the speed meanwhile, and what was held is gone
    if (at != received_->End()) std::memmove(received_->End(), at, moved);
    received_->Add(moved);
    return moved;
}

// A system that does not let a read wait (Windows, with these time-outs) is asked every millisecond, less the pause.
bool Serial_Client_Server_Overlapped::Nothing_Came()
{
    Sleep(1);
    if (!Is_Patient()) return Still_Wanted("Data") || Lost();
    Tell(Mesg_Pause);
    return true;
}

// Writing.

// The block is free only when the write before has ended: that is waited for before the server is asked for bytes, so
// that a stop or Close leaves them where they are.
bool Serial_Client_Server_Overlapped::Send(Byte_Server &server, CL_Mesg message)
{
    if (message != Mesg_Data_Ready) return Serial_Client_Server_Base::Send(server, message);
    line_->send_stop.reset();
    if (!Previous_Write_Ended()) return false;
    const auto port = line_->Get();
    if (!port || overlap_->closing || Stop_Requested()) return false;
    const long n = Take(server, overlap_->block);
    if (n < 1) return n == 0;
    const bool done = overlap_->writing.write(port, overlap_->block, static_cast<std::size_t>(n));
    const std::uint32_t error = done ? std::uint32_t{error_none} : platform::last_error();
    if (port->closed()) return false;
    if (error == error_none || error == error_io_pending)
        Count_Out(static_cast<std::size_t>(n));
    else
        Fail(error);
    overlap_->write_unjudged = error == error_io_pending;
    return !overlap_->write_unjudged || is_running() || Previous_Write_Ended();
}

// False when a stop or Close came first. An error of the write is reported here: nobody was there to ask when it came
// up.
bool Serial_Client_Server_Overlapped::Previous_Write_Ended()
{
    platform::Waitable *const waited_for[] = {&line_->send_stop, &overlap_->writing, &overlap_->write_done};
    while (overlap_->writing.pending()) {
        if (Stop_Requested()) return false;
        if (platform::wait_any(waited_for, look_again_ms) == 0) return false;
    }
    std::size_t moved = 0;
    if (!std::exchange(overlap_->write_unjudged, false) || overlap_->writing.result(moved)) return true;
    const std::uint32_t error = platform::last_error();
    if (error == error_operation_aborted) return IsActive();
    Fail(error);
    return true;
}

// Comm events. The waiting for them is the subclass's, or nobody's.

int Serial_Client_Server_Overlapped::HandleCommEvent(int pending)
{
    const auto port = line_->Get();
    std::size_t moved = 0;
    std::uint32_t errors = 0;
    if (!port) return Comm_Event_Failed(error_invalid_handle);
    if (pending != 0 && !overlap_->reading.result(moved)) return Comm_Event_Failed(platform::last_error());
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
