#include "kernel/services/LoadDriverLibary.h"

#include "kernel/base/Error_Handler.h"
#include "platform/error.h"
#include "platform/library.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kernel {

namespace {

constexpr char unit[] = "kernel/LoadDriverLibary";
constexpr char name_function[] = "DLL_CreateName", loader_function[] = "DLL_CreateLoader";
constexpr std::string_view separators = "/\\";
constexpr int variable_characters = 3;  // before the first dot; drivers of a family differ in them
constexpr Err_Code no_code = 0;

using Create_Name = const char *(*)(int version);
using Create_Loader = DLL_Loader *(*)(int version, Error_Handler *handler);

template <class F>
F Function_Of(Driver_Module driver, const char *name)
{
    return reinterpret_cast<F>(platform::function_of(driver, name));
}

Error_Handler &Handler_Or_Default(Error_Handler *handler)
{
    return Error_Handler::Or_Silent(handler ? handler : Object::Get_Default_Handler());
}

// Calls a function of a driver; null if it throws. A driver may throw anything.
template <class Call>
auto Returned_By(Call call) -> decltype(call())
{
    try {
        return call();
    } catch (...) {
        return nullptr;
    }
}

// Independent of the host's locale; other letters are compared as they are.
char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string Lower(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) { return Lower(c); });
    return lower;
}

// A byte of a UTF-8 character behind its first one.
bool Continues(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

std::size_t After_Character(std::string_view text, std::size_t at)
{
    do ++at;
    while (at < text.size() && Continues(text[at]));
    return at;
}

// The name with '?' for the characters in which drivers of a family differ; empty if there is nothing to search for.
std::string Pattern_Of(std::string_view name)
{
    const std::size_t dot = name.find('.');
    if (dot == std::string_view::npos || name.find_last_of(separators) == std::string_view::npos) return {};
    std::size_t begin = dot;
    for (int i = 0; i < variable_characters; ++i) {
        do {
            if (begin == 0) return {};
            --begin;
        } while (Continues(name[begin]));
        if (separators.find(name[begin]) != std::string_view::npos) return {};
    }
    std::string pattern(name.substr(0, begin));
    return pattern.append(variable_characters, '?').append(name.substr(dot));
}

// Whether a name matches a mask in which '?' is one character and '*' any number of them. When the rest does not fit,
// the last '*' takes one more.
bool Matches(std::string_view mask, std::string_view name)
{
    constexpr std::size_t none = std::string_view::npos;
    std::size_t m = 0, n = 0, behind_star = none, star_ends = 0;
    while (n < name.size()) {
        if (m < mask.size() && mask[m] == '*') {
            behind_star = ++m;
            star_ends = n;
        } else if (m < mask.size() && mask[m] == '?') {
            ++m;
            n = After_Character(name, n);
        } else if (m < mask.size() && Lower(mask[m]) == Lower(name[n])) {
            ++m;
            ++n;
        } else if (behind_star != none) {
            m = behind_star;
            n = star_ends = After_Character(name, star_ends);
        } else {
            return false;
        }
    }
    return mask.find_first_not_of('*', m) == none;
}

// The names in a folder that match, in their order. None if the folder cannot be read.
std::vector<std::string> Candidates(const std::string &folder, std::string_view mask)
{
    std::vector<std::string> names;
    platform::names_in_folder(folder.c_str(), names);
    std::erase_if(names, [&](const std::string &name) { return !Matches(mask, name); });
    std::sort(names.begin(), names.end(), [](const std::string &a, const std::string &b) {
        return std::pair(Lower(a), std::string_view(a)) < std::pair(Lower(b), std::string_view(b));
    });
    return names;
}

// Loads a candidate and asks it for its name; null if it is none of the family.
Driver_Module Accepted(const char *path, const char *requested, Error_Handler &handler)
{
    Driver_Module const driver = platform::load_library(path);
    if (!driver) return nullptr;
    const auto create_name = Function_Of<Create_Name>(driver, name_function);
    const char *const name = create_name ? Returned_By([&] { return create_name(Driver_Interface_Version); }) : nullptr;
    if (name) {
        handler.Set(unit, __LINE__)
            ->Print_Out(Error_Handler::ES_Information, no_code, "Using as %s new DLL %s instead of %s", name, path,
                        requested);
        return driver;
    }
    Error_Handler &report = *handler.Set(unit, __LINE__);
    if (!create_name)
        report.Print_Out(Error_Handler::ES_Warning, no_code, "DLL %s has no Name function %s!", path, name_function);
    else
        report.Print_Out(Error_Handler::ES_Warning, no_code,
                         "DLL %s has wrong interface. Need interface Version %d.%d!", path,
                         Driver_Interface_Version / 100, Driver_Interface_Version % 100);
    platform::free_library(driver);
    return nullptr;
}

void Copy_Path(char *to, const char *path)
{
    if (to) std::snprintf(to, Driver_Path_Size, "%s", path);
}

Driver_Module Searched(const char *requested, char *loaded_name, Error_Handler &handler)
{
    const std::string pattern = Pattern_Of(requested);
    if (pattern.empty()) return nullptr;
    handler.Set(unit, __LINE__)
        ->Print_Out(Error_Handler::ES_Warning, no_code, "Searching for DLL \"%s\"", pattern.c_str());
    const std::size_t folder_size = pattern.find_last_of(separators) + 1;
    const std::string folder = pattern.substr(0, folder_size);
    for (const std::string &name : Candidates(folder, pattern.substr(folder_size))) {
        const std::string path = folder + name;
        if (Driver_Module const driver = Accepted(path.c_str(), requested, handler)) {
            Copy_Path(loaded_name, path.c_str());
            return driver;
        }
    }
    handler.Set(unit, __LINE__)->Print_Out(Error_Handler::ES_Error, no_code, "Could not find DLL \"%s\"", requested);
    return nullptr;
}

}  // namespace

const char DLL_Loader::Name[] = "DLL_Loader";

DLL_Loader::DLL_Loader(Error_Handler &handler) : Object(ClassName(), &handler)
{
    Set_Error_Handler(&handler);  // a driver class constructs the virtual base, and may give it another
}

DLL_Loader::~DLL_Loader() = default;

bool DLL_Loader::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Object::IsInheritedFrom(name);
}

Byte_Client *DLL_Loader::Get_Client() { return nullptr; }
Byte_Server *DLL_Loader::Get_Server() { return nullptr; }
Remote_Control *DLL_Loader::Get_Remote() { return nullptr; }

void DLL_Loader::Delete(DLL_Loader *&loader) { delete std::exchange(loader, nullptr); }

Driver_Module LoadDriverLibrary(const char *fileName, char *loadedName, Error_Handler *handler)
{
    Copy_Path(loadedName, fileName ? fileName : "");
    if (!fileName) return nullptr;
    return Returned_By([&]() -> Driver_Module {
        Driver_Module const driver = platform::load_library(fileName);
        if (driver || platform::last_error() != platform::error_module_not_found) return driver;
        return Searched(fileName, loadedName, Handler_Or_Default(handler));
    });
}

bool Free_Driver_Library(Driver_Module driver) { return platform::free_library(driver); }

Driver_Function Find_Driver_Function(Driver_Module driver, const char *name)
{
    return platform::function_of(driver, name);
}

DLL_Loader *Create_Driver_Loader(Driver_Module driver, Error_Handler *handler)
{
    Error_Handler &used = Handler_Or_Default(handler);
    const auto create = Function_Of<Create_Loader>(driver, loader_function);
    DLL_Loader *const loader = create ? Returned_By([&] { return create(Driver_Interface_Version, &used); }) : nullptr;
    if (loader) return loader;
    const char *const text = create ? "The driver's %s has no object for interface version %d.%d"
                                    : "The driver has no function %s; interface version %d.%d has one";
    used.Set(unit, __LINE__)
        ->Print_Out(Error_Handler::ES_Error, no_code, text, loader_function, Driver_Interface_Version / 100,
                    Driver_Interface_Version % 100);
    return nullptr;
}

}  // namespace kernel
