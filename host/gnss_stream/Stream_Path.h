// The names of streams, as common in the field:
//
//   serial://PORT[:baud[:bits[:parity[:stop[:flow]]]]]     parity n, e or o; flow off or rts; defaults 9600:8:n:1:off
//   tcpcli://HOST:PORT
//   tcpsvr://:PORT                                         port 0: a free one
//   pipe://NAME[?server]                                   a named pipe, as its client or as its server
//   ntrip://[USER:PASSWORD@]HOST[:PORT][/MOUNTPOINT]       default port 2101; without a mountpoint the source table
//   [file://]NAME                                          a name has no "::", which begins options
//   [file://]NAME::tmt[::xSPEED][::+SECONDS]               with time tags; speed and start are for inputs
//   - or empty                                             standard input or output
#pragma once

#include "host/gnss_stream/Replay_Pace.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace host {

struct Standard_Path {};

struct File_Path {
    std::string name;
    std::optional<Replay_Pace> tags = {};  // an input is replayed at this pace, an output gets time tags
};

struct Serial_Path {
    std::string port;           // "COM7", "ttyS0", "/dev/pts/3"
    std::uint32_t baud = 9600;  // [bit/s]
    int bits = 8;
    char parity = 'n';
    int stop = 1;
    bool rts = false;  // hardware flow control
};

struct Tcp_Client_Path {
    std::string host;
    std::uint16_t port = 0;
};

struct Tcp_Server_Path {
    std::uint16_t port = 0;
};

struct Ntrip_Path {
    std::optional<std::pair<std::string, std::string>> credentials;  // user and password
    std::string host;
    std::uint16_t port = 2101;
    std::string mountpoint;  // empty: the source table
};

struct Pipe_Path {
    std::string name;
    bool is_server = false;
};

using Stream_Path =
    std::variant<Standard_Path, File_Path, Serial_Path, Tcp_Client_Path, Tcp_Server_Path, Ntrip_Path, Pipe_Path>;

// Empty when the text names no stream. `error` then gives the reason without quoting the text, which may hold a
// password.
std::optional<Stream_Path> Parse_Stream_Path(std::string_view text, std::string &error);

// For reports and status lines: the path without its credentials.
std::string Shown(const Stream_Path &path);

// The part of a command line's argument that may be credentials: between "://" (or "ntrip:", so that a mistyped path is
// covered) and the last '@'. Empty when there is none.
std::string_view Credentials_In(std::string_view argument);

}  // namespace host
