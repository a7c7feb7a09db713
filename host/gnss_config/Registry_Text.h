// The registry as text: keys as lines of their own, values as lines of name, type and data. The text is lossless:
// reading what was written gives the same bytes.
//
//   ; a comment
//   HKEY_CURRENT_USER\SOFTWARE\MORVALEN\READER\Station
//       Port    REG_DWORD    0x835
//       Name    REG_SZ    two lines:\na second one
//       Outputs    REG_MULTI_SZ    first\0second\0
//       (Default)    REG_BINARY    0A1B
//       Odd    REG_SZ:hex    616263
//
// A value's line begins with white space; name, type and data stand four spaces apart. In names and texts, \\ is a
// backslash, \n, \r, \t and \0 are control characters, \xHH is any byte. ":hex" behind a type: the data is the bytes as
// they are, for data that the type's own form cannot show, such as a text without its final zero.
#pragma once

#include "kernel/settings/Registry.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace host {

enum Value_Type : unsigned long {
    type_none = 0,
    type_sz = 1,
    type_expand_sz = 2,
    type_binary = 3,
    type_dword = 4,
    type_dword_big_endian = 5,
    type_multi_sz = 7,
};

struct Registry_Value {
    std::string name;  // empty: the default value
    unsigned long type = type_none;
    std::string bytes;
    bool operator==(const Registry_Value &) const = default;
};

// A key by the name in front of its path: HKLM, HKEY_LOCAL_MACHINE and so on, in any case.
struct Key_Name {
    kernel::ARegistry::Root root = kernel::ARegistry::Current_User;
    std::string path;  // without backslashes at its ends
    bool operator==(const Key_Name &) const = default;
};

struct Registry_Content {
    Key_Name key;
    std::vector<Registry_Value> values;
    bool operator==(const Registry_Content &) const = default;
};

// False when there is no root of that name.
bool Parse_Key(std::string_view text, Key_Name &key);
std::string Shown(const Key_Name &key);

// The data as a value's line shows it, and whether that is the ":hex" form.
std::string Shown_Data(const Registry_Value &value, bool &is_hex);
// The value's line, without line feed.
std::string Shown(const Registry_Value &value);
// Four little-endian bytes.
std::string Word_Bytes(unsigned long word);
// Digits in pairs. False when they are none.
bool Parse_Hex(std::string_view text, std::string &bytes);

// Reads a whole text. False with an error that names the line; `contents` is then not complete. Lines may end with a
// carriage return.
bool Parse_Registry_Text(std::string_view text, std::vector<Registry_Content> &contents, std::string &error);

}  // namespace host
