// Moves a byte stream from one input to any number of outputs, and reads the RTCM 3 frames in it; see --help.
#include "host/gnss_stream/Console.h"
#include "host/gnss_stream/Stream_Options.h"
#include "host/gnss_stream/Stream_Run.h"
#include "kernel/base/Message_Box.h"
#include "kernel/settings/Registry.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

std::atomic<bool> stop{false};

// Signals that ask the program to end.
constexpr int signals[] = {
    SIGINT,
    SIGTERM,
#ifdef SIGBREAK
    SIGBREAK,
#endif
};

// Handles the first signal only: the next one, whichever it is, ends the program at once by the system's default.
void On_Signal(int)
{
    stop = true;
    for (const int signal : signals) std::signal(signal, SIG_DFL);
}

#ifdef SIGBREAK
// Must not return: when the console is closing, Windows ends the process as soon as this handler returns. The handler
// runs on its own thread, which ends with the program.
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
    std::signal(SIGPIPE, SIG_IGN);  // so that a write fails when the reader of standard output has gone
#endif
#ifdef SIGCHLD
    std::signal(SIGCHLD, SIG_DFL);  // ignored, as a parent may leave it, the end of the mail program would be unknown
#endif
}

}  // namespace

int main(int argc, char **argv)
{
    host::Stream_Options options;
    int exit = host::exit_fine;
    if (!host::Parse_Command_Line(argc, argv, options, exit)) return exit;

    host::Console console;
    kernel::Set_Message_Box([](const char *, const char *) {});  // a box would block; the same text is reported
    kernel::Registry::SetExePath("gnss_stream");
    Handle_Signals();
    host::Stream_Run run(options, console, stop);
    exit = run.Run();
    if (run.Left_A_Thread()) std::_Exit(exit);
    return exit;
}
