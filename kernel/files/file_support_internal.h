// The common parts of the file objects: the texts of failed opens, and an open file that two threads use. Not
// installed.
#pragma once

#include "kernel/base/text_internal.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace platform {
class File;
}

namespace kernel {

class Object;

// Codes of reports (Err_Code).
inline constexpr int file_code = 9;  // a file could not be opened or written, or is open already
inline constexpr int cause_code = 15;
inline constexpr int end_of_file_code = 16;
inline constexpr int no_memory_code = 18;

// The two texts that differ between the file objects.
struct Open_Error_Words {
    const char *not_found;      // error 2
    const char *access_denied;  // error 5
};

// The cause in words for a Win32 error number; empty for 0.
std::string Open_Error_Text(std::uint32_t error, const Open_Error_Words &words);

// Reports "Initialization Error\nCode: %s" (level 3, code 15) and returns the text. For error 0 it reports nothing and
// returns an empty text.
std::string Report_Open_Error(const Object &object, const char *unit, unsigned int line, std::uint32_t error,
                              const Open_Error_Words &words);

// Whether two names are equal, as _stricmp compares them: the case of ASCII letters is ignored.
bool Same_File_Name(const char *a, const char *b);

// An open file and its name, changed together: one thread may transfer while another closes. A file is opened without a
// lock, because that may take long. If another thread has called Close meanwhile, Set refuses the file.
//
// Threads:   any. The last holder closes the file in the system, with no lock held.
// Ownership: shares the file with the callers of Get().
// Errors:    none.
class Open_File {
public:
    std::shared_ptr<platform::File> Get() const;  // null when closed
    const char *Name() const;                     // null when closed; valid until the next Set or Close
    std::string Name_Copy() const;
    std::uint64_t Closes() const;  // calls of Close so far
    // Replaces file and name; `file` may be null for a name without a file. Returns false and changes nothing if Close
    // was called since Closes() returned `closes`.
    bool Set(std::shared_ptr<platform::File> file, const char *name, std::uint64_t closes);
    // Returns the file that was open, marked as closed. Release it where no lock is held.
    std::shared_ptr<platform::File> Close();

private:
    std::shared_ptr<platform::File> Replace(std::shared_ptr<platform::File> file, const char *name);

    mutable std::mutex guard_;
    std::shared_ptr<platform::File> file_;
    std::unique_ptr<std::string> name_;
    std::uint64_t closes_ = 0;
};

}  // namespace kernel
