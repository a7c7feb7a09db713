// The list file of a replay: for any content its entries are plain names, and it comes to an end.
#include "fuzz/Temporary_File.h"
#include "kernel/files/list_file_internal.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

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
    const Temporary_File file({reinterpret_cast<const char *>(data), size});
    const auto list = kernel::List_File::Opened(file.Name().c_str());
    if (!list) std::abort();
    std::size_t taken = 0;  // characters of all entries: each byte of the file serves once
    for (std::string entry; list->Next(entry);) {
        taken += entry.size();
        if (!Is_Plain(entry) || taken > size) std::abort();
    }
    return 0;
}
