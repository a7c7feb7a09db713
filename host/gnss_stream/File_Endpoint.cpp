#include "host/gnss_stream/File_Endpoint.h"

#include "kernel/files/file_list_server.h"

#include <array>
#include <filesystem>
#include <system_error>
#include <utility>

namespace host {

namespace {

const char unit[] = "host/File_Endpoint";
constexpr unsigned long step = 1UL << 20;                // bytes between two looks at the stop flag
constexpr auto read_patience = std::chrono::seconds(3);  // without progress, before the cause is asked for

// The client below the tap, which records only what is pulled through it.
class Drain : public kernel::Byte_Client {
public:
    Drain() : Object("Drain") {}
    bool Send(kernel::Byte_Server &server, kernel::CL_Mesg message) override
    {
        std::array<unsigned char, 4096> block;
        if (message == kernel::Mesg_Request_Invite) server.Request(1);
        if (message == kernel::Mesg_Data_Ready) server.GetNBytes(block.data(), static_cast<long>(block.size()));
        return message == kernel::Mesg_Request_Invite || message == kernel::Mesg_Data_Ready ||
               Byte_Client::Send(server, message);
    }
};

// Takes one of the three kinds of file server and opens its file; null when that fails.
template <class Server, class... Arguments>
std::unique_ptr<kernel::File_Server> Created(End_Handler &handler, Server *server, Arguments... arguments)
{
    std::unique_ptr<kernel::File_Server> owner(server);
    if (!server) return nullptr;
    // Before Create, so that its reports come to this handler.
    server->Set_Error_Handler(handler);
    if (!server->Create(arguments...)) return nullptr;
    return owner;
}

}  // namespace

File_Input::File_Input(std::string name, const Options &options, Console &console)
    : name_(std::move(name)), options_(options), console_(console),
      handler_(console, name_, End_Handler::Faults::from_error)
{
}

bool File_Input::Open()
{
    using namespace kernel;
    const char *name = name_.c_str();
    if (std::error_code ignored; std::filesystem::is_fifo(name_, ignored)) {
        console_.Set(unit, __LINE__)
            ->Print_Out(Error_Handler::ES_Error, "%s is a pipe: give it as standard input (< %s).", name, name);
        return false;
    }
    if (options_.simulator) {
        Simulator_File_Server *simulator = Simulator_File_Server::Construct(nullptr);
        server_ = Created(handler_, simulator, name, options_.list, static_cast<unsigned long>(options_.rate));
        if (server_) simulator->Enable();
    } else if (options_.list) {
        server_ = Created(handler_, File_List_Server::Construct(nullptr), name, options_.rate);
    } else {
        server_ = Created(handler_, File_Server::Construct(nullptr, false), name, options_.rate);
    }
    if (server_) return true;
    console_.Set(unit, __LINE__)
        ->Print_Out(kernel::Error_Handler::ES_Error, "Nothing to read in \"%s\".", name_.c_str());
    return false;
}

void File_Input::Start()
{
    started_ = true;
    moved_ = std::chrono::steady_clock::now();
    // The server's own thread delivers at a rate, and nothing at a rate of 0: then this object's thread calls Work(n).
    if (options_.rate == 0)
        runner_ = std::thread([this] { Run(); });
    else if (!server_->start(false))
        // Ended() is then true, and the run ends with this fault.
        console_.Set(unit, __LINE__)
            ->Print_Out(kernel::Error_Handler::ES_Error, "No thread could be had to read \"%s\".", name_.c_str());
}

// Work(n) also returns true without a file, so that the loop asks for the file itself.
void File_Input::Run()
{
    while (!stop_ && server_->GetFilename() && server_->Work(step)) continue;
    ended_ = true;
}

bool File_Input::Ended() const
{
    return unreadable_ || (options_.rate == 0 ? ended_.load() : started_ && !server_->is_running());
}

// The server repeats a failing read and reports it only at the end of the run. ErrorBox() reports the cause at once.
void File_Input::Watch(bool client_is_busy)
{
    const auto now = std::chrono::steady_clock::now();
    const std::int64_t bytes = server_->GetBytesIn();
    if (client_is_busy || Ended() || bytes != std::exchange(bytes_seen_, bytes)) moved_ = now;
    if (now - moved_ < read_patience) return;
    moved_ = now;
    const unsigned long errors = handler_.Errors();
    server_->ErrorBox();
    if (handler_.Errors() == errors) return;
    console_.Set(unit, __LINE__)
        ->Print_Out(kernel::Error_Handler::ES_Error, "\"%s\" cannot be read any further: the input ends here.",
                    name_.c_str());
    unreadable_ = true;
}

// Closing the file ends a read that is repeated. It is closed again and again, because a list may open its next file in
// between. The server's thread may wait for an output for longer than the 15 s after which stop() would kill it, so
// that stop() comes last.
void File_Input::Stop()
{
    if (!server_) return;
    stop_ = true;
    server_->Close(true);
    if (runner_.joinable()) runner_.join();
    for (; server_->is_running(); std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
        server_->pre_stop();
        server_->Close(true);
    }
    server_->stop();
}

Stream_Status File_Input::Status() const { return {Ended() ? "ended" : "reading", ""}; }

File_Output::File_Output(std::string name, Console &console)
    : name_(std::move(name)), console_(console), handler_(console, name_, End_Handler::Faults::from_error),
      tap_(kernel::File_Client_Server::Construct(nullptr)), feed_(*tap_)
{
    tap_->Set_Error_Handler(handler_);
    tap_->Connect(new Drain);  // goes with the tap
}

bool File_Output::Open()
{
    std::error_code none;
    const bool is_file = std::filesystem::is_regular_file(name_, none);
    const std::uintmax_t before = is_file ? std::filesystem::file_size(name_, none) : 0;
    if (!tap_->Create(name_.c_str())) return false;
    if (before > 0 && !none)
        console_.Set(unit, __LINE__)
            ->Print_Out(kernel::Error_Handler::ES_Information, "%s has %s bytes already: the stream is appended.",
                        name_.c_str(), std::to_string(before).c_str());
    return true;
}

// After a failed write the tap has reported it and closed its file.
void File_Output::Put(std::span<const unsigned char> block)
{
    if (Has_Failed()) return;
    feed_.Give(block);
    if (!Has_Failed()) bytes_.fetch_add(block.size(), std::memory_order_relaxed);
}

Stream_Status File_Output::Status() const { return {Has_Failed() ? "failed" : "writing", ""}; }

bool File_Output::Close()
{
    tap_->Close();
    return true;
}

}  // namespace host
