// Files as ends of a stream.
#pragma once

#include "host/gnss_stream/Console.h"
#include "host/gnss_stream/Endpoint.h"
#include "host/gnss_stream/Feed.h"
#include "host/gnss_stream/Replay_Pace.h"
#include "host/gnss_stream/Tagged_Replay.h"
#include "kernel/files/file_client_server.h"
#include "kernel/files/file_server.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace host {

// A recording, or those of a list, as fast as the outputs take them or at a rate; or a recording by its time tags.
//
// Threads:   as Endpoint. A thread of this object delivers, or one of the server when there is a rate.
// Ownership: as Endpoint.
// Errors:    Open returns false for a file that cannot be opened and for a pipe, which would block the program. A file
//            that cannot be read any further ends the input. Otherwise as File_Server.
class File_Input : public Input {
public:
    struct Options {
        bool list = false;
        bool simulator = false;
        std::uint32_t rate = 0;                // [bytes/s]; 0: as fast as it goes
        std::optional<Replay_Pace> pace = {};  // by time tags; not with the others
    };
    File_Input(std::string name, const Options &options, Console &console);
    ~File_Input() override { Stop(); }

    bool Open() override;
    bool Can_Wait() const override { return true; }
    bool Connect(kernel::Byte_Client &client) override { return server_->Connect(&client); }
    void Start() override;
    bool Ended() const override;
    void Watch(bool client_is_busy) override;
    void Stop() override;
    Startup Start_State() const override { return Startup::up; }
    Stream_Status Status() const override;
    bool Close() override { return true; }

private:
    void Run();

    const std::string name_;
    const Options options_;
    Console &console_;
    End_Handler handler_;
    std::unique_ptr<kernel::File_Server> server_;
    std::unique_ptr<Tagged_Replay> replay_;  // null: not by time tags
    std::thread runner_;                     // only without a rate
    std::atomic<bool> started_{false}, stop_{false}, ended_{false};
    bool unreadable_ = false;
    std::int64_t bytes_seen_ = 0;
    std::chrono::steady_clock::time_point moved_;  // the last time of progress, or of a good reason for none
};

// What both kinds of recordings do alike: blocks go to a client that writes them.
//
// Threads:   as Output.
// Ownership: as Endpoint; the recorder.
// Errors:    std::bad_alloc from the constructor. After a write that failed, blocks are dropped.
class Recording_Output : public Output {
public:
    bool Is_Up() const override { return !Has_Failed(); }
    std::size_t Room() const override { return static_cast<std::size_t>(-1); }
    void Put(std::span<const unsigned char> block) override;
    bool Is_Drained() const override { return true; }
    std::uint64_t Sent() const override { return bytes_.load(std::memory_order_relaxed); }
    Stream_Status Status() const override;

protected:
    Recording_Output(std::string name, Console &console, kernel::Byte_Client *recorder);  // a null one: std::bad_alloc

    const std::string name_;
    Console &console_;
    End_Handler handler_;

private:
    const std::unique_ptr<kernel::Byte_Client> recorder_;
    Feed feed_;  // destroyed before the recorder, which it uses
    std::atomic<std::uint64_t> bytes_{0};
};

// A file. It is appended to, so that a program that is started again destroys nothing.
//
// Threads:   as Output.
// Ownership: as Endpoint.
// Errors:    Open returns false for a file that cannot be opened. Otherwise as File_Client_Server.
class File_Output : public Recording_Output {
public:
    File_Output(std::string name, Console &console)
        : File_Output(std::move(name), console, kernel::File_Client_Server::Construct(nullptr))
    {
    }

    bool Open() override;
    bool Has_Failed() const override { return handler_.Errors() > 0; }
    bool Close() override;

private:
    File_Output(std::string name, Console &console, kernel::File_Client_Server *tap);

    kernel::File_Client_Server &tap_;
};

// A file, and beside it the time tags. Neither is ever appended to or emptied: when one of the two exists, both get the
// first free name of NAME-2.EXTENSION, NAME-3.EXTENSION and so on.
//
// Threads:   as Output.
// Ownership: as Endpoint.
// Errors:    Open returns false for files that cannot be opened, for something that is no file, and for a name whose
//            tags would not stand beside it (a name without extension below a folder with a '.'). A failed write of the
//            tags is a fault, and the recording goes on without. Otherwise as File_TimeTag_Client.
class Tagged_Output : public Recording_Output {
public:
    Tagged_Output(std::string name, Console &console);

    bool Open() override;
    bool Has_Failed() const override;
    bool Close() override;

private:
    class Recorder;
    Tagged_Output(std::string name, Console &console, Recorder *recorder);
    std::string Free_Name() const;
    bool Refuse(const std::string &why) const;

    Recorder &recorder_;
};

}  // namespace host
