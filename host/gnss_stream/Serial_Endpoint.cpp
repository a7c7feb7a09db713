#include "host/gnss_stream/Serial_Endpoint.h"

#include "host/gnss_stream/Feed.h"
#include "host/gnss_stream/Queued_Writer.h"
#include "kernel/transports/Serial_Client_Server_Overlapped.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <string>

namespace host {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using kernel::Error_Handler;

const char unit[] = "host/Serial_Endpoint";
constexpr auto retry_time = 1s;
constexpr auto end_limit = 5s;       // for the end of a write after the port was closed
constexpr int driver_buffer = 4096;  // bytes; the usual size
constexpr long block_size = 4096;    // bytes

class Line : public kernel::Serial_Client_Server_Overlapped {
public:
    Line(const Serial_Path &path, const std::string &name, Error_Handler &handler)
        : Object(name.c_str(), &handler), Serial_Client_Server_Overlapped(handler, name.c_str()), path_(path)
    {
    }
    ~Line() override { stop(); }

    bool Open()
    {
        const int parity = path_.parity == 'o' ? odd_parity : path_.parity == 'e' ? even_parity : no_parity;
        const int stop = path_.stop == 2 ? two_stop_bits : one_stop_bit;
        return Create(no_number, path_.baud, parity, stop, path_.bits, path_.rts, 0, driver_buffer) != 0;
    }

private:
    // Arguments of Create.
    static constexpr int no_number = 0;  // of a port, since OpenFile knows its name
    static constexpr int no_parity = 0, odd_parity = 1, even_parity = 2;
    static constexpr int one_stop_bit = 1, two_stop_bits = 3;  // 2 stands for one and a half

    bool OpenFile(int) override { return Open_Device(path_.port.c_str()); }

    const Serial_Path path_;
};

// The part that input and output share: a port that may come and go.
class Port {
public:
    Port(const Serial_Path &path, Console &console)
        : name_(Shown(path)), console_(console), handler_(console, name_, End_Handler::Faults::from_fatal),
          line_(std::make_unique<Line>(path, name_, handler_))
    {
    }

    Line &The_Line() const { return *line_; }
    void Open();
    void Start();
    void Tend();
    bool Is_Open() const { return line_->IsActive(); }
    // Open, with a running reader: the line takes no bytes before the reader runs.
    bool Is_Up() const { return up_.load(std::memory_order_acquire) && line_->IsActive(); }
    Stream_Status Status() const { return {Is_Open() ? "open" : "not there", ""}; }
    void Say(Error_Handler::Enum_Status level, unsigned int line, const char *what);

private:
    const std::string name_;
    Console &console_;
    End_Handler handler_;
    const std::unique_ptr<Line> line_;
    bool is_started_ = false;
    std::atomic<bool> up_{false};  // from the start of the reader until Tend notices its end
    Clock::time_point tried_;
};

void Port::Say(Error_Handler::Enum_Status level, unsigned int line, const char *what)
{
    console_.Set(unit, line)->Print_Out(level, "%s %s", name_.c_str(), what);
}

void Port::Open()
{
    tried_ = Clock::now();
    if (!line_->Open()) Say(Error_Handler::ES_Warning, __LINE__, "cannot be opened: it is tried again each second.");
}

void Port::Start()
{
    is_started_ = true;
    up_ = line_->IsActive() && line_->Work();
    if (line_->IsActive() && !up_)
        Say(Error_Handler::ES_Error, __LINE__, "cannot be read for want of a thread: it is tried again each second.");
}

// The end of the reader shows that the port is lost.
void Port::Tend()
{
    // Not before Start, which checks the port itself.
    if (!is_started_ || (up_ && line_->is_running())) return;
    if (up_) {
        up_ = false;
        tried_ = Clock::now();
        Say(Error_Handler::ES_Warning, __LINE__, "has gone: it is tried again each second.");
    }
    if (Clock::now() - tried_ < retry_time) return;
    tried_ = Clock::now();
    // Muted, because each try would cause a report. Say does not use this handler.
    handler_.Mute();
    up_ = line_->Open() && line_->Work();
    handler_.Unmute();
    if (up_) Say(Error_Handler::ES_Warning, __LINE__, "is back.");
}

class Serial_Input : public Input {
public:
    Serial_Input(const Serial_Path &path, Console &console) : port_(path, console) {}

    bool Open() override
    {
        port_.Open();
        return true;
    }
    bool Can_Wait() const override { return false; }
    bool Connect(kernel::Byte_Client &client) override { return port_.The_Line().Connect(&client); }
    void Start() override { port_.Start(); }
    void Tend() override { port_.Tend(); }
    // Never: a lost port may come back.
    bool Ended() const override { return false; }
    void Stop() override { port_.The_Line().stop(); }
    Startup Start_State() const override { return port_.Is_Open() ? Startup::up : Startup::refused; }
    Stream_Status Status() const override { return port_.Status(); }
    bool Close() override
    {
        port_.The_Line().Close();
        return true;
    }

private:
    Port port_;
};

// Estimates from the clock how many bytes a UART has still to send, because systems do not tell. The driver's buffer
// bounds the estimate, and so its error where the device is no UART or is held up by flow control.
class Line_Clock {
public:
    explicit Line_Clock(const Serial_Path &path)
        : byte_time_(std::chrono::duration_cast<Clock::duration>(
              std::chrono::duration<double>((1.0 + path.bits + (path.parity != 'n') + path.stop) / path.baud)))
    {
    }
    void Add(std::size_t bytes)
    {
        const std::lock_guard held(lock_);
        const auto now = Clock::now();
        free_at_ =
            std::min(std::max(free_at_, now) + static_cast<int>(bytes) * byte_time_, now + driver_buffer * byte_time_);
    }
    std::uint64_t Bytes_Left() const
    {
        const std::lock_guard held(lock_);
        const auto left = free_at_ - Clock::now();
        // Plus the byte that is being sent.
        return left <= 0s ? 0 : static_cast<std::uint64_t>(left / byte_time_ + 1);
    }

private:
    const Clock::duration byte_time_;
    mutable std::mutex lock_;
    Clock::time_point free_at_;
};

class Serial_Output : public Output {
public:
    Serial_Output(const Serial_Path &path, std::size_t queue_size, Console &console)
        : port_(path, console), feed_(port_.The_Line()), line_clock_(path),
          writer_(queue_size, [this](auto block) { return Write(block); })
    {
    }
    ~Serial_Output() override { Close(); }

    bool Open() override
    {
        // A line needs a client to have a reader, and only the reader notices the loss of the port. The line owns it.
        kernel::Byte_Client *const drain = kernel::Byte_Client_NULL::Construct(block_size);
        if (!drain || !port_.The_Line().Connect(drain)) return false;
        port_.Open();
        port_.Start();
        writer_.Start();
        return true;
    }
    // Discards the bytes that waited for a lost line, so that they do not go out when it is back.
    void Tend() override
    {
        port_.Tend();
        if (!Is_Up()) writer_.Discard();
    }
    bool Is_Up() const override { return port_.Is_Up(); }
    std::size_t Room() const override { return writer_.Room(); }
    void Put(std::span<const unsigned char> block) override
    {
        if (Is_Up() && !writer_.Put(block))
            port_.Say(Error_Handler::ES_Warning, __LINE__,
                      "takes too little: what was waiting for it has been discarded.");
    }
    bool Is_Drained() const override { return !Is_Up() || (writer_.Is_Empty() && line_clock_.Bytes_Left() == 0); }
    std::uint64_t Sent() const override
    {
        const std::uint64_t written = writer_.Written();
        return written - std::min(written, line_clock_.Bytes_Left() + dropped_.load(std::memory_order_relaxed));
    }
    Stream_Status Status() const override { return port_.Status(); }
    bool Close() override
    {
        // The line first, which ends a write that waits for it. A writer that is stuck nevertheless still uses this
        // object: the process must then end without destroying it (see Endpoint).
        port_.The_Line().stop();
        port_.The_Line().Close();
        return writer_.Stop(end_limit);
    }

private:
    // On the writer's thread. At Mesg_Data_Ready the line waits until the previous block is written.
    bool Write(std::span<const unsigned char> block)
    {
        // True in any case, since the line may come back; the block is lost.
        if (!Is_Up()) {
            dropped_.fetch_add(block.size(), std::memory_order_relaxed);
            return true;
        }
        feed_.Give(block);
        feed_.Tell(kernel::Mesg_Data_Ready);
        line_clock_.Add(block.size());
        return true;
    }

    Port port_;
    Feed feed_;  // destroyed before the line
    Line_Clock line_clock_;
    std::atomic<std::uint64_t> dropped_{0};  // bytes that the writer got while the line was lost
    Queued_Writer writer_;                   // destroyed first: its thread uses all of the above
};

}  // namespace

std::unique_ptr<Input> Make_Serial_Input(const Serial_Path &path, Console &console)
{
    return std::make_unique<Serial_Input>(path, console);
}

std::unique_ptr<Output> Make_Serial_Output(const Serial_Path &path, std::size_t queue_size, Console &console)
{
    return std::make_unique<Serial_Output>(path, queue_size, console);
}

}  // namespace host
