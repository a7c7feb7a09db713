// The list file of a replay: for any content its entries are plain names, and it comes to an end.
#include "kernel/files/list_file_internal.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace {

// The reader takes the name of a file, so the input is written into one.
class Temporary_File {
public:
    Temporary_File(const std::uint8_t *bytes, std::size_t size)
    {
        std::ofstream file(path_, std::ios::binary);
        if (size > 0) file.write(reinterpret_cast<const char *>(bytes), static_cast<std::streamsize>(size));
        if (!file.flush()) std::abort();
    }
    ~Temporary_File() { std::filesystem::remove(path_); }
    std::string Name() const { return path_.string(); }

private:
    static std::filesystem::path Unique()
    {
        static const unsigned int process = std::random_device{}();
        return std::filesystem::temp_directory_path() / ("file_list_fuzz." + std::to_string(process));
    }
    const std::filesystem::path path_ = Unique();
};

bool Is_Blank(char c) { return c == ' ' || c == '\t'; }

bool Is_Plain(const std::string &entry)
{
    if (entry.empty() || entry.size() > 256 || Is_Blank(entry.front()) || Is_Blank(entry.back())) return false;
    if (entry.find_first_of(std::string("\n\0", 2)) != std::string::npos) return false;
    const std::size_t slash = entry.find('/');
    return slash == std::string::npos || entry.compare(slash, 2, "//") != 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const Temporary_File file(data, size);
    const auto list = kernel::List_File::Opened(file.Name().c_str());
    if (!list) std::abort();
    std::size_t taken = 0;  // characters of all entries: each byte of the file serves once
    for (std::string entry; list->Next(entry);) {
        taken += entry.size();
        if (!Is_Plain(entry) || taken > size) std::abort();
    }
    return 0;
}
