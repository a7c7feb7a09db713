// The text of a profile file. Not installed.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kernel {

// The rules are those of profile.h. Sections and keys are compared without the blanks around them.

// The value, without the quotes around it. Empty when there is none.
std::optional<std::string_view> Profile_Value(std::string_view text, std::string_view section, std::string_view key);

// Can a file give this back?
bool Is_Profile_Section(std::string_view section);
bool Is_Profile_Key(std::string_view key);
bool Is_Profile_Value(std::string_view value);

// Changes the text and nothing else in it. New lines end as the first line of the text does. Sections, keys and values
// are ones that a file can give back.
void Set_Profile_Value(std::string &text, std::string_view section, std::string_view key, std::string_view value);
void Remove_Profile_Key(std::string &text, std::string_view section, std::string_view key);
void Remove_Profile_Section(std::string &text, std::string_view section);

}  // namespace kernel
