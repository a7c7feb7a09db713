// Shows the epochs of a station's ring, live or by time; see --help.
#include "host/station/Ring_Reader.h"
#include "kernel/time/mTime.h"

#include <CLI/CLI.hpp>

#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <thread>

namespace {

enum Exit : int { exit_fine = 0, exit_faults = 1, exit_usage = 2, exit_no_ring = 4 };

const char description[] =
    R"(Shows the epochs of a station ring, which another program of the same user publishes (gnss_stream --ring).

Without --from and --to it follows the ring, beginning with its newest epoch. With one of them it shows what the ring
holds of that time, and ends; --follow goes on with what comes.
)";

const char footer[] =
    R"(One line per epoch: date and time (GPS), satellites, seconds since the epoch before, and the age: the time of this
machine, taken as UTC, less the epoch's time. The first line has no gap.

A time is "YYYY-MM-DD HH:MM:SS", WEEK:SECONDS, or seconds since the start of GPS time, 1980-01-06.

Exit status:
  0  all went well, also after Ctrl-C
  1  standard output could not be written
  2  wrong usage
  4  there is no such ring)";

struct Options {
    int ring = 0;
    std::string from, to;
    bool follow = false, stats = false;
    unsigned wait = 0;         // [s] for the ring to appear
    unsigned count = 0;        // epochs to show; 0: any number
    double leap_seconds = 18;  // [s] GPS less UTC
};

std::atomic<bool> stop{false};

void On_Signal(int) { stop = true; }

void Handle_Signals()
{
    for (const int signal : {SIGINT, SIGTERM}) std::signal(signal, On_Signal);
#ifdef SIGPIPE
    std::signal(SIGPIPE, SIG_IGN);  // so that a write fails when the reader has gone
#endif
}

// --- Times

// [s] GPS. Throws for a text that is none of the three forms.
double Time_Of(const char *option, const std::string &text)
{
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, week = 0;
    double second = 0;
    char end = 0;
    const int parts =
        std::sscanf(text.c_str(), "%d-%d-%d%*[ T]%d:%d:%lf%c", &year, &month, &day, &hour, &minute, &second, &end);
    const bool is_date = month >= 1 && month <= 12 && day >= 1 && day <= kernel::mTime::MonthLen(month, year) &&
                         hour >= 0 && hour < 24 && minute >= 0 && minute < 60 && second >= 0 && second < 61;
    if (parts == 6 && year >= 1980 && is_date)
        return kernel::mTime(year, month, day, hour, minute, second).get_roguetime();
    if (std::sscanf(text.c_str(), "%d:%lf%c", &week, &second, &end) == 2 && week >= 0 && second >= 0)
        return week * 604800.0 + second;
    if (std::sscanf(text.c_str(), "%lf%c", &second, &end) == 1 && std::isfinite(second)) return second;
    throw CLI::ValidationError(option, "\"" + text + "\" is not a time");
}

std::string Calendar_Time(double time)
{
    constexpr double half_digit = 0.0005;  // rounded before it is split, so that no second is shown as 60.000
    int year, month, day, hour, minute;
    double second;
    kernel::mTime(static_cast<int>(time / 604800), std::fmod(time, 604800))
        .get_caldat(year, month, day, hour, minute, second, half_digit);
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%06.3f", year, month, day, hour, minute, second);
    return text;
}

double Now(double leap_seconds)
{
    constexpr double gps_epoch = 315964800;  // [s] since 1970
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count() - gps_epoch + leap_seconds;
}

// --- What is shown

bool Show(const kernel::Ring_Epoch &epoch, const host::Ring_Reader &reader, double leap_seconds)
{
    if (reader.Was_Lapped()) std::fprintf(stderr, "Epochs were overwritten before they could be read.\n");
    char gap[32] = "-";
    if (reader.Gap() > 0) std::snprintf(gap, sizeof gap, "%.1f s", reader.Gap());
    std::printf("%s  %2d satellites  gap %8s  age %.1f s\n", Calendar_Time(epoch.record.time).c_str(), epoch.count, gap,
                Now(leap_seconds) - epoch.record.time);
    return std::fflush(stdout) == 0;
}

void Show_Stats(const kernel::Ring &ring)
{
    const auto *const header = static_cast<const kernel::Ring_Header *>(ring.get_ptr(0));
    const std::pair<const char *, unsigned long> numbers[] = {
        {"version", header->version},
        {"users", static_cast<unsigned long>(ring.in_use())},
        {"slots", header->slots},
        {"records", header->count},
        {"records for readers", static_cast<unsigned long>(ring.Readable())},
        {"published", ring.get_total()},
        {"blocks", header->pool_size},
        {"free blocks", header->free_blocks},
        {"blocks handed out", header->blocks_handed_out},
        {"measurement inserts", header->meas_inserts},
        {"position inserts", header->pos_inserts}};
    for (const auto &[name, number] : numbers) std::printf("%-24s %12lu\n", name, number);
    std::printf("%-24s %12.3f\n", "interval [s]", ring.get_interval());
    if (!ring.find_head()) return;
    std::printf("%-24s %s\n", "oldest", Calendar_Time(ring.get_tail_rtime()).c_str());
    std::printf("%-24s %s\n", "newest", Calendar_Time(ring.get_head_rtime()).c_str());
}

int Show_Epochs(const kernel::Ring &ring, const Options &options)
{
    const bool by_time = !options.from.empty() || !options.to.empty();
    const double last = options.to.empty() ? std::numeric_limits<double>::infinity() : Time_Of("--to", options.to);
    host::Ring_Reader reader(ring);
    if (!options.from.empty())
        reader.Start_At(Time_Of("--from", options.from));
    else if (!by_time)
        reader.Start_At(ring.get_head_rtime());
    kernel::Ring_Epoch epoch;
    for (unsigned shown = 0; !stop && (options.count == 0 || shown < options.count);) {
        if (reader.Next(epoch)) {
            if (epoch.record.time > last) break;
            if (!Show(epoch, reader, options.leap_seconds)) return exit_faults;
            ++shown;
        } else if (by_time && !options.follow) {
            break;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    return exit_fine;
}

using Open_Ring = std::unique_ptr<kernel::Ring, void (*)(kernel::Ring *)>;

Open_Ring Opened(const Options &options)
{
    constexpr int tries_per_second = 4;
    Open_Ring ring(nullptr, [](kernel::Ring *opened) { kernel::Ring::Delete(opened); });
    for (unsigned tries = options.wait * tries_per_second; !stop; --tries) {
        ring.reset(kernel::Ring::Create(options.ring));
        if (ring || tries == 0) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(1000 / tries_per_second));
    }
    return ring;
}

int Run(const Options &options)
{
    const Open_Ring ring = Opened(options);
    if (!ring || !ring->version()) {
        std::fprintf(stderr, ring ? "Ring %d has another layout.\n" : "There is no ring %d.\n", options.ring);
        return exit_no_ring;
    }
    if (!options.stats) return Show_Epochs(*ring, options);
    Show_Stats(*ring);
    return std::fflush(stdout) == 0 ? exit_fine : exit_faults;
}

void Declare(CLI::App &app, Options &options)
{
    app.footer(footer);
    app.add_option("RING", options.ring, "The station ring, 0 to 3")->required()->check(CLI::Range(0, 3));
    app.add_option("--from", options.from, "The first epoch is at this time or later")->option_text("TIME");
    app.add_option("--to", options.to, "The last epoch is at this time or earlier")->option_text("TIME");
    app.add_flag("--follow", options.follow, "Goes on with the epochs that come");
    app.add_flag("--stats", options.stats, "Shows how the ring is filled, and ends");
    app.add_option("--count", options.count, "Ends after this many epochs; 0 or absent: never")->option_text("EPOCHS");
    app.add_option("--wait", options.wait, "How long it waits for the ring to be made, 0 when absent")
        ->option_text("SECONDS")
        ->check(CLI::Range(0, 86400));
    app.add_option("--leap-seconds", options.leap_seconds, "GPS minus UTC for the age, 18 when absent")
        ->option_text("SECONDS");
    app.set_version_flag("--version", "gnss_ring " KERNEL_VERSION);
}

}  // namespace

int main(int argc, char **argv)
{
    CLI::App app(description, "gnss_ring");
    Options options;
    Declare(app, options);
    try {
        app.parse(argc, argv);
        for (const auto &[name, text] : {std::pair("--from", options.from), std::pair("--to", options.to)})
            if (!text.empty()) Time_Of(name, text);
    } catch (const CLI::ParseError &end) {
        return app.exit(end) == 0 ? exit_fine : exit_usage;
    }
    Handle_Signals();
    return Run(options);
}
