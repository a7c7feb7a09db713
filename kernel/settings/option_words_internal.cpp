#include "kernel/settings/option_words_internal.h"

#include "platform/error.h"
#include "platform/file.h"

#include <algorithm>

namespace kernel {

namespace {

constexpr int deepest = 8;                         // files that name files
constexpr std::size_t largest_file = 1024 * 1024;  // [bytes]
constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
constexpr std::string_view blanks = " \t\r\n\f\v";

}  // namespace

bool Split_Words(std::string_view text, const std::string &file, int depth, std::vector<Option_Word> &words,
                 std::string &why)
{
    std::size_t line = 1;
    for (std::size_t at = 0; at < text.size();) {
        const char first = text[at];
        if (blanks.find(first) != blanks.npos) {
            line += first == '\n' ? 1 : 0;
            ++at;
            continue;
        }
        if (first == '#') {
            at = std::min(text.find('\n', at), text.size());
            continue;
        }
        const bool is_quoted = first == '"' || first == '\'';
        const std::string place = file + ", line " + std::to_string(line);
        const std::size_t begin = at + (is_quoted ? 1 : 0);
        const std::size_t end = is_quoted ? text.find(first, begin) : text.find_first_of(blanks, begin);
        const std::string_view word = text.substr(begin, end - begin);
        const bool has_zero = word.find('\0') != word.npos;  // no command line could have it
        if (has_zero || (is_quoted && end == text.npos)) {
            why = place + (has_zero ? ": a zero byte" : ": the closing quote is missing");
            return false;
        }
        line += static_cast<std::size_t>(std::count(word.begin(), word.end(), '\n'));
        words.push_back({std::string(word), place, depth});
        at = end == text.npos ? text.size() : end + (is_quoted ? 1 : 0);
    }
    return true;
}

bool Words_Of_File(const Option_Word &word, std::vector<Option_Word> &words, std::string &why)
{
    const std::string name = word.text.substr(1);
    if (word.depth == deepest) {
        why = word.text + ": the files name each other more than " + std::to_string(deepest) + " deep";
        return false;
    }
    std::string text(largest_file + 1, '\0');
    std::size_t size = 0;
    const auto file = platform::File::open(name.c_str(), platform::File::Mode::read_shared);
    if (!file || !file->read(text.data(), text.size(), size)) {
        why = word.text + ": " + platform::error_text(platform::last_error());
        return false;
    }
    if (size > largest_file) {
        why = word.text + ": longer than " + std::to_string(largest_file) + " bytes";
        return false;
    }
    std::string_view read(text.data(), size);
    if (read.starts_with(byte_order_mark)) read.remove_prefix(byte_order_mark.size());
    return Split_Words(read, name, word.depth + 1, words, why);
}

}  // namespace kernel
