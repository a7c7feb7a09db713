// Small operations on files and folders.
#pragma once

#include "kernel/base/kernel_api.h"

#include <cstddef>

namespace kernel {

// Removes a folder with everything in it. Links in it are removed, and nothing behind them is touched.
//
// Refused before anything is removed: a link instead of a folder; a name that ends in "." or ".."; the root of a file
// system; the process's own folder and those above it. After a failure what was removed until then is gone.
//
// Threads:   any.
// Ownership: keeps nothing.
// Errors:    false, with the system's last error.
KERNEL_API bool remove_dir(const char *folder);

// Creates an empty file whose name was free, so that nobody else gets the same: `wanted` itself, or with a number:
// "night.log", "night-2.log", "night-3.log", ... Copies its name to `name`.
//
// Threads:   any, and any number of processes.
// Ownership: the file is the caller's.
// Errors:    false, with the system's last error; 122 when the name does not fit into `size` bytes, and no file is
//            created.
KERNEL_API bool FindFreeFileName(const char *wanted, char *name, std::size_t size);

// [bytes] that this user may still write into the folder; -1, with the system's last error, when that is not known.
//
// Threads:   any.
// Ownership: keeps nothing.
// Errors:    -1.
KERNEL_API long long get_space(const char *folder);

}  // namespace kernel
