#include "host/tools/Replay_Options.h"

#include <CLI/CLI.hpp>

namespace host {

namespace {

const char description[] =
    R"(Replays a recorded byte stream, counts its RTCM 3 frames, and can decode it and record it again on the way.

At the end, or after Ctrl-C, a table goes to standard output: message number, frames, bytes (of whole frames); a frame
with too little payload for a number is counted as message 0. Then totals; with --decode, --epochs or --csv also those
of epochs, satellites in them, distinct ephemerides, and the station's position. Reports and the live line go to standard
error. A second Ctrl-C ends the program at once.
)";

const char footer[] =
    R"(A list file names one recording per line, relative to the current directory; "//" starts a comment. The recordings
of a list are one stream: a frame may begin in one and end in the next.

An epoch's line (--epochs): ">", GPS week, second of the week, date and time (GPS), number of satellites. A satellite's:
system and number; for each of the carriers A, B and C (GPS: L1, L5 or P(Y) on L1, L2) its letter, pseudorange [m],
carrier phase [cycles], Doppler [Hz] and C/N0 [dB-Hz], blank where there is none; for GPS satellites with an ephemeris
not further than 2 h 5 min from its reference time, once the station's position is known: elevation and azimuth
[degrees], range [m] and range rate [m/s].

Exit status: 0 all fine; 1 something was off (a report of level Error or above, a CRC failure, bytes missing in the
recorded or a CSV file); 2 wrong usage; 4 could not start (input, record or CSV file not usable). Skipped bytes and an incomplete
last frame are shown and are no fault.)";

const CLI::Validator not_empty([](const std::string &text) { return text.empty() ? "must not be empty" : ""; }, "");

void Declare_Replay(CLI::App &app, Replay_Options &options)
{
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

const char *const decoder_options[] = {"--near-week", "--start-week", "--leap-seconds", "--beidou-gps-time"};

void Declare_Decoding(CLI::App &app, Replay_Options &options)
{
    app.add_flag("--decode", options.decode, "Decodes the messages and shows totals");
    app.add_flag("--epochs", options.epochs, "Decodes, and shows each epoch and its satellites");
    app.add_option("--csv", options.csv, "Decodes, and writes PREFIX_epochs.csv and PREFIX_satellites.csv anew")
        ->option_text("PREFIX")
        ->check(not_empty);
    app.add_option("--near-week", options.decoder.near_week,
                   "A GPS week within 512 of the recording's: the messages tell only ten bits of it")
        ->option_text("WEEK")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_option("--start-week", options.decoder.start_week,
                   "The GPS week of the first epoch; absent: epochs before the first GPS ephemeris have no week")
        ->option_text("WEEK")
        ->check(CLI::Range(0, 65535));
    app.add_option("--leap-seconds", options.decoder.leap_seconds,
                   "GPS less UTC in seconds, for the times of GLONASS; absent: known or found out")
        ->option_text("SECONDS")
        ->check(CLI::Range(0, 255));
    app.add_flag("--beidou-gps-time", options.decoder.beidou_in_gps_time,
                 "BeiDou messages have GPS time, as in recordings from before 2013");
}

void Check_Decoding(const CLI::App &app, const Replay_Options &options)
{
    for (const char *name : decoder_options)
        if (app.count(name) > 0 && !options.Decodes()) throw CLI::RequiresError(name, "--decode, --epochs or --csv");
}

}  // namespace

bool Parse_Command_Line(int argc, const char *const *argv, Replay_Options &options, int &exit)
{
    CLI::App app(description, "gnss_replay");
    app.footer(footer);
    app.allow_windows_style_options(false);  // a path may start with '/'
    Declare_Replay(app, options);
    Declare_Decoding(app, options);
    try {
        app.parse(argc, argv);
        Check_Decoding(app, options);
        return true;
    } catch (const CLI::ParseError &end) {
        exit = app.exit(end) == 0 ? exit_fine : exit_usage;
        return false;
    }
}

}  // namespace host
