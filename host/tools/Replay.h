// One replay: a file server, perhaps a recording tap, and at the end the frame reader, or a decoder and its printer.
#pragma once

#include "host/decoders/Rtcm3_Decoder.h"
#include "host/decoders/Rtcm3_Frame_Reader.h"
#include "host/tools/Console.h"
#include "host/tools/Epoch_Printer.h"
#include "host/tools/Replay_Options.h"
#include "kernel/file_client_server.h"
#include "kernel/file_server.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>

namespace host {

// Open, then Run, then ask. The chain belongs to this object as a whole: its members are told so (Dont_Delete_Me), and go
// from the server downwards.
//
// Threads:   one; with a rate the server's own thread delivers while Run waits and shows the live line. `stop` may be set
//            by any thread or signal handler.
// Ownership: options, console and stop flag are the caller's and outlive the object.
// Errors:    reported to the console, as are those of the library's objects.
class Replay {
public:
    Replay(const Replay_Options &options, Console &console);
    Replay(const Replay &) = delete;
    Replay &operator=(const Replay &) = delete;

    bool Open();                              // false: input, record or CSV file cannot be used
    void Run(const std::atomic<bool> &stop);  // until the end of the input, or until `stop`

    const Rtcm3_Frame_Reader &Reader() const { return decoder_ ? decoder_->Reader() : reader_; }
    const Epoch_Printer *Printer() const { return printer_.get(); }  // null: nothing is decoded

private:
    bool May_Record();
    bool Open_Record();
    bool Open_Input();
    bool Open_Decoder();
    void Run_Unlimited(const std::atomic<bool> &stop);
    void Run_At_Rate(const std::atomic<bool> &stop);
    void Finish();
    void Check_Record();
    void Show_Progress(bool now);
    void Complain(unsigned int line, const std::string &text);

    const Replay_Options &options_;
    Console &console_;
    const bool live_;
    const std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point shown_;
    std::uint64_t recorded_before_ = 0;  // size of the record file at the start, in bytes

    Rtcm3_Frame_Reader reader_;               // idle where there is a decoder, which has its own
    std::unique_ptr<Epoch_Printer> printer_;  // null: nothing is decoded; likewise the decoder
    std::unique_ptr<Rtcm3_Decoder> decoder_;
    std::unique_ptr<kernel::File_Client_Server> tap_;  // null: nothing is recorded
    std::unique_ptr<kernel::File_Server> server_;
};

}  // namespace host
