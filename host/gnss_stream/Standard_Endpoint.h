// Standard input, standard output and named pipes as ends of a stream. The program makes the standard streams binary
// (see win32/binary_stdio.cpp).
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

// Reads what is there without waiting for whole blocks.
//
// Threads:   as Endpoint. A thread of this object delivers; nothing can interrupt it in a read.
// Ownership: as Endpoint. One object per process.
// Errors:    as Endpoint. A failed read is reported and ends the input.
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

// An output whose writes may block: standard output, or a named pipe, which opens when somebody reads it.
//
// Threads:   as Output. A thread of this object opens and writes.
// Ownership: as Endpoint. One object per process for standard output.
// Errors:    as Endpoint. A failed write is reported and ends this output. When the queue is full it is discarded,
//            which is reported as a warning.
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
