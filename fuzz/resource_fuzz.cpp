// Files of numbered texts: what is read stands in the file, in its order, and reading stops where it says.
#include "fuzz/Require.h"
#include "kernel/services/resource_reader_internal.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

std::size_t complaints = 0;

void Check_Complaint(const char *text)
{
    ++complaints;
    Require(std::strstr(text, " - ") != nullptr, "a complaint of another form");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    const auto lines = 1 + std::count(text.begin(), text.end(), '\n');
    complaints = 0;
    kernel::Resource_Reader reader(text, Check_Complaint);
    kernel::Resource_Entry entry;
    bool is_good = reader.Read_Header();
    for (int last = 1; is_good && !reader.At_End(); last = entry.line) {
        is_good = reader.Read_Entry(entry);
        Require(last <= reader.Line() && reader.Line() <= lines, "a line that is not there");
        if (!is_good) break;
        Require(last <= entry.line && entry.line <= reader.Line(), "an entry before the one that it follows");
        Require(entry.number >= 0 && entry.text.size() <= kernel::Resource_Reader::longest_text, "out of its limits");
    }
    Require(complaints == 0 || (complaints == 1 && !is_good), "a complaint about a good file, or two");
    return 0;
}
