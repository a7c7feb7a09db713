#include "platform/pipe.h"

#include "platform/error.h"

#include <algorithm>

namespace platform {

namespace {

constexpr std::size_t most_name = 247;  // [bytes]; with the prefix the 256 that Windows takes

bool refused(std::uint32_t error)
{
    set_last_error(error);
    return false;
}

// Compares without regard to the case of ASCII letters; `lower` is in lower case.
bool begins_with(std::string_view text, std::string_view lower)
{
    const auto same = [](char a, char b) {
        return (a >= 'A' && a <= 'Z' ? static_cast<char>(a + ('a' - 'A')) : a) == b;
    };
    return text.size() >= lower.size() &&
           std::equal(lower.begin(), lower.end(), text.begin(), [&](char b, char a) { return same(a, b); });
}

}  // namespace

bool plain_pipe_name(std::string_view name, std::string &plain)
{
    for (const std::string_view prefix : {R"(\\.\pipe\)", R"(\\?\pipe\)"}) {
        if (!begins_with(name, prefix)) continue;
        name.remove_prefix(prefix.size());
        break;
    }
    if (name.starts_with(R"(\\)")) return refused(error_bad_network_path);
    if (name.empty() || name.find('\0') != std::string_view::npos) return refused(error_invalid_name);
    if (name.size() > most_name) return refused(error_name_too_long);
    plain = name;
    return true;
}

}  // namespace platform
