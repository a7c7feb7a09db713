// One run of the stream program: an input, an optional recording tap, the fan-out, and the outputs.
#pragma once

#include "host/gnss_stream/Console.h"
#include "host/gnss_stream/Driver_Output.h"
#include "host/gnss_stream/Endpoint.h"
#include "host/gnss_stream/Event_History.h"
#include "host/gnss_stream/Event_Watch.h"
#include "host/gnss_stream/Fan_Out.h"
#include "host/gnss_stream/Mail_Watch.h"
#include "host/gnss_stream/Mailer.h"
#include "host/gnss_stream/Rtcm3_Output.h"
#include "host/gnss_stream/Status_View.h"
#include "host/gnss_stream/Stream_Options.h"
#include "kernel/files/file_client_server.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace host {

// This object owns the whole chain. Its clients are members (see Dont_Delete_Me), and are destroyed after the server
// that they are connected to: the input goes first.
//
// Threads:   one calls all operations. The input's thread delivers while Run waits, tends the ends and shows their
//            state. Any thread or signal handler may set `stop`.
// Ownership: console and stop flag are the caller's and outlive the object.
// Errors:    reported to the console, as are those of the library's objects.
class Stream_Run {
public:
    Stream_Run(const Stream_Options &options, Console &console, const std::atomic<bool> &stop);
    Stream_Run(const Stream_Run &) = delete;
    Stream_Run &operator=(const Stream_Run &) = delete;
    ~Stream_Run();

    Exit Run();  // once: until the end of the input, or until the stop flag is set
    // True: a thread is stuck in the system; the process must end without destroying this object and the statics.
    bool Left_A_Thread() const { return left_thread_; }

private:
    using Clock = std::chrono::steady_clock;

    bool Open();
    bool Find_Password();
    bool Has_Distinct_Files();
    bool May_Record();
    bool Opens(const std::string &name, const std::function<bool()> &open);
    bool Open_Readers();
    bool Open_Outputs();
    bool Connect();
    bool Connect_Tap();
    bool Watch_Ends();
    bool Keep_History();
    bool Open_Mail();
    bool Has_Room() const;
    void End_Watch(bool started);
    void Show_Status_Of_All();
    bool Start();
    bool Is_Up(const Endpoint &end, const std::string &name);
    void Wait_For_Peers();
    bool Is_Over() const;
    void Finish();
    void Let_Settle();
    void Drain();
    void Count_Losses();
    void Close();
    void Check_Record();
    void Flush_Text();
    bool Pass_Until(const std::function<bool()> &condition, Clock::duration limit);
    void Pass();
    void Complain(unsigned int line, const std::string &text);

    Stream_Options options_;
    Console &console_;
    const std::atomic<bool> &stop_;
    bool started_ = false, ending_ = false, left_thread_ = false;
    bool text_failed_ = false;           // text for standard output was lost
    std::uint64_t recorded_before_ = 0;  // size of the record file at the start, in bytes

    std::vector<std::unique_ptr<Output>> outputs_;
    std::vector<std::string> names_;         // of the outputs, for reports
    std::unique_ptr<Rtcm3_Output> rtcm3_;    // null: frames are not looked at, nor counted for the history
    std::unique_ptr<Driver_Output> driver_;  // null: there is none
    Fan_Out fan_out_;
    std::unique_ptr<End_Handler> tap_handler_;
    std::unique_ptr<kernel::File_Client_Server> tap_;  // null: nothing is recorded
    std::unique_ptr<Input> input_;
    Status_View view_;
    std::unique_ptr<Event_History> history_;  // null: none is kept
    std::unique_ptr<Mailer> mailer_;          // null: no e-mails are wanted
    std::unique_ptr<Mail_Watch> mail_;        // what they tell
    std::unique_ptr<Event_Watch> watch_;      // what is noted in the history; null without history and e-mails
};

}  // namespace host
