#include "host/gnss_stream/Event_File.h"

#include "host/gnss_stream/File_Name.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

namespace host {

namespace {

namespace fs = std::filesystem;

// The version stands in the fourth line.
bool Has_Version(const std::string &name)
{
    std::array<char, 512> head{};
    std::ifstream file(Path_Of(name), std::ios::binary);
    file.read(head.data(), head.size());
    const std::string_view read(head.data(), static_cast<std::size_t>(file.gcount()));
    return read.starts_with('#') && read.find("\n# Version ") != std::string_view::npos;
}

}  // namespace

Event_Table Read_Event_File(const std::string &name, Missing_File missing, std::string &error)
{
    Event_Table table(kernel::EventTabelle::Create(all_events, nullptr));
    if (!table) return error = "Not enough memory.", nullptr;
    table->SetInterval(0);  // reading trims nothing
    std::error_code failed;
    const fs::file_status status = fs::status(Path_Of(name), failed);
    if (status.type() == fs::file_type::not_found) {
        if (missing == Missing_File::is_empty) return table;
        return error = "There is no file \"" + name + "\".", nullptr;
    }
    const bool is_file = fs::is_regular_file(status);
    if (is_file && fs::file_size(Path_Of(name), failed) == 0) return table;
    if (!is_file || !Has_Version(name))
        error = "\"" + name + "\" is no event file, or it cannot be read.";
    else if (!table->ReadASCII(name.c_str()))
        error = "\"" + name + "\" has a version that is not supported, or it cannot be read.";
    else
        return table;
    return nullptr;
}

bool Write_Event_File(const std::string &name, kernel::EventTabelle &table)
{
    return table.WriteASCII(name.c_str(), kernel::EventTabelle::all_entries);
}

}  // namespace host
