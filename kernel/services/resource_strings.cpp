#include "kernel/services/resource_strings.h"

#include "kernel/base/Immortal_internal.h"
#include "kernel/services/resource_table_internal.h"
#include "platform/file.h"
#include "platform/library.h"

#include <string>

namespace kernel {

namespace {

Resource_Table &The_Table()
{
    static Immortal<Resource_Table> table;
    return *table;
}

// The one beside the library's name, unless only the file behind a link has one.
std::string Installed_File()
{
    const std::string beside_name = platform::own_folder() + "decoder.dat";
    std::string beside_file = platform::own_folder_behind_links() + "decoder.dat";
    const auto is_there = [](const std::string &name) {
        return platform::File::open(name.c_str(), platform::File::Mode::read_shared) != nullptr;
    };
    return beside_file != beside_name && !is_there(beside_name) && is_there(beside_file) ? beside_file : beside_name;
}

// Runs while the library is being loaded.
struct At_Load {
    At_Load() noexcept
    {
        platform::when_unloaded(CSTFREE);
        try {
            CSTINIT(Installed_File().c_str(), nullptr);
        } catch (...) {  // no memory for a name: nothing is loaded
        }
    }
};
const At_Load at_load;

}  // namespace

}  // namespace kernel

void CSTINIT(const char *file, void (*callback)(const char *message)) { kernel::The_Table().Load(file, callback); }
const char *CST(int number) { return kernel::The_Table().Text(number); }
void CSTFREE() { kernel::The_Table().Free(); }
