// Moves a byte stream from one input to any number of outputs, and looks at the RTCM 3 frames in it; see --help.
#include "host/gnss_stream/Console.h"
#include "host/gnss_stream/Stream_Options.h"
#include "host/gnss_stream/Stream_Run.h"
#include "kernel/base/Message_Box.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

std::atomic<bool> stop{false};

// Those that the system has.
constexpr int signals[] = {
    SIGINT,
    SIGTERM,
#ifdef SIGBREAK
    SIGBREAK,
#endif
};

// Once: the next signal, whichever it is, finds the system's own way to end a program.
void On_Signal(int)
{
    stop = true;
    for (const int signal : signals) std::signal(signal, SIG_DFL);
}

#ifdef SIGBREAK
// The console may be closing: the process lives for as long as this handler, which has a thread of its own. The end of the
// program ends it.
void On_Break(int signal)
{
    On_Signal(signal);
    for (;;) std::this_thread::sleep_for(std::chrono::seconds(1));
}
#endif

void Handle_Signals()
{
    for (const int signal : signals) std::signal(signal, On_Signal);
#ifdef SIGBREAK
    std::signal(SIGBREAK, On_Break);
#endif
#ifdef SIGPIPE
    std::signal(SIGPIPE, SIG_IGN);  // a reader of standard output that goes away is a failed write
#endif
}

}  // namespace

int main(int argc, char **argv)
{
    host::Stream_Options options;
    int exit = host::exit_fine;
    if (!host::Parse_Command_Line(argc, argv, options, exit)) return exit;

    host::Console console;
    kernel::Set_Message_Box([](const char *, const char *) {});  // the report has said it already; a box would block
    Handle_Signals();
    host::Stream_Run run(options, console, stop);
    exit = run.Run();
    if (run.Left_A_Thread()) std::_Exit(exit);
    return exit;
}
