#include "host/gnss_stream/Console.h"

#include "host/gnss_stream/Utc_Time.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string_view>

namespace host {

namespace {

constexpr std::size_t most_said = 4;  // texts that End_Handler remembers
constexpr auto repetition_time = std::chrono::minutes(1);

const char *Level_Word(kernel::Error_Handler::Enum_Status status)
{
    switch (status) {
    case kernel::Error_Handler::ES_Message: return "Message";
    case kernel::Error_Handler::ES_Information: return "Information";
    case kernel::Error_Handler::ES_Warning: return "Warning";
    case kernel::Error_Handler::ES_Error: return "Error";
    default: return "Fatal Error";
    }
}

// A log has one line for each report, but a report's text may have several lines or end with a line end, on Windows CR
// LF.
std::string On_One_Line(std::string text)
{
    std::erase(text, '\r');
    while (text.ends_with('\n')) text.pop_back();
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos;) text.replace(at, 1, ", ");
    return text;
}

// The library's file objects report first what failed and then the cause, in a fixed frame that means nothing to a
// user. Causes without a text there come as Win32 error numbers, which get words here.
std::string Plain_Cause(const std::string &text)
{
    constexpr std::string_view frame = "Initialization Error\nCode: ", number = "NT ErrorCode: ";
    constexpr std::pair<int, const char *> words[] = {
        {3, "there is no such folder"},  {19, "the disk is write-protected"},    {31, "the device does not work"},
        {32, "another program uses it"}, {33, "another program uses it"},        {39, "the disk is full"},
        {112, "the disk is full"},       {223, "the file has become too large"},
    };
    if (!text.starts_with(frame)) return text;
    const std::string cause = text.substr(frame.size());
    if (!cause.starts_with(number)) return cause;
    const int error = std::atoi(cause.c_str() + number.size());
    for (const auto &[known, word] : words)
        if (known == error) return word;
    return cause;
}

}  // namespace

std::string Without_Duration(std::string text)
{
    constexpr std::string_view mark = "since ";
    const std::size_t at = text.find(mark);
    if (at == std::string::npos) return text;
    const std::size_t begin = at + mark.size();
    const std::size_t end = std::min(text.find_first_not_of("0123456789.", begin), text.size());
    return text.erase(begin, end - begin);
}

void Console::Do_Print(Enum_Status status, kernel::Err_Code, const char *text)
{
    if (status >= ES_Error) Count_Fault();
    Tell_Listener(status, text);
    Print(status, text);
}

void Console::Set_Listener(Listener listener)
{
    const std::lock_guard lock(listener_lock_);
    listener_ = std::move(listener);
}

void Console::Tell_Listener(Enum_Status status, const std::string &text)
{
    const std::lock_guard lock(listener_lock_);
    try {
        if (listener_) listener_(status, On_One_Line(text));
    } catch (const std::bad_alloc &) {  // the report is printed all the same
    }
}

std::string Console::Line_Of(Enum_Status status, const std::string &text)
{
    using namespace std::chrono;
    return Utc_Text(floor<milliseconds>(system_clock::now())) + " " + Level_Word(status) + ": " + On_One_Line(text);
}

void Console::Print(Enum_Status status, const std::string &text)
{
    // The live line is erased and written again below the report. The lock covers all of it: other threads report, too.
    const std::string line = Line_Of(status, text);
    const std::lock_guard lock(lock_);
    const std::string blanks(live_.size(), ' ');
    if (!live_.empty()) std::fprintf(stderr, "\r%s\r", blanks.c_str());
    std::fprintf(stderr, "%s\n%s", line.c_str(), live_.c_str());
    std::fflush(stderr);
}

void Console::Show_Live(const std::string &line)
{
    const std::lock_guard lock(lock_);
    // Blanks erase the end of a longer line.
    const std::size_t left = live_.size() > line.size() ? live_.size() - line.size() : 0;
    std::fprintf(stderr, "\r%s%s", line.c_str(), std::string(left, ' ').c_str());
    std::fflush(stderr);
    live_ = line;
}

void Console::Keep_Live()
{
    const std::lock_guard lock(lock_);
    if (!live_.empty()) std::fputc('\n', stderr);
    live_.clear();
}

void End_Handler::Do_Print(Enum_Status status, kernel::Err_Code, const char *text)
{
    // Counted before reports are dropped: File_Output asks for the number.
    if (status >= ES_Error) errors_.fetch_add(1, std::memory_order_relaxed);
    if (status >= (faults_ == Faults::from_error ? ES_Error : ES_Fatal)) console_.Count_Fault();
    const std::string named = Named(text);
    console_.Tell_Listener(status, named);
    if (muted_.load(std::memory_order_relaxed) || Is_Repetition(named)) return;
    // The lock is released between Is_Repetition and Remember. Two threads may then both print the same text: no harm.
    Tell_Repetitions();
    console_.Print(status, named);
    Remember(named, status);
}

// Adds the name of the end, which most texts of the library lack.
std::string End_Handler::Named(const std::string &text) const
{
    const std::string plain = Plain_Cause(text);
    return plain.find(name_) == std::string::npos ? name_ + ": " + plain : plain;
}

bool End_Handler::Is_Repetition(const std::string &text)
{
    const std::lock_guard lock(lock_);
    const auto said = std::find_if(said_.begin(), said_.end(), [&](const Said &one) {
        return Without_Duration(one.text) == Without_Duration(text);
    });
    // The time counts from the last printing, so that a report that never stops is printed once a minute.
    if (said == said_.end() || std::chrono::steady_clock::now() - said->time >= repetition_time) return false;
    ++said->repetitions;
    said->text = text;
    return true;
}

void End_Handler::Tell_Repetitions()
{
    // Order of locks: this one, then the console's.
    const std::lock_guard lock(lock_);
    for (Said &said : said_) {
        if (said.repetitions > 0)
            console_.Print(said.status,
                           On_One_Line(said.text) + " (" + std::to_string(said.repetitions) + " more times)");
        said.repetitions = 0;
    }
}

void End_Handler::Remember(const std::string &text, Enum_Status status)
{
    const std::lock_guard lock(lock_);
    std::erase_if(said_, [&](const Said &one) { return Without_Duration(one.text) == Without_Duration(text); });
    if (said_.size() >= most_said) said_.pop_front();
    said_.push_back({text, status, std::chrono::steady_clock::now()});
}

}  // namespace host
