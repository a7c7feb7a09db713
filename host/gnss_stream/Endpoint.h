// The two kinds of ends of a stream: where bytes come from, and where they go.
#pragma once

#include "kernel/connections/BYTE_SER.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace host {

struct Stream_Status {
    std::string state;  // a few words: "connected"
    std::string peer;   // the other end, when the path does not name it
};

// An end may take a while to come up, or never do so.
enum class Startup { under_way, up, refused };

// One end. It is opened once and closed once. When a device or peer is lost in between, Tend opens it again.
//
// Threads:   the controlling thread.
// Ownership: what it opens.
// Errors:    reported to the console: a warning when the end can still come up, a fault when it never will. Open and
//            Start throw std::system_error when no thread can be had, and std::bad_alloc.
class Endpoint {
public:
    Endpoint() = default;
    Endpoint(const Endpoint &) = delete;
    Endpoint &operator=(const Endpoint &) = delete;
    virtual ~Endpoint() = default;

    // False: this end will never work. A refused port or a missing device is not a failure: Tend retries.
    virtual bool Open() = 0;
    // Retries what was lost. To be called often, about every 20 ms.
    virtual void Tend() {}
    virtual Startup Start_State() const = 0;
    virtual Stream_Status Status() const = 0;
    // False: a thread is stuck in a call of the system and was left behind. What it uses lives on, so that the process
    // must end without destroying this object and the statics.
    virtual bool Close() = 0;
};

// Where bytes come from: a byte server that delivers on a thread of its own.
//
// Threads:   as Endpoint.
// Ownership: as Endpoint; the connected client stays the caller's.
// Errors:    as Endpoint.
class Input : public Endpoint {
public:
    // True when the source waits while its client does, so that nothing is lost. A live source sends on.
    virtual bool Can_Wait() const = 0;
    virtual bool Connect(kernel::Byte_Client &client) = 0;  // before Start
    virtual void Start() = 0;
    virtual bool Ended() const = 0;  // the source has ended: nothing more will come
    // To be called as often as Tend: ends an input that cannot be read any further. client_is_busy: the client still
    // works on the last block, so that a lack of progress is no failure of the input.
    virtual void Watch(bool /* client_is_busy */) {}
    // Delivers what has been received, then nothing more.
    virtual void Stop() = 0;
};

// Where bytes go.
//
// Threads:   Put belongs to the delivering thread; Is_Up, Room, Is_Drained and Sent to any; all else as Endpoint.
// Ownership: as Endpoint; blocks are copied.
// Errors:    as Endpoint.
class Output : public Endpoint {
public:
    virtual bool Is_Up() const = 0;        // a peer is connected; without one, blocks are dropped
    virtual std::size_t Room() const = 0;  // bytes that Put takes without loss
    // At most block_limit bytes; never waits for a peer.
    virtual void Put(std::span<const unsigned char> block) = 0;
    virtual bool Is_Drained() const = 0;  // the system has taken all that can be sent
    // Bytes that the system has taken; grows while the peer reads. At the end the difference to the bytes put is lost.
    virtual std::uint64_t Sent() const = 0;
    virtual bool Has_Failed() const { return false; }  // for good

    static constexpr std::size_t block_limit = 4096;  // bytes

    Startup Start_State() const override { return Is_Up() ? Startup::up : Startup::refused; }
};

}  // namespace host
