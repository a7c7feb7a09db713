#include "kernel/settings/file_helpers.h"

#include "platform/error.h"
#include "platform/folder.h"

#include <cstring>
#include <limits>
#include <new>
#include <string>

namespace kernel {

namespace {

constexpr int most_names = 1'000'000;

bool Fail(std::uint32_t error)
{
    platform::set_last_error(error);
    return false;
}

// The i-th name: the number stands before the extension.
std::string Numbered(const std::string &wanted, int i)
{
    if (i == 1) return wanted;
    const std::size_t folder = wanted.find_last_of("/\\:"), first = folder == wanted.npos ? 0 : folder + 1;
    const std::size_t dot = wanted.rfind('.');
    const std::size_t at = dot == wanted.npos || dot <= first ? wanted.size() : dot;
    return wanted.substr(0, at) + '-' + std::to_string(i) + wanted.substr(at);
}

}  // namespace

bool remove_dir(const char *folder)
{
    if (!folder) return Fail(platform::error_invalid_name);
    try {
        return platform::remove_folder(folder);
    } catch (const std::bad_alloc &) {
        return Fail(platform::error_no_memory);
    }
}

bool FindFreeFileName(const char *wanted, char *name, std::size_t size)
{
    if (!wanted || !name) return Fail(platform::error_invalid_name);
    try {
        for (int i = 1; i <= most_names; ++i) {
            const std::string candidate = Numbered(wanted, i);
            if (candidate.size() >= size) return Fail(platform::error_insufficient_buffer);
            if (platform::create_new_file(candidate.c_str())) {
                std::memcpy(name, candidate.c_str(), candidate.size() + 1);
                return true;
            }
            if (platform::last_error() != platform::error_file_exists) return false;
        }
        return false;
    } catch (const std::bad_alloc &) {
        return Fail(platform::error_no_memory);
    }
}

long long get_space(const char *folder)
{
    std::uint64_t bytes = 0;
    if (!folder || !platform::free_space(folder, bytes)) return -1;
    constexpr auto most = std::numeric_limits<long long>::max();
    return bytes < static_cast<std::uint64_t>(most) ? static_cast<long long>(bytes) : most;
}

}  // namespace kernel
