#include "platform/shared_memory.h"

#include "platform/error.h"

#include <mutex>
#include <string>

namespace platform {

namespace {

constexpr std::size_t longest_name = 259;  // [bytes]

std::string_view without_space(std::string_view name)
{
    for (const std::string_view space : {"Local\\", "Global\\"})
        if (name.starts_with(space)) name.remove_prefix(space.size());
    return name;
}

bool may_be(std::string_view name)
{
    name = without_space(name);
    const std::uint32_t error = name.empty()                                ? error_invalid_name
                                : name.size() > longest_name                ? error_name_too_long
                                : name.find('\\') != std::string_view::npos ? error_path_not_found
                                                                            : error_none;
    if (error != error_none) set_last_error(error);
    return error == error_none;
}

}  // namespace

// One lock for all spellings: "Local\NAME" is the same segment as NAME.
Named_Lock Shared_Memory::transition(std::string_view name)
{
    return Named_Lock("shared memory " + std::string(without_space(name)));
}

std::unique_ptr<Shared_Memory> Shared_Memory::create(std::string_view name, std::uint64_t size, Found &found)
{
    if (!may_be(name)) return nullptr;
    Named_Lock lock(transition(name));
    if (!lock.valid()) return nullptr;
    const std::lock_guard guard(lock);
    return create_locked(name, size, found);
}

std::unique_ptr<Shared_Memory> Shared_Memory::open(std::string_view name)
{
    if (!may_be(name)) return nullptr;
    Named_Lock lock(transition(name));
    if (!lock.valid()) return nullptr;
    const std::lock_guard guard(lock);
    return open_locked(name);
}

}  // namespace platform
