// The command line of gnss_stream.
#pragma once

#include "host/gnss_stream/Driver_Output.h"
#include "host/gnss_stream/File_Endpoint.h"
#include "host/gnss_stream/Mailer.h"
#include "host/gnss_stream/Rtcm3_Output.h"
#include "host/gnss_stream/Stream_Path.h"

#include <string>
#include <vector>

namespace host {

struct Stream_Options {
    Stream_Path input;
    File_Input::Options file;          // for an input that is a file
    std::vector<Stream_Path> outputs;  // any number; standard output at most once
    std::string record;                // the tap's file; empty: none
    bool append = false;

    std::string user;             // for the caster; empty: the path's or the environment's
    std::string password_file;    // its first line is the password; empty: the environment's
    unsigned int reconnect = 10;  // [s] between two tries of a TCP client; 0: only one
    unsigned int wait = 5;        // [s] that an input which can wait waits for its outputs at the start
    unsigned int linger = 20;     // [s] without progress after which, at the end, an output loses its rest
    bool strict = false;          // a stream that is missing at the start ends the program

    bool frames = false;  // the table of messages
    Rtcm3_Output::Options rtcm3;
    bool looks_at_frames = false;  // for the table or to decode
    Driver_Output::Options driver;
    bool shows_text = false;  // tables, epochs and records, on standard output

    std::string events;  // the file of the history; empty: none
    Mailer::Options mail;
    bool quiet = false;                // no live line
    bool progress = false;             // a live line in any case
    unsigned int status_interval = 0;  // [s] between status lines; 0: none
};

// Exit status of the program.
enum Exit : int { exit_fine = 0, exit_faults = 1, exit_usage = 2, exit_no_start = 4 };

// Help and version go to standard output, errors to standard error. False: the program ends with `exit`. Credentials in
// `argv` are overwritten, so that the system's list of processes does not show them (Linux reads argv, Windows does
// not).
bool Parse_Command_Line(int argc, char **argv, Stream_Options &options, int &exit);

}  // namespace host
