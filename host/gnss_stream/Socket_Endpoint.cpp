#include "host/gnss_stream/Socket_Endpoint.h"

#include "host/gnss_stream/Caster_Answer.h"
#include "host/gnss_stream/Feed.h"
#include "host/gnss_stream/Left_Thread.h"
#include "kernel/transports/Socket_Client_Server.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace host {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

const char unit[] = "host/Socket_Endpoint";
constexpr auto look_up_limit = 100ms;  // for a look-up that is under way at the end
constexpr auto listen_time = 300ms;    // a server that cannot listen has reported that by then
constexpr auto retry_time = 1s;        // until a server whose thread has ended is started again
constexpr long block_size = 4096;      // bytes

// Adds to the library's socket what a stream program needs: changes of the status, the bytes sent on all connections,
// and the removal of a caster's answer from the stream.
class Link : public kernel::Socket_Client_Server {
public:
    Link(const char *name, End_Handler &handler, unsigned int buffer_size)
        : Object(name, &handler), Socket_Client_Server(handler, buffer_size)
    {
    }
    ~Link() override { Stop_Threads(); }

    bool Set_Up(const Ntrip_Path &path)
    {
        Set_Ntrip_Mode(true);
        Set_Stream_Wanted(!path.mountpoint.empty());
        answers_ = !path.mountpoint.empty();
        if (path.credentials &&
            !(Set_User(path.credentials->first.c_str()) && Set_Password(path.credentials->second.c_str())))
            return false;
        return Set_Mountpoint(path.mountpoint.c_str());
    }
    void SetStatus(Status status) override
    {
        if (status == Status_Failed) failed_at_ms_ = Now_Ms();
        Count_Connection(status);
        if (answers_ && status == Status_Connected_As_Client)
            answer_.Expect();  // on the reader's thread, like all pulling
        Socket_Client_Server::SetStatus(status);
    }
    std::uint64_t Bytes_Sent()  // of all connections
    {
        const std::lock_guard held(count_lock_);
        sent_now_ = std::max(sent_now_, GetBytesOut());
        return sent_before_ + sent_now_;
    }
    bool Failed_Lately() const { return Now_Ms() - failed_at_ms_ < std::chrono::milliseconds(retry_time).count(); }

    using Socket_Client_Server::GetNBytes;
    long GetNBytes(unsigned char *buffer, long n) override
    {
        if (!answer_.Is_Expected() && !answer_.Is_Refusal() && data_.empty())
            return Socket_Client_Server::GetNBytes(buffer, n);
        if (data_.empty()) Look_For_Data(buffer, n);
        const std::size_t taken = std::min(data_.size(), static_cast<std::size_t>(std::max(n, 0L)));
        std::copy_n(data_.begin(), taken, buffer);
        data_.erase(0, taken);
        return static_cast<long>(taken);
    }
    long MinAvail(long n) override { return static_cast<long>(data_.size()) + Socket_Client_Server::MinAvail(n); }

private:
    static std::int64_t Now_Ms()
    {
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now().time_since_epoch()).count();
    }
    // The library's count begins at 0 with each connection. It may still grow after a loss, by the last block, so that
    // it is added up only when the next connection is made.
    void Count_Connection(Status status)
    {
        Bytes_Sent();
        const std::lock_guard held(count_lock_);
        const bool is_new = status == Status_Connected_As_Client || status == Status_Connected_As_Server;
        if (is_new) sent_before_ += std::exchange(sent_now_, 0);
    }
    void Look_For_Data(unsigned char *buffer, long n)
    {
        const auto keep = [this](Caster_Answer::Bytes bytes) { data_.append(bytes.begin(), bytes.end()); };
        const long got = Socket_Client_Server::GetNBytes(buffer, n);
        const bool was_refused = answer_.Is_Refusal();
        if (got > 0) answer_.Pass({buffer, static_cast<std::size_t>(got)}, keep);
        if (!is_connected()) answer_.End(keep);
        if (answer_.Is_Refusal() && !was_refused)
            Report(unit, __LINE__)
                .Print_Out(kernel::Error_Handler::ES_Error, "%s: the caster refuses: %s", GetName(),
                           answer_.Refusal().c_str());
    }

    bool answers_ = false;
    Caster_Answer answer_;
    std::string data_;  // data that came with an answer and are not yet pulled
    std::mutex count_lock_;
    std::uint64_t sent_before_ = 0, sent_now_ = 0;  // bytes: of earlier connections, of the last one
    std::atomic<std::int64_t> failed_at_ms_{std::numeric_limits<std::int64_t>::min() / 2};
};

// The part that input and output share.
class Connection {
public:
    Connection(const Socket_Path &path, const Socket_Options &options, Console &console)
        : path_(path), name_(std::visit([](const auto &p) { return Shown(p); }, path)), options_(options),
          console_(console),
          handler_(console, name_,
                   Has_Single_Try() ? End_Handler::Faults::from_error : End_Handler::Faults::from_fatal),
          link_(std::make_unique<Link>(name_.c_str(), handler_, options.buffer_size))
    {
    }
    ~Connection() { Close(); }

    Link &The_Link() const { return *link_; }
    bool Connect(kernel::Byte_Client *reader) { return link_->Connect(reader); }

    bool Prepare();
    void Start();
    void Tend();
    Startup Start_State() const;
    Stream_Status Status() const;
    bool Has_Ended() const { return started_ && opener_.Has_Ended() && !link_->is_running() && Has_Single_Try(); }
    void Stop();
    bool Close();

private:
    void Open();
    void Run_Link();
    bool Is_Server() const { return std::holds_alternative<Tcp_Server_Path>(path_); }
    bool Has_Single_Try() const { return options_.reconnect == 0 && !Is_Server(); }

    const Socket_Path path_;
    const std::string name_;
    const Socket_Options options_;
    Console &console_;
    End_Handler handler_;
    const std::unique_ptr<Link> link_;
    Left_Thread opener_;
    std::mutex lock_;
    bool stopped_ = false;  // guarded by lock_
    std::optional<Clock::time_point> started_;
    std::optional<Clock::time_point> retry_;  // when the link's thread, which has ended, is started again
};

bool Connection::Prepare()
{
    // IsValid is false without events to wait for; there is no room when the buffers could not be allocated.
    if (!link_->IsValid() || link_->Room() == 0) {
        console_.Set(unit, __LINE__)
            ->Print_Out(kernel::Error_Handler::ES_Error, "%s: not enough memory or descriptors for a connection.",
                        name_.c_str());
        return false;
    }
    const auto *caster = std::get_if<Ntrip_Path>(&path_);
    if (!caster || link_->Set_Up(*caster)) return true;
    console_.Set(unit, __LINE__)
        ->Print_Out(kernel::Error_Handler::ES_Error,
                    "%s: mountpoint, user and password have 255 characters each at most, and a mountpoint has no "
                    "blank and begins with no further /.",
                    name_.c_str());
    return false;
}

void Connection::Start()
{
    started_ = Clock::now();
    if (!options_.strict && !Is_Server()) link_->Enable_Auto_Reconnect(options_.reconnect);
    opener_.Start([this] { Open(); });
}

// On opener_. The link's thread repeats a look-up that has failed.
void Connection::Open()
{
    if (const auto *server = std::get_if<Tcp_Server_Path>(&path_)) link_->CreateServer(server->port);
    if (const auto *client = std::get_if<Tcp_Client_Path>(&path_))
        link_->CreateClient(client->host.c_str(), client->port, nullptr, 0);
    if (const auto *caster = std::get_if<Ntrip_Path>(&path_))
        link_->CreateClient(caster->host.c_str(), caster->port, nullptr, 0);
    const std::lock_guard held(lock_);
    if (!stopped_) Run_Link();
}

void Connection::Run_Link()
{
    if (!link_->Work())
        handler_.Set(unit, __LINE__)->Print_Out(kernel::Error_Handler::ES_Fatal, "No thread could be had.");
}

// Starts the link's thread again. It ends when the peer was silent for too long, or when no socket was to be had.
void Connection::Tend()
{
    if (!started_ || !opener_.Has_Ended()) return;
    if (options_.strict && link_->is_connected() && !Is_Server()) link_->Enable_Auto_Reconnect(options_.reconnect);
    if (link_->is_running() || Has_Single_Try()) return;
    const auto now = Clock::now();
    if (!retry_) retry_ = now + (Is_Server() ? retry_time : std::chrono::seconds(options_.reconnect));
    if (now < *retry_) return;
    retry_.reset();
    Run_Link();
}

Startup Connection::Start_State() const
{
    if (link_->is_connected()) return Startup::up;
    if (!started_ || !opener_.Has_Ended()) return Startup::under_way;
    if (!Is_Server()) return link_->is_running() ? Startup::under_way : Startup::refused;
    if (link_->Failed_Lately()) return Startup::refused;
    return Clock::now() - *started_ > listen_time ? Startup::up : Startup::under_way;
}

Stream_Status Connection::Status() const
{
    if (link_->is_connected()) return {"connected", link_->GetRemoteName()};
    if (Has_Ended()) return {"ended", ""};
    if (Is_Server())
        return {link_->Failed_Lately() ? "cannot listen" : "listening on port " + std::to_string(link_->GetPort()), ""};
    return {link_->is_running() || !opener_.Has_Ended() ? "connecting" : "waiting", ""};
}

void Connection::Stop()
{
    {
        const std::lock_guard held(lock_);
        stopped_ = true;
    }
    link_->stop();
}

bool Connection::Close()
{
    Stop();
    const bool ended = opener_.Join(look_up_limit);
    if (ended) link_->Close();
    return ended;
}

class Socket_Input : public Input {
public:
    Socket_Input(const Socket_Path &path, const Socket_Options &options, Console &console)
        : connection_(path, options, console)
    {
    }

    bool Open() override { return connection_.Prepare(); }
    bool Can_Wait() const override { return false; }
    bool Connect(kernel::Byte_Client &client) override { return connection_.Connect(&client); }
    void Start() override { connection_.Start(); }
    void Tend() override { connection_.Tend(); }
    bool Ended() const override { return connection_.Has_Ended(); }
    void Stop() override { connection_.Stop(); }
    Startup Start_State() const override { return connection_.Start_State(); }
    Stream_Status Status() const override { return connection_.Status(); }
    bool Close() override { return connection_.Close(); }

private:
    Connection connection_;
};

class Socket_Output : public Output {
public:
    Socket_Output(const Socket_Path &path, const Socket_Options &options, Console &console)
        : connection_(path, options, console), feed_(connection_.The_Link())
    {
    }

    bool Open() override
    {
        if (!connection_.Prepare()) return false;
        kernel::Byte_Client *const drain = kernel::Byte_Client_NULL::Construct(block_size);  // the link deletes it
        if (!drain || !connection_.Connect(drain)) return false;
        connection_.Start();
        return true;
    }
    void Tend() override { connection_.Tend(); }
    bool Is_Up() const override { return Writer().is_connected(); }
    std::size_t Room() const override { return Writer().Room(); }
    void Put(std::span<const unsigned char> block) override { feed_.Give(block); }
    // Also without a peer: Unsent then counts the block that was being sent.
    bool Is_Drained() const override { return Writer().Unsent() == 0; }
    std::uint64_t Sent() const override { return Writer().Bytes_Sent(); }
    bool Has_Failed() const override { return connection_.Has_Ended(); }
    Startup Start_State() const override { return connection_.Start_State(); }
    Stream_Status Status() const override { return connection_.Status(); }
    bool Close() override { return connection_.Close(); }

private:
    Link &Writer() const { return connection_.The_Link(); }

    Connection connection_;
    Feed feed_;  // destroyed before the link
};

}  // namespace

std::unique_ptr<Input> Make_Socket_Input(const Socket_Path &path, const Socket_Options &options, Console &console)
{
    return std::make_unique<Socket_Input>(path, options, console);
}

std::unique_ptr<Output> Make_Socket_Output(const Socket_Path &path, const Socket_Options &options, Console &console)
{
    return std::make_unique<Socket_Output>(path, options, console);
}

}  // namespace host
