#include "host/gnss_stream/Stream_Run.h"

#include "host/gnss_stream/File_Name.h"
#include "host/gnss_stream/Stream_Ends.h"
#include "kernel/files/file_timetag_client.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <string_view>
#include <system_error>
#include <thread>

namespace host {

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

const char unit[] = "host/Stream_Run";
constexpr auto pass_time = 20ms;
constexpr auto end_limit = 60s;       // after a signal, for peers that read slowly
constexpr auto note_time = 3s;        // until a user is told what the program waits for
constexpr auto connect_limit = 30s;   // with --strict
constexpr auto quiet_time = 60ms;     // after this time without bytes, no more are on their way
constexpr auto settle_limit = 500ms;  // for the wait for quiet_time
constexpr auto patience = 60s;        // with an input that is silent

constexpr std::uintmax_t enough_room = 16 << 20;  // [bytes] on a disk that was full

// The standard library can tell this on POSIX only.
bool Is_Terminal()
{
    std::error_code ignored;
    return fs::is_character_file("/dev/stderr", ignored);
}

// 0 for a missing file, a device and a pipe.
std::uint64_t Size_Of(const std::string &name)
{
    std::error_code error;
    if (!fs::is_regular_file(Path_Of(name), error)) return 0;
    const std::uintmax_t size = fs::file_size(Path_Of(name), error);
    return error ? 0 : size;
}

// False for devices and pipes, which may be used twice.
bool Are_Same_File(const std::string &name, const std::string &other)
{
    const fs::path a = Path_Of(name), b = Path_Of(other);
    std::error_code ignored;
    if (fs::exists(a, ignored)) return fs::is_regular_file(a, ignored) && fs::equivalent(a, b, ignored);
    return fs::absolute(a, ignored).lexically_normal() == fs::absolute(b, ignored).lexically_normal();
}

Status_View::Options View_Options(const Stream_Options &options)
{
    const bool lines = options.status_interval > 0;
    const bool shows_records = options.rtcm3.epochs || !options.driver.file.empty();
    const bool live = options.progress || (!shows_records && !lines && Is_Terminal());
    return {live && !options.quiet, std::chrono::seconds(options.status_interval)};
}

// A TCP peer may be lost without a notice, which only its silence shows. A serial line may be silent for any time.
std::chrono::milliseconds Patience_With(const Stream_Path &input)
{
    const bool tells_its_end = std::holds_alternative<Serial_Path>(input) || std::holds_alternative<Pipe_Path>(input);
    return Can_Wait(input) || tells_its_end ? Fan_Out::for_ever : patience;
}

}  // namespace

Stream_Run::Stream_Run(const Stream_Options &options, Console &console, const std::atomic<bool> &stop)
    : options_(options), console_(console), stop_(stop),
      fan_out_(Can_Wait(options.input) ? Fan_Out::Source::can_wait : Fan_Out::Source::live,
               Patience_With(options.input)),
      view_(View_Options(options), console)
{
    fan_out_.Dont_Delete_Me();
    fan_out_.Set_Error_Handler(console);
}

void Stream_Run::Complain(unsigned int line, const std::string &text)
{
    console_.Set(unit, line)->Print_Out(kernel::Error_Handler::ES_Error, "%s", text.c_str());
}

Stream_Run::~Stream_Run() { console_.Set_Listener({}); }

Exit Stream_Run::Run()
{
    const bool started = Open() && Start();
    if (started) {
        while (!stop_ && !Is_Over()) Pass();
        Finish();
        view_.Last();
        if (stop_) console_.Set(unit, __LINE__)->Print_Out(kernel::Error_Handler::ES_Warning, "Interrupted.");
    }
    Close();
    if (watch_) End_Watch(started);
    if (!started) return exit_no_start;
    if (tap_) Check_Record();
    if (options_.shows_text && options_.looks_at_frames) rtcm3_->Print_Totals();
    if (driver_) driver_->Print_Totals();
    Flush_Text();
    const bool has_bad_frames = options_.looks_at_frames && rtcm3_->Has_Bad_Frames();
    return console_.Faults() == 0 && !has_bad_frames ? exit_fine : exit_faults;
}

// --- The start

// The input first, so that no output is created when the input is missing.
bool Stream_Run::Open()
{
    if (!Find_Password() || !Has_Distinct_Files()) return false;
    const bool has_input = Opens("input " + Shown(options_.input), [this] {
        input_ = Make_Input(options_, console_);
        return input_->Open();
    });
    if (!has_input || !May_Record()) return false;
    return Open_Readers() && Open_Outputs() && Connect() && Watch_Ends();
}

bool Stream_Run::Open_Readers()
{
    if (options_.looks_at_frames || !options_.events.empty()) {
        rtcm3_ = std::make_unique<Rtcm3_Output>(options_.rtcm3, console_);
        if (!rtcm3_->Open()) return false;
    }
    if (options_.driver.file.empty()) return true;
    driver_ = std::make_unique<Driver_Output>(options_.driver, console_);
    return driver_->Open();
}

bool Stream_Run::Open_Outputs()
{
    for (const Stream_Path &path : options_.outputs) {
        names_.push_back("output " + std::to_string(outputs_.size() + 1) + ' ' + Shown(path));
        const bool opened = Opens(names_.back(), [&] {
            outputs_.push_back(Make_Output(path, options_, console_));
            return outputs_.back()->Open();
        });
        if (!opened) return false;
    }
    return true;
}

// Whether an end could be opened, or started: ends leave it to this object to tell that they got no thread or no
// memory.
bool Stream_Run::Opens(const std::string &name, const std::function<bool()> &open)
{
    try {
        return open();
    } catch (const std::system_error &) {
        Complain(__LINE__, "No thread could be had for " + name + '.');
    } catch (const std::bad_alloc &) {
        Complain(__LINE__, "Not enough memory for " + name + '.');
    }
    return false;
}

bool Stream_Run::Find_Password()
{
    if (options_.user.empty()) return true;
    std::string password;
    if (!options_.password_file.empty()) {
        std::ifstream file(Path_Of(options_.password_file), std::ios::binary);
        if (!std::getline(file, password)) {
            Complain(__LINE__, "There is no password in file " + options_.password_file + ".");
            return false;
        }
        if (password.ends_with('\r')) password.pop_back();
    } else if (const char *variable = std::getenv("GNSS_STREAM_PASSWORD")) {
        password = variable;
    }
    std::get<Ntrip_Path>(options_.input).credentials.emplace(options_.user, password);
    return true;
}

bool Stream_Run::Has_Distinct_Files()
{
    std::vector<std::string> names;
    if (const auto *file = std::get_if<File_Path>(&options_.input)) {
        names.push_back(file->name);
        if (file->tags) names.push_back(kernel::File_TimeTag_Client::Tag_File_Name(file->name.c_str()));
    }
    if (!options_.record.empty()) names.push_back(options_.record);
    if (!options_.events.empty()) names.push_back(options_.events);
    for (const Stream_Path &path : options_.outputs)
        if (const auto *file = std::get_if<File_Path>(&path); file && !file->tags)  // those take new names
            names.push_back(file->name);
    for (auto a = names.begin(); a != names.end(); ++a) {
        if (std::none_of(names.begin(), a, [&](const std::string &b) { return Are_Same_File(*a, b); })) continue;
        Complain(__LINE__, "File " + *a + " is to be used twice.");
        return false;
    }
    return true;
}

bool Stream_Run::May_Record()
{
    std::error_code ignored;
    if (fs::is_fifo(options_.record, ignored)) {
        Complain(__LINE__, "\"" + options_.record + "\" is a pipe: it can be an output (--out), and no record.");
        return false;
    }
    recorded_before_ = options_.record.empty() ? 0 : Size_Of(options_.record);
    if (recorded_before_ == 0 || options_.append) return true;
    Complain(__LINE__, "\"" + options_.record + "\" is not empty; --append goes on at its end.");
    return false;
}

bool Stream_Run::Connect()
{
    for (const auto &output : outputs_) fan_out_.Add(*output);
    if (rtcm3_) fan_out_.Add(*rtcm3_);
    if (driver_) fan_out_.Add(*driver_);
    Show_Status_Of_All();
    return options_.record.empty() ? input_->Connect(fan_out_) : Connect_Tap();
}

bool Stream_Run::Connect_Tap()
{
    tap_handler_ = std::make_unique<End_Handler>(console_, options_.record, End_Handler::Faults::from_error);
    tap_.reset(kernel::File_Client_Server::Construct(nullptr));
    tap_->Dont_Delete_Me();
    tap_->Set_Error_Handler(*tap_handler_);
    return tap_->Create(options_.record.c_str()) && tap_->Connect(&fan_out_) && input_->Connect(*tap_);
}

void Stream_Run::Show_Status_Of_All()
{
    using Live = Status_View::Live;
    const std::string input = "input " + Shown(options_.input);
    view_.Add(Live::bytes_and_rate, "", input, *input_, [this] { return fan_out_.Bytes(); });
    for (std::size_t i = 0; i < outputs_.size(); ++i) {
        const Output &output = *outputs_[i];
        view_.Add(Live::bytes, std::to_string(i + 1) + ' ', names_[i], output, [&output] { return output.Sent(); });
    }
    if (options_.looks_at_frames) view_.Add(Live::state, "", "RTCM 3", *rtcm3_, [this] { return rtcm3_->Sent(); });
    if (driver_) view_.Add(Live::state, "", options_.driver.file, *driver_, [this] { return driver_->Sent(); });
}

// The last step of opening: a run whose ends cannot be had leaves no trace in the history.
bool Stream_Run::Watch_Ends()
{
    if (options_.events.empty() && !options_.mail.is_wanted) return true;
    const std::string input = "input " + Shown(options_.input);
    watch_ =
        std::make_unique<Event_Watch>([this](const char *event, const std::string &subject, const std::string &text) {
            if (history_) history_->Note(event, subject, text);
            if (mail_ && std::string_view(event) == Event_Watch::disk_full) mail_->Note_Full_Disk();
        });
    watch_->Add(input, Shown(options_.input), *input_);
    for (std::size_t i = 0; i < outputs_.size(); ++i) watch_->Add(names_[i], Shown(options_.outputs[i]), *outputs_[i]);
    watch_->Watch_Bytes(
        input, [this] { return fan_out_.Bytes(); }, Event_Watch::Clock::now(), !input_->Can_Wait());
    if (options_.mail.is_wanted && !Open_Mail()) return false;
    if (!options_.events.empty() && !Keep_History()) return false;
    console_.Set_Listener([this](kernel::Error_Handler::Enum_Status status, const std::string &report) {
        if (mail_) mail_->On_Report(status, report);  // first: the watch may find a reason for an e-mail
        watch_->On_Report(status, report);
    });
    return true;
}

bool Stream_Run::Keep_History()
{
    const std::string input = "input " + Shown(options_.input);
    watch_->Watch_Frames(
        input, [this] { return rtcm3_->Count(); }, Event_Watch::Clock::now());
    std::string text = "version " KERNEL_VERSION ", " + input;
    for (const std::string &name : names_) text += ", " + name;
    if (!options_.record.empty()) text += ", record " + options_.record;
    history_ = std::make_unique<Event_History>(options_.events, console_);
    return Opens("the history", [&] { return history_->Open(text); });
}

bool Stream_Run::Open_Mail()
{
    const auto now = Mail_Watch::Clock::now();
    mailer_ = std::make_unique<Mailer>(console_);
    if (!mailer_->Open(options_.mail)) return false;
    mail_ = std::make_unique<Mail_Watch>(
        options_.mail.after,
        [this](const std::string &subject, const std::string &text) { mailer_->Send(subject, text); },
        [this] { return Has_Room(); });
    mail_->Watch_Input("input " + Shown(options_.input), [this] { return watch_->Last_Byte(); });
    for (std::size_t i = 0; i < outputs_.size(); ++i) mail_->Watch_Output(names_[i], *outputs_[i], now);
    return true;
}

bool Stream_Run::Has_Room() const
{
    std::vector<std::string> names{options_.record, options_.events, options_.rtcm3.csv};
    std::erase(names, "");
    for (const Stream_Path &path : options_.outputs)
        if (const auto *file = std::get_if<File_Path>(&path)) names.push_back(file->name);
    return std::all_of(names.begin(), names.end(), [](const std::string &name) {
        std::error_code error;
        const fs::path folder = fs::absolute(Path_Of(name), error).parent_path();
        const fs::space_info space = fs::space(folder, error);
        return !error && space.available >= enough_room;
    });
}

// The e-mail first, so that the history has its failure.
void Stream_Run::End_Watch(bool started)
{
    watch_->Last(Event_Watch::Clock::now());
    if (mail_) {
        mail_->Last(Mail_Watch::Clock::now());
        mailer_->End();
    }
    if (!history_) return;
    const std::string bytes = ", " + std::to_string(fan_out_.Bytes()) + " bytes";
    history_->End((!started ? "could not start" : stop_ ? "interrupted" : "the end of the stream") + bytes);
}

// False: a stream that must be up at the start is not.
bool Stream_Run::Start()
{
    if (options_.strict)
        for (std::size_t i = 0; i < outputs_.size(); ++i)
            if (!Is_Up(*outputs_[i], names_[i])) return false;
    if (input_->Can_Wait()) Wait_For_Peers();
    if (stop_) return true;
    const std::string name = "input " + Shown(options_.input);
    started_ = Opens(name, [this] { return input_->Start(), true; });
    return started_ && (!options_.strict || Is_Up(*input_, name));
}

bool Stream_Run::Is_Up(const Endpoint &end, const std::string &name)
{
    Pass_Until([&] { return end.Start_State() != Startup::under_way; }, connect_limit);
    if (stop_ || end.Start_State() == Startup::up) return true;
    Complain(__LINE__, "Could not start: " + name + '.');
    return false;
}

void Stream_Run::Wait_For_Peers()
{
    const auto has_peer = [](const auto &output) { return output->Is_Up(); };
    const auto all_have = [&] { return std::all_of(outputs_.begin(), outputs_.end(), has_peer); };
    if (options_.wait == 0 || Pass_Until(all_have, std::chrono::seconds(options_.wait)) || stop_) return;
    for (std::size_t i = 0; i < outputs_.size(); ++i)
        if (!outputs_[i]->Is_Up())
            console_.Set(unit, __LINE__)
                ->Print_Out(kernel::Error_Handler::ES_Warning, "Nobody is connected to %s: its bytes are dropped.",
                            names_[i].c_str());
}

// --- While it runs

void Stream_Run::Pass()
{
    std::this_thread::sleep_for(pass_time);
    if (started_ && !ending_) {
        input_->Tend();
        input_->Watch(fan_out_.Is_Busy());
    }
    for (const auto &output : outputs_) output->Tend();
    view_.Pass();
    if (watch_) watch_->Pass(Event_Watch::Clock::now());
    if (mail_ && !ending_) mail_->Pass(Mail_Watch::Clock::now());
    if (options_.rtcm3.epochs || driver_) Flush_Text();  // so that a reader sees each epoch soon
}

void Stream_Run::Flush_Text()
{
    if (!options_.shows_text || text_failed_) return;
    text_failed_ = std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
    if (text_failed_)
        Complain(__LINE__, "The text for standard output cannot be written: it is closed, or the disk is full.");
}

// Returns true when the condition came true before the limit and before a stop.
bool Stream_Run::Pass_Until(const std::function<bool()> &condition, Clock::duration limit)
{
    for (const auto end = Clock::now() + limit; !condition(); Pass())
        if (stop_ || Clock::now() >= end) return false;
    return true;
}

// No more bytes come, or no output is left to take them.
bool Stream_Run::Is_Over() const
{
    const auto has_failed = [](const auto &output) { return output->Has_Failed(); };
    return input_->Ended() || (!options_.looks_at_frames && !driver_ && !tap_ &&
                               std::all_of(outputs_.begin(), outputs_.end(), has_failed));
}

// --- The end

void Stream_Run::Finish()
{
    if (!input_->Can_Wait()) Let_Settle();
    fan_out_.Limit_Waiting(std::chrono::seconds(options_.linger));
    ending_ = true;
    input_->Stop();
    Drain();
    Count_Losses();
}

// Waits for bytes that the system has received already and that are on their way to the program.
void Stream_Run::Let_Settle()
{
    const auto end = Clock::now() + settle_limit;
    auto since = Clock::now();
    for (std::uint64_t bytes = fan_out_.Bytes(); Clock::now() < end && Clock::now() - since < quiet_time; Pass()) {
        if (bytes == fan_out_.Bytes()) continue;
        bytes = fan_out_.Bytes();
        since = Clock::now();
    }
}

// Waits for the outputs as long as they make progress, however slow; after a signal no longer than end_limit.
void Stream_Run::Drain()
{
    struct Progress {
        std::uint64_t sent;
        Clock::time_point since;
    };
    std::vector<Progress> progress;
    for (const auto &output : outputs_) progress.push_back({output->Sent(), Clock::now()});
    const auto waits = [&](std::size_t i) {
        if (outputs_[i]->Sent() != progress[i].sent) progress[i] = {outputs_[i]->Sent(), Clock::now()};
        return !outputs_[i]->Is_Drained() && Clock::now() - progress[i].since < std::chrono::seconds(options_.linger);
    };
    auto note = Clock::now() + note_time;
    for (auto end = Clock::time_point::max(); Clock::now() < end; Pass()) {
        if (Clock::now() >= note) {
            note = Clock::time_point::max();
            console_.Set(unit, __LINE__)
                ->Print_Out(kernel::Error_Handler::ES_Information,
                            "Waiting for the outputs to take the rest; %sCtrl-C gives it up.", stop_ ? "another " : "");
        }
        if (stop_) end = std::min(end, Clock::now() + end_limit);
        bool some_wait = false;
        for (std::size_t i = 0; i < outputs_.size(); ++i) some_wait |= waits(i);
        if (!some_wait) break;
    }
    for (std::size_t i = 0; i < outputs_.size(); ++i)
        if (!outputs_[i]->Is_Drained()) Complain(__LINE__, names_[i] + " does not take what is waiting for it.");
}

// Each output should have sent all bytes. A loss is a fault when the input could wait. With a live input it is a
// warning: that goes on while an output is missing.
void Stream_Run::Count_Losses()
{
    using Level = kernel::Error_Handler::Enum_Status;
    const Level level = input_->Can_Wait() ? Level::ES_Error : Level::ES_Warning;
    const std::uint64_t bytes = fan_out_.Bytes();
    for (std::size_t i = 0; i < outputs_.size(); ++i) {
        const std::uint64_t sent = outputs_[i]->Sent();
        if (sent >= bytes) continue;
        const std::string lost = std::to_string(bytes - sent) + " of " + std::to_string(bytes);
        console_.Set(unit, __LINE__)->Print_Out(level, "%s: %s bytes are lost.", names_[i].c_str(), lost.c_str());
    }
}

void Stream_Run::Close()
{
    if (input_) input_->Stop();
    for (const auto &output : outputs_) left_thread_ |= !output->Close();
    if (rtcm3_) rtcm3_->Close();
    if (driver_) driver_->Close();
    if (tap_) tap_->Close();
    if (input_) left_thread_ |= !input_->Close();
}

// All bytes of the input went through the tap, so that the file must have grown by their number.
void Stream_Run::Check_Record()
{
    std::error_code ignored;
    if (!fs::is_regular_file(Path_Of(options_.record), ignored)) return;
    const std::uint64_t wanted = recorded_before_ + fan_out_.Bytes();
    const std::uint64_t size = Size_Of(options_.record);
    if (size != wanted)
        Complain(__LINE__, "\"" + options_.record + "\" has " + std::to_string(size) + " bytes instead of " +
                               std::to_string(wanted) + ".");
}

}  // namespace host
