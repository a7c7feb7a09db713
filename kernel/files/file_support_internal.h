// What the file objects share: the texts of failed opens, and an open file that two threads see. Not installed.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace platform {
class File;
}

namespace kernel {

class Object;

// The two texts in which the file objects differ.
struct Open_Error_Words {
    const char *not_found;      // error 2
    const char *access_denied;  // error 5
};

// The cause in words for a Win32 error number; empty for 0.
std::string Open_Error_Text(std::uint32_t error, const Open_Error_Words &words);

// Reports "Initialization Error\nCode: %s" (level 3, code 15) and answers the text; for error 0 neither.
std::string Report_Open_Error(const Object &object, const char *unit, unsigned int line, std::uint32_t error,
                              const Open_Error_Words &words);

// A copy of a text; null when memory is short.
std::unique_ptr<char[]> Copy_Text(const char *text);

// As _stricmp compares.
bool Same_File_Name(const char *a, const char *b);

// An open file and its name, held together: one thread transfers while another closes. Opening takes its time and is done
// without a lock; whoever closes meanwhile is obeyed, since Set asks whether anybody has.
//
// Threads:   any. The system's part of a close is done by the last holder, with no lock held.
// Ownership: shares the file with whoever took it by Get().
// Errors:    none.
class Open_File {
public:
    std::shared_ptr<platform::File> Get() const;  // null when closed
    const char *Name() const;                     // null when closed; valid until the next Set or Close
    std::string Name_Copy() const;
    std::uint64_t Closes() const;  // calls of Close so far
    // Takes an opened file, or null for a name without one, in place of the one before. False: Close was called since
    // Closes() was `closes`, and nothing is taken.
    bool Set(std::shared_ptr<platform::File> file, const char *name, std::uint64_t closes);
    // Returns the file that was open, marked as closed: to be let go of where no lock is held.
    std::shared_ptr<platform::File> Close();

private:
    std::shared_ptr<platform::File> Replace(std::shared_ptr<platform::File> file, const char *name);

    mutable std::mutex guard_;
    std::shared_ptr<platform::File> file_;
    std::unique_ptr<std::string> name_;
    std::uint64_t closes_ = 0;
};

}  // namespace kernel
