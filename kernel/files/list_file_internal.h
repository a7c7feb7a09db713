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
// the name ignored, empty lines ignored. Ctrl-Z (0x1A) ends the list on every system, as it does in text files on
// Windows. "//" starts a comment, unless a single '/' stands before it in the line. A byte order mark (UTF-8) at the
// start of the file is skipped.
//
// Threads:   any; the guard is held over a read of the file.
// Ownership: owns the file.
// Errors:    null or false; a failed read ends the list.
class List_File {
public:
    static std::shared_ptr<List_File>
    Opened(const char *name);  // null: there is no such file, or it is not a regular one
    explicit List_File(std::shared_ptr<platform::File> file) : file_(std::move(file)) {}
    List_File(const List_File &) = delete;
    List_File &operator=(const List_File &) = delete;

    bool Next(std::string &entry);  // false at the end of the list

    // Returns the name in a line (with its line end); empty if there is none.
    static std::string Entry(std::string line);

private:
    bool Line(std::string &line);
    bool Fill();

    std::mutex guard_;
    const std::shared_ptr<platform::File> file_;
    std::array<char, 512> block_{};
    std::size_t at_ = 0, size_ = 0;  // the unread part of the block: from at_ to size_
    bool begun_ = false, ended_ = false;
};

}  // namespace kernel
