// The two kinds of ends that a stream program has: where bytes come from, and where they go.
#pragma once

#include "kernel/connections/BYTE_SER.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace host {

struct Stream_Status {
    std::string state;  // a few words: "connected"
    std::string peer;   // who is at the other end, where the path does not say so
};

// How far an end has come that may take a while, or never succeed, to come up.
enum class Startup { under_way, up, refused };

// One end. It is opened once and closed once; what goes away in between and comes back is opened again by Tend.
//
// Threads:   the controlling thread.
// Ownership: what it opens.
// Errors:    reported to the console. What can come up later is a warning, and what will never a fault. Open and Start throw
//            std::system_error when no thread can be had, and std::bad_alloc.
class Endpoint {
public:
    Endpoint() = default;
    Endpoint(const Endpoint &) = delete;
    Endpoint &operator=(const Endpoint &) = delete;
    virtual ~Endpoint() = default;

    // False: there is no use in going on. A refused port or a missing device is none of that: Tend goes on trying.
    virtual bool Open() = 0;
    // To be called often (every 20 ms or so): looks after what was lost.
    virtual void Tend() {}
    virtual Startup Start_State() const = 0;
    virtual Stream_Status Status() const = 0;
    // False: a thread could not be called back from the system and was left behind; what it uses lives on, and the process
    // ends without the usual clearing up.
    virtual bool Close() = 0;
};

// Where bytes come from: a byte server that delivers on a thread of its own.
//
// Threads:   as Endpoint.
// Ownership: as Endpoint; the connected client stays the caller's.
// Errors:    as Endpoint.
class Input : public Endpoint {
public:
    // Waits when its client does: nothing need be lost. Others go on while nobody reads.
    virtual bool Can_Wait() const = 0;
    virtual bool Connect(kernel::Byte_Client &client) = 0;  // before Start
    virtual void Start() = 0;
    virtual bool Ended() const = 0;  // by itself: nothing more will come
    // To be called often, beside Tend: ends an input that cannot be read any further. client_is_busy: what came last is
    // still being handed on, so that no progress is no sign of a failure.
    virtual void Watch(bool /* client_is_busy */) {}
    // What has been received is handed on; then nothing is delivered any more.
    virtual void Stop() = 0;
};

// Where bytes go.
//
// Threads:   Put belongs to the delivering thread; Is_Up, Room, Is_Drained and Sent any; all else as Endpoint.
// Ownership: as Endpoint; blocks are copied.
// Errors:    as Endpoint.
class Output : public Endpoint {
public:
    virtual bool Is_Up() const = 0;        // there is somebody to send to; without, blocks are dropped
    virtual std::size_t Room() const = 0;  // bytes that are taken without loss
    virtual void Put(std::span<const unsigned char> block) = 0;  // never waits for a peer; at most 4096 bytes
    virtual bool Is_Drained() const = 0;                         // the system has all that can be sent
    // Bytes with the system: it grows while somebody reads. Of the bytes that came, the others are lost.
    virtual std::uint64_t Sent() const = 0;
    virtual bool Has_Failed() const { return false; }  // for good

    Startup Start_State() const override { return Is_Up() ? Startup::up : Startup::refused; }
};

}  // namespace host
