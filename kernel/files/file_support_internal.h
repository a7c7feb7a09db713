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

// An open file and its name, held together: one thread transfers while another closes.
//
// Threads:   any.
// Ownership: shares the file with whoever took it by Get().
// Errors:    none.
class Open_File {
public:
    std::shared_ptr<platform::File> Get() const;  // null when closed
    const char *Name() const;                     // null when closed; valid until the next Set or Close
    std::string Name_Copy() const;
    void Set(std::shared_ptr<platform::File> file, const char *name);  // closes the one before; the file may be null
    void Close();

private:
    mutable std::mutex guard_;
    std::shared_ptr<platform::File> file_;
    std::unique_ptr<std::string> name_;
};

}  // namespace kernel
