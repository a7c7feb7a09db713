#include "host/tools/Replay.h"

#include "kernel/file_list_server.h"

#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <stop_token>
#include <string>
#include <system_error>
#include <thread>

namespace host {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

const char unit[] = "host/Replay";
constexpr unsigned long step = 1UL << 20;  // bytes between two looks at the stop flag
constexpr auto refresh = 200ms;            // of the live line
constexpr auto poll = 20ms;                // for the end of the server's thread, and for the stop flag

// As far as the standard library can tell.
bool Is_Terminal()
{
    std::error_code ignored;
    return std::filesystem::is_character_file("/dev/stderr", ignored);
}

// 0 for what is no regular file: a missing one, a device, a pipe.
std::uint64_t Size_Of(const std::string &name)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(name, error)) return 0;
    const std::uintmax_t size = std::filesystem::file_size(name, error);
    return error ? 0 : size;
}

// Opens the input through one of the three kinds of server; null when it cannot be opened.
template <class Server, class... Arguments>
std::unique_ptr<kernel::File_Server> Created(Console &console, Server *server, Arguments... arguments)
{
    std::unique_ptr<kernel::File_Server> owner(server);
    if (!server) return nullptr;
    server->Set_Error_Handler(console);
    if (!server->Create(arguments...)) return nullptr;
    return owner;
}

}  // namespace

Replay::Replay(const Replay_Options &options, Console &console)
    : options_(options), console_(console),
      live_(!options.quiet && (options.progress || (!options.epochs && Is_Terminal()))), start_(steady_clock::now()),
      shown_(start_)
{
    reader_.Dont_Delete_Me();
    reader_.Set_Error_Handler(console);
}

void Replay::Complain(unsigned int line, const std::string &text)
{
    console_.Set(unit, line)->Print_Out(kernel::Error_Handler::ES_Error, 1, "%s", text.c_str());
}

// The input comes first: a record file is not created for an input that is not there.
bool Replay::Open()
{
    if (!Open_Input() || !May_Record() || !Open_Decoder()) return false;
    kernel::Byte_Client *last = &reader_;
    if (decoder_) last = decoder_.get();
    if (options_.record.empty()) return server_->Connect(last);
    return Open_Record() && tap_->Connect(last) && server_->Connect(tap_.get());
}

bool Replay::Open_Input()
{
    using namespace kernel;
    const char *name = options_.input.c_str();
    if (options_.simulator) {
        Simulator_File_Server *simulator = Simulator_File_Server::Construct(nullptr);
        server_ = Created(console_, simulator, name, options_.list, static_cast<unsigned long>(options_.rate));
        if (server_) simulator->Enable();
    } else if (options_.list) {
        server_ = Created(console_, File_List_Server::Construct(nullptr), name, options_.rate);
    } else {
        server_ = Created(console_, File_Server::Construct(nullptr, false), name, options_.rate);
    }
    if (!server_) Complain(__LINE__, "Nothing to replay in \"" + options_.input + "\".");
    return server_ != nullptr;
}

bool Replay::May_Record()
{
    recorded_before_ = options_.record.empty() ? 0 : Size_Of(options_.record);
    if (recorded_before_ == 0 || options_.append) return true;
    Complain(__LINE__, "\"" + options_.record + "\" is not empty; --append goes on at its end.");
    return false;
}

bool Replay::Open_Decoder()
{
    if (!options_.Decodes()) return true;
    printer_ = std::make_unique<Epoch_Printer>(options_.epochs ? stdout : nullptr);
    decoder_ = std::make_unique<Rtcm3_Decoder>(options_.decoder);
    decoder_->Dont_Delete_Me();
    decoder_->Set_Error_Handler(console_);
    return printer_->Connect(*decoder_) && (options_.csv.empty() || printer_->Open_Csv(options_.csv, console_));
}

bool Replay::Open_Record()
{
    tap_.reset(kernel::File_Client_Server::Construct(nullptr));
    tap_->Dont_Delete_Me();
    tap_->Set_Error_Handler(console_);
    return tap_->Create(options_.record.c_str());
}

void Replay::Run(const std::atomic<bool> &stop)
{
    if (options_.rate > 0)
        Run_At_Rate(stop);
    else
        Run_Unlimited(stop);
    Finish();
    Show_Progress(true);
    console_.Keep_Live();
    if (stop) console_.Set(unit, __LINE__)->Print_Out(kernel::Error_Handler::ES_Warning, "Interrupted.");
    if (tap_) Check_Record();
}

// Work answers true, too, when there is nothing to read: without a file that would be for ever. And it repeats a read that
// fails until it succeeds: only closing the file ends that.
void Replay::Run_Unlimited(const std::atomic<bool> &stop)
{
    std::mutex lock;
    std::condition_variable_any end;
    const std::jthread closer([&](std::stop_token done) {
        std::unique_lock held(lock);
        while (!stop && !done.stop_requested()) end.wait_for(held, done, poll, [] { return false; });
        if (stop) server_->Close(true);
    });
    while (!stop && server_->GetFilename() && server_->Work(step)) Show_Progress(false);
}

void Replay::Run_At_Rate(const std::atomic<bool> &stop)
{
    if (!server_->start(false)) Complain(__LINE__, "The replay's thread could not be started.");
    while (!stop && server_->is_running()) {
        std::this_thread::sleep_for(poll);
        Show_Progress(false);
    }
    server_->stop();
}

void Replay::Finish()
{
    if (!decoder_) return reader_.Finish();
    decoder_->Finish();
    printer_->Close(console_);
}

// Whatever the reader got has gone through the tap, so that the file must have grown by as much.
void Replay::Check_Record()
{
    tap_->Close();
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(options_.record, ignored)) return;
    const std::uint64_t wanted = recorded_before_ + Reader().Count().bytes;
    const std::uint64_t size = Size_Of(options_.record);
    if (size != wanted)
        Complain(__LINE__, "\"" + options_.record + "\" has " + std::to_string(size) + " bytes instead of " +
                               std::to_string(wanted) + ".");
}

void Replay::Show_Progress(bool now)
{
    const auto time = steady_clock::now();
    if (!live_ || (!now && time - shown_ < refresh)) return;
    shown_ = time;
    const auto count = Reader().Progress();
    const double seconds = std::chrono::duration<double>(time - start_).count();
    const double rate = seconds > 0 ? static_cast<double>(count.bytes) / seconds : 0;
    char line[128];
    std::snprintf(line, sizeof line, "%.3f MB, %.3f MB/s, %llu frames, %llu CRC failures",
                  static_cast<double>(count.bytes) / 1e6, rate / 1e6, static_cast<unsigned long long>(count.frames),
                  static_cast<unsigned long long>(count.crc_failures));
    console_.Show_Live(line);
}

}  // namespace host
