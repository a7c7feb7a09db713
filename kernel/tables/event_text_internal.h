// The pieces of an event file: times, quoted names and texts, versions. Numbers do not depend on the locale. Not
// installed.
#pragma once

#include <cstddef>
#include <cstdio>

namespace kernel {

// All return false when the stream fails or ends, or when it holds something else; what was read by then is consumed,
// the character that did not fit is not.

bool Write_Text(std::FILE *file, const char *text);
bool Write_Time(std::FILE *file, double time);         // three decimals
bool Write_Quoted(std::FILE *file, const char *text);  // with \" \\ \n and \t for these four characters

// Reads a number as scanf's %lg, in decimal; or 32 bits of hexadecimal digits as its %X.
bool Read_Time(std::FILE *file, double &time);
bool Read_Hexadecimal_Time(std::FILE *file, double &time);
// Reads a comma and one more character.
bool Read_Flag(std::FILE *file, int &flag);
// Reads ,"TEXT" with white space before the comma and the quote. `text` has room for most + 1 bytes; more is cut off.
bool Read_Text_Field(std::FILE *file, char *text, std::size_t most);
// Reads "NAME" and the white space behind it. No escapes. False also for an empty name.
bool Read_Name(std::FILE *file, char *name, std::size_t most);
// Reads " Version MAJOR.MINOR" on the current line.
bool Read_Version(std::FILE *file, int &major, int &minor);
void Skip_Line(std::FILE *file);

}  // namespace kernel
