#include "kernel/files/list_file_internal.h"

#include "platform/file.h"

#include <algorithm>
#include <string_view>

namespace kernel {

namespace {

constexpr char blanks[] = " \t";
constexpr char end_of_text = '\x1A';
constexpr std::size_t longest_line = 256;  // [characters], line end included
constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

void Cut_Line_End(std::string &line)
{
    const std::size_t length = line.size();
    // A CR in the last place but one ends the name, whatever character follows. That character may be a letter in a
    // last line without a line feed.
    if (length >= 2 && line[length - 2] == '\r')
        line.resize(length - 2);
    else if (length >= 1 && line[length - 1] == '\n')
        line.resize(length - 1);
}

}  // namespace

std::shared_ptr<List_File> List_File::Opened(const char *name)
{
    auto file = platform::File::open(name, platform::File::Mode::read_shared);
    return file ? std::make_shared<List_File>(std::move(file)) : nullptr;
}

// Reads the next block; false at the end of the file. A short block is not the end: the list may grow meanwhile.
bool List_File::Fill()
{
    at_ = size_ = 0;
    if (ended_) return false;
    // Bytes that came before a failure are used.
    ended_ = !file_->read(block_.data(), block_.size(), size_) || size_ == 0;
    if (!begun_ && std::string_view(block_.data(), size_).starts_with(byte_order_mark)) at_ = byte_order_mark.size();
    begun_ = true;
    return at_ < size_;
}

// Reads a line with its line end. A line longer than longest_line comes in pieces.
bool List_File::Line(std::string &line)
{
    for (line.clear(); line.size() < longest_line && (at_ < size_ || Fill());) {
        const char *const begin = block_.data() + at_;
        const char *const end = begin + std::min(size_ - at_, longest_line - line.size());
        const char *const feed = std::find(begin, end, '\n');
        const char *const stop = feed == end ? end : feed + 1;
        line.append(begin, stop);
        at_ += static_cast<std::size_t>(stop - begin);
        if (feed != end) break;
    }
    return !line.empty();
}

bool List_File::Next(std::string &entry)
{
    const std::lock_guard lock(guard_);
    for (std::string line; Line(line);) {
        // A name before the Ctrl-Z is still used.
        const std::size_t mark = line.find(end_of_text);
        if (mark != std::string::npos) {
            line.resize(mark);
            ended_ = true;
            at_ = size_;
        }
        entry = Entry(line.substr(0, line.find('\0')));
        if (!entry.empty()) return true;
    }
    return false;
}

std::string List_File::Entry(std::string line)
{
    Cut_Line_End(line);
    line.erase(0, line.find_first_not_of(blanks));
    const std::size_t slash = line.find('/');  // only the first one: in a path, a later "//" is no comment
    if (slash != std::string::npos && line.compare(slash, 2, "//") == 0) line.resize(slash);
    // If only blanks are left, npos + 1 is 0.
    line.resize(line.find_last_not_of(blanks) + 1);
    return line;
}

}  // namespace kernel
