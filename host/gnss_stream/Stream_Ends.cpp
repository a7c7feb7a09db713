#include "host/gnss_stream/Stream_Ends.h"

#include "host/gnss_stream/File_Endpoint.h"
#include "host/gnss_stream/Pipe_Endpoint.h"
#include "host/gnss_stream/Serial_Endpoint.h"
#include "host/gnss_stream/Socket_Endpoint.h"
#include "host/gnss_stream/Standard_Endpoint.h"

#include <filesystem>
#include <system_error>

namespace host {

namespace {

template <class... Cases>
struct Match : Cases... {
    using Cases::operator()...;
};
template <class... Cases>
Match(Cases...) -> Match<Cases...>;

// Bytes that may wait for a peer. An input that waits needs few: with more, it takes longer to notice that the peer has
// stopped reading, and longer to send the rest at the end.
unsigned int Waiting_Room(const Stream_Options &options) { return Can_Wait(options.input) ? 1U << 16 : 1U << 20; }

Socket_Options For_Sockets(const Stream_Options &options)
{
    return {options.reconnect, options.strict, Waiting_Room(options)};
}

Pipe_Options For_Pipes(const Stream_Options &options)
{
    return {options.reconnect, options.strict, Waiting_Room(options)};
}

}  // namespace

bool Can_Wait(const Stream_Path &input)
{
    return std::holds_alternative<File_Path>(input) || std::holds_alternative<Standard_Path>(input);
}

std::unique_ptr<Input> Make_Input(const Stream_Options &options, Console &console)
{
    using Made = std::unique_ptr<Input>;
    return std::visit(
        Match{[&](const Standard_Path &) -> Made { return std::make_unique<Standard_Input>(console); },
              [&](const File_Path &path) -> Made {
                  File_Input::Options file = options.file;
                  file.pace = path.tags;
                  return std::make_unique<File_Input>(path.name, file, console);
              },
              [&](const Serial_Path &path) -> Made { return Make_Serial_Input(path, console); },
              [&](const Pipe_Path &path) -> Made { return Make_Pipe_Input(path, For_Pipes(options), console); },
              [&](const auto &path) -> Made { return Make_Socket_Input(path, For_Sockets(options), console); }},
        options.input);
}

std::unique_ptr<Output> Make_Output(const Stream_Path &output, const Stream_Options &options, Console &console)
{
    using Made = std::unique_ptr<Output>;
    return std::visit(
        Match{[&](const Standard_Path &) -> Made { return Standard_Output::Make(Waiting_Room(options), console); },
              [&](const File_Path &path) -> Made {
                  if (path.tags) return std::make_unique<Tagged_Output>(path.name, console);
                  std::error_code ignored;
                  // Opening a pipe and writing to it may wait for a reader.
                  if (std::filesystem::is_fifo(path.name, ignored))
                      return Standard_Output::Make_Pipe(path.name, Waiting_Room(options), console);
                  return std::make_unique<File_Output>(path.name, console);
              },
              [&](const Serial_Path &path) -> Made { return Make_Serial_Output(path, Waiting_Room(options), console); },
              [&](const Pipe_Path &path) -> Made { return Make_Pipe_Output(path, For_Pipes(options), console); },
              [&](const auto &path) -> Made { return Make_Socket_Output(path, For_Sockets(options), console); }},
        output);
}

}  // namespace host
