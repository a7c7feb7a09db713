// The consuming end of a connection: answers control messages and counts ticks.
#pragma once

#include "kernel/connections/CL_Mesg.h"
#include "kernel/connections/Client_Server.h"

#include <atomic>
#include <cstdint>

namespace kernel {

class Server;

// The base of all clients. A client family adds a public virtual Send with its own kind of server and falls back to the
// answers given here.
//
// Threads:   messages arrive on the sender's thread, often a transport's reader, and on the threads that connect,
//            switch and disconnect meanwhile: several may be inside Send at once. The counters stand that. Whether
//            disconnection is allowed may be set from any thread.
// Ownership: belongs to the server it is connected to (see Client_Server).
// Errors:    an unknown message is reported (level 3, code 31, "Illegal CL_Mesg %d from Server %s").
class KERNEL_API Client : public virtual Client_Server {
public:
    static const char Name[];  // "Basisklasse Client"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // Whether the client lets a server disconnect it; allowed from construction.
    void Enable_Disconnect() { disconnect_allowed_.store(true, std::memory_order_relaxed); }
    void Disable_Disconnect() { disconnect_allowed_.store(false, std::memory_order_relaxed); }
    bool DisconnectAllowed() const { return disconnect_allowed_.load(std::memory_order_relaxed); }

protected:
    Client();
    bool Send(Server &server, CL_Mesg message);

    // Mesg_Second since Mesg_Reset_Counters, and of these the ones since the last Mesg_Attached and up to
    // Mesg_Detached.
    std::uint32_t Ticks() const { return ticks_.load(std::memory_order_relaxed); }
    std::uint32_t Attached_Ticks() const { return attached_ticks_.load(std::memory_order_relaxed); }

private:
    void Note(CL_Mesg message);

    // Relaxed: each is a value of its own.
    std::atomic<std::uint32_t> ticks_{0};
    std::atomic<std::uint32_t> attached_ticks_{0};
    std::atomic<bool> counts_attached_{false};
    std::atomic<bool> disconnect_allowed_{true};
};

}  // namespace kernel
