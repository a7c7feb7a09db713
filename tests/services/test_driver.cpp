// A driver library for tests. DRIVER_GOOD, _NULL, _NO_ENTRY or _THROWS says how it answers.
#include "kernel/base/Error_Handler.h"
#include "kernel/services/LoadDriverLibary.h"

#include <cstdio>
#include <cstdlib>

namespace {

// Appends to the file that the environment names: '+' when the library is loaded, '-' when it is unloaded.
void Note(char mark)
{
    const char *const name = std::getenv("TEST_DRIVER_LOG");
    std::FILE *const file = name && *name ? std::fopen(name, "ab") : nullptr;
    if (!file) return;
    std::fputc(mark, file);
    std::fclose(file);
}

struct Life {
    Life() { Note('+'); }
    ~Life() { Note('-'); }
} const life;

#ifdef DRIVER_GOOD
class Test_Driver : public kernel::DLL_Loader {
public:
    explicit Test_Driver(kernel::Error_Handler &handler)
        : kernel::Object("Test_Driver", nullptr), kernel::DLL_Loader(handler)
    {
    }
    ~Test_Driver() override { Note('d'); }
    const char *Driver_Name() const override { return "test"; }
    int Interface_Version() const override { return kernel::Driver_Interface_Version; }
    bool Set_Option(const char *, const char *) override { return false; }
    bool Start() override { return true; }
    bool Stop() override { return true; }
    kernel::Object_Server *Record_Server(unsigned int) override { return nullptr; }
    const char *Last_Error() const override { return ""; }
};
#endif

}  // namespace

#if defined(DRIVER_GOOD)
KERNEL_DRIVER_ENTRY const char *DLL_CreateName(int version) { return version == 109 ? "test" : nullptr; }
KERNEL_DRIVER_ENTRY kernel::DLL_Loader *DLL_CreateLoader(int version, kernel::Error_Handler *handler)
{
    return version == 109 ? new Test_Driver(*handler) : nullptr;
}
#elif defined(DRIVER_NULL)
KERNEL_DRIVER_ENTRY const char *DLL_CreateName(int) { return nullptr; }
KERNEL_DRIVER_ENTRY kernel::DLL_Loader *DLL_CreateLoader(int, kernel::Error_Handler *) { return nullptr; }
#elif defined(DRIVER_THROWS)
KERNEL_DRIVER_ENTRY const char *DLL_CreateName(int) { throw 1; }
KERNEL_DRIVER_ENTRY kernel::DLL_Loader *DLL_CreateLoader(int, kernel::Error_Handler *) { throw 1; }
#endif
