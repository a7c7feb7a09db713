// Writes bytes to a target that may block: a queue of fixed size, and a thread that empties it.
#pragma once

#include "host/gnss_stream/Left_Thread.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

namespace host {

// Threads:   one thread calls Put, one calls Start and Stop; any thread may call the rest.
// Ownership: blocks are copied into the queue, which is allocated once.
// Errors:    a failed write ends the writing: Has_Failed returns true, and Put then drops its blocks.
class Queued_Writer {
public:
    // Writes a whole block; may block. False: the target has failed for good.
    using Write = std::function<bool(std::span<const unsigned char>)>;
    // Opens the target before the first block; may block. False: the target has failed for good.
    using Open = std::function<bool()>;

    // size: of the queue, in bytes; at least two blocks. Without `open` the target is open already.
    Queued_Writer(std::size_t size, Write write, Open open = {});
    ~Queued_Writer();

    void Start();  // std::system_error when no thread can be had
    // False: to make room, the queue was discarded, except a block that is being written.
    bool Put(std::span<const unsigned char> block);
    void Discard();  // empties the queue, except a block that is being written
    std::size_t Room() const;
    bool Is_Empty() const;  // no byte waits or is being written
    bool Is_Open() const;
    bool Has_Failed() const;
    std::uint64_t Written() const;  // bytes
    // Begins no further write. False: the current write does not end within the limit, and its thread is left behind.
    bool Stop(std::chrono::milliseconds limit);

    static constexpr std::size_t block_size = 4096;  // bytes per write, at most

private:
    struct State;
    static void Run(State &state);

    const std::shared_ptr<State> state_;
    Left_Thread thread_;
};

}  // namespace host
