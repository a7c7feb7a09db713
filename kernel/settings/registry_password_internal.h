// The text form of passwords in the registry. It keeps them from being read in passing; it is no encryption. Not
// installed.
#pragma once

#include <string>
#include <string_view>

namespace kernel {

// The clear text backwards, each byte shifted by its place; below a drawn length of 8 to 15 bytes, random bytes follow;
// then one byte with the length. No byte is 0. Only 0x7F and 0xFF, which no typed text has, may be read back as another
// character. Throws std::bad_alloc.
std::string Scrambled_Password(std::string_view clear);
// Any bytes are accepted. Texts of 128 characters and more have no random bytes: their length is that of the text.
std::string Clear_Password(std::string_view scrambled);

}  // namespace kernel
