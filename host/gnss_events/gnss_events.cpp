// Shows the history that gnss_stream keeps, and marks entries in it; see --help.
#include "host/gnss_stream/Event_File.h"
#include "host/gnss_stream/Utc_Time.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace {

using kernel::AVL_EventTabelle;
using kernel::EventTabelle;

enum Exit : int { exit_fine = 0, exit_faults = 1, exit_usage = 2 };

const char description[] = "Lists the entries of an event file: the history that gnss_stream --events keeps.";
const char footer[] =
    R"(An entry is shown as its time (UTC), a * if it is marked, the event, and the text. Characters that are not printable are
shown as in \x1b.

Times are as in 2026-12-31T23:59:59.123Z. A part at the end may be missing: 2026-12-31T23, 2026-12-31. A number is taken as
seconds since 1970. --from includes its time, --to does not.

--mark and --unmark replace the file in one step. A gnss_stream that keeps this history goes on with the marks; only a mark
made in the very moment in which it writes is lost.

Exit status:
  0  all went well
  1  the file could not be read or written, it has no event of that name, or standard output could not be written
  2  wrong usage
)";

struct Options {
    std::string file;
    std::vector<std::string> events;  // empty: all
    double from = 0, to = std::numeric_limits<double>::infinity();
    bool marked = false, unmarked = false;  // only these
    bool per_hour = false, summary = false;
    bool mark = false, unmark = false;
    bool seconds = false;  // times as they stand in the file
};

// An entry as it is copied from a table that was read from a file, which cuts names and texts to these sizes.
struct Entry {
    double time = 0;
    char event[AVL_EventTabelle::most_name + 1] = "";
    char text[AVL_EventTabelle::most_text + 1] = "";
    int marked = 0;
};

// A terminal might act on control characters.
std::string Printable(const char *text)
{
    std::string printable;
    for (; *text; ++text) {
        const auto c = static_cast<unsigned char>(*text);
        char hex[8];
        std::snprintf(hex, sizeof hex, "\\x%02x", c);
        if (c >= ' ' && c != 0x7f)
            printable += *text;
        else
            printable += c == '\n' ? "\\n" : c == '\t' ? "\\t" : hex;
    }
    return printable;
}

bool Parse_Command_Line(int argc, char **argv, Options &options, int &exit)
{
    CLI::App app(description, "gnss_events");
    app.footer(footer);
    app.allow_windows_style_options(false);  // a path may start with '/'
    std::string from, to;
    app.add_option("FILE", options.file, "The event file")->required()->option_text("NAME");
    app.add_option("--event", options.events, "Only this event; may be given several times")
        ->option_text("NAME")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--from", from, "Only entries from this time on")->option_text("TIME");
    app.add_option("--to", to, "Only entries before this time")->option_text("TIME");
    CLI::Option *marked = app.add_flag("--marked", options.marked, "Only marked entries");
    app.add_flag("--unmarked", options.unmarked, "Only entries that are not marked")->excludes(marked);
    CLI::Option *hours = app.add_flag("--per-hour", options.per_hour, "Counts the entries of each event per hour");
    CLI::Option *summary =
        app.add_flag("--summary", options.summary, "Counts the entries of each event, with the first and last time");
    CLI::Option *mark = app.add_flag("--mark", options.mark, "Marks the entries instead of listing them");
    CLI::Option *unmark = app.add_flag("--unmark", options.unmark, "Takes the marks away");
    CLI::Option *const actions[] = {hours, summary, mark, unmark};
    for (CLI::Option *a : actions)
        for (CLI::Option *b : actions)
            if (a != b) a->excludes(b);
    app.add_flag("--seconds", options.seconds, "Shows times as they stand in the file");
    app.set_version_flag("--version", "gnss_events " KERNEL_VERSION);
    try {
        app.parse(argc, argv);
        const auto time = [](const char *option, const std::string &text, double &to_set) {
            const auto parsed = host::Parse_Utc(text);
            if (!parsed) throw CLI::ValidationError(option, "\"" + text + "\" is no time");
            to_set = *parsed;
        };
        if (app.count("--from") > 0) time("--from", from, options.from);
        if (app.count("--to") > 0) time("--to", to, options.to);
        return true;
    } catch (const CLI::ParseError &end) {
        exit = app.exit(end) == 0 ? exit_fine : exit_usage;
        return false;
    }
}

class Events_Run {
public:
    explicit Events_Run(const Options &options) : options_(options) {}

    int Run()
    {
        std::string error;
        table_ = host::Read_Event_File(options_.file, host::Missing_File::is_error, error);
        if (!table_) return Fail(error);
        for (const std::string &event : options_.events)
            if (table_->GetEventNumber(event.c_str()) < 1)
                return Fail("\"" + options_.file + "\" has no event \"" + event + "\".");
        if (options_.mark || options_.unmark) return Set_Marks();
        if (options_.per_hour)
            Count_Per_Hour();
        else if (options_.summary)
            Summarize();
        else
            For_Each([this](const Entry &entry) { Print(entry); });
        const bool printed = std::fflush(stdout) == 0 && !std::ferror(stdout);
        return printed ? exit_fine : Fail("Standard output cannot be written.");
    }

private:
    int Fail(const std::string &text) const
    {
        std::cerr << text << '\n';
        return exit_faults;
    }
    // Calls action(entry) for each entry that is wanted, with the scan standing on it.
    template <class Action>
    void For_Each(Action action)
    {
        std::vector<int> numbers;
        for (const std::string &event : options_.events) numbers.push_back(table_->GetEventNumber(event.c_str()));
        Entry &entry = entry_;
        for (bool more = table_->ScanSucc(options_.from, host::all_events); more; more = table_->WalkNext()) {
            if (table_->GetRtime() >= options_.to) break;
            table_->GetValues(entry.time, entry.event, entry.text, entry.marked);
            const int number = table_->GetEventNumber(entry.event);
            const bool named = numbers.empty() || std::count(numbers.begin(), numbers.end(), number) > 0;
            if (named && !(entry.marked ? options_.unmarked : options_.marked)) action(entry);
        }
        table_->ScanDone();
    }
    std::string Time_Text(double time) const
    {
        char seconds[400];
        std::snprintf(seconds, sizeof seconds, "%.3f", time);
        return options_.seconds ? seconds : host::Utc_Text(time);
    }
    void Print(const Entry &entry) const
    {
        std::printf("%s %c %s: %s\n", Time_Text(entry.time).c_str(), entry.marked ? '*' : ' ',
                    Printable(entry.event).c_str(), Printable(entry.text).c_str());
    }
    void Count_Per_Hour()
    {
        constexpr double hour = 3600;  // [s]
        std::map<double, std::map<std::string, unsigned long>> counts;
        For_Each([&](const Entry &entry) { ++counts[std::floor(entry.time / hour)][entry.event]; });
        for (const auto &[begin, events] : counts)
            for (const auto &[event, count] : events)
                std::printf("%s %8lu %s\n", Time_Text(begin * hour).c_str(), count, Printable(event.c_str()).c_str());
    }
    void Summarize()
    {
        struct Sum {
            unsigned long count = 0, marked = 0;
            double first = 0, last = 0;
        };
        std::map<std::string, Sum> sums;
        For_Each([&](const Entry &entry) {
            Sum &sum = sums[entry.event];
            if (sum.count++ == 0) sum.first = entry.time;
            sum.last = entry.time;
            if (entry.marked) ++sum.marked;
        });
        for (const auto &[event, sum] : sums)
            std::printf("%8lu %s, from %s to %s, %lu marked\n", sum.count, Printable(event.c_str()).c_str(),
                        Time_Text(sum.first).c_str(), Time_Text(sum.last).c_str(), sum.marked);
    }
    int Set_Marks()
    {
        unsigned long changed = 0;
        For_Each([&](const Entry &entry) {
            if (entry.marked == (options_.mark ? 1 : 0)) return;
            table_->InvertMark();
            ++changed;
        });
        if (changed > 0 && !host::Write_Event_File(options_.file, *table_))
            return Fail("\"" + options_.file + "\" cannot be written; it is as before.");
        std::printf("%lu entries %s.\n", changed, options_.mark ? "marked" : "unmarked");
        return exit_fine;
    }

    const Options &options_;
    host::Event_Table table_;
    Entry entry_;
};

}  // namespace

int main(int argc, char **argv)
{
    Options options;
    int exit = exit_fine;
    if (!Parse_Command_Line(argc, argv, options, exit)) return exit;
    return Events_Run(options).Run();
}
