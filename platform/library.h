// Libraries that are loaded while the program runs, and the place of the one that holds this code.
#pragma once

#include <string>
#include <vector>

namespace platform {

// The library or program that holds this code, as the system names it: for a library the name by which it was found, a
// symbolic link's own name included; it may be relative. Empty if the system does not say.
std::string own_path();
// Its folder with the separator behind it; empty if own_path() has none.
std::string own_folder();
// The same of the file that own_path() names when all links are followed; empty if the system does not say.
std::string own_folder_behind_links();

// The action runs when the library that holds this code is unloaded while the process goes on; it uses only statics
// that are never destroyed. It does not run when the process ends, as other threads may still use the library, nor in a
// program. There is one action: a later one replaces it.
void when_unloaded(void (*action)());

// Loads a library and the libraries that it needs, and returns its handle; loading it again returns the same one. The
// name is UTF-8, and both '/' and '\\' separate folders. A name without a folder is looked up as the system does it.
// Null, with last_error():
//   error_module_not_found     there is no such file, or a library that it needs is missing
//   error_procedure_not_found  it needs a function that no library has
//   error_access_denied        a folder, or the file may not be read
//   error_bad_file_type        a pipe or a device
//   error_bad_executable       not a library of this system
// Never shows a message box. Start-up code of the library runs on the calling thread, inside this call.
void *load_library(const char *name);
// Null with error_procedure_not_found when the library has no function of this name.
using Function = void (*)();
Function function_of(void *library, const char *name);
// Ends one load. The last one unloads the library, unless the system keeps it. False for a null handle.
bool free_library(void *library);

// Appends the names of all entries of a folder, in no order, without "." and "..". False with last_error().
bool names_in_folder(const char *folder, std::vector<std::string> &names);

}  // namespace platform
