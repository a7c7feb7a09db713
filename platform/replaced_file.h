// Files that are replaced as a whole, and C streams by UTF-8 names.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <utility>

namespace platform {

// Opens an existing file for reading, binary. Null with last_error(). The caller closes it.
std::FILE *open_stream(const char *name);

// The text that is to take a file's place. It is written beside it, as NAME.new, and becomes the file in one step: a
// full disk, a kill or a power cut leaves the old file or the new one, never a part.
//
// Threads:   one.
// Ownership: owns the stream and NAME.new. Without a commit NAME.new is removed.
// Errors:    null or false, with last_error(): error_sharing_violation while another Replaced_File writes this file,
//            error_bad_file_type when the name belongs to something that is no file, error_access_denied when the file
//            is write-protected and its rights are to stay.
class Replaced_File {
public:
    // Who may read and write the new file. On Windows the folder says so, whatever is asked for here.
    enum class Rights {
        own_user,   // its user alone
        as_before,  // who might use the old one; its user alone if there was none. A write-protected file is refused
    };
    // A symbolic link stays: the file behind it is replaced.
    static std::unique_ptr<Replaced_File> open(const char *name, Rights rights = Rights::own_user);
    ~Replaced_File();
    Replaced_File(const Replaced_File &) = delete;
    Replaced_File &operator=(const Replaced_File &) = delete;

    std::FILE *stream() const { return stream_; }  // binary
    // Forces the text to the disk and puts it in the place of the file. Once; the stream is closed afterwards.
    bool commit();

private:
    Replaced_File(std::string name, std::string fresh, std::FILE *stream)
        : name_(std::move(name)), fresh_(std::move(fresh)), stream_(stream)
    {
    }
    // All three with the stream open.
    bool force_out();
    bool take_place();
    void remove_fresh();

    const std::string name_, fresh_;
    std::FILE *stream_;
};

}  // namespace platform
