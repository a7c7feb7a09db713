#include "host/gnss_config/Registry_Text.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>

namespace host {

namespace {

using kernel::ARegistry;

constexpr std::string_view gap = "    ";
constexpr std::string_view hex_mark = ":hex";
constexpr std::string_view default_name = "(Default)";

struct Root_Name {
    const char *name;
    ARegistry::Root root;
};
constexpr Root_Name short_roots[] = {
    {"HKCR", ARegistry::Classes_Root},
    {"HKCU", ARegistry::Current_User},
    {"HKLM", ARegistry::Local_Machine},
    {"HKU", ARegistry::Users},
};
constexpr ARegistry::Root roots[] = {ARegistry::Classes_Root, ARegistry::Current_User,     ARegistry::Local_Machine,
                                     ARegistry::Users,        ARegistry::Performance_Data, ARegistry::Dyn_Data};

struct Type_Name {
    const char *name;
    unsigned long type;
};
constexpr Type_Name types[] = {
    {"REG_NONE", type_none},         {"REG_SZ", type_sz},       {"REG_EXPAND_SZ", type_expand_sz},
    {"REG_BINARY", type_binary},     {"REG_DWORD", type_dword}, {"REG_DWORD_BIG_ENDIAN", type_dword_big_endian},
    {"REG_MULTI_SZ", type_multi_sz}, {"REG_QWORD", 11},
};
constexpr std::string_view other_type = "REG_TYPE_";  // and the number

bool Same(std::string_view a, std::string_view b)
{
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&](char x, char y) { return lower(x) == lower(y); });
}

std::string Hex(std::string_view bytes)
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

template <class Number>
bool Parse_Number(std::string_view text, int base, Number &number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end == text.data() + text.size();
}

// Spaces at the ends, and beside another one, are written as \x20: they would be lost, or taken for a gap.
std::string Escaped(std::string_view text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool is_edge = i == 0 || i + 1 == text.size() || text[i - 1] == ' ';
        switch (c) {
        case '\\': result += "\\\\"; break;
        case '\0': result += "\\0"; break;
        case '\n': result += "\\n"; break;
        case '\r': result += "\\r"; break;
        case '\t': result += "\\t"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F || (c == ' ' && is_edge))
                result += "\\x" + Hex({&c, 1});
            else
                result += c;
        }
    }
    return result;
}

bool Unescape(std::string_view text, std::string &result)
{
    constexpr std::string_view letters = "\\0nrt", meant("\\\0\n\r\t", 5);
    result.clear();
    while (!text.empty()) {
        const std::size_t plain = std::min(text.find('\\'), text.size());
        result += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) return true;
        if (text.size() < 2) return false;
        std::string byte;
        const std::size_t letter = letters.find(text[1]);
        const bool is_hex = text[1] == 'x' && text.size() >= 4 && Parse_Hex(text.substr(2, 2), byte);
        if (letter == letters.npos && !is_hex) return false;
        result += is_hex ? byte[0] : meant[letter];
        text.remove_prefix(is_hex ? 4 : 2);
    }
    return true;
}

bool Is_Texts(std::string_view bytes)  // each with its final zero, and one zero more
{
    return bytes == std::string_view("\0", 1) || bytes.ends_with(std::string_view("\0\0", 2));
}

std::uint32_t Word_In(std::string_view bytes, bool is_big_endian)
{
    std::uint32_t word = 0;
    for (std::size_t i = 0; i < 4; ++i) word = word << 8 | static_cast<unsigned char>(bytes[is_big_endian ? i : 3 - i]);
    return word;
}

std::string Shown_Type(unsigned long type)
{
    for (const Type_Name &known : types)
        if (known.type == type) return known.name;
    return std::string(other_type) + std::to_string(type);
}

bool Parse_Type(std::string_view text, unsigned long &type)
{
    for (const Type_Name &known : types) {
        if (text != known.name) continue;
        type = known.type;
        return true;
    }
    std::uint32_t number = 0;
    if (!text.starts_with(other_type) || !Parse_Number(text.substr(other_type.size()), 10, number)) return false;
    type = number;
    return true;
}

bool Parse_Data(std::string_view text, Registry_Value &value)
{
    switch (value.type) {
    case type_sz:
    case type_expand_sz:
        if (!Unescape(text, value.bytes)) return false;
        value.bytes += '\0';
        return true;
    case type_multi_sz:  // the last text's own zero may be missing
        if (!Unescape(text, value.bytes)) return false;
        if (!value.bytes.empty() && value.bytes.back() != '\0') value.bytes += '\0';
        value.bytes += '\0';
        return true;
    case type_dword:
    case type_dword_big_endian: {
        std::uint32_t word = 0;
        const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
        if (!Parse_Number(text.substr(is_hex ? 2 : 0), is_hex ? 16 : 10, word)) return false;
        value.bytes = Word_Bytes(word);
        if (value.type == type_dword_big_endian) std::reverse(value.bytes.begin(), value.bytes.end());
        return true;
    }
    default: return Parse_Hex(text, value.bytes);
    }
}

// A line without its leading white space. Null, or what is wrong with it.
const char *Parse_Value(std::string_view line, Registry_Value &value)
{
    const std::size_t behind_name = line.find(gap);
    if (behind_name == line.npos) return "four spaces are missing between name and type";
    const std::string_view name = line.substr(0, behind_name);
    std::string_view rest = line.substr(behind_name);
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    const std::size_t behind_type = std::min(rest.find(' '), rest.size());
    std::string_view type = rest.substr(0, behind_type), data = rest.substr(behind_type);
    data.remove_prefix(std::min(data.size(), gap.size()));
    const bool is_hex = type.ends_with(hex_mark);
    if (is_hex) type.remove_suffix(hex_mark.size());
    if (!Unescape(name, value.name)) return "a backslash in the name begins nothing known";
    if (value.name.find('\0') != value.name.npos) return "a name cannot have a zero";
    if (name == default_name) value.name.clear();
    if (!Parse_Type(type, value.type)) return "the type is unknown";
    if (is_hex ? !Parse_Hex(data, value.bytes) : !Parse_Data(data, value)) return "the data does not fit the type";
    return nullptr;
}

// The next line without its end.
std::string_view Cut_Line(std::string_view &text)
{
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

}  // namespace

bool Parse_Key(std::string_view text, Key_Name &key)
{
    const std::size_t end = std::min(text.find('\\'), text.size());
    const std::string_view name = text.substr(0, end);
    const auto *const short_root = std::find_if(std::begin(short_roots), std::end(short_roots),
                                                [&](const Root_Name &known) { return Same(known.name, name); });
    const auto *const root = std::find_if(std::begin(roots), std::end(roots), [&](ARegistry::Root known) {
        return Same(kernel::Registry::Key2Str(known), name);
    });
    if (short_root == std::end(short_roots) && root == std::end(roots)) return false;
    key.root = root != std::end(roots) ? *root : short_root->root;
    std::string_view path = text.substr(end);
    path.remove_prefix(std::min(path.find_first_not_of('\\'), path.size()));
    while (path.ends_with('\\')) path.remove_suffix(1);
    key.path = path;
    return true;
}

std::string Shown(const Key_Name &key)
{
    return kernel::Registry::Key2Str(key.root) + (key.path.empty() ? "" : "\\" + key.path);
}

std::string Word_Bytes(unsigned long word)
{
    std::string bytes;
    for (int i = 0; i < 4; ++i) bytes += static_cast<char>(word >> (8 * i) & 0xFF);
    return bytes;
}

bool Parse_Hex(std::string_view text, std::string &bytes)
{
    bytes.clear();
    if (text.size() % 2 != 0) return false;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        unsigned char byte = 0;
        if (!Parse_Number(text.substr(i, 2), 16, byte)) return false;
        bytes += static_cast<char>(byte);
    }
    return true;
}

std::string Shown_Data(const Registry_Value &value, bool &is_hex)
{
    const std::string_view bytes = value.bytes;
    is_hex = false;
    switch (value.type) {
    case type_sz:
    case type_expand_sz:
        if (bytes.ends_with('\0')) return Escaped(bytes.substr(0, bytes.size() - 1));
        break;
    case type_multi_sz:
        if (Is_Texts(bytes)) return Escaped(bytes.substr(0, bytes.size() - 1));
        break;
    case type_dword:
    case type_dword_big_endian:
        if (bytes.size() == 4) {
            char text[12];
            std::snprintf(text, sizeof text, "0x%lx",
                          static_cast<unsigned long>(Word_In(bytes, value.type == type_dword_big_endian)));
            return text;
        }
        break;
    default: return Hex(bytes);
    }
    is_hex = true;
    return Hex(bytes);
}

std::string Shown(const Registry_Value &value)
{
    bool is_hex = false;
    const std::string data = Shown_Data(value, is_hex);
    std::string name = value.name.empty() ? std::string(default_name) : Escaped(value.name);
    if (value.name == default_name) name = "\\x28" + name.substr(1);
    std::string line = std::string(gap) + name + std::string(gap) + Shown_Type(value.type);
    if (is_hex) line += hex_mark;
    return data.empty() ? line : line + std::string(gap) + data;
}

bool Parse_Registry_Text(std::string_view text, std::vector<Registry_Content> &contents, std::string &error)
{
    for (unsigned long number = 1; !text.empty(); ++number) {
        const std::string_view line = Cut_Line(text);
        const std::size_t start = line.find_first_not_of(" \t");
        const char *wrong = nullptr;
        if (start == line.npos || line[0] == ';') continue;
        if (start == 0) {
            contents.emplace_back();
            if (!Parse_Key(line, contents.back().key)) wrong = "neither a key, nor a value behind white space";
        } else if (contents.empty()) {
            wrong = "a value before the first key";
        } else {
            contents.back().values.emplace_back();
            wrong = Parse_Value(line.substr(start), contents.back().values.back());
        }
        if (line.find_first_of(std::string_view("\0\r", 2)) != line.npos)
            wrong = "a zero byte or a stray carriage return";
        if (!wrong) continue;
        error = "line " + std::to_string(number) + ": " + wrong;
        return false;
    }
    return true;
}

}  // namespace host
