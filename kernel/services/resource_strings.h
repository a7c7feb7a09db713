/* Numbered texts: a host shows messages by number, in the language of the file that is installed. For C and C++.
 *
 * When the library is loaded, it loads "decoder.dat" from its own folder, without a callback: the folder by which the
 * system found the library, or, if there is none in it and that name is a link, the folder that the link leads to. The
 * file that comes with the library names the RTCM 3 messages by their number. When the library is unloaded, it frees
 * the table; at the end of the process it does not, because other threads may still read texts.
 *
 * Threads:   any. CSTFREE must wait until nobody is inside CST or uses a text any more. Files that two threads load at
 *            the same time do not see each other's numbers.
 * Ownership: texts are the library's. What CST found is valid until CSTFREE, the other texts until the next call of CST
 *            by the same thread. The file's name is copied.
 * Errors:    by the callback, by a line on the standard output, and by what CST returns. Nothing is thrown.
 */
#pragma once

#include "kernel/base/kernel_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Adds the texts of a file (null: "RESOURCE.DAT") to the table. docs/formats.md describes the file; its name is UTF-8.
 * The callback, which may be null, gets these messages, on the calling thread; they are valid during the call:
 *   missing quote - %s       a literal does not end in its line; and the string so far
 *   string to long - %s      a string has more than 2047 bytes; and the first of them
 *   LOCALE ERROR, Line(%d)   no header, a broken entry, or a number that the table has already
 * Reading stops there; the entries before it are in the table. Unless the header is at fault, the standard output gets
 * the line "Error in line %d of File %s". This also happens if memory is short, or the callback throws. A program that
 * writes data to its standard output therefore keeps "decoder.dat" and its own files free of errors.
 */
KERNEL_API void CSTINIT(const char *file, void (*callback)(const char *message));

/* The text of a number. If the table has none, one of these, cut to 1023 bytes:
 *   Call CSTINT before CST       nothing was loaded, or the first failure was an error in a file
 *   Entry %d not in File %s      no CSTINIT failed so far; the file is the last one given to CSTINIT
 *   Couldn't open file %s        the first failure was this one
 *   (%d) Syntax Error in %s      a header was wrong, after another failure; the line, the file. A blank follows.
 *    (%d) Nr %d allready in %s   a number was there twice, after another failure. A blank stands before it.
 * A broken entry counts as no failure here. Failures are counted until the library is unloaded.
 */
KERNEL_API const char *CST(int number);

/* Empties the table. */
KERNEL_API void CSTFREE(void);

#ifdef __cplusplus
}
#endif
