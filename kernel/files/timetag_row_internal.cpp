#include "kernel/files/timetag_row_internal.h"

#include "kernel/files/file_support_internal.h"

#include <charconv>
#include <cstring>

namespace kernel {

namespace {

constexpr char extension[] = ".tmt";
constexpr std::size_t name_limit = 260;  // bytes, the terminating zero included

template <class... Format>
char *Append_Number(char *at, char *end, char separator, Format... value)
{
    at = std::to_chars(at, end, value...).ptr;
    *at = separator;
    return at + 1;
}

}  // namespace

std::string Timetag_Name(const char *data_name)
{
    std::string name = data_name;
    const std::size_t dot = name.rfind('.');
    if (name.size() >= name_limit) return {};
    if (dot != std::string::npos && !Same_File_Name(name.c_str() + dot, extension)) name.erase(dot);
    name += extension;
    return name.size() < name_limit ? name : std::string();
}

std::string Timetag_Header(const char *data_name)
{
    return std::string("#Header\nVersion=0.01\nDataFile=") + data_name +
           "\nModuleIntentifier=File_TimeTag_Client\nInterface=unknown\nTimeSystem=UTC\n"
           "#Column description: GPSTime[sec];FileOffset[bytes from start];Length[bytes]\n#Data\n";
}

std::size_t Format_Timetag_Row(char (&row)[timetag_row_size], double time, std::int64_t offset, std::uint32_t length)
{
    char *const end = row + timetag_row_size;
    char *at = Append_Number(row, end, ';', time, std::chars_format::fixed, 5);
    at = Append_Number(at, end, ';', offset);
    at = Append_Number(at, end, '\n', length);
    return static_cast<std::size_t>(at - row);
}

}  // namespace kernel
