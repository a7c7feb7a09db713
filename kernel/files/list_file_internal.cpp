#include "kernel/files/list_file_internal.h"

#include <cstring>
#include <filesystem>
#include <system_error>

namespace kernel {

namespace {

constexpr char blanks[] = " \t";
constexpr char end_of_text = '\x1A';
constexpr std::size_t line_size = 257;  // with the terminator

void Cut_Line_End(std::string &line)
{
    const std::size_t length = line.size();
    // A CR there ends the name whatever stands behind it: in a last line without a line feed that may be a letter.
    if (length >= 2 && line[length - 2] == '\r')
        line.resize(length - 2);
    else if (length >= 1 && line[length - 1] == '\n')
        line.resize(length - 1);
}

}  // namespace

bool List_File::Open(const char *name)
{
    Close();
    // POSIX opens a folder like a file and fails only when it is read. "t" is Windows' text mode; elsewhere it is
    // ignored.
    std::error_code ignored;
    if (!std::filesystem::is_directory(name, ignored)) stream_ = std::fopen(name, "rt");
    return stream_ != nullptr;
}

void List_File::Close()
{
    if (stream_) std::fclose(stream_);
    stream_ = nullptr;
    ended_ = false;
}

bool List_File::Next(std::string &entry)
{
    char line[line_size];
    while (stream_ && !ended_ && !std::feof(stream_) && std::fgets(line, sizeof line, stream_)) {
        // Windows' text mode ends there by itself; here it is done on every system, and a name before it still counts.
        // A NUL ends the line.
        char *const end = std::strchr(line, end_of_text);
        if (end) *end = '\0';
        entry = Entry(line);
        ended_ = end != nullptr;
        if (!entry.empty()) return true;
    }
    return false;
}

std::string List_File::Entry(std::string line)
{
    Cut_Line_End(line);
    line.erase(0, line.find_first_not_of(blanks));
    const std::size_t slash = line.find('/');  // only the first is looked at: a path hides a comment behind it
    if (slash != std::string::npos && line.compare(slash, 2, "//") == 0) line.resize(slash);
    // Nothing left: npos + 1 is 0.
    line.resize(line.find_last_not_of(blanks) + 1);
    return line;
}

}  // namespace kernel
