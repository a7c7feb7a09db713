// Event files: what a table writes, another one reads and writes again as it was.
#include "fuzz/Require.h"
#include "fuzz/Temporary_File.h"
#include "kernel/tables/EventTabelle.h"

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

namespace {

// What a table writes that has read `bytes`.
std::string Rewritten(std::string_view bytes)
{
    const Temporary_File file(bytes);
    kernel::EventTabelle *const table = kernel::EventTabelle::Create("fuzz", nullptr);
    table->SetInterval(0);
    table->ReadASCII(file.Name().c_str());
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> stream(std::fopen(file.Name().c_str(), "wb"), std::fclose);
    Require(table->WriteASCII(stream.get(), kernel::EventTabelle::all_entries), "not written");
    kernel::EventTabelle::Delete(table);
    std::fflush(stream.get());
    std::ifstream written(file.Name(), std::ios::binary);
    return {std::istreambuf_iterator<char>(written), {}};
}

}  // namespace

// The first time, times are rounded to three decimals, and those that become 0 are lost.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string once = Rewritten(Rewritten({reinterpret_cast<const char *>(data), size}));
    Require(Rewritten(once) == once, "another file");
    return 0;
}
