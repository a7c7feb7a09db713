// The receiving half of a serial port, as far as the plain and the overlapped variant share it. Not installed.
#pragma once

#include "kernel/transports/Serial_Client_Server_Base.h"
#include "kernel/transports/serial_line_internal.h"
#include "kernel/transports/stream_reader_internal.h"

#include <cstdint>
#include <memory>

namespace kernel {

// A variant derives from this and adds how it reads.
//
// Threads:   as Stream_Reader. Wake is for all threads.
// Ownership: belongs to the port, and outlives its thread.
// Errors:    reported in the port's name, code 72.
class Serial_Reader : public Stream_Reader {
public:
    explicit Serial_Reader(Serial_Client_Server_Base &port) : Stream_Reader(Kind::serial_line), port_(port) {}

    unsigned long Work();   // from Mesg_Attached to Mesg_Detached: 0; -1 when Prepare says so
    bool Accept(long n);    // the client's request; false: too much, and reported
    virtual void Wake() {}  // ends the reader's wait, after a stop was requested

protected:
    virtual bool Prepare() = 0;  // before the client is told; false: there is nothing to run for
    bool Tell(CL_Mesg message) override { return port_.Tell(message); }
    bool Is_Stopping() const override { return port_.Stop_Requested(); }
    bool Refused() override { return End(); }

    std::shared_ptr<platform::Serial_Port> Line() const { return port_.line_->Get(); }
    bool End();                                                  // tells the client of the end; false
    bool Lost();                                                 // tells it that the port is lost, and closes; false
    bool Unwanted_For(double silent_seconds, const char *what);  // what: "data" or "Data"; the texts differ in case

private:
    Serial_Client_Server_Base &port_;
};

}  // namespace kernel
