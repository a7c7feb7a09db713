// Words of an option file: each stands in the text, behind the one before, and in a line that the text has.
#include "fuzz/Require.h"
#include "kernel/settings/option_words_internal.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    std::vector<kernel::Option_Word> words;
    std::string why;
    const bool is_good = kernel::Split_Words(text, "f", 1, words, why);
    Require(is_good == why.empty(), "an error without words, or words without an error");

    const auto lines = 1 + std::count(text.begin(), text.end(), '\n');
    std::size_t at = 0;
    long last = 1;
    for (const kernel::Option_Word &word : words) {
        at = text.find(word.text, at);
        Require(at != text.npos, "a word that the text does not have");
        at += word.text.size();
        const long line = std::stol(word.place.substr(word.place.rfind(' ') + 1));
        Require(last <= line && line <= lines, "a line that is not there");
        last = line;
    }
    return 0;
}
