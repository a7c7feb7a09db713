#include "platform/registry.h"

#include <cstring>

namespace platform {

std::uint32_t registry_path_error(const char *path)
{
    if (*path == '\\') return registry_bad_path;
    std::size_t depth = 0;
    for (const char *part = path; *part != '\0';) {
        const std::size_t size = std::strcspn(part, "\\");
        if (size > registry_key_name_most || ++depth > registry_depth_most) return registry_more_data;
        part += size;
        part += std::strspn(part, "\\");
    }
    return error_none;
}

std::uint32_t registry_value_name_error(const char *name)
{
    return std::strlen(name) > registry_value_name_most ? error_invalid_parameter : error_none;
}

}  // namespace platform
