// The text file that lists recordings for replay. Not installed.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>

namespace platform {
class File;
}

namespace kernel {

// One file name per line: LF or CR LF, at most 256 characters (a longer line counts as several), blanks and tabs around
// the name ignored, empty lines ignored. Ctrl-Z (0x1A) ends the list on every system, as it does in text files on Windows.
// "//" starts a comment, unless a single '/' stands before it in the line. A byte order mark (UTF-8) at the start of the
// file is skipped.
//
// Threads:   any; the guard is held over a read of the file.
// Ownership: owns the file.
// Errors:    null, or false; a read that fails is the end of the list.
class List_File {
public:
    static std::shared_ptr<List_File> Opened(const char *name);  // null: no such file, or no regular one
    explicit List_File(std::shared_ptr<platform::File> file) : file_(std::move(file)) {}
    List_File(const List_File &) = delete;
    List_File &operator=(const List_File &) = delete;

    bool Next(std::string &entry);  // false at the end of the list

    // The name in one line, line end included; empty when it holds none.
    static std::string Entry(std::string line);

private:
    bool Line(std::string &line);
    bool Fill();

    std::mutex guard_;
    const std::shared_ptr<platform::File> file_;
    std::array<char, 512> block_{};
    std::size_t at_ = 0, size_ = 0;  // what is left of the block: from at_ to size_
    bool begun_ = false, ended_ = false;
};

}  // namespace kernel
