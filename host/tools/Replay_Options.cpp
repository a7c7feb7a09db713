#include "host/tools/Replay_Options.h"

#include <CLI/CLI.hpp>

namespace host {

namespace {

const char description[] =
    R"(Replays a recorded byte stream, counts its RTCM 3 frames, and can record it again on the way.

At the end, or after Ctrl-C, a table goes to standard output: message number, frames, bytes (of whole frames); a frame
with too little payload for a number is counted as message 0. Then totals. Reports and the live line go to standard
error. A second Ctrl-C ends the program at once.
)";

const char footer[] =
    R"(A list file names one recording per line, relative to the current directory; "//" starts a comment. The recordings
of a list are one stream: a frame may begin in one and end in the next.

Exit status: 0 all fine; 1 something was off (a report of level Error or above, a CRC failure, bytes missing in the
recorded file); 2 wrong usage; 4 could not start (input or record file not usable). Skipped bytes and an incomplete
last frame are shown and are no fault.)";

void Declare(CLI::App &app, Replay_Options &options)
{
    const CLI::Validator not_empty([](const std::string &text) { return text.empty() ? "must not be empty" : ""; }, "");
    app.add_option("FILE", options.input, "The recording; with --list the list file")->required()->check(not_empty);
    app.add_flag("--list", options.list, "FILE is a list file: replays the recordings that it names");
    app.add_option("--rate", options.rate, "Bytes per second; 0 or absent: as fast as it goes")
        ->option_text("BYTES_PER_SECOND");
    CLI::Option *record = app.add_option("--record", options.record, "Writes a copy of the stream to this file")
                              ->option_text("OUT")
                              ->check(not_empty);
    app.add_flag("--append", options.append,
                 "Goes on at the end of the --record file; without it that must be new or empty")
        ->needs(record);
    app.add_flag("--simulator", options.simulator, "Replays through the simulated receiver's server");
    CLI::Option *quiet = app.add_flag("--quiet", options.quiet, "No live line");
    app.add_flag("--progress", options.progress,
                 "A live line even where standard error is not known to be a terminal (on Windows it never is)")
        ->excludes(quiet);
    app.set_version_flag("--version", "gnss_replay " KERNEL_VERSION);
}

}  // namespace

bool Parse_Command_Line(int argc, const char *const *argv, Replay_Options &options, int &exit)
{
    CLI::App app(description, "gnss_replay");
    app.footer(footer);
    app.allow_windows_style_options(false);  // a path may start with '/'
    Declare(app, options);
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::ParseError &end) {
        exit = app.exit(end) == 0 ? exit_fine : exit_usage;
        return false;
    }
}

}  // namespace host
