// The words of a command line that stand in files. Not installed.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kernel {

// A word, and where it stands.
//
// Threads:   a value.
// Ownership: a value.
// Errors:    none.
struct Option_Word {
    std::string text;
    std::string place;  // "NAME, line 3"; "" for a word of the command line itself
    int depth = 0;      // how many files name each other above it
};

// Splits `text` into words as Command_Line describes. False: `why` tells what is wrong, and `words` ends there.
bool Split_Words(std::string_view text, const std::string &file, int depth, std::vector<Option_Word> &words,
                 std::string &why);

// The words of the file that `word`, "@NAME", stands for. False: `why` tells what is wrong.
bool Words_Of_File(const Option_Word &word, std::vector<Option_Word> &words, std::string &why);

}  // namespace kernel
