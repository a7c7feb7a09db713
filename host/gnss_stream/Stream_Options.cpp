#include "host/gnss_stream/Stream_Options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <sstream>

namespace host {

namespace {

const char description[] =
    R"(Moves a byte stream from one input to any number of outputs. On the way it can count RTCM 3 frames, decode them,
and record the stream.

Streams:
  serial://PORT[:baud[:bits[:parity[:stop[:flow]]]]]   defaults 9600:8:n:1:off; parity n, e or o; flow off or rts
  tcpcli://HOST:PORT                                   connects, and again after a loss (--reconnect)
  tcpsvr://:PORT                                       serves one peer at a time; port 0 takes a free one
  pipe://NAME[?server]                                 a named pipe, as its client or as its server
  ntrip://[USER:PASSWORD@]HOST[:PORT][/MOUNTPOINT]     input only; default port 2101; without mountpoint: source table
  [file://]NAME                                        a file; an output appends to it
  [file://]NAME::tmt[::xSPEED][::+SECONDS]             a file with time tags beside it (NAME.bin: NAME.tmt); see below
  - or ""                                              standard input or output

Without --in the input is standard input. Without --out, --record, --frames, decoding and --driver the bytes go to
standard output.
)";

const char footer[] =
    R"(While it runs: a file and standard input wait for the outputs, so that a peer that reads loses nothing. A serial,
TCP or NTRIP input waits a quarter of a second at most: an output that then has no room (its queue holds 1 MiB)
discards and reports what was waiting. An output that nobody is connected to drops its bytes. Whatever an output
receives is discarded. A stream that goes away is opened again: a serial port each second, TCP and pipes after
--reconnect. A TCP
or NTRIP input counts as gone after one to two minutes of silence. An output that is a named pipe opens when somebody
reads it.

Time tags say when each block came. An output with ::tmt writes them; it never appends: when the file or its tags exist,
it takes a new name, NAME-2.bin. An input with ::tmt gives the file back in the rhythm in which it came, SPEED times as
fast (0.1 to 1000), from SECONDS behind the first tag on. Bytes without a usable tag follow at once behind those before.

At the end: after the end of a file or of standard input, and after Ctrl-C or SIGTERM, the bytes received so far are
handed on, and the program ends when the outputs have sent them. An output that sends nothing for --linger seconds
loses the rest; after a signal it has a minute in all. A second signal ends the program at once.

Credentials of a caster: set $GNSS_STREAM_USER and $GNSS_STREAM_PASSWORD, or put the password into a file. On Linux
those on the command line are overwritten when the program starts; on Windows other users can see them there.

--frames, --decode, --epochs and --csv look at RTCM 3 frames. At the end they show a table of message numbers with
frames and bytes (of whole frames; message 0 stands for a payload too short for a number), then totals. With decoding
the totals include epochs, satellites in them, distinct ephemerides, the station's position, faults of epochs, week and
leap seconds with their source, doubts about them, and the texts of messages 1007, 1008 and 1033.

--driver shows the records of a driver library: epochs as --epochs does; "P", date and time (GPS), X, Y, Z [m] and kind
of solution for each position; "E" and the satellite, GPS week and reference time [s], or for GLONASS the time of day,
for each ephemeris; and totals at the end.

With --ring each epoch that has a week also goes into a ring in shared memory, with its first 24 satellites; see
--start-week. The ring exists as long as this program, or another one that uses it, runs. One program publishes into a
ring.

A list file names one recording per line, relative to the current directory; "//" starts a comment. The recordings
of a list are one stream: a frame may begin in one and end in the next.

--epochs shows for each epoch: ">", GPS week, second of the week, date and time (GPS), number of satellites. Then for
each satellite: system and number; for each of the carriers A, B and C (GPS: L1, L5 or P(Y) on L1, L2) its letter,
pseudorange [m], carrier phase [cycles], Doppler [Hz] and C/N0 [dB-Hz], blank where there is none. GPS satellites also
have elevation and azimuth [degrees], range [m] and range rate [m/s], once the station's position is known and an
ephemeris whose reference time is at most 2 h 5 min away.

--mail-to and --mail-after: an e-mail has the last 20 lines of the report. Of one cause (this input, that output, the
disks) at most one goes in 15 minutes. It is handed to the system: on POSIX to /usr/sbin/sendmail, or to the program in
$GNSS_KERNEL_SENDMAIL, on Windows to the mail client (Simple MAPI). With --mail-after 0.1 and an input that is silent
you see whether it arrives. In the registry, recipients are the values TO, CC and BCC (arrays of texts) of the machine's
key SOFTWARE\MORVALEN\GNSS_STREAM\Mail, the sender is "Sender RealName" and "Sender Adress".

Exit status:
  0  all went well
  1  a fault: a file or standard stream could not be read or written; an output lost bytes of a file or of standard
     input because nobody was connected or the peer did not take them; no connection, with --reconnect 0; a CRC failure
     in the frames looked at; bytes missing in the record or in a CSV file; entries missing in the history
  2  wrong usage
  4  could not start: input, output, record, history, password file, CSV file, driver or ring not usable; nobody to mail
     to; no thread, memory or descriptor to be had; with --strict any stream that is not there
No faults, but reported: bytes that an output of a serial, TCP or NTRIP input lost, skipped bytes, an incomplete last
frame, an e-mail that could not be sent.)";

const CLI::Validator not_empty([](const std::string &text) { return text.empty() ? "must not be empty" : ""; }, "");

// Paths as given on the command line.
struct Paths {
    std::string input, in;
    std::vector<std::string> outputs;
    std::vector<std::string> driver_settings;
    double mail_after = 15;  // [min]
};

void Declare_Streams(CLI::App &app, Stream_Options &options, Paths &paths)
{
    CLI::Option *in = app.add_option("--in", paths.in, "The input")->option_text("STREAM");
    app.add_option("INPUT", paths.input, "The same without --in")->option_text("STREAM")->excludes(in);
    app.add_option("--out", paths.outputs, "An output; may be given several times")
        ->option_text("STREAM")
        ->expected(1)
        ->allow_extra_args(false)  // the next word is the input, not one more output
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    CLI::Option *record = app.add_option("--record", options.record, "Writes a copy of the stream to this file")
                              ->option_text("NAME")
                              ->check(not_empty);
    app.add_flag("--append", options.append, "Appends to the --record file, which must be new or empty otherwise")
        ->needs(record);
    app.add_flag("--list", options.file.list, "The input is a list file: replays the recordings that it names");
    app.add_option("--rate", options.file.rate, "Bytes per second, of a file; 0 or absent: as fast as it goes")
        ->option_text("BYTES_PER_SECOND");
    app.add_flag("--simulator", options.file.simulator, "Replays a file through the simulated receiver's server");
}

void Declare_Connections(CLI::App &app, Stream_Options &options)
{
    app.add_option("--user", options.user,
                   "For a caster; absent: $GNSS_STREAM_USER. The password comes from --password-file or "
                   "$GNSS_STREAM_PASSWORD")
        ->option_text("NAME")
        ->check(not_empty);
    app.add_option("--password-file", options.password_file, "A file whose first line is the password")
        ->option_text("NAME")
        ->check(not_empty);
    app.add_option("--reconnect", options.reconnect,
                   "Time between two tries to connect, 10 when absent; 0: there is only one")
        ->option_text("SECONDS")
        ->check(CLI::Range(0, 86400));
    app.add_option(
           "--wait", options.wait,
           "A file or standard input waits this long, 5 when absent, for outputs that nobody is connected to yet")
        ->option_text("SECONDS")
        ->check(CLI::Range(0, 86400));
    app.add_option("--linger", options.linger,
                   "At the end, an output that sends nothing for this long, 20 when absent, loses what waits for it")
        ->option_text("SECONDS")
        ->check(CLI::Range(1, 86400));
    app.add_flag("--strict", options.strict,
                 "A missing device or a refused port at the start ends the program instead of being tried again");
}

void Declare_Display(CLI::App &app, Stream_Options &options)
{
    CLI::Option *quiet = app.add_flag("--quiet", options.quiet, "No live line");
    app.add_flag("--progress", options.progress,
                 "A live line even where standard error is not known to be a terminal (on Windows it never is)")
        ->excludes(quiet);
    app.add_option("--status-interval", options.status_interval,
                   "Time between status lines on standard error, one for each stream; 0 or absent: none")
        ->option_text("SECONDS")
        ->check(CLI::Range(0, 86400));
    app.add_option("--events", options.events,
                   "Keeps a history in this file: connections, gaps, CRC failures of RTCM 3 frames, slow outputs, full "
                   "disks, restarts. gnss_events shows it")
        ->option_text("NAME")
        ->check(not_empty);
    app.set_version_flag("--version", "gnss_stream " KERNEL_VERSION);
}

// One address; those that a mail program would take for something else are refused here, not when the mail goes.
const CLI::Validator an_address(
    [](const std::string &text) {
        const auto is_control = [](unsigned char c) { return c < ' ' || c == 0x7F; };
        const bool is_one = !text.empty() && text[0] != '-' && text.find_first_of(" ()<>,;:\\\"[]") == text.npos &&
                            std::none_of(text.begin(), text.end(), is_control);
        return is_one ? "" : "is no e-mail address: " + text;
    },
    "");

void Declare_Mail(CLI::App &app, Stream_Options &options, Paths &paths)
{
    app.add_option("--mail-to", options.mail.to,
                   "Sends an e-mail when an input is silent, an output is down or a disk is full, and when it is well "
                   "again; may be given several times")
        ->option_text("ADDRESS")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check(an_address);
    app.add_option("--mail-from", options.mail.from, "The sender; absent: as the system's mail service has it")
        ->option_text("ADDRESS")
        ->check(an_address);
    app.add_option("--mail-after", paths.mail_after,
                   "How long an input is silent or an output is down before the e-mail goes, 15 when absent. Without "
                   "--mail-to: recipients and sender by registry")
        ->option_text("MINUTES")
        ->check(CLI::Range(0.01, 10080.0));
}

const char *const decoder_options[] = {"--near-week", "--start-week", "--leap-seconds", "--beidou-gps-time"};

void Declare_Decoding(CLI::App &app, Stream_Options &options)
{
    Rtcm3_Output::Options &rtcm3 = options.rtcm3;
    app.add_flag("--frames", options.frames, "Shows the table of messages");
    app.add_flag("--decode", rtcm3.decode, "Decodes the messages and shows totals");
    app.add_flag("--epochs", rtcm3.epochs, "Decodes, and shows each epoch and its satellites");
    app.add_option("--csv", rtcm3.csv, "Decodes, and writes PREFIX_epochs.csv and PREFIX_satellites.csv anew")
        ->option_text("PREFIX")
        ->check(not_empty);
    CLI::Option *ring = app.add_option("--ring", rtcm3.ring,
                                       "Decodes, and publishes the epochs into this station ring, 0 to 3, for "
                                       "gnss_ring and other programs")
                            ->option_text("RING")
                            ->check(CLI::Range(0, 3));
    app.add_option("--create-ring", rtcm3.ring_slots,
                   "Makes the ring when it does not exist, for this many epochs; absent: it must exist")
        ->option_text("EPOCHS")
        ->check(CLI::Range(33, 400000))
        ->needs(ring);
    app.add_option("--near-week", rtcm3.decoder.near_week,
                   "A GPS week within 512 weeks of the recording, because messages carry ten bits of it; absent: "
                   "--start-week, or a date or leap seconds in the stream, or 2200")
        ->option_text("WEEK")
        ->check(CLI::Range(0, 65535));
    app.add_option("--start-week", rtcm3.decoder.start_week,
                   "The GPS week of the first epoch; absent: epochs before the first GPS ephemeris have no week")
        ->option_text("WEEK")
        ->check(CLI::Range(0, 65535));
    app.add_option("--leap-seconds", rtcm3.decoder.leap_seconds,
                   "GPS minus UTC in seconds, for the times of GLONASS; absent: as the stream shows, or by date")
        ->option_text("SECONDS")
        ->check(CLI::Range(0, 255));
    app.add_flag("--beidou-gps-time", rtcm3.decoder.beidou_in_gps_time,
                 "BeiDou messages carry GPS time, as in recordings from before 2013");
}

void Declare_Driver(CLI::App &app, Stream_Options &options, Paths &paths)
{
    CLI::Option *driver =
        app.add_option(
               "--driver", options.driver.file,
               "A driver library, with its folder: reads the stream with it and shows its records. If the file is "
               "missing, one whose name differs in the three characters before the first dot is looked for")
            ->option_text("FILE")
            ->check(not_empty);
    app.add_option("--driver-option", paths.driver_settings, "An option of the driver; may be given several times")
        ->option_text("NAME=VALUE")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->needs(driver);
}

// --- Options that depend on one another

Stream_Path Path_Of(const char *option, const std::string &text)
{
    std::string error;
    if (auto path = Parse_Stream_Path(text, error)) return *path;
    throw CLI::ValidationError(option, error);
}

bool Decodes(const Rtcm3_Output::Options &rtcm3)
{
    return rtcm3.decode || rtcm3.epochs || !rtcm3.csv.empty() || rtcm3.ring != Rtcm3_Output::no_ring;
}

template <class Kind>
bool Is(const Stream_Path &path)
{
    return std::holds_alternative<Kind>(path);
}

void Set_Input(const CLI::App &app, const Paths &paths, Stream_Options &options)
{
    options.input = app.count("--in") > 0 ? Path_Of("--in", paths.in) : Path_Of("INPUT", paths.input);
    for (const char *name : {"--list", "--rate", "--simulator"})
        if (app.count(name) > 0 && !Is<File_Path>(options.input))
            throw CLI::RequiresError(name, "an input that is a file");
    for (const char *name : {"--list", "--rate", "--simulator"})
        if (app.count(name) > 0 && std::get<File_Path>(options.input).tags)
            throw CLI::ExcludesError(name, "an input with ::tmt");
    const auto *caster = std::get_if<Ntrip_Path>(&options.input);
    if (!options.user.empty() && !caster) throw CLI::RequiresError("--user", "an input ntrip://");
    if (!options.user.empty() && caster->credentials) throw CLI::ExcludesError("--user", "credentials in ntrip://");
    const char *const user = std::getenv("GNSS_STREAM_USER");
    if (caster && !caster->credentials && options.user.empty() && user) options.user = user;
    if (!options.password_file.empty() && options.user.empty())
        throw CLI::RequiresError("--password-file", "--user or $GNSS_STREAM_USER, and an input ntrip://");
}

void Set_Outputs(const Paths &paths, Stream_Options &options)
{
    for (const std::string &text : paths.outputs) {
        options.outputs.push_back(Path_Of("--out", text));
        if (Is<Ntrip_Path>(options.outputs.back())) throw CLI::ValidationError("--out", "ntrip:// is for inputs only");
        const auto *file = std::get_if<File_Path>(&options.outputs.back());
        if (file && file->tags && *file->tags != Replay_Pace())
            throw CLI::ValidationError("--out", "::x and ::+ are for inputs only");
    }
    const bool decodes = Decodes(options.rtcm3);
    options.looks_at_frames = options.frames || decodes;
    const bool reads = options.looks_at_frames || !options.driver.file.empty();
    if (options.outputs.empty() && options.record.empty() && !reads) options.outputs.emplace_back(Standard_Path{});
    const auto to_standard_output = std::count_if(options.outputs.begin(), options.outputs.end(), Is<Standard_Path>);
    if (to_standard_output > 1) throw CLI::ValidationError("--out", "standard output is one output only");
    options.shows_text = reads && to_standard_output == 0;
}

void Set_Driver(const Paths &paths, Stream_Options &options)
{
    for (const std::string &setting : paths.driver_settings) {
        const std::size_t sign = setting.find('=');
        if (sign == setting.npos)
            throw CLI::ValidationError("--driver-option", "not of the form NAME=VALUE: " + setting);
        options.driver.settings.emplace_back(setting.substr(0, sign), setting.substr(sign + 1));
    }
}

void Check_Decoding(const CLI::App &app, const Stream_Options &options)
{
    const Rtcm3_Output::Options &rtcm3 = options.rtcm3;
    for (const char *name : decoder_options)
        if (app.count(name) > 0 && !Decodes(rtcm3))
            throw CLI::RequiresError(name, "--decode, --epochs, --csv or --ring");
    for (const char *name : {"--frames", "--decode", "--epochs", "--driver"})
        if (app.count(name) > 0 && !options.shows_text)
            throw CLI::ExcludesError(name, "bytes on standard output (--out)");
}

void Set_Mail(const CLI::App &app, const Paths &paths, Stream_Options &options)
{
    options.mail.is_wanted = app.count("--mail-to") > 0 || app.count("--mail-after") > 0;
    if (!options.mail.is_wanted && app.count("--mail-from") > 0)
        throw CLI::RequiresError("--mail-from", "--mail-to or --mail-after");
    options.mail.after = std::chrono::milliseconds(std::llround(paths.mail_after * 60000));
}

// --- Credentials

// CLI11 quotes arguments in its error texts: the secrets in them become ***.
std::string Without(const std::vector<std::string> &secrets, std::string text)
{
    for (const std::string &secret : secrets)
        for (std::size_t at = 0; (at = text.find(secret, at)) != std::string::npos; at += 3)
            text.replace(at, secret.size(), "***");
    return text;
}

void Overwrite(std::string_view part, char *argument)
{
    std::fill_n(argument + (part.data() - argument), part.size(), '*');
}

// Returns the credentials of paths, which error texts would quote.
std::vector<std::string> Overwrite_Credentials(int argc, char **argv)
{
    constexpr std::string_view user = "--user=";
    std::vector<std::string> secrets;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i], secret = Credentials_In(argument);
        if (!secret.empty()) {
            secrets.emplace_back(secret);
            Overwrite(secret, argv[i]);
        }
        if (std::string_view(argv[i - 1]) == "--user") Overwrite(argument, argv[i]);
        if (argument.starts_with(user)) Overwrite(argument.substr(user.size()), argv[i]);
    }
    return secrets;
}

}  // namespace

bool Parse_Command_Line(int argc, char **argv, Stream_Options &options, int &exit)
{
    CLI::App app(description, "gnss_stream");
    app.footer(footer);
    app.allow_windows_style_options(false);  // a path may start with '/'
    Paths paths;
    Declare_Streams(app, options, paths);
    Declare_Connections(app, options);
    Declare_Decoding(app, options);
    Declare_Driver(app, options, paths);
    Declare_Display(app, options);
    Declare_Mail(app, options, paths);

    std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    std::reverse(arguments.begin(), arguments.end());  // as CLI11 wants them
    const std::vector<std::string> secrets = Overwrite_Credentials(argc, argv);
    try {
        app.parse(std::move(arguments));
        Set_Input(app, paths, options);
        Set_Outputs(paths, options);
        Set_Driver(paths, options);
        Check_Decoding(app, options);
        Set_Mail(app, paths, options);
        return true;
    } catch (const CLI::ParseError &end) {
        std::ostringstream out, err;
        exit = app.exit(end, out, err) == 0 ? exit_fine : exit_usage;
        std::cout << out.str() << std::flush;
        if (!std::cout) {
            std::cerr << "Standard output cannot be written.\n";
            exit = exit_faults;
        }
        std::cerr << Without(secrets, err.str());
        return false;
    }
}

}  // namespace host
