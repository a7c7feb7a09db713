// Names of files for the standard library.
#pragma once

#include <filesystem>
#include <string>

namespace host {

// Names are UTF-8 on the command line, in lists and in the library. std::filesystem reads a plain std::string in the
// system's own encoding, which on Windows is a different one.
inline std::filesystem::path Path_Of(const std::string &utf8) { return std::u8string(utf8.begin(), utf8.end()); }

inline std::string Utf8_Of(const std::filesystem::path &path)
{
    const std::u8string utf8 = path.u8string();
    return {utf8.begin(), utf8.end()};
}

}  // namespace host
