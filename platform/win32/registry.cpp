#include "platform/registry.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

namespace platform {

namespace {

constexpr wchar_t escape = 0xDC00;  // + byte, from 0x80 on: half a pair, which no UTF-8 becomes

// Length of the UTF-8 character at the start of the text, 0 if there is none.
std::size_t character(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text[0]);
    const std::size_t size = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    wchar_t pair[2];
    if (first < 0x80) return 1;
    if (text.size() < size) return 0;
    const int units = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), static_cast<int>(size), pair, 2);
    return units == (size == 4 ? 2 : 1) ? size : 0;
}

std::wstring wide(std::string_view text)
{
    std::wstring result;
    result.reserve(text.size() + 1);
    while (!text.empty()) {
        const std::size_t size = character(text);
        wchar_t pair[2] = {static_cast<wchar_t>(static_cast<unsigned char>(text[0])), 0};
        if (size == 0) pair[0] = static_cast<wchar_t>(pair[0] + escape);
        if (size > 1) MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(size), pair, 2);
        result.append(pair, size == 4 ? 2 : 1);
        text.remove_prefix(size == 0 ? 1 : size);
    }
    return result;
}

std::string narrow(std::wstring_view text)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const wchar_t unit = text[i];
        const bool is_pair =
            unit >= 0xD800 && unit < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000;
        const int units = is_pair ? 2 : 1;
        char bytes[4] = {static_cast<char>(unit), 0, 0, 0};
        int size = 1;
        const bool is_byte = unit < 0x80 || (unit >= escape + 0x80 && unit <= escape + 0xFF);
        if (!is_byte) size = WideCharToMultiByte(CP_UTF8, 0, &text[i], units, bytes, 4, nullptr, nullptr);
        result.append(bytes, static_cast<std::size_t>(size));
        i += static_cast<std::size_t>(units);
    }
    return result;
}

bool is_text(std::uint32_t type)
{
    return type == registry_sz || type == registry_expand_sz || type == registry_multi_sz;
}

HKEY handle_of(std::uint32_t root)  // sign-extended, as the system's constants are
{
    return reinterpret_cast<HKEY>(static_cast<std::intptr_t>(static_cast<std::int32_t>(root)));
}

std::uint32_t number(LSTATUS status) { return static_cast<std::uint32_t>(status); }

// Threads, Ownership, Errors: as Registry_Key.
class System_Key : public Registry_Key {
public:
    explicit System_Key(HKEY key) : key_(key) {}
    ~System_Key() override { RegCloseKey(key_); }

    std::uint32_t query(const char *name, std::uint32_t &type, void *data, std::size_t &size) override;
    std::uint32_t set(const char *name, std::uint32_t type, const void *data, std::size_t size) override;
    std::uint32_t remove_value(const char *name) override
    {
        return registry_answer([&] { return number(RegDeleteValueW(key_, wide(name).c_str())); });
    }
    std::uint32_t sub_keys(std::size_t &count, std::size_t &longest_name) override
    {
        DWORD keys = 0, longest = 0;
        const LSTATUS status = RegQueryInfoKeyW(key_, nullptr, nullptr, nullptr, &keys, &longest, nullptr, nullptr,
                                                nullptr, nullptr, nullptr, nullptr);
        count = keys;
        return status != ERROR_SUCCESS ? number(status) : measure(&System_Key::sub_key_name, longest, longest_name);
    }
    std::uint32_t values(std::size_t &count, std::size_t &longest_name) override
    {
        DWORD found = 0, longest = 0;
        const LSTATUS status = RegQueryInfoKeyW(key_, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &found,
                                                &longest, nullptr, nullptr, nullptr);
        count = found;
        return status != ERROR_SUCCESS ? number(status) : measure(&System_Key::value_name, longest, longest_name);
    }
    std::uint32_t longest_value(std::size_t &size) override
    {
        DWORD longest = 0;  // [bytes], of texts those of UTF-16
        const LSTATUS status = RegQueryInfoKeyW(key_, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                                nullptr, &longest, nullptr, nullptr);
        size = longest;
        return number(status);
    }
    std::uint32_t sub_key_name(std::size_t index, std::string &name) override
    {
        wchar_t text[registry_key_name_most + 2];
        DWORD size = registry_key_name_most + 2;
        const LSTATUS status =
            RegEnumKeyExW(key_, static_cast<DWORD>(index), text, &size, nullptr, nullptr, nullptr, nullptr);
        return named(status, text, size, name);
    }
    std::uint32_t value_name(std::size_t index, std::string &name) override
    {
        return registry_answer([&] {
            std::vector<wchar_t> text(registry_value_name_most + 2);
            DWORD size = registry_value_name_most + 2;
            const LSTATUS status =
                RegEnumValueW(key_, static_cast<DWORD>(index), text.data(), &size, nullptr, nullptr, nullptr, nullptr);
            return named(status, text.data(), size, name);
        });
    }

private:
    static std::uint32_t named(LSTATUS status, const wchar_t *text, std::size_t size, std::string &name)
    {
        return registry_answer([&] {
            if (status == ERROR_SUCCESS) name = narrow({text, size});
            return number(status);
        });
    }
    // The system counts units of UTF-16.
    std::uint32_t measure(std::uint32_t (System_Key::*name_at)(std::size_t, std::string &), std::size_t otherwise,
                          std::size_t &longest)
    {
        std::string name;
        longest = 0;
        for (std::size_t i = 0;; ++i) {
            const std::uint32_t error = (this->*name_at)(i, name);
            if (error == registry_no_more_items) return error_none;
            if (error == error_access_denied) longest = otherwise;
            if (error != error_none) return error == error_access_denied ? std::uint32_t{error_none} : error;
            longest = std::max(longest, name.size());
        }
    }
    std::uint32_t whole(const std::wstring &name, std::uint32_t &type, std::vector<wchar_t> &data, DWORD &size);

    HKEY key_;
};

// Another process may make the value longer between two calls. Of performance data the system tells no size.
std::uint32_t System_Key::whole(const std::wstring &name, std::uint32_t &type, std::vector<wchar_t> &data, DWORD &size)
{
    data.resize(256);
    for (;;) {
        DWORD kind = 0;
        size = static_cast<DWORD>(data.size() * sizeof(wchar_t));
        const LSTATUS status =
            RegQueryValueExW(key_, name.c_str(), nullptr, &kind, reinterpret_cast<BYTE *>(data.data()), &size);
        type = kind;
        if (status != ERROR_MORE_DATA) return number(status);
        data.resize(std::max<std::size_t>(size / sizeof(wchar_t) + 1, 2 * data.size()));
    }
}

std::uint32_t System_Key::query(const char *name, std::uint32_t &type, void *data, std::size_t &size)
{
    return registry_answer([&]() -> std::uint32_t {
        std::vector<wchar_t> stored;
        DWORD length = 0;
        const std::uint32_t error = whole(wide(name), type, stored, length);
        if (error != error_none) return error;
        std::string_view bytes(reinterpret_cast<const char *>(stored.data()), length);
        std::string text;
        if (is_text(type)) bytes = text = narrow({stored.data(), length / sizeof(wchar_t)});
        const std::size_t room = size;
        size = bytes.size();
        if (size > room) return registry_more_data;
        if (size > 0) std::memcpy(data, bytes.data(), size);
        return error_none;
    });
}

// The system looks behind a text without a final zero, and takes a zero that it finds there along: there is none.
std::uint32_t System_Key::set(const char *name, std::uint32_t type, const void *data, std::size_t size)
{
    return registry_answer([&]() -> std::uint32_t {
        if (const std::uint32_t error = registry_value_name_error(name)) return error;
        const std::wstring text = is_text(type) ? wide({static_cast<const char *>(data), size}) + L'x' : std::wstring();
        const void *const bytes = is_text(type) ? text.data() : data;
        const std::size_t length = is_text(type) ? (text.size() - 1) * sizeof(wchar_t) : size;
        return number(RegSetValueExW(key_, wide(name).c_str(), 0, type, static_cast<const BYTE *>(bytes),
                                     static_cast<DWORD>(length)));
    });
}

std::uint32_t opened(LSTATUS status, HKEY handle, std::unique_ptr<Registry_Key> &key)
{
    if (status == ERROR_SUCCESS) key = std::make_unique<System_Key>(handle);
    return number(status);
}

}  // namespace

std::uint32_t Registry_Key::open(std::uint32_t root, const char *path, std::uint32_t access,
                                 std::unique_ptr<Registry_Key> &key)
{
    return registry_answer([&] {
        HKEY handle = nullptr;
        if (const std::uint32_t error = registry_path_error(path)) return error;
        const LSTATUS status = RegOpenKeyExW(handle_of(root), wide(path).c_str(), 0, access, &handle);
        return opened(status, handle, key);
    });
}

std::uint32_t Registry_Key::create(std::uint32_t root, const char *path, std::uint32_t access,
                                   std::unique_ptr<Registry_Key> &key, bool &created)
{
    return registry_answer([&] {
        HKEY handle = nullptr;
        DWORD disposition = 0;
        if (const std::uint32_t error = registry_path_error(path)) return error;
        const LSTATUS status = RegCreateKeyExW(handle_of(root), wide(path).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                               access, nullptr, &handle, &disposition);
        created = status == ERROR_SUCCESS && disposition == REG_CREATED_NEW_KEY && *path != '\0';  // Wine: also a root
        return opened(status, handle, key);
    });
}

// The system would take an empty path for the root.
std::uint32_t Registry_Key::remove(std::uint32_t root, const char *path)
{
    return registry_answer([&]() -> std::uint32_t {
        if (const std::uint32_t error = registry_path_error(path)) return error;
        if (*path == '\0') return error_access_denied;
        return number(RegDeleteKeyW(handle_of(root), wide(path).c_str()));
    });
}

}  // namespace platform
