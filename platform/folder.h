// Folders, names that are free, and space.
#pragma once

#include <cstdint>

namespace platform {

// Removes a folder with everything in it. A link in it, symbolic or a junction, is removed itself; nothing behind it is
// touched. Not undone after a failure: what was removed until then is gone.
//
// Refused before anything is removed: error_invalid_name for "", for a name that ends in "." or "..", and on Windows
// for names that begin with \\?\ or \\.\; error_sharing_violation for the root of a file system, for the process's own
// folder and for a folder above that; error_directory for a link and for what is no folder.
//
// Threads: any. Errors: false, with last_error().
bool remove_folder(const char *name);

// Creates an empty file. False with error_file_exists when the name belongs to anything, a link included.
bool create_new_file(const char *name);

// [bytes] that this user may still write into the folder. False with last_error().
bool free_space(const char *folder, std::uint64_t &bytes);

}  // namespace platform
