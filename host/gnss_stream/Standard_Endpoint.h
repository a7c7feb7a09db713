// Standard input and output as ends of a stream, and pipes that have names. The main program sees to it that the standard
// streams are binary.
#pragma once

#include "host/gnss_stream/Console.h"
#include "host/gnss_stream/Endpoint.h"
#include "host/gnss_stream/Left_Thread.h"
#include "host/gnss_stream/Queued_Writer.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace host {

// Reads what is there, and does not wait for whole blocks.
//
// Threads:   as Endpoint. The bytes come on a thread of this object, which nothing can call back from a read.
// Ownership: as Endpoint. One object per process.
// Errors:    as Endpoint. A read that fails is reported, and the end.
class Standard_Input : public Input {
public:
    explicit Standard_Input(Console &console);
    ~Standard_Input() override { Stop(); }

    bool Open() override { return true; }
    bool Can_Wait() const override { return true; }
    bool Connect(kernel::Byte_Client &client) override;
    void Start() override;
    bool Ended() const override;
    void Stop() override;
    Startup Start_State() const override { return Startup::up; }
    Stream_Status Status() const override;
    bool Close() override;

private:
    struct State;
    static void Run(State &state);

    const std::shared_ptr<State> state_;
    Left_Thread thread_;
};

// What may hold up a writer: standard output, or a pipe in the file system, which opens when somebody reads it.
//
// Threads:   as Output. A thread of this object opens and writes.
// Ownership: as Endpoint. One object per process for standard output.
// Errors:    as Endpoint. A write that fails is reported, and the end of this output; bytes that find the queue full are
//            discarded together with the queue, and reported as a warning.
class Standard_Output : public Output {
public:
    static std::unique_ptr<Standard_Output> Make(std::size_t queue_size, Console &console);
    static std::unique_ptr<Standard_Output> Make_Pipe(std::string name, std::size_t queue_size, Console &console);
    ~Standard_Output() override { Close(); }

    bool Open() override;
    bool Is_Up() const override { return writer_.Is_Open() && !Has_Failed(); }
    std::size_t Room() const override { return writer_.Room(); }
    void Put(std::span<const unsigned char> block) override;
    bool Is_Drained() const override { return writer_.Is_Empty(); }
    std::uint64_t Sent() const override { return writer_.Written(); }
    bool Has_Failed() const override { return writer_.Has_Failed(); }
    Stream_Status Status() const override;
    bool Close() override;

private:
    struct Target;
    Standard_Output(std::shared_ptr<Target> target, std::size_t queue_size, Queued_Writer::Open open);

    const std::shared_ptr<Target> target_;
    Queued_Writer writer_;
};

}  // namespace host
