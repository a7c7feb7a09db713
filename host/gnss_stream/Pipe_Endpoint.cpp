#include "host/gnss_stream/Pipe_Endpoint.h"

#include "host/gnss_stream/Feed.h"
#include "kernel/transports/Named_Pipe_Client_Server_as_Client.h"
#include "kernel/transports/Named_Pipe_Client_Server_as_Server.h"

#include <chrono>
#include <string>

namespace host {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using As_Client = kernel::Named_Pipe_Client_Server_as_Client;
using As_Server = kernel::Named_Pipe_Client_Server_as_Server;

const char unit[] = "host/Pipe_Endpoint";
constexpr auto server_retry_time = 1s;
constexpr long block_size = 4096;  // bytes

// The part that input and output share.
class Pipe {
public:
    Pipe(const Pipe_Path &path, const Pipe_Options &options, Console &console)
        : name_(path.name), shown_(Shown(path)), options_(options), console_(console),
          handler_(console, shown_,
                   !path.is_server && options.reconnect == 0 ? End_Handler::Faults::from_error
                                                             : End_Handler::Faults::from_fatal),
          client_(path.is_server ? nullptr : As_Client::Construct(handler_, options.buffer_size)),
          server_(path.is_server ? As_Server::Construct(handler_, options.buffer_size) : nullptr)
    {
    }
    ~Pipe()
    {
        As_Client::Destruct(client_);
        As_Server::Destruct(server_);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    kernel::Named_Pipe_Client_Server_Base *Link() const
    {
        if (server_) return server_;
        return client_;
    }
    bool Prepare();
    void Start();
    void Tend();
    bool Is_Up() const { return Link()->IsBusy(); }
    bool Has_Ended() const { return is_started_ && Has_Single_Try() && !Link()->is_running(); }
    Startup Start_State() const;
    Stream_Status Status() const;
    void Close();

private:
    bool Has_Single_Try() const { return client_ && options_.reconnect == 0; }
    bool Open();

    const std::string name_, shown_;
    const Pipe_Options options_;
    Console &console_;
    End_Handler handler_;
    As_Client *const client_;  // one of the two is null, both without memory
    As_Server *const server_;
    bool is_started_ = false;
    Clock::time_point tried_;
};

// IsValid is checked by Construct; there is no room when the buffers could not be allocated.
bool Pipe::Prepare()
{
    if (Link() && Link()->Room() > 0) return true;
    console_.Set(unit, __LINE__)
        ->Print_Out(kernel::Error_Handler::ES_Error, "%s: not enough memory or descriptors for a pipe.",
                    shown_.c_str());
    return false;
}

// With a time for reconnecting the thread opens the pipe, so that nothing waits here.
void Pipe::Start()
{
    is_started_ = true;
    if (client_ && !options_.strict) client_->Enable_Auto_Reconnect(options_.reconnect);
    Open();
    if (client_ && client_->is_connected()) client_->Enable_Auto_Reconnect(options_.reconnect);
}

bool Pipe::Open()
{
    tried_ = Clock::now();
    const bool is_made = (server_ ? server_->Create(name_.c_str()) : client_->Create(name_.c_str())) != 0;
    if (is_made && !Link()->Work())
        handler_.Set(unit, __LINE__)->Print_Out(kernel::Error_Handler::ES_Fatal, "No thread could be had.");
    return is_made;
}

// Muted, because each try would cause a report.
void Pipe::Tend()
{
    const auto retry_time = server_ ? Clock::duration(server_retry_time) : std::chrono::seconds(options_.reconnect);
    if (!is_started_ || Link()->is_running() || Has_Single_Try() || Clock::now() - tried_ < retry_time) return;
    handler_.Mute();
    if (client_) client_->Enable_Auto_Reconnect(options_.reconnect);
    Open();
    handler_.Unmute();
}

Startup Pipe::Start_State() const
{
    if (Is_Up()) return Startup::up;
    if (!is_started_) return Startup::under_way;
    if (server_) return server_->is_connected() ? Startup::up : Startup::refused;
    return client_->is_running() ? Startup::under_way : Startup::refused;
}

Stream_Status Pipe::Status() const
{
    if (Is_Up()) return {"connected", ""};
    if (server_) return {server_->is_connected() ? "waiting for a client" : "cannot be opened", ""};
    return {Has_Ended() ? "ended" : "connecting", ""};
}

void Pipe::Close()
{
    if (!Link()) return;
    Link()->stop();
    Link()->Close();
}

class Pipe_Input : public Input {
public:
    Pipe_Input(const Pipe_Path &path, const Pipe_Options &options, Console &console) : pipe_(path, options, console) {}

    bool Open() override { return pipe_.Prepare(); }
    bool Can_Wait() const override { return false; }
    bool Connect(kernel::Byte_Client &client) override { return pipe_.Link()->Connect(&client); }
    void Start() override { pipe_.Start(); }
    void Tend() override { pipe_.Tend(); }
    bool Ended() const override { return pipe_.Has_Ended(); }
    void Stop() override { pipe_.Link()->stop(); }
    Startup Start_State() const override { return pipe_.Start_State(); }
    Stream_Status Status() const override { return pipe_.Status(); }
    bool Close() override
    {
        pipe_.Close();
        return true;
    }

private:
    Pipe pipe_;
};

class Pipe_Output : public Output {
public:
    Pipe_Output(const Pipe_Path &path, const Pipe_Options &options, Console &console) : pipe_(path, options, console) {}

    bool Open() override
    {
        if (!pipe_.Prepare()) return false;
        kernel::Byte_Client *const drain = kernel::Byte_Client_NULL::Construct(block_size);  // the link deletes it
        if (!drain || !pipe_.Link()->Connect(drain)) return false;
        feed_ = std::make_unique<Feed>(*pipe_.Link());
        pipe_.Start();
        return true;
    }
    void Tend() override { pipe_.Tend(); }
    bool Is_Up() const override { return pipe_.Is_Up(); }
    std::size_t Room() const override { return pipe_.Link()->Room(); }
    void Put(std::span<const unsigned char> block) override { feed_->Give(block); }
    bool Is_Drained() const override { return pipe_.Link()->Unsent() == 0; }
    std::uint64_t Sent() const override { return pipe_.Link()->GetBytesOut(); }
    bool Has_Failed() const override { return pipe_.Has_Ended(); }
    Startup Start_State() const override { return pipe_.Start_State(); }
    Stream_Status Status() const override { return pipe_.Status(); }
    bool Close() override
    {
        pipe_.Close();
        return true;
    }

private:
    Pipe pipe_;
    std::unique_ptr<Feed> feed_;  // destroyed before the link
};

}  // namespace

std::unique_ptr<Input> Make_Pipe_Input(const Pipe_Path &path, const Pipe_Options &options, Console &console)
{
    return std::make_unique<Pipe_Input>(path, options, console);
}

std::unique_ptr<Output> Make_Pipe_Output(const Pipe_Path &path, const Pipe_Options &options, Console &console)
{
    return std::make_unique<Pipe_Output>(path, options, console);
}

}  // namespace host
