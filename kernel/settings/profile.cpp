#include "kernel/settings/profile.h"

#include "kernel/settings/profile_text_internal.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/profile_folder.h"
#include "platform/replaced_file.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

namespace kernel {

namespace {

constexpr char common_file[] = "win.ini";
constexpr unsigned long longest_wait = 2000, nap = 10;  // [ms] for another writer
constexpr std::uint32_t error_invalid_data = 13, error_read_fault = 30;

struct Stream_Closer {
    void operator()(std::FILE *stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, Stream_Closer>;

bool Fail(std::uint32_t error)
{
    platform::set_last_error(error);
    return false;
}

// "" when there is no such folder.
std::string Full_Name(const char *file, platform::If_Missing if_missing)
{
    if (std::strpbrk(file, "/\\:")) return file;
    const std::string folder = platform::profile_folder(if_missing);
    return folder.empty() ? folder : folder + '/' + file;
}

bool Read_All(const std::string &name, std::string &text)
{
    const Stream stream(platform::open_stream(name.c_str()));
    if (!stream) return false;
    char block[4096];
    for (std::size_t n; (n = std::fread(block, 1, sizeof block, stream.get())) > 0;) text.append(block, n);
    return std::ferror(stream.get()) == 0 || Fail(error_read_fault);
}

std::optional<std::string> Value(const char *section, const char *key, const char *file)
{
    if (!section || !key || !file) return std::nullopt;
    try {
        std::string text;
        if (!Read_All(Full_Name(file, platform::If_Missing::leave), text)) return std::nullopt;
        const auto value = Profile_Value(text, section, key);
        return value ? std::optional<std::string>(*value) : std::nullopt;
    } catch (const std::bad_alloc &) {
        return std::nullopt;
    }
}

// Waits for another writer. The text is read only when the place is taken, so that nobody's value is lost.
template <class Change>
bool Rewrite(const std::string &name, Change change)
{
    using platform::Replaced_File;
    auto file = Replaced_File::open(name.c_str(), Replaced_File::Rights::as_before);
    for (unsigned long waited = 0; !file && waited < longest_wait; waited += nap) {
        if (platform::last_error() != platform::error_sharing_violation) return false;
        platform::sleep_ms(nap);
        file = Replaced_File::open(name.c_str(), Replaced_File::Rights::as_before);
    }
    if (!file) return false;
    std::string text;
    if (!Read_All(name, text) && platform::last_error() != platform::error_not_found) return false;
    if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF")) return Fail(error_invalid_data);
    const std::string before = text;
    change(text);
    if (text == before) return true;
    std::fwrite(text.data(), 1, text.size(), file->stream());  // commit notices a failure
    return file->commit();
}

long Number(const std::string &text, long otherwise)
{
    if (text.empty()) return otherwise;
    const char *at = text.data(), *const end = at + text.size();
    const bool is_negative = *at == '-';
    if (*at == '-' || *at == '+') ++at;
    int base = 10;
    if (end - at > 1 && at[0] == '0') {
        base = at[1] == 'x' ? 16 : at[1] == 'o' ? 8 : at[1] == 'b' ? 2 : 10;
        if (base != 10) at += 2;
    }
    std::uint32_t size = 0;
    const auto result = std::from_chars(at, end, size, base);
    if (result.ec == std::errc::result_out_of_range) return otherwise;
    const auto number = static_cast<std::int64_t>(size);
    const std::int64_t most = is_negative ? std::int64_t{1} << 31 : 0xFFFFFFFF;
    if (number > most) return otherwise;
    return static_cast<long>(static_cast<std::int32_t>(is_negative ? -number : number));
}

}  // namespace

long GetPrivateProfileInteger(const char *section, const char *key, long value, const char *file)
{
    const std::optional<std::string> text = Value(section, key, file);
    return text ? Number(*text, value) : value;
}

long GetProfileInteger(const char *section, const char *key, long value)
{
    return GetPrivateProfileInteger(section, key, value, common_file);
}

double GetPrivateProfileDouble(const char *section, const char *key, double value, const char *file)
{
    const std::optional<std::string> text = Value(section, key, file);
    if (!text) return value;
    const char *begin = text->data();
    if (text->starts_with('+')) ++begin;
    double number = 0;
    const auto result = std::from_chars(begin, text->data() + text->size(), number);
    return result.ec == std::errc() && std::isfinite(number) ? number : value;
}

double GetProfileDouble(const char *section, const char *key, double value)
{
    return GetPrivateProfileDouble(section, key, value, common_file);
}

std::size_t GetPrivateProfileText(const char *section, const char *key, const char *value, char *buffer,
                                  std::size_t size, const char *file)
{
    if (!buffer || size == 0) return 0;
    const std::optional<std::string> found = Value(section, key, file);
    const std::string_view text = found ? std::string_view(*found) : value ? value : "";
    std::size_t n = std::min({text.find('\0'), text.size(), size - 1});
    const auto continues = [&] { return n < text.size() && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80; };
    for (int i = 0; i < 3 && n > 0 && continues(); ++i) --n;
    std::memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
    return n;
}

std::size_t GetProfileText(const char *section, const char *key, const char *value, char *buffer, std::size_t size)
{
    return GetPrivateProfileText(section, key, value, buffer, size, common_file);
}

bool WritePrivateProfileText(const char *section, const char *key, const char *value, const char *file)
{
    if (!section || !file || !Is_Profile_Section(section) || (key && !Is_Profile_Key(key)) ||
        (value && !Is_Profile_Value(value)))
        return Fail(platform::error_invalid_parameter);
    try {
        const std::string name = Full_Name(file, platform::If_Missing::create);
        if (name.empty()) return false;
        return Rewrite(name, [&](std::string &text) {
            if (!key)
                Remove_Profile_Section(text, section);
            else if (!value)
                Remove_Profile_Key(text, section, key);
            else
                Set_Profile_Value(text, section, key, value);
        });
    } catch (const std::bad_alloc &) {
        return Fail(platform::error_no_memory);
    }
}

bool WriteProfileText(const char *section, const char *key, const char *value)
{
    return WritePrivateProfileText(section, key, value, common_file);
}

bool WritePrivateProfileInt(const char *section, const char *key, long value, const char *file)
{
    char text[24] = "";
    std::to_chars(text, text + sizeof text - 1, value);
    return key ? WritePrivateProfileText(section, key, text, file) : Fail(platform::error_invalid_parameter);
}

bool WriteProfileInt(const char *section, const char *key, long value)
{
    return WritePrivateProfileInt(section, key, value, common_file);
}

bool WritePrivateProfileDouble(const char *section, const char *key, double value, const char *file)
{
    char text[32] = "";
    std::to_chars(text, text + sizeof text - 1, value);
    return key && std::isfinite(value) ? WritePrivateProfileText(section, key, text, file)
                                       : Fail(platform::error_invalid_parameter);
}

bool WriteProfileDouble(const char *section, const char *key, double value)
{
    return WritePrivateProfileDouble(section, key, value, common_file);
}

}  // namespace kernel
