// The part of a Transfer that both halves share: its state, how it begins, and how its result is determined. For the
// platform layer only.
#pragma once

#include "platform/fault.h"
#include "platform/stream.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

namespace platform {

// Each half derives a class from it that moves the bytes.
//
// Threads:   lock it around every call: the lock guards the fields, which waiting threads read. A half adds what its
//            threads need while they hold it.
// Ownership: a transfer in progress holds a reference to the stream.
// Errors:    false, with last_error() set.
struct Transfer::State {
    virtual ~State() = default;

    virtual void lock() { mutex_.lock(); }
    virtual void unlock() { mutex_.unlock(); }

    bool begin(const std::shared_ptr<Stream> &on, fault::Operation what, void *bytes, std::size_t n);
    // Ends the transfer with this error or none; `moved` must be set before.
    void end(std::uint32_t with);
    bool under_way() const { return stream != nullptr; }

    // Hands the first `admitted` bytes of the buffer to the system. Returns error_none when done at once,
    // error_io_pending when in progress, or the failure.
    virtual std::uint32_t start(void *bytes) = 0;
    // Detects the end of a transfer for which no thread has waited.
    virtual void look() = 0;
    // Drops a pending signal, so that the next wait is for the next transfer.
    virtual void forget_signal() = 0;
    virtual void cancel() = 0;
    virtual bool take() = 0;

    fault::Operation operation = fault::Operation::read;
    std::shared_ptr<Stream> stream;  // null: no transfer in progress
    std::size_t wanted = 0;          // [bytes]
    std::size_t admitted = 0;        // the part of `wanted` that a test's plan admits; without a plan all of it
    std::size_t moved = 0;
    std::uint32_t error = 0;

private:
    std::mutex mutex_;
};

}  // namespace platform
