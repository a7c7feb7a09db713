#include "host/gnss_stream/File_Endpoint.h"

#include "host/gnss_stream/Drain.h"
#include "host/gnss_stream/File_Name.h"
#include "kernel/files/file_list_server.h"
#include "kernel/files/file_timetag_client.h"

#include <filesystem>
#include <new>
#include <system_error>
#include <utility>

namespace host {

namespace {

const char unit[] = "host/File_Endpoint";
constexpr unsigned long step = 1UL << 20;                // bytes between two looks at the stop flag
constexpr auto read_patience = std::chrono::seconds(3);  // without progress, before the cause is asked for

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
    if (!server_) {
        console_.Set(unit, __LINE__)->Print_Out(Error_Handler::ES_Error, "Nothing to read in \"%s\".", name);
        return false;
    }
    if (options_.pace) replay_ = std::make_unique<Tagged_Replay>(*server_, *options_.pace, handler_);
    return !replay_ || replay_->Open(name_);
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
    if (replay_)
        replay_->Run();
    else
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
    const bool waits = client_is_busy || (replay_ && replay_->Is_Waiting());
    if (waits || Ended() || bytes != std::exchange(bytes_seen_, bytes)) moved_ = now;
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
    if (replay_) replay_->Stop();
    server_->Close(true);
    if (runner_.joinable()) runner_.join();
    for (; server_->is_running(); std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
        server_->pre_stop();
        server_->Close(true);
    }
    server_->stop();
}

Stream_Status File_Input::Status() const { return {Ended() ? "ended" : "reading", ""}; }

namespace {

kernel::Byte_Client &Existing(kernel::Byte_Client *client)
{
    if (!client) throw std::bad_alloc();
    return *client;
}

}  // namespace

Recording_Output::Recording_Output(std::string name, Console &console, kernel::Byte_Client *recorder)
    : name_(std::move(name)), console_(console), handler_(console, name_, End_Handler::Faults::from_error),
      recorder_(recorder), feed_(Existing(recorder))
{
    recorder->Set_Error_Handler(handler_);
}

// After a failed write the recorder has reported it and closed its file.
void Recording_Output::Put(std::span<const unsigned char> block)
{
    if (Has_Failed()) return;
    feed_.Give(block);
    if (!Has_Failed()) bytes_.fetch_add(block.size(), std::memory_order_relaxed);
}

Stream_Status Recording_Output::Status() const { return {Has_Failed() ? "failed" : "writing", ""}; }

File_Output::File_Output(std::string name, Console &console, kernel::File_Client_Server *tap)
    : Recording_Output(std::move(name), console, tap), tap_(*tap)
{
    tap_.Connect(new Drain);  // goes with the tap
}

bool File_Output::Open()
{
    std::error_code none;
    const bool is_file = std::filesystem::is_regular_file(name_, none);
    const std::uintmax_t before = is_file ? std::filesystem::file_size(name_, none) : 0;
    if (!tap_.Create(name_.c_str())) return false;
    if (before > 0 && !none)
        console_.Set(unit, __LINE__)
            ->Print_Out(kernel::Error_Handler::ES_Information, "%s has %s bytes already: the stream is appended.",
                        name_.c_str(), std::to_string(before).c_str());
    return true;
}

bool File_Output::Close()
{
    tap_.Close();
    return true;
}

class Tagged_Output::Recorder : public kernel::File_TimeTag_Client {
public:
    Recorder() : Object(ClassName()) {}
    bool Send(kernel::Byte_Server &server, kernel::CL_Mesg message) override
    {
        const bool answer = File_TimeTag_Client::Send(server, message);
        if (message == kernel::Mesg_Data_Ready && !Get_File()) has_failed_.store(true, std::memory_order_relaxed);
        return answer;
    }
    bool Has_Failed() const { return has_failed_.load(std::memory_order_relaxed); }

private:
    std::atomic<bool> has_failed_{false};  // the recording itself, not the tags
};

Tagged_Output::Tagged_Output(std::string name, Console &console) : Tagged_Output(std::move(name), console, new Recorder)
{
}

Tagged_Output::Tagged_Output(std::string name, Console &console, Recorder *recorder)
    : Recording_Output(std::move(name), console, recorder), recorder_(*recorder)
{
}

bool Tagged_Output::Refuse(const std::string &why) const
{
    console_.Set(unit, __LINE__)
        ->Print_Out(kernel::Error_Handler::ES_Error, "No recording with time tags under the name \"%s\": %s.",
                    name_.c_str(), why.c_str());
    return false;
}

// Empty: every name is taken, or too long.
std::string Tagged_Output::Free_Name() const
{
    namespace fs = std::filesystem;
    constexpr int most = 9999;
    const fs::path path = Path_Of(name_);
    const auto is_free = [](const fs::path &name) {
        std::error_code ignored;  // a folder that cannot be looked into: opening the file will tell
        return !fs::exists(fs::symlink_status(name, ignored));
    };
    for (int i = 1; i <= most; ++i) {
        fs::path numbered = path;
        if (i > 1) numbered.replace_filename((path.stem() += "-") += std::to_string(i)) += path.extension();
        const std::string name = Utf8_Of(numbered), tags = kernel::File_TimeTag_Client::Tag_File_Name(name.c_str());
        if (tags.empty()) return {};
        if (is_free(numbered) && is_free(Path_Of(tags))) return i > 1 ? name : name_;
    }
    return {};
}

bool Tagged_Output::Open()
{
    namespace fs = std::filesystem;
    const fs::path path = Path_Of(name_);
    const std::string tags = kernel::File_TimeTag_Client::Tag_File_Name(name_.c_str());
    if (tags.empty()) return Refuse("it is too long");
    if (Path_Of(tags).parent_path() != path.parent_path()) return Refuse("it needs an extension, such as .bin");
    std::error_code ignored;
    if (fs::exists(path, ignored) && !fs::is_regular_file(path, ignored)) return Refuse("that is no file");
    const std::string name = Free_Name();
    if (name.empty()) return Refuse("no other name is free");
    if (name != name_)
        console_.Set(unit, __LINE__)
            ->Print_Out(kernel::Error_Handler::ES_Information, "%s or its time tags exist: the stream goes to %s.",
                        name_.c_str(), name.c_str());
    return recorder_.Create(name.c_str());
}

bool Tagged_Output::Has_Failed() const { return recorder_.Has_Failed(); }

bool Tagged_Output::Close()
{
    recorder_.Close();
    return true;
}

}  // namespace host
