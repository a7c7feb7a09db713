// Replays a recording through the library's servers and shows what RTCM 3 frames are in it, and what they say; see --help.
#include "host/tools/Console.h"
#include "host/tools/Replay.h"
#include "host/tools/Replay_Options.h"
#include "kernel/Message_Box.h"

#include <atomic>
#include <csignal>
#include <cstdio>

namespace {

using host::Rtcm3_Frame_Reader;

std::atomic<bool> stop{false};

// Once: the next signal finds the system's own way to end a program.
void On_Signal(int signal)
{
    stop = true;
    std::signal(signal, SIG_DFL);
}

void Print_Total(const char *what, std::uint64_t value)
{
    std::printf("%-24s %12llu\n", what, static_cast<unsigned long long>(value));
}

void Print_Table(const Rtcm3_Frame_Reader &reader)
{
    std::printf("%10s %12s %14s\n", "message", "frames", "bytes");
    for (unsigned int number = 0; number < Rtcm3_Frame_Reader::message_numbers; ++number) {
        const auto &count = reader.Messages(number);
        if (count.frames > 0)
            std::printf("%10u %12llu %14llu\n", number, static_cast<unsigned long long>(count.frames),
                        static_cast<unsigned long long>(count.bytes));
    }
    const auto &total = reader.Count();
    Print_Total("bytes read", total.bytes);
    Print_Total("frames", total.frames);
    Print_Total("CRC failures", total.crc_failures);
    Print_Total("skipped bytes", total.skipped);
    Print_Total("incomplete frame bytes", total.tail);
}

}  // namespace

int main(int argc, char **argv)
{
    host::Replay_Options options;
    int exit = host::exit_fine;
    if (!host::Parse_Command_Line(argc, argv, options, exit)) return exit;

    host::Console console;
    kernel::Set_Message_Box([](const char *, const char *) {});  // the report has said it already; a box would block
    std::signal(SIGINT, On_Signal);
    std::signal(SIGTERM, On_Signal);

    host::Replay replay(options, console);
    if (!replay.Open()) return host::exit_no_start;
    replay.Run(stop);
    Print_Table(replay.Reader());
    if (replay.Printer()) replay.Printer()->Print_Totals(stdout);
    const bool fine = console.Faults() == 0 && replay.Reader().Count().crc_failures == 0;
    return fine ? host::exit_fine : host::exit_faults;
}
