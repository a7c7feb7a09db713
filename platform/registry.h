// The registry: keys in a tree, each with named values that have a type. Windows: the system's. POSIX: one SQLite
// database per hive.
//
// Files on POSIX, created when a key is created in them:
//   registry_local_machine  /var/lib/gnss-kernel/registry.db, mode 0644, rollback journal (a write-ahead log would shut
//                           out the readers of other users)
//   registry_current_user   $XDG_CONFIG_HOME/gnss-kernel/registry.db, else $HOME/.config/gnss-kernel/registry.db (the
//                           home that the system knows if that is not set), mode 0600, write-ahead log
// With $GNSS_KERNEL_REGISTRY_DIR they are machine.db and user.db in that folder. The other roots have no hive there:
// opening gives error_not_found, creating error_access_denied.
//
// Names ignore the case of letters (POSIX: of ASCII letters) and keep their first spelling. Paths separate their parts
// by one or more backslashes; one at the end does not count, and an empty path is the root itself. Texts on Windows:
// what is UTF-8 becomes UTF-16 and back; any other byte comes back as it was (as U+DC00 + byte in between).
#pragma once

#include "platform/error.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>

namespace platform {

enum Registry_Root : std::uint32_t {
    registry_classes_root = 0x80000000,
    registry_current_user = 0x80000001,
    registry_local_machine = 0x80000002,
    registry_users = 0x80000003,
    registry_performance_data = 0x80000004,
    registry_dyn_data = 0x80000006,
};

enum Registry_Type : std::uint32_t {
    registry_none = 0,
    registry_sz = 1,         // text with its final zero
    registry_expand_sz = 2,  // the same; holds references to variables
    registry_binary = 3,
    registry_dword = 4,  // 4 bytes, little-endian
    registry_dword_big_endian = 5,
    registry_multi_sz = 7,  // texts with their final zeros, and one zero more
};

// Rights, as bits. Reading asks for registry_query_value, EnumSubKey for registry_enumerate_sub_keys, writing and
// deleting values for registry_set_value.
enum Registry_Access : std::uint32_t {
    registry_query_value = 0x1,
    registry_set_value = 0x2,
    registry_create_sub_key = 0x4,
    registry_enumerate_sub_keys = 0x8,
    registry_write = 0x20006,
    registry_read = 0x20019,
    registry_all_access = 0xF003F,
};

enum Registry_Error : std::uint32_t {
    registry_bad_path = 161,       // begins with a backslash
    registry_more_data = 234,      // the buffer is too small; opening: a part of the path is too long, or too deep
    registry_no_more_items = 259,  // the index of an enumeration is too large
    registry_corrupt = 1015,       // POSIX: the file is damaged, or no database
    registry_key_deleted = 1018,
    registry_newer = 1306,  // POSIX: the file is of a later version of this library
};

constexpr std::size_t registry_key_name_most = 255;      // [bytes] of one part of a path
constexpr std::size_t registry_depth_most = 512;         // parts of a path, as on Windows
constexpr std::size_t registry_value_name_most = 16383;  // [bytes]; longer ones: error_invalid_parameter

// An open key. It stands for the key, not for its path: when the key is deleted, every operation gives
// registry_key_deleted, also after a key of that path has been created again.
//
// Threads:   one thread at a time per object. Different objects may stand for one key, in any thread and process. Each
//            write is whole: others see the old value or the new one, also after a kill or a power cut.
// Ownership: owns the system's handle (POSIX: a connection to the database).
// Errors:    all operations return an error number, 0 for success: error_not_found when key or value is not there,
//            error_access_denied without the right for it, error_no_memory. POSIX: error_busy when another process
//            holds the hive locked for 2 s; error_disk_full. A failed write leaves the old value.
class Registry_Key {
public:
    static std::uint32_t open(std::uint32_t root, const char *path, std::uint32_t access,
                              std::unique_ptr<Registry_Key> &key);
    // Opens the key, or creates it with all keys above it. `created` tells which.
    static std::uint32_t create(std::uint32_t root, const char *path, std::uint32_t access,
                                std::unique_ptr<Registry_Key> &key, bool &created);
    // Deletes a key with its values. error_access_denied if it has sub keys, or is a root.
    static std::uint32_t remove(std::uint32_t root, const char *path);

    virtual ~Registry_Key() = default;
    Registry_Key(const Registry_Key &) = delete;
    Registry_Key &operator=(const Registry_Key &) = delete;

    // size: the room in `data` before, the value's size after. registry_more_data when it does not fit: `data` is
    // then undefined, type and size are set. Sizes are the stored ones: a text may lack its final zero.
    virtual std::uint32_t query(const char *name, std::uint32_t &type, void *data, std::size_t &size) = 0;
    virtual std::uint32_t set(const char *name, std::uint32_t type, const void *data, std::size_t size) = 0;
    virtual std::uint32_t remove_value(const char *name) = 0;
    // Number and longest name [bytes]. Where enumeration is not allowed, Windows counts in units of UTF-16.
    virtual std::uint32_t sub_keys(std::size_t &count, std::size_t &longest_name) = 0;
    virtual std::uint32_t values(std::size_t &count, std::size_t &longest_name) = 0;
    virtual std::uint32_t longest_value(std::size_t &size) = 0;  // [bytes] at least those of the longest value
    // In an order that holds while nothing is added or deleted.
    virtual std::uint32_t sub_key_name(std::size_t index, std::string &name) = 0;
    virtual std::uint32_t value_name(std::size_t index, std::string &name) = 0;

protected:
    Registry_Key() = default;
};

// For both halves: the error of a path or of a value's name as such, 0 when there is none.
std::uint32_t registry_path_error(const char *path);
std::uint32_t registry_value_name_error(const char *name);

// Runs the body of an operation; memory shortage becomes its error.
template <class Body>
std::uint32_t registry_answer(Body body)
{
    try {
        return body();
    } catch (const std::bad_alloc &) {
        return error_no_memory;
    }
}

}  // namespace platform
