#include "kernel/transports/Serial_Client_Server_Base.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/transports/serial_line_internal.h"
#include "kernel/transports/serial_reader_internal.h"

#include "platform/clock.h"
#include "platform/error.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace kernel {

namespace {

const char unit[] = "kernel/Serial_Client_Server_Base";

constexpr Err_Code serial_code = 72;
constexpr int stop_polls = 16000;             // of 1 ms: a little longer than the longest stop
constexpr std::uint32_t wait_factor = 11500;  // divided by the speed: [ms] for a character, with a margin
constexpr std::uint32_t wait_ms = 10;

using platform::Serial_Settings;

std::uint32_t Limited(unsigned long value) { return static_cast<std::uint32_t>(std::min(value, 0xFFFFFFFFUL)); }

}  // namespace

const char Serial_Client_Server_Base::Name[] = "Base for serial Communication";

Serial_Client_Server_Base::Serial_Client_Server_Base(Error_Handler &handler, const char *name,
                                                     std::unique_ptr<Serial_Reader> reader)
    : Object(name, &handler), Remote_Control(name), line_(std::make_unique<Serial_Line>()), reader_(std::move(reader))
{
}

// The variants stop the thread and close the port in their destructors.
Serial_Client_Server_Base::~Serial_Client_Server_Base() = default;

bool Serial_Client_Server_Base::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Server::IsInheritedFrom(name) ||
           Byte_Client::IsInheritedFrom(name) || Remote_Control::IsInheritedFrom(name);
}

bool Serial_Client_Server_Base::IsValid() const { return Client_Server::IsValid() && line_->send_stop.valid(); }

// Opening and closing.

// A thread whose port was lost a moment ago may still run. It is stopped as well, because it owns the buffer. On the
// reader's own thread this does not wait until the port is released, because that thread may be inside a call on the
// port.
void Serial_Client_Server_Base::Close_Former()
{
    if (is_running() || IsActive()) {
        stop();
        Close();
    }
    if (!Is_Own_Thread()) line_->Await_Release();
}

int Serial_Client_Server_Base::Create(int port, unsigned long baud, int parity, int stopbits, int bytesize,
                                      int handshake, int flag, unsigned long queue_size)
{
    extra_flag_ = flag != 0;
    Close_Former();
    Set_Last_Error(platform::error_none);
    if (OpenFile(port) && !Configure(baud, parity, stopbits, bytesize, handshake, queue_size)) {
        Set_Last_Error(platform::last_error());
        Close();
    }
    return Created();
}

int Serial_Client_Server_Base::Create(void *const handle)
{
    Close_Former();
    const auto port = platform::Serial_Port::adopt(handle);
    Set_Last_Error(port ? std::uint32_t{platform::error_none} : platform::last_error());
    line_->Set(port);
    Serial_Settings settings;
    bool good = !port || port->get_settings(settings);
    if (std::exchange(settings.abort_on_error, false)) good = good && port->set_settings(settings);
    if (port && good) baud_ = settings.baud;
    if (port && !(good && SetCommNoWait())) {
        Set_Last_Error(platform::last_error());
        Close();
    }
    return Created();
}

// The common end of both Create operations.
int Serial_Client_Server_Base::Created()
{
    reader_->Want(0);
    reader_->Drop();
    ErrorBox();
    return last_error_ == 0 && IsActive() ? 1 : 0;
}

// Windows finds the ports from COM10 on in the device namespace only.
std::string Serial_Client_Server_Base::Device_Name(int port)
{
    return (port < 10 ? "COM" : "\\\\.\\COM") + std::to_string(port);
}

bool Serial_Client_Server_Base::Open_Device(const char *name)
{
    auto port = platform::Serial_Port::open(name);
    Set_Last_Error(port ? std::uint32_t{platform::error_none} : platform::last_error());
    line_->Set(std::move(port));
    return IsActive();
}

// On failure it returns false, and platform::last_error() has the cause.
bool Serial_Client_Server_Base::Configure(unsigned long baud, int parity, int stopbits, int bytesize, int handshake,
                                          unsigned long queue_size)
{
    constexpr Serial_Settings::Parity parities[] = {Serial_Settings::no_parity, Serial_Settings::odd_parity,
                                                    Serial_Settings::even_parity};
    constexpr Serial_Settings::Stop_Bits stops[] = {Serial_Settings::one_stop_bit, Serial_Settings::one5_stop_bits,
                                                    Serial_Settings::two_stop_bits};
    const auto port = line_->Get();
    Serial_Settings settings;
    if (!port) return false;
    port->set_queues(Limited(queue_size), Limited(queue_size));
    if (!port->get_settings(settings)) return false;
    settings.baud = Limited(baud);
    if (parity >= 0 && parity <= 2) settings.parity = parities[parity];
    if (stopbits >= 1 && stopbits <= 3) settings.stop_bits = stops[stopbits - 1];
    settings.byte_size = static_cast<std::uint8_t>(std::clamp(bytesize, 0, 0xFF));
    settings.rts = settings.dtr = handshake == 0 ? Serial_Settings::enable : Serial_Settings::handshake;
    settings.cts_flow = settings.dsr_flow = false;
    if (!port->set_settings(settings)) return false;
    baud_ = settings.baud;
    return SetCommNoWait();
}

void Serial_Client_Server_Base::Close() { line_->Set(nullptr); }

bool Serial_Client_Server_Base::IsActive() const { return line_->Get() != nullptr; }

void Serial_Client_Server_Base::SetComName(const char *const name) { com_name_ = name ? name : ""; }

// Any thread may call this while a read is under way. The reader therefore drops the bytes itself, when it next looks.
bool Serial_Client_Server_Base::Set_Speed(unsigned long baud)
{
    const auto port = line_->Get();
    if (baud == 0 || !port) return false;
    Serial_Settings settings;
    bool good = port->get_settings(settings);
    if (good && settings.baud != baud) {
        reader_->Drop_Later();
        settings.baud = Limited(baud);
        good = port->set_settings(settings);
    }
    if (good)
        baud_ = settings.baud;
    else
        Fail(platform::last_error());
    return good;
}

unsigned long Serial_Client_Server_Base::Get_Speed()
{
    const auto port = line_->Get();
    Serial_Settings settings;
    if (port && port->get_settings(settings)) baud_ = settings.baud;
    return baud_;
}

// Integer division: the quotients are 0 for fast lines, where the constants suffice. Part of the interface.
bool Serial_Client_Server_Base::SetCommWait()
{
    const auto port = line_->Get();
    const std::uint32_t baud = std::max<std::uint32_t>(baud_, 1);  // 0: no port was read yet
    const std::uint32_t per_byte = wait_factor / baud;
    return port && port->set_timeouts({wait_ms, per_byte, wait_ms, per_byte + 1, wait_ms});
}

bool Serial_Client_Server_Base::SetCommNoWait()
{
    const auto port = line_->Get();
    return port && port->set_timeouts({platform::Serial_Timeouts::no_wait, 0, 0, 0, 0});
}

// The error is kept until the next Create, as a Windows program expects of a port's last error.
void Serial_Client_Server_Base::Fail(std::uint32_t error)
{
    Set_Last_Error(error);
    ErrorBox();
}

void Serial_Client_Server_Base::ErrorBox()
{
    const std::uint32_t error = last_error_;
    if (error == 0) return;
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, serial_code, "Serial-Error Code: %d=0x%08X => %s", static_cast<int>(error),
                   error, platform::error_text(error).c_str());
}

// Remote control.

// There is no modem: closing the port ends the connection.
bool Serial_Client_Server_Base::Hang_Up()
{
    const bool was_open = IsActive();
    Close();
    return was_open;
}

bool Serial_Client_Server_Base::Dial(const char *, const char *, const char *) { return false; }

// The thread.

// Stops the thread first: it might be inside the client that is replaced here, and perhaps deleted.
bool Serial_Client_Server_Base::Connect(Byte_Client *client)
{
    stop();
    return Byte_Server::Connect(client);
}

void Serial_Client_Server_Base::Disconnect()
{
    stop();
    Byte_Server::Disconnect();
}

// Waits for a thread that has not entered its run yet, and for one that is ending without another run.
bool Serial_Client_Server_Base::Work()
{
    for (int poll = 0; poll < stop_polls && is_running(); ++poll) {
        if (Is_Kept_Running()) return true;
        if (Is_Own_Thread()) return false;
        platform::sleep_ms(1);
    }
    return start(false) || is_running();
}

unsigned long Serial_Client_Server_Base::thread()
{
    unsigned long result = 0;
    do {
        Enter(Phase::running);
        result = reader_->Work();
    } while (Has_Another_Run());
    return result;
}

void Serial_Client_Server_Base::Enter(Phase phase)
{
    const std::lock_guard lock(phase_guard_);
    if (phase == Phase::running) another_run_ = false;
    phase_ = phase;
}

// Called by Work.
bool Serial_Client_Server_Base::Is_Kept_Running()
{
    const std::lock_guard lock(phase_guard_);
    if (Stop_Requested()) return false;
    if (phase_ == Phase::ending && IsActive()) another_run_ = true;
    return phase_ == Phase::running || another_run_;
}

// The pause limits the processor time if a client refuses everything and asks for another run each time.
bool Serial_Client_Server_Base::Has_Another_Run()
{
    Sleep(1);
    const std::lock_guard lock(phase_guard_);
    if (another_run_ && !Stop_Requested()) return true;
    phase_ = Phase::ended;
    return another_run_ = false;
}

// Sets the flag first and the events second, because a thread that an event wakes checks the flag.
void Serial_Client_Server_Base::pre_stop()
{
    Base_Thread::pre_stop();
    line_->send_stop.set();
    if (Stop_Requested()) reader_->Wake();
}

unsigned long Serial_Client_Server_Base::terminate()
{
    Request_Stop();
    line_->send_stop.set();
    reader_->Wake();
    return Base_Thread::terminate();
}

// Pulling.

void Serial_Client_Server_Base::Move_to_Start() { reader_->Move_To_Start(); }

long Serial_Client_Server_Base::MinAvail(long) { return reader_->Held(); }

unsigned short Serial_Client_Server_Base::GetByte() { return Stream_Reader::Take_Byte(*this); }

long Serial_Client_Server_Base::GetNBytes(unsigned char *buffer, long n) { return reader_->Take(buffer, n); }

unsigned short Serial_Client_Server_Base::UnGetByte(unsigned char byte) { return reader_->Put_Back(byte); }

std::uint64_t Serial_Client_Server_Base::GetBytesIn() const { return reader_->Bytes_In(); }

// Writing.

// A request for one byte is enough to get Mesg_Data_Ready. Take then pulls all that is there.
bool Serial_Client_Server_Base::Send(Byte_Server &server, CL_Mesg message)
{
    if (message != Mesg_Request_Invite) return Byte_Client::Send(server, message);
    if (!IsActive()) return false;
    server.Request(1);
    return true;
}

long Serial_Client_Server_Base::Take(Byte_Server &server, unsigned char *block)
{
    const long n = std::min(server.MinAvail(0), long{block_size});
    long taken = 0;
    while (taken < n) {
        const long got = Bytes_Moved(server.GetNBytes(block + taken, n - taken), n - taken);
        if (Stop_Requested()) return -1;
        if (got == 0) break;
        taken += got;
    }
    return taken;
}

}  // namespace kernel
