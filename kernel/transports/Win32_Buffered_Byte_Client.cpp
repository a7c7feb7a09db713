#include "kernel/transports/Win32_Buffered_Byte_Client.h"

#include "kernel/transports/ntrip_request_internal.h"

#include "platform/base64.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/stream.h"
#include "platform/wait.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

namespace kernel {

namespace {

const char unit[] = "kernel/Win32_Buffered_Byte_Client";

constexpr unsigned int smallest_buffer = 256;      // bytes
constexpr unsigned int largest_buffer = 0x100000;  // bytes
constexpr unsigned int small_piece = 64;           // bytes; fewer wait once for more
constexpr unsigned long gather_ms = 10;
constexpr unsigned long request_delay_ms = 1000;  // gives the connection time before the first request
constexpr unsigned long request_slice_ms = 20;
constexpr int stop_polls = 5000;              // of 1 ms, before a writer that does not end is killed
constexpr unsigned long lingering_ms = 1000;  // for the system to take an ended thread down
constexpr long refused = -5;                  // to Base_Thread::stop: kill at once

constexpr Err_Code data_code = 15, size_code = 89, wait_code = 91;

// These errors end the writer without a report: the reading side reports that the connection is gone or not there yet.
constexpr std::uint32_t no_data = 232, not_connected = 233, listening = 536;
constexpr std::uint32_t quiet_errors[] = {platform::error_invalid_handle, no_data, not_connected, listening};

bool Is_Quiet(std::uint32_t error)
{
    return std::find(std::begin(quiet_errors), std::end(quiet_errors), error) != std::end(quiet_errors);
}

std::string_view Text(const char *text) { return text ? text : ""; }

bool Valid(const platform::Waitable *waitable) { return waitable && waitable->valid(); }

// Compares owners, not addresses: a new stream may have the address of one that is gone.
bool Is_Same(const std::weak_ptr<platform::Stream> &one, const std::shared_ptr<platform::Stream> &other)
{
    return !one.owner_before(other) && !other.owner_before(one);
}

void Reset(const std::unique_ptr<platform::Event> &event)
{
    if (event) event->reset();
}

}  // namespace

const char Win32_Buffered_Byte_Client::Name[] = "Win32_Buffered_Byte_Client";

// Recognised by its address. Any other empty text means an account without name and password.
char Win32_Buffered_Byte_Client::No_Authorisation[1] = "";

// The most derived class gives the object its name and its handler.
Win32_Buffered_Byte_Client::Win32_Buffered_Byte_Client(Error_Handler &handler, unsigned int buffer_size, int is_socket)
    : Object(Name, &handler), WinSock_Loader(&handler, is_socket == 0), Remote_Control(Name),
      reader_stop_event_(std::make_unique<platform::Event>()), receive_(std::make_unique<platform::Transfer>()),
      stop_event_(std::make_unique<platform::Event>()), write_done_event_(std::make_unique<platform::Event>()),
      data_event_(std::make_unique<platform::Event>()), is_socket_(is_socket),
      write_(std::make_unique<platform::Transfer>())
{
    writer_.Init(this, &Win32_Buffered_Byte_Client::overlapped_thread,
                 &Win32_Buffered_Byte_Client::overlapped_terminate, &Win32_Buffered_Byte_Client::overlapped_pre_stop);
    SetBufferSize(buffer_size);
}

// The transport is closed first, so that a write under way ends soon. The events are freed last, because the writer may
// wait for them until it has ended.
Win32_Buffered_Byte_Client::~Win32_Buffered_Byte_Client()
{
    std::shared_ptr<platform::Stream> handle;
    {
        const Semaphore_Guard guard(*this);
        handle = std::move(handle_);
    }
    if (handle) handle->close();
    Stop_Writer();
    Free_Buffer();
    ResetVariables();
}

void Win32_Buffered_Byte_Client::ResetVariables()
{
    const Semaphore_Guard guard(*this);
    handle_.reset();
    write_.reset();
    receive_.reset();
    in_flight_ = {};
    state_ = State::idle;
    buffers_ = {};
    for (auto *event : {&reader_stop_event_, &stop_event_, &write_done_event_, &data_event_}) event->reset();
}

bool Win32_Buffered_Byte_Client::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Client::IsInheritedFrom(name) ||
           WinSock_Loader::IsInheritedFrom(name) || Remote_Control::IsInheritedFrom(name);
}

// The data event is not required: without it the writer reports a failed wait and ends, and the reading side still
// works.
bool Win32_Buffered_Byte_Client::IsValid() const
{
    return Valid(reader_stop_event_.get()) && Valid(receive_.get()) && Valid(stop_event_.get()) &&
           Valid(write_done_event_.get()) && Valid(write_.get()) && Client_Server::IsValid() && Object::IsValid();
}

// The buffers.

// The first sizing, by the constructor, is silent unless the size is out of range.
bool Win32_Buffered_Byte_Client::SetBufferSize(unsigned int size)
{
    const unsigned int possible = std::clamp(size, smallest_buffer, largest_buffer);
    if (size != possible)
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Warning, size_code, "Buffer size %u is to %s, using %u bytes instead.", size,
                       size < possible ? "small" : "large", possible);
    const unsigned int old = GetBufferSize();
    if (old == possible) {
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Warning, size_code, "Buffer size was already set to %u bytes.", possible);
        return true;
    }
    const bool done = Allocate(possible);
    if (old != 0)
        Report(unit, __LINE__)
            .Print_Out(done ? Error_Handler::ES_Information : Error_Handler::ES_Error, size_code,
                       "Changing buffer from %u to %u bytes %s.", old, possible,
                       done ? "was successful" : "has failed");
    return done;
}

// A block that is being written shares its memory with the transfer, which keeps it until the write is done.
bool Win32_Buffered_Byte_Client::Allocate(unsigned int size)
{
    const Semaphore_Guard guard(*this);
    current_ = 0;
    bool done = true;
    for (Buffer &buffer : buffers_) {
        buffer = {};
        buffer.size = size;
        try {
            buffer.base = std::make_shared<unsigned char[]>(size);
        } catch (const std::bad_alloc &) {
            done = false;
        }
    }
    return done;
}

void Win32_Buffered_Byte_Client::Free_Buffer()
{
    const Semaphore_Guard guard(*this);
    buffers_ = {};
    current_ = 0;
}

unsigned int Win32_Buffered_Byte_Client::GetBufferSize() const
{
    const Semaphore_Guard guard(*this);
    return static_cast<unsigned int>(buffers_[current_].size);
}

unsigned int Win32_Buffered_Byte_Client::Room() const
{
    const Semaphore_Guard guard(*this);
    return static_cast<unsigned int>(buffers_[current_].Room());
}

// Data that an ended writer left behind are not counted: only new data start a writer again, so a producer that waits
// for 0 before it sends more would wait for ever.
unsigned int Win32_Buffered_Byte_Client::Unsent() const
{
    const Semaphore_Guard guard(*this);
    if (state_ == State::idle) return 0;
    return static_cast<unsigned int>(buffers_[0].fill + buffers_[1].fill + in_flight_.size);
}

unsigned int Win32_Buffered_Byte_Client::cache_avail() const
{
    const Semaphore_Guard guard(*this);
    return static_cast<unsigned int>(buffers_[current_].fill);
}

std::uint64_t Win32_Buffered_Byte_Client::GetBytesOut() const { return bytes_out_.load(std::memory_order_relaxed); }

// The signal that data wait must survive the reset, because no other thread would set it again.
void Win32_Buffered_Byte_Client::Reset_Events()
{
    const Semaphore_Guard guard(*this);
    for (const auto *event : {&reader_stop_event_, &stop_event_, &write_done_event_, &data_event_}) Reset(*event);
    if (state_ != State::idle && buffers_[current_].fill > 0) data_event_->set();
}

// The producer's side.

bool Win32_Buffered_Byte_Client::Send(Byte_Server &server, CL_Mesg message)
{
    switch (message) {
    case Mesg_Request_Invite: {
        const long available = server.MinAvail(0);
        if (available < 1) return false;
        server.Request(std::min(available, static_cast<long>(GetBufferSize())));
        return true;
    }
    case Mesg_Data_Ready: return Take(server);
    case Mesg_Attached:
    case Mesg_Detached:
        Forget_Data();
        Stop(true);
        return Byte_Client::Send(server, message);
    case Mesg_Type_10110: return !Is_Socket();
    case Mesg_Type_10140: return Is_Socket();
    default: return Byte_Client::Send(server, message);
    }
}

bool Win32_Buffered_Byte_Client::Take(Byte_Server &server)
{
    bool wakes = false;
    const Filled filled = Fill(server, wakes);
    if (wakes) data_event_->set();  // without the lock, which the writer takes at once
    switch (filled) {
    case Filled::unconnected: return false;
    case Filled::overrun: Report_Overrun(__LINE__); break;
    case Filled::without_writer: Report_No_Writer(__LINE__); break;
    case Filled::done: break;
    }
    return true;
}

// The bytes are pulled even when they are dropped: a server that kept them would offer them for ever. The server's
// GetNBytes runs with this object's lock held and may take the server's lock. Lock order: this object's lock first, the
// server's second. `wakes`: the data event is to be set.
Win32_Buffered_Byte_Client::Filled Win32_Buffered_Byte_Client::Fill(Byte_Server &server, bool &wakes)
{
    const Semaphore_Guard guard(*this);
    Drop_Former_Connection();
    Buffer &buffer = buffers_[current_];
    const std::size_t room = buffer.Room();
    const auto most = static_cast<long>(room);
    buffer.fill += static_cast<std::size_t>(Bytes_Moved(server.GetNBytes(buffer.End(), most), most));
    if (!is_connected()) {
        Drop();
        return Filled::unconnected;
    }
    if (room == 0) {  // discard all: a lost block does less harm than a producer that waits
        buffer.fill = 0;
        return Filled::overrun;
    }
    if (state_ == State::idle) {
        if (!Start_Writer()) return Filled::without_writer;
        wakes = true;  // in the other states the writer looks for data after its present step
    } else if (state_ == State::waiting && buffer.fill > 0) {
        state_ = State::data_signalled;
        wakes = true;
    }
    return Filled::done;
}

// The wait for an earlier writer holds the lock. That is safe, because a writer that is about to end does not take this
// lock any more. No writer starts while a thread is inside Stop, because that thread waits until no writer runs.
bool Win32_Buffered_Byte_Client::Start_Writer()
{
    if (stopping_ > 0) return true;
    writer_.Ends_Within(lingering_ms);
    if (!writer_.start(false)) return false;
    state_ = State::waiting;
    return true;
}

void Win32_Buffered_Byte_Client::Report_Overrun(unsigned int line) const
{
    Report(unit, line)
        .Print_Out(Error_Handler::ES_Warning, data_code, "Buffer with %u bytes overrun in %s, data discarded!",
                   GetBufferSize(), GetName());
}

void Win32_Buffered_Byte_Client::Report_No_Writer(unsigned int line) const
{
    Report(unit, line)
        .Print_Out(Error_Handler::ES_Fatal, data_code, "Could not start thread for data transfer in %s", GetName());
}

void Win32_Buffered_Byte_Client::Drop()
{
    for (Buffer &buffer : buffers_) buffer.fill = 0;
}

// Called before the buffers are filled or written, so that data for one connection do not go into the next one.
void Win32_Buffered_Byte_Client::Drop_Former_Connection()
{
    if (Is_Same(data_of_, handle_)) return;
    Drop();
    data_of_ = handle_;
}

// Drops the data and clears the signal that they wait.
void Win32_Buffered_Byte_Client::Forget_Data()
{
    const Semaphore_Guard guard(*this);
    Drop();
    if (state_ == State::data_signalled) state_ = State::waiting;
    Reset(write_done_event_);
    Reset(data_event_);
}

void Win32_Buffered_Byte_Client::Stop_Writer() { Stop(false); }

// Waits until the writer has ended before it calls writer_.stop(): while terminate_refused_ is set, Base_Thread::stop
// would kill a running writer, perhaps while it holds the lock. The request to stop is repeated, because a concurrent
// reset of the events may clear the signal. On the writer's own thread (from a report) Stop does nothing: the writer
// ends after the report, unless new data come.
void Win32_Buffered_Byte_Client::Stop(bool go_on)
{
    if (writer_.Is_Own_Thread()) return;
    {
        const Semaphore_Guard guard(*this);
        ++stopping_;
    }
    for (int poll = 0; poll < stop_polls && writer_.is_running(); ++poll) {
        writer_.pre_stop();
        writer_.Ends_Within(1);
    }
    writer_.stop();
    End_Writer(0);
    bool has_writer = true;
    {
        const Semaphore_Guard guard(*this);
        Reset(stop_event_);
        if (--stopping_ == 0 && go_on) has_writer = Go_On();
    }
    if (!has_writer) Report_No_Writer(__LINE__);
}

// Data that came while the writer was stopped, perhaps a request, start a new writer at once.
bool Win32_Buffered_Byte_Client::Go_On()
{
    if (buffers_[current_].fill > 0) {
        data_event_->set();
        return Start_Writer();
    }
    for (Buffer &buffer : buffers_) {
        if (buffer.base) std::fill_n(buffer.base.get(), buffer.size, static_cast<unsigned char>(0));
    }
    current_ = 0;
    return true;
}

// The writer thread. It shares state_ and the buffers, both under the lock, and three events with the other threads:
//   idle             it does not run, or ends without another look at the buffers: the next data start a new one
//   waiting          it waits for a signal
//   data_signalled   the data event, or for a request the write-done event, is set or about to be; no need to set it
//                    again
//   write_pending    the other buffer is being written; the end of that write wakes the writer

// Called by Base_Thread::stop.
unsigned long Win32_Buffered_Byte_Client::overlapped_terminate()
{
    if (terminate_refused_ == 1) return static_cast<unsigned long>(refused);
    overlapped_pre_stop();
    platform::sleep_ms(1);
    return 0;
}

void Win32_Buffered_Byte_Client::overlapped_pre_stop()
{
    writer_.Request_Stop();
    if (stop_event_) stop_event_->set();
}

unsigned long Win32_Buffered_Byte_Client::overlapped_thread()
{
    for (;;) {
        if (writer_.Stop_Requested()) return End_Writer(0);
        platform::Waitable *const signals[] = {stop_event_.get(), write_done_event_.get(), write_.get(),
                                               data_event_.get()};
        Next next = Next::write;
        switch (platform::wait_any(signals, platform::wait_forever)) {
        case 0: return End_Writer(1);
        case 1: break;  // a request: write without gathering
        case 2: next = Block_Ended(Next::write); break;
        case 3: next = Next::gather; break;
        default:  // the report comes first, see Report_Failed_Write
            Report(unit, __LINE__)
                .Print_Out(Error_Handler::ES_Error, wait_code, "%s: Unexpected wait return value '%lx'.", GetName(),
                           static_cast<unsigned long>(platform::win32_wait_failed));
            return End_Writer(0);
        }
        while (next == Next::gather || next == Next::write) {
            // Wait once and briefly, so that small pieces share a packet; a stop ends the wait.
            if (next == Next::gather && cache_avail() < small_piece) writer_.Sleep(gather_ms);
            next = Write();
        }
        if (next == Next::end) return 1;
    }
}

// No write is under way after this. Waiting data stay in the buffers: they go out through the same connection, or are
// dropped before the next one.
unsigned long Win32_Buffered_Byte_Client::End_Writer(unsigned long exit_code)
{
    if (write_) write_->cancel();
    const Semaphore_Guard guard(*this);
    if (state_ == State::write_pending) Take_Result();
    state_ = State::idle;
    return exit_code;
}

// Counts what the last transfer moved and returns its error. A failed transfer may have moved something, too.
std::uint32_t Win32_Buffered_Byte_Client::Take_Result()
{
    std::size_t moved = 0;
    last_error_ = write_->result(moved) ? platform::error_none : platform::last_error();
    bytes_out_.fetch_add(moved, std::memory_order_relaxed);
    in_flight_ = {};
    return last_error_;
}

// Hands the filled buffer to the system. The buffer counts as being written from here on, so that the lock is not held
// while the system copies it (up to a megabyte). The producer goes on in the other buffer, which is empty.
Win32_Buffered_Byte_Client::Next Win32_Buffered_Byte_Client::Write()
{
    std::shared_ptr<platform::Stream> to;  // released without the lock: closing the stream may take long
    Block block;
    {
        const Semaphore_Guard guard(*this);
        // A request woke the writer. The block that is being written comes first; its end calls Write again.
        if (state_ == State::write_pending) return Next::wait;
        if (!handle_ || !is_connected()) {
            Drop();
            state_ = State::idle;
            return Next::end;
        }
        Drop_Former_Connection();
        Buffer &buffer = buffers_[current_];
        if (buffer.fill == 0) {
            state_ = State::waiting;
            return Next::wait;
        }
        to = handle_;
        block = in_flight_ = {buffer.base, std::exchange(buffer.fill, 0), to};
        state_ = State::write_pending;
        // The event announced these bytes. If it stayed set, the next round would wait for more with an empty buffer.
        Reset(data_event_);
        current_ = 1 - current_;
    }
    if (!write_->write(to, block.base.get(), block.size) && platform::last_error() == platform::error_io_pending)
        return Next::wait;
    return Block_Ended(Next::gather);
}

// The block was written or has failed. A failure also drops the data that wait for the same connection: they may begin
// in the lost block, and neither the peer nor the next connection should get the rest. When this side has closed or
// replaced the transport, no failure is reported, and Write checks what is connected now.
Win32_Buffered_Byte_Client::Next Win32_Buffered_Byte_Client::Block_Ended(Next next)
{
    std::uint32_t error = 0;
    {
        const Semaphore_Guard guard(*this);
        if (state_ != State::write_pending) return Next::wait;
        const bool is_given_up = !Is_Same(in_flight_.to, handle_) || handle_->closed() || !is_connected();
        error = Take_Result();
        state_ = State::waiting;
        if (error == platform::error_none) return buffers_[current_].fill > 0 ? next : Next::wait;
        if (is_given_up) return Next::write;
        Drop();
        if (Is_Quiet(error)) {
            state_ = State::idle;
            return Next::end;
        }
    }
    return Report_Failed_Write(error);
}

// The writer counts as running until the report is done. The report may take long and may need the lock; a producer
// that had to start another writer meanwhile would wait for the end of this one with the lock held.
Win32_Buffered_Byte_Client::Next Win32_Buffered_Byte_Client::Report_Failed_Write(std::uint32_t error)
{
    ReportErrorIntern(error, "Write", data_code, Error_Handler::ES_Error);
    const Semaphore_Guard guard(*this);
    if (buffers_[current_].fill > 0) return Next::write;  // new data have come meanwhile
    state_ = State::idle;
    return Next::end;
}

// Requests of NTRIP.

void Win32_Buffered_Byte_Client::NTRIPSendStreamRequest(char *mountpoint, char *user_password, const char *host,
                                                        int port, bool absolute_url)
{
    std::string authorisation;  // empty: the request then has an empty line here; part of the interface
    if (user_password != No_Authorisation)
        authorisation = "Authorization: Basic " + platform::base64(Text(user_password));
    const std::string path = std::string("/").append(Text(mountpoint));
    Send_Request(Ntrip_Request(path, authorisation.c_str(), Text(host), port, absolute_url));
}

void Win32_Buffered_Byte_Client::NTRIPSendSourceTableRequest(const char *host, int port, bool absolute_url)
{
    Send_Request(Ntrip_Request("/", nullptr, Text(host), port, absolute_url));
}

char *Win32_Buffered_Byte_Client::GenerateGETRequest(char *out, const char *path, const char *auth_line,
                                                     const char *host, int port, bool absolute_url)
{
    if (auth_line == No_Authorisation) auth_line = nullptr;
    const std::string request = Ntrip_Request(Text(path), auth_line, Text(host), port, absolute_url);
    std::memcpy(out, request.c_str(), request.size() + 1);
    return out;
}

// Sets the write-done event instead of the data event, because a request does not wait for more data.
void Win32_Buffered_Byte_Client::Send_Request(const std::string &request)
{
    if (!Begin_Request()) return;
    bool overrun = false, has_writer = true;
    {
        const Semaphore_Guard guard(*this);
        Drop_Former_Connection();
        Buffer &buffer = buffers_[current_];
        overrun = request.size() > buffer.Room();
        if (overrun) buffer.fill = 0;
        if (request.size() <= buffer.Room()) {
            std::memcpy(buffer.End(), request.data(), request.size());
            buffer.fill += request.size();
        }
        // The writer may have been stopped in that second: the producer's own line came up (Mesg_Attached).
        if (state_ == State::idle) has_writer = Start_Writer();
        if (state_ == State::waiting) state_ = State::data_signalled;
        write_done_event_->set();
    }
    if (overrun) Report_Overrun(__LINE__);
    if (!has_writer) Report_No_Writer(__LINE__);
}

// Starts the writer if it does not run, and then gives the connection a second. The wait holds no lock, so that other
// threads can send and stop meanwhile. A stop ends the writer and thereby this wait.
bool Win32_Buffered_Byte_Client::Begin_Request()
{
    bool started = true;
    {
        const Semaphore_Guard guard(*this);
        if (state_ != State::idle) return true;
        started = Start_Writer();
    }
    if (!started) Report_No_Writer(__LINE__);
    for (unsigned long waited = 0; started && waited < request_delay_ms && writer_.is_running();
         waited += request_slice_ms)
        platform::sleep_ms(request_slice_ms);
    return started;
}

}  // namespace kernel
