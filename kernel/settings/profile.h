// Values in profile files (.ini): sections, keys and values as text.
#pragma once

#include "kernel/base/kernel_api.h"

#include <cstddef>

namespace kernel {

// A profile file as Windows knows it:
//
//   ; a comment
//   [Station 7]
//   Port = COM7
//   Name = " with blanks around it "
//
// Letter case of sections and keys does not count (ASCII letters). Blanks around sections, keys and values do not count;
// a pair of quotes, double or single, around a value is taken off. Of two sections of one name, and of two keys in a
// section, only the first one counts; a line without '=' is a key without a value. Text behind a value belongs to it,
// also behind ';'.
//
// `file` without a folder stands in the Windows folder, or on POSIX where the user's registry stands. The operations
// without `file` use the file win.ini there. Files are UTF-8, with or without a byte order mark; UTF-16 is not read.
//
// The system's own calls of this family are macros of windows.h (GetPrivateProfileInt, GetPrivateProfileString,
// WritePrivateProfileString, and the three without "Private"). Their replacements here are therefore called ...Integer
// and ...Text. The system's calls neither replace a file as a whole nor know UTF-8.
//
// Threads:   any, and any number of processes: a writer waits up to 2 s for another one.
// Ownership: texts are copied.
// Errors:    a reader returns the given value for whatever it cannot find or read. A writer returns false and leaves the
//            file as it was, with the system's last error: 5 for a file that is write-protected, 32 while another writer
//            holds it, 87 for what the file could not give back (a line end; an empty section or key; a key
//            with '=', or with ';' or '[' at its start), 13 for a file in UTF-16.

// The digits at the start of the value, with a sign, in decimal or behind 0x, 0o or 0b; 0 for other text. `value` when
// the key is missing, its value is empty or the number has more than 32 bits.
KERNEL_API long GetPrivateProfileInteger(const char *section, const char *key, long value, const char *file);
KERNEL_API long GetProfileInteger(const char *section, const char *key, long value);
// The number at the start of the value, with a point whatever the locale; `value` for other text.
KERNEL_API double GetPrivateProfileDouble(const char *section, const char *key, double value, const char *file);
KERNEL_API double GetProfileDouble(const char *section, const char *key, double value);
// Copies the value, or the given one, to `buffer`: at most size - 1 bytes, cut between two characters, and a zero.
// Returns the number of bytes without the zero. A null `value` counts as "".
KERNEL_API std::size_t GetPrivateProfileText(const char *section, const char *key, const char *value, char *buffer,
                                             std::size_t size, const char *file);
KERNEL_API std::size_t GetProfileText(const char *section, const char *key, const char *value, char *buffer,
                                      std::size_t size);

// These replace the value, or add key, section and file. The rest of the file stays byte for byte. The new file is
// written beside the old one and takes its place in one step; on POSIX it keeps the rights of the old one, and a first
// one is its user's alone.
KERNEL_API bool WritePrivateProfileInt(const char *section, const char *key, long value, const char *file);
KERNEL_API bool WriteProfileInt(const char *section, const char *key, long value);
// The shortest text that gives the same number back. Infinity and NaN are refused with 87.
KERNEL_API bool WritePrivateProfileDouble(const char *section, const char *key, double value, const char *file);
KERNEL_API bool WriteProfileDouble(const char *section, const char *key, double value);
// A null `value` removes the key, and a null `key` the section with all that stands in it, comments included. A value
// with blanks or quotes at its ends gets quotes.
KERNEL_API bool WritePrivateProfileText(const char *section, const char *key, const char *value, const char *file);
KERNEL_API bool WriteProfileText(const char *section, const char *key, const char *value);

}  // namespace kernel
