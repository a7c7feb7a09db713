// A client of a named pipe: opens it, waits for a busy one, and opens it again after a loss.
#pragma once

#include "kernel/transports/Named_Pipe_Client_Server_Base.h"

#include <atomic>
#include <cstdint>

namespace kernel {

// With an auto-reconnect time the thread opens the pipe until it succeeds or is stopped; it gives up only when the name
// cannot be one (error 53) or the system fails otherwise. Without one the thread ends with the connection.
//
// Threads:   as the base. Create may take 3.5 s with a busy pipe.
// Ownership: as the base.
// Errors:    kernel/Named_Pipe_Client_Server_as_Client, code 89: "Opened Named Pipe Client ..." (1), "No Server for
//            Named Pipe ...", "Server for Named Pipe ... is present, but no free instance available.", "Waiting on busy
//            Named Pipe ..." (from Create 2 or 3, from the thread 1), "Timeout opening Named Pipe Client ..." (3),
//            "Server Name for Named Pipe ... invalid." (4), and the system's errors (3).
class KERNEL_API Named_Pipe_Client_Server_as_Client : public Named_Pipe_Client_Server_Base {
public:
    static const char Name[];  // "Client/Server for Named Pipes as Client": also the name of each object
    static const char *ClassName() { return "Named_Pipe_Client_Server_as_Client"; }
    bool IsInheritedFrom(const char *name) const override;  // of either text

    // buffer_size: of the writer, see SetBufferSize. The second form reports to the default handler.
    static Named_Pipe_Client_Server_as_Client *Construct(Error_Handler &handler, unsigned int buffer_size);
    static Named_Pipe_Client_Server_as_Client *Construct(unsigned int buffer_size);
    static void Destruct(Named_Pipe_Client_Server_as_Client *object) { Object::Destruct(object); }

    // Opens the pipe; a null name is the one of the last call. 1: it is open, or the thread is to open it, for which
    // there is an auto-reconnect time. 0: it is not open. Without such a time a busy pipe is tried 7 times, half a
    // second apart.
    int Create(const char *const name);

    // The time between two tries [s]. 0, as at first: none.
    void Enable_Auto_Reconnect(unsigned long seconds);
    void Disable_Auto_Reconnect() { auto_reconnect_ms_.store(0, std::memory_order_relaxed); }
    // [ms]
    unsigned long Get_Auto_Reconnect_Time() const { return auto_reconnect_ms_.load(std::memory_order_relaxed); }

    const char *GetRemoteName() override;  // "Idle Named Pipe Client NAME", "Working Named Pipe Client NAME", ...

    ~Named_Pipe_Client_Server_as_Client() override;

protected:
    Named_Pipe_Client_Server_as_Client(Error_Handler &handler, unsigned int buffer_size);
    explicit Named_Pipe_Client_Server_as_Client(unsigned int buffer_size);

    unsigned long thread() override;  // 1 after a stop or the last connection, 0 when it gave up
    bool Is_Server() const override { return false; }

private:
    enum class Next { serve, end, give_up };
    enum class Tried { open, again, later, failed };

    Tried Try_To_Open(const char *name, int number);
    Next Reconnect();
    bool May_Try_Again(std::uint32_t error, const char *name, unsigned int seconds);

    std::atomic<std::uint32_t> auto_reconnect_ms_{0};
};

}  // namespace kernel
