// The command line of gnss_replay.
#pragma once

#include "host/decoders/Rtcm3_Epoch.h"

#include <cstdint>
#include <string>

namespace host {

struct Replay_Options {
    std::string input;  // a recording, or with `list` a list file
    bool list = false;
    bool simulator = false;
    std::uint32_t rate = 0;  // [bytes/s]; 0: as fast as it goes
    std::string record;      // the tap's file; empty: none
    bool append = false;
    bool quiet = false;     // no live line
    bool progress = false;  // a live line in any case

    bool decode = false;    // totals of what the messages say
    bool epochs = false;    // a line per epoch and satellite
    std::string csv;        // prefix of two tables; empty: none
    Rtcm3_Options decoder;  // for these three

    bool Decodes() const { return decode || epochs || !csv.empty(); }
};

// Exit status of the program.
enum Exit : int { exit_fine = 0, exit_faults = 1, exit_usage = 2, exit_no_start = 4 };

// Help and version go to standard output, complaints to standard error. False: the program ends with `exit`.
bool Parse_Command_Line(int argc, const char *const *argv, Replay_Options &options, int &exit);

}  // namespace host
