#include "kernel/transports/Named_Pipe_Client_Server_Base.h"

#include "kernel/transports/pipe_reader_internal.h"

#include "platform/error.h"
#include "platform/stream.h"
#include "platform/wait.h"

#include <cstdio>
#include <cstring>
#include <new>

namespace kernel {

namespace {

const char unit[] = "kernel/Named_Pipe_Client_Server_Base";

}  // namespace

const char Named_Pipe_Client_Server_Base::Name[] = "Baseclass Client/Server for Named Pipes";

Named_Pipe_Client_Server_Base::Named_Pipe_Client_Server_Base(Error_Handler &handler, unsigned int buffer_size,
                                                             const char *name)
    : Object(name, &handler), Win32_Buffered_Byte_Client(handler, buffer_size, 0),
      reader_(std::make_unique<Pipe_Reader>(*this))
{
}

Named_Pipe_Client_Server_Base::Named_Pipe_Client_Server_Base(unsigned int buffer_size, const char *name)
    : Object(name), Win32_Buffered_Byte_Client(Error_Handler::Or_Silent(Get_Default_Handler()), buffer_size, 0),
      reader_(std::make_unique<Pipe_Reader>(*this))
{
}

// A reader that was given up on may have left a read.
Named_Pipe_Client_Server_Base::~Named_Pipe_Client_Server_Base()
{
    is_destroyed_ = true;
    receive_->cancel();
    reader_->Close();
}

void Named_Pipe_Client_Server_Base::Stop_Threads()
{
    stop();
    Stop_Writer();
}

bool Named_Pipe_Client_Server_Base::IsInheritedFrom(const char *name) const
{
    return (name && (std::strcmp(name, Name) == 0 || std::strcmp(name, ClassName()) == 0)) ||
           Byte_Server::IsInheritedFrom(name) || Win32_Buffered_Byte_Client::IsInheritedFrom(name);
}

// Names.

const char *Named_Pipe_Client_Server_Base::GetPipeName() const
{
    const Semaphore_Guard guard(*this);
    return pipe_name_.empty() ? nullptr : pipe_name_.c_str();
}

std::string Named_Pipe_Client_Server_Base::Pipe_Name() const
{
    const Semaphore_Guard guard(*this);
    return pipe_name_;
}

bool Named_Pipe_Client_Server_Base::Set_Pipe_Name(const char *name)
try {
    std::string copy = name ? name : "";
    const Semaphore_Guard guard(*this);
    pipe_name_.swap(copy);
    return true;
} catch (const std::bad_alloc &) {
    return false;
}

const char *Named_Pipe_Client_Server_Base::Remote_Name(const char *role)
{
    const bool is_busy = IsBusy();
    const Semaphore_Guard guard(*this);
    remote_name_ = std::string("Named Pipe ") + role;
    if (pipe_name_.empty())
        remote_name_ += " (error)";
    else
        remote_name_ = (is_busy ? "Working " : "Idle ") + remote_name_ + ' ' + pipe_name_;
    return remote_name_.c_str();
}

// Where the system has no text for a number, error_text names the number.
void Named_Pipe_Client_Server_Base::ReportErrorIntern(unsigned long error, const char *text, Err_Code code,
                                                      Error_Handler::Enum_Status status)
{
    if (error == 0) return;
    const int number = static_cast<int>(error);
    const unsigned int hex = static_cast<unsigned int>(error);
    const std::string name = Pipe_Name(), system = platform::error_text(static_cast<std::uint32_t>(error));
    Error_Handler &report = Report(unit, __LINE__);
    if (name.empty())
        report.Print_Out(status, code, "%s Named-Pipe Error-Code: %d=0x%08X => %s", text, number, hex, system.c_str());
    else
        report.Print_Out(status, code, "%s Pipe %s Error-Code: %d=0x%08X => %s", text, name.c_str(), number, hex,
                         system.c_str());
}

// The reading side.

bool Named_Pipe_Client_Server_Base::Request(long n)
{
    const std::int32_t wanted = reader_->Want(n);
    return wanted > 0 && MinAvail(0) >= wanted;
}

long Named_Pipe_Client_Server_Base::MinAvail(long) { return reader_->Held(); }

unsigned short Named_Pipe_Client_Server_Base::GetByte() { return Stream_Reader::Take_Byte(*this); }

long Named_Pipe_Client_Server_Base::GetNBytes(unsigned char *buffer, long n) { return reader_->Take(buffer, n); }

unsigned short Named_Pipe_Client_Server_Base::UnGetByte(unsigned char byte) { return reader_->Put_Back(byte); }

std::uint64_t Named_Pipe_Client_Server_Base::GetBytesIn() const { return reader_->Bytes_In(); }

// For all threads.

bool Named_Pipe_Client_Server_Base::is_connected()
{
    const Semaphore_Guard guard(*this);
    return handle_ != nullptr;
}

bool Named_Pipe_Client_Server_Base::IsBusy() { return is_running() && reader_->Is_Connected(); }

bool Named_Pipe_Client_Server_Base::Hang_Up() { return reader_->End_Connection(); }

bool Named_Pipe_Client_Server_Base::Dial(const char *, const char *, const char *) { return Tell(Mesg_Status_100); }

void Named_Pipe_Client_Server_Base::Close() { reader_->Close(); }

// The reader may have opened the pipe again before it saw the stop. A write under way would keep the name of a pipe in
// use on Windows.
bool Named_Pipe_Client_Server_Base::Make_Way()
{
    if (Is_Own_Thread()) return false;
    Close();
    Stop_Threads();
    Close();
    return true;
}

void Named_Pipe_Client_Server_Base::Disconnect()
{
    stop();
    Byte_Server::Disconnect();
}

// A run that is about to end still counts as running for a moment; start waits for that.
bool Named_Pipe_Client_Server_Base::Work() { return Is_Own_Thread() || start(false) || is_running(); }

unsigned long Named_Pipe_Client_Server_Base::thread() { return reader_->Serve(); }

// Flag first, event second: the reader checks the flag after it clears the event, and so loses no stop.
void Named_Pipe_Client_Server_Base::pre_stop()
{
    Base_Thread::pre_stop();
    if (Stop_Requested()) reader_stop_event_->set();
}

// Stops the writer as well: it may be stuck with a process that does not read.
unsigned long Named_Pipe_Client_Server_Base::terminate()
{
    Request_Stop();
    reader_stop_event_->set();
    Sleep(1);
    stop_event_->set();
    return Base_Thread::terminate();
}

bool Named_Pipe_Client_Server_Base::Gives_Up_Posting() const
{
    return is_destroyed_ || (Is_Own_Thread() && Stop_Requested());
}

}  // namespace kernel
