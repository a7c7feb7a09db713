// Bytes on their way to something that blocks: a queue of bounded size, and a thread that empties it.
#pragma once

#include "host/gnss_stream/Left_Thread.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

namespace host {

// Threads:   Put belongs to one thread, Start and Stop to one; the rest may be asked by any.
// Ownership: blocks are copied into the queue, which is allocated once.
// Errors:    a write that fails ends the writing: Has_Failed, and what is put from then on is dropped.
class Queued_Writer {
public:
    // Writes all of a block and may take its time. False: for good.
    using Write = std::function<bool(std::span<const unsigned char>)>;
    // Opens what is written to, before the first block, and may take its time. False: for good.
    using Open = std::function<bool()>;

    // size: of the queue, in bytes; two blocks at least. Without `open` there is nothing to be opened.
    Queued_Writer(std::size_t size, Write write, Open open = {});
    ~Queued_Writer();

    void Start();  // std::system_error when no thread can be had
    // False: what the queue holds and is not being written had to be discarded to make room.
    bool Put(std::span<const unsigned char> block);
    void Discard();  // what the queue holds and is not being written
    std::size_t Room() const;
    bool Is_Empty() const;  // nothing is waiting, nothing is being written
    bool Is_Open() const;
    bool Has_Failed() const;
    std::uint64_t Written() const;  // bytes
    // Nothing more is written than what is being written. False: that does not end within the limit, and the thread is left
    // behind with it.
    bool Stop(std::chrono::milliseconds limit);

    static constexpr std::size_t block_size = 4096;  // bytes per write, at most

private:
    struct State;
    static void Run(State &state);

    const std::shared_ptr<State> state_;
    Left_Thread thread_;
};

}  // namespace host
