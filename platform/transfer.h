// What both halves share of a Transfer: what is under way, and how it is begun and judged. For the platform layer only.
#pragma once

#include "platform/fault.h"
#include "platform/stream.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

namespace platform {

// Each half derives its own and moves the bytes.
//
// Threads:   `lock` is held around every call; it guards the fields against those who wait and ask.
// Ownership: while a transfer is under way it holds the stream.
// Errors:    false, with last_error() set.
struct Transfer::State {
    virtual ~State() = default;

    bool begin(const std::shared_ptr<Stream> &on, fault::Operation what, void *bytes, std::size_t n);
    // The transfer has come to its end, with this error or none; `moved` is right.
    void end(std::uint32_t with);
    bool under_way() const { return stream != nullptr; }

    // Hands the first `admitted` bytes of the buffer to the system. error_none: done at once; error_io_pending: under way;
    // or the failure.
    virtual std::uint32_t start(void *bytes) = 0;
    // Notices the end of a transfer that nobody has waited for.
    virtual void look() = 0;
    // The next wait is for the next transfer.
    virtual void forget_signal() = 0;
    virtual void cancel() = 0;
    virtual bool take() = 0;

    std::mutex lock;
    fault::Operation operation = fault::Operation::read;
    std::shared_ptr<Stream> stream;  // null: nothing under way
    std::size_t wanted = 0;          // bytes
    std::size_t admitted = 0;        // the part of it that the test's plan lets pass; all of it without a plan
    std::size_t moved = 0;
    std::uint32_t error = 0;
};

}  // namespace platform
