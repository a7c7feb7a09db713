// Files of the runtime folder that a name stands for, and the lock on such a file. For named locks, pipes and segments.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace platform::posix {

// FNV-1a, 64 bits. Names are hashed because they are paths of any length and may contain any character.
std::uint64_t hash(std::string_view name);

// FOLDER/KIND-HASH, the file of this kind for the name. Empty, with the last error set, when there is no folder.
std::string runtime_file(const char *kind, std::string_view name);

// Opens the file, or creates it for this user alone. Does not follow a link. -1 with errno set.
int open_lock_file(const std::string &path);

// Whether the path still names the open file. Whoever ends a lock removes its file; a process that has opened the file
// before and locks it afterwards must detect that.
bool is_current_file(int descriptor, const std::string &path);

// flock that continues after signals. False with errno set (EWOULDBLOCK: another holds it and `how` has LOCK_NB).
bool take_flock(int descriptor, int how);

}  // namespace platform::posix
