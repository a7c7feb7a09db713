// The text file that lists recordings for replay. Not installed.
#pragma once

#include <cstdio>
#include <string>

namespace kernel {

// One file name per line: LF or CR LF, at most 256 characters (a longer line counts as several), blanks and tabs around
// the name ignored, empty lines ignored. Ctrl-Z (0x1A) ends the list on every system, as it does in text files on Windows. "//" starts a comment, unless a single '/' stands before it in the line.
//
// Threads:   one at a time.
// Ownership: owns the stream.
// Errors:    false.
class List_File {
public:
    List_File() = default;
    List_File(const List_File &) = delete;
    List_File &operator=(const List_File &) = delete;
    ~List_File() { Close(); }

    bool Open(const char *name);  // a folder is no list
    void Close();
    bool Is_Open() const { return stream_ != nullptr; }
    bool Next(std::string &entry);  // false at the end of the list

    // The name in one line, line end included; empty when it holds none.
    static std::string Entry(std::string line);

private:
    std::FILE *stream_ = nullptr;
    bool ended_ = false;  // by a Ctrl-Z
};

}  // namespace kernel
