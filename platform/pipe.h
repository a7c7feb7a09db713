// Named pipes: a byte stream between two processes of a machine, with one server and one client at a time.
//
// Names are `\\.\pipe\NAME`, or NAME alone, which may look like a path ("/run/rover"). Equal names but for the case of
// ASCII letters are one pipe. NAME has at most 247 bytes. Other machines: Windows only; POSIX gives
// error_bad_network_path.
//
//   The other end has                    a read gives                     a write gives
//   not come yet (536)                   error_pipe_listening             error_pipe_listening
//   closed, or its process has ended     the rest, then the end (0 bytes) error_pipe_closing (232)
//   been disconnected by the server      error_pipe_not_connected (233);  error_pipe_not_connected
//   (both ends)                          what was not read is dropped
#pragma once

#include "platform/stream.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace platform {

// The server's end. From create() and listen() on it listens: the first client that opens the pipe has it, and all
// others find it busy until the next listen(). As a Stream it is the pipe while nobody is connected: a transfer moves
// nothing, also when a client has come meanwhile, and fails with error_pipe_listening, or error_pipe_not_connected
// between disconnect() and listen().
//
// Threads:   one thread creates, listens and takes; disconnect and close come from any thread. The listening thread
//            must live until a client has come. Close a connection before the next listen(): on Windows its close also
//            cancels what is under way on the pipe.
// Ownership: as Stream. The name is free when the pipe and its connections are closed. The pipe of a process that has
//            ended is none.
// Errors:    false or null, with last_error() set.
class Server_Pipe : public Stream {
public:
    // Null with error_pipe_busy when there is a server of this name.
    static std::shared_ptr<Server_Pipe> create(std::string_view name);
    ~Server_Pipe() override;

    // Ends the connection and drops what either end has not read. Nobody can open the pipe until listen(). False with
    // error_pipe_listening or error_pipe_not_connected when there is no client; it then goes on as before.
    bool disconnect();
    // Waits for a client from now on; wait for arrival() and call take(). A client may have come before.
    bool listen();
    Waitable &arrival() const;
    // The connection with the client that has come: each one is a new stream. Null with error_io_pending when nobody
    // has come yet, with error_operation_aborted after close().
    std::shared_ptr<Stream> take();
    void close();

private:
    struct State;

    Server_Pipe(std::intptr_t native, std::unique_ptr<State> state);
    std::uint32_t judge(bool is_read, std::uint32_t error, std::size_t &moved) const override;

    const std::unique_ptr<State> state_;
};

// Opens the pipe as its client. Does not wait: null with error_not_found without a server, with error_pipe_busy while
// another has it or the server does not listen.
std::shared_ptr<Stream> open_pipe(std::string_view name);

// Waits at most ms milliseconds until the pipe can be opened. False at once with error_not_found without a server; with
// error_wait_timeout when the time is over.
bool wait_for_pipe(std::string_view name, unsigned long ms);

// For the platform layer: NAME alone. False with error_invalid_name, error_name_too_long, or error_bad_network_path for
// a name on another machine.
bool plain_pipe_name(std::string_view name, std::string &plain);

}  // namespace platform
