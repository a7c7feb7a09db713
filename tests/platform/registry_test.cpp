// The answers are those of the system's own registry: this file passes on both halves.
#include "platform/registry.h"

#include "platform/error.h"
#include "tests/support/registry.h"

#include <gtest/gtest.h>

using namespace platform;
using std::string_literals::operator""s;

namespace {

constexpr std::uint32_t user = registry_current_user;

using Key = std::unique_ptr<Registry_Key>;

Key Made(const std::string &path, std::uint32_t access = registry_all_access)
{
    Key key;
    bool created = false;
    EXPECT_EQ(Registry_Key::create(user, path.c_str(), access, key, created), 0u) << path;
    return key;
}

std::uint32_t Opened(const std::string &path, std::uint32_t root = user)
{
    Key key;
    return Registry_Key::open(root, path.c_str(), registry_read, key);
}

struct Stored {
    std::uint32_t error = 0, type = 0;
    std::string bytes;
    bool operator==(const Stored &) const = default;
};
std::ostream &operator<<(std::ostream &out, const Stored &s)
{
    return out << s.error << ' ' << s.type << ' ' << testing::PrintToString(s.bytes);
}

Stored Read(Registry_Key &key, const char *name, std::size_t room = 100)
{
    Stored stored;
    std::string bytes(room, '?');
    std::size_t size = room;
    stored.error = key.query(name, stored.type, bytes.data(), size);
    if (stored.error == registry_more_data) return {stored.error, stored.type, "size " + std::to_string(size)};
    if (stored.error == 0) stored.bytes = bytes.substr(0, size);
    return stored;
}

std::uint32_t Write(Registry_Key &key, const char *name, std::uint32_t type, const std::string &bytes)
{
    return key.set(name, type, bytes.data(), bytes.size());
}

std::vector<std::string> Names(Registry_Key &key, std::uint32_t (Registry_Key::*name_at)(std::size_t, std::string &))
{
    std::vector<std::string> names;
    std::string name;
    std::uint32_t error = 0;
    while ((error = (key.*name_at)(names.size(), name)) == 0) names.push_back(name);
    EXPECT_EQ(error, registry_no_more_items);
    return names;
}

}  // namespace

TEST(registry, takes_paths_apart)
{
    const Own_Registry registry;
    const std::string longest(registry_key_name_most, 'k');
    const struct {
        std::string path;
        std::uint32_t creating;
        std::string found_as;
    } rows[] = {
        {"a", 0, "A"},
        {"a\\b\\c", 0, "a\\B"},
        {"d\\\\e\\", 0, "d\\e"},
        {"with/slash", 0, "with/slash"},
        {"gr\xC3\xBC\xC3\x9F\xF0\x9F\x9B\xB0", 0, "gr\xC3\xBC\xC3\x9F\xF0\x9F\x9B\xB0"},
        {"raw\xE9\xFF", 0, "raw\xE9\xFF"},
        {longest, 0, longest},
        {longest + "k", registry_more_data, ""},
        {"ok\\" + longest + "k\\x", registry_more_data, ""},
        {"\\a", registry_bad_path, ""},
        {"", 0, ""},
    };
    for (const auto &row : rows) {
        Key key;
        bool created = false;
        EXPECT_EQ(Registry_Key::create(user, row.path.c_str(), registry_read, key, created), row.creating) << row.path;
        EXPECT_EQ(created, row.creating == 0 && row.path != "") << row.path;
        EXPECT_EQ(Opened(row.creating == 0 ? row.found_as : row.path), row.creating) << row.path;
        if (row.creating == 0) {
            EXPECT_EQ(Registry_Key::create(user, row.found_as.c_str(), registry_read, key, created), 0u);
            EXPECT_FALSE(created) << row.found_as;
        }
    }
    EXPECT_EQ(Opened("a\\none"), error_not_found);
    EXPECT_EQ(Opened("a", registry_local_machine), error_not_found);  // another hive
}

TEST(registry, keeps_values_with_type_and_size)
{
    const Own_Registry registry;
    const Key key = Made("values");
    std::string bytes;
    for (int i = 1; i < 256; ++i) bytes += static_cast<char>(i);
    const struct {
        const char *name;
        std::uint32_t type;
        std::string bytes;
    } rows[] = {
        {"text", registry_sz, "abc\0"s},
        {"no final zero", registry_sz, "abc"},
        {"zeros", registry_sz, "a\0b\0\0"s},
        {"empty", registry_sz, ""},
        {"", registry_sz, "the default\0"s},
        {"expand", registry_expand_sz, "%HOME%\0"s},
        {"multi", registry_multi_sz, "a\0\0b\0\0"s},
        {"binary", registry_binary, "\0\1\xFF"s},
        {"word", registry_dword, "\1\2\3\4"},
        {"short word", registry_dword, "ab"},
        {"big", registry_dword_big_endian, "\1\2\3\4"},
        {"none", registry_none, "x"},
        {"other", 99, "xyz"},
        {"bytes", registry_sz, bytes},
        {"bytes backwards", registry_multi_sz, std::string(bytes.rbegin(), bytes.rend()) + '\0'},
        {"utf-8", registry_sz,
         "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x9B\xB0\xEF\xBF\xBD\xED\xA0\x80\xC0\x80\xF8\xF4\x90\x80\x80\xC3\0"s},
        {"gr\xC3\xBC\xDF", registry_binary, "raw name"},
    };
    for (const auto &row : rows) EXPECT_EQ(Write(*key, row.name, row.type, row.bytes), 0u) << row.name;
    for (const auto &row : rows) EXPECT_EQ(Read(*key, row.name, 300), (Stored{0, row.type, row.bytes})) << row.name;
    EXPECT_EQ(Names(*key, &Registry_Key::value_name).size(), std::size(rows));

    EXPECT_EQ(Read(*key, "text", 4), (Stored{0, registry_sz, "abc\0"s}));
    EXPECT_EQ(Read(*key, "text", 3), (Stored{registry_more_data, registry_sz, "size 4"}));
    EXPECT_EQ(Read(*key, "nowhere"), (Stored{error_not_found, 0, ""}));
    EXPECT_EQ(Write(*key, "TEXT", registry_binary, "new"), 0u);
    EXPECT_EQ(Read(*key, "tExt"), (Stored{0, registry_binary, "new"}));
    std::size_t count = 0, longest = 0, size = 0;
    EXPECT_EQ(key->values(count, longest), 0u);
    EXPECT_EQ(count, std::size(rows));  // the first spelling stays the only one
    EXPECT_EQ(longest, std::string("bytes backwards").size());
    EXPECT_EQ(key->longest_value(size), 0u);
    EXPECT_GE(size, bytes.size() + 1);

    EXPECT_EQ(key->remove_value("TEXT"), 0u);
    EXPECT_EQ(key->remove_value("text"), error_not_found);
    const std::string name(registry_value_name_most, 'v');
    EXPECT_EQ(Write(*key, name.c_str(), registry_binary, "1"), 0u);
    EXPECT_EQ(Read(*key, name.c_str()).bytes, "1");
    EXPECT_EQ(Write(*key, (name + 'v').c_str(), registry_binary, "1"), error_invalid_parameter);
}

TEST(registry, grants_what_was_asked_for)
{
    const Own_Registry registry;
    Write(*Made("rights"), "v", registry_sz, "x");
    Made("rights\\below");
    constexpr std::uint32_t denied = error_access_denied;
    const struct {
        std::uint32_t access, reading, writing, removing, keys, values;
    } rows[] = {
        {registry_all_access, 0, 0, error_not_found, 0, 0},
        {registry_read, 0, denied, denied, 0, 0},
        {registry_write | registry_query_value, 0, 0, error_not_found, denied, 0},
    };
    for (const auto &row : rows) {
        const Key key = Made("rights", row.access);
        std::string name;
        EXPECT_EQ(Read(*key, "v").error, row.reading) << row.access;
        EXPECT_EQ(Write(*key, "v", registry_sz, "x"), row.writing) << row.access;
        EXPECT_EQ(key->remove_value("nowhere"), row.removing) << row.access;
        EXPECT_EQ(key->sub_key_name(0, name), row.keys) << row.access;
        EXPECT_EQ(key->value_name(0, name), row.values) << row.access;
        std::size_t count = 0, longest = 0;
        EXPECT_EQ(key->sub_keys(count, longest), 0u) << row.access;
        EXPECT_EQ(count, 1u);
        EXPECT_EQ(longest, 5u);
    }
}

TEST(registry, knows_a_key_that_is_deleted)
{
    const Own_Registry registry;
    Made("top\\two");
    Made("top\\One");  // the last one made: its number must not go to another key
    const Key top = Made("top"), one = Made("top\\one");
    EXPECT_EQ(Names(*top, &Registry_Key::sub_key_name), (std::vector<std::string>{"One", "two"}));
    Write(*one, "v", registry_sz, "x");
    EXPECT_EQ(Registry_Key::remove(user, "top"), error_access_denied);  // has sub keys
    EXPECT_EQ(Registry_Key::remove(user, ""), error_access_denied);
    EXPECT_EQ(Registry_Key::remove(user, "top\\three"), error_not_found);
    EXPECT_EQ(Registry_Key::remove(user, "\\top"), registry_bad_path);
    EXPECT_EQ(Registry_Key::remove(user, "top\\ONE"), 0u);

    const Key again = Made("top\\one");  // another key
    EXPECT_EQ(Read(*again, "v").error, error_not_found);
    std::string name;
    std::size_t count = 0, longest = 0;
    const std::uint32_t answers[] = {
        Read(*one, "v").error,       Write(*one, "v", registry_sz, "y"), one->remove_value("v"),
        one->sub_key_name(0, name),  one->value_name(0, name),           one->sub_keys(count, longest),
        one->values(count, longest), one->longest_value(count),
    };
    for (const std::uint32_t answer : answers) EXPECT_EQ(answer, registry_key_deleted) << &answer - answers;
}
