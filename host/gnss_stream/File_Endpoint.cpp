#include "host/gnss_stream/File_Endpoint.h"

#include "kernel/files/file_list_server.h"

#include <chrono>
#include <utility>

namespace host {

namespace {

const char unit[] = "host/File_Endpoint";
constexpr unsigned long step = 1UL << 20;  // bytes between two looks at the stop flag

// Opens the input through one of the three kinds of server; null when it cannot be opened.
template <class Server, class... Arguments>
std::unique_ptr<kernel::File_Server> Created(Console &console, Server *server, Arguments... arguments)
{
    std::unique_ptr<kernel::File_Server> owner(server);
    if (!server) return nullptr;
    // Before Create, whose reports are to be heard.
    server->Set_Error_Handler(console);
    if (!server->Create(arguments...)) return nullptr;
    return owner;
}

}  // namespace

File_Input::File_Input(std::string name, const Options &options, Console &console)
    : name_(std::move(name)), options_(options), console_(console)
{
}

bool File_Input::Open()
{
    using namespace kernel;
    const char *name = name_.c_str();
    if (options_.simulator) {
        Simulator_File_Server *simulator = Simulator_File_Server::Construct(nullptr);
        server_ = Created(console_, simulator, name, options_.list, static_cast<unsigned long>(options_.rate));
        if (server_) simulator->Enable();
    } else if (options_.list) {
        server_ = Created(console_, File_List_Server::Construct(nullptr), name, options_.rate);
    } else {
        server_ = Created(console_, File_Server::Construct(nullptr, false), name, options_.rate);
    }
    if (server_) return true;
    console_.Set(unit, __LINE__)
        ->Print_Out(kernel::Error_Handler::ES_Error, 1, "Nothing to read in \"%s\".", name_.c_str());
    return false;
}

void File_Input::Start()
{
    started_ = true;
    // The server's own thread keeps to a rate, and one of 0 would bring nothing: then the budget is given from here.
    if (options_.rate == 0)
        runner_ = std::thread([this] { Run(); });
    else if (!server_->start(false))
        // Ended is true then: the run comes to its end, with a fault.
        console_.Set(unit, __LINE__)
            ->Print_Out(kernel::Error_Handler::ES_Error, 1, "The thread that reads could not be started.");
}

// Work answers true, too, when there is nothing to read: without a file that would be for ever.
void File_Input::Run()
{
    while (!stop_ && server_->GetFilename() && server_->Work(step)) continue;
    ended_ = true;
}

bool File_Input::Ended() const { return options_.rate == 0 ? ended_.load() : started_ && !server_->is_running(); }

// The server repeats a read that fails until it succeeds: only closing the file ends that; and a list may open its next
// file meanwhile. Its thread may be waiting for an output, which takes its time: it is not given up on, as stop() would.
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
    : name_(std::move(name)), handler_(console, true), client_(kernel::File_Client::Construct()), feed_(*client_)
{
    client_->Set_Error_Handler(handler_);
}

bool File_Output::Open() { return client_->Create(name_.c_str()); }

// A write that failed has been reported: the client has closed its file.
void File_Output::Put(std::span<const unsigned char> block)
{
    if (Has_Failed()) return;
    feed_.Give(block);
    if (!Has_Failed()) bytes_.fetch_add(block.size(), std::memory_order_relaxed);
}

Stream_Status File_Output::Status() const { return {Has_Failed() ? "failed" : "writing", ""}; }

bool File_Output::Close()
{
    client_->Close();
    return true;
}

}  // namespace host
