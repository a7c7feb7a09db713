#include "host/gnss_config/Config_Run.h"

#include "kernel/base/Error_Handler.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <istream>
#include <iterator>
#include <limits>
#include <memory>
#include <ostream>
#include <random>
#include <sstream>

namespace host {

namespace {

using kernel::ARegistry;
using kernel::Registry;

constexpr int more_data = 234, no_more_items = 259, not_found = 2;  // the system's numbers
constexpr std::size_t longest_name = 16384;

// Reports of the registry, as lines of the program.
//
// Threads:   one.
// Ownership: borrows the stream.
// Errors:    none.
class Line_Handler : public kernel::Error_Handler {
public:
    explicit Line_Handler(std::ostream &err) : err_(err) {}

private:
    void Do_Print(Enum_Status, kernel::Err_Code, const char *text) override
    {
        std::string line = text;
        while (line.ends_with('\n') || line.ends_with('\r')) line.pop_back();
        err_ << "gnss_config: " << line << '\n';
    }
    std::ostream &err_;
};

struct Integer_Type {
    const char *name;
    std::int64_t least, most;
};
constexpr Integer_Type integer_types[] = {
    {"dword", 0, 0xFFFFFFFF},
    {"big-endian", 0, 0xFFFFFFFF},
    {"words", 0, 0xFFFFFFFF},
    {"word", 0, 0xFFFF},
    {"byte", 0, 0xFF},
    {"int", std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()},
    {"long", std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()},
    {"bool", 0, 1},
};

bool Parse_Integer(const std::string &type, std::string text, std::int64_t &number)
{
    const auto *const known = std::find_if(std::begin(integer_types), std::end(integer_types),
                                           [&](const Integer_Type &integer) { return type == integer.name; });
    if (known == std::end(integer_types)) return false;
    if (type == "bool" && text == "true") text = "1";
    if (type == "bool" && text == "false") text = "0";
    const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
    const char *const begin = text.data() + (is_hex ? 2 : 0), *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(begin, end, number, is_hex ? 16 : 10);
    return error == std::errc() && stop == end && number >= known->least && number <= known->most;
}

bool Parse_Double(const std::string &text, double &number)
{
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && stop == text.data() + text.size();
}

namespace fs = std::filesystem;

fs::path Path_Of(const std::string &file) { return std::u8string(file.begin(), file.end()); }

// Into the file that is there, or is made, with these rights.
bool Write_File(const fs::path &name, const std::string &text, const fs::perms *rights)
{
    std::error_code error;
    std::ofstream file(name, std::ios::binary);
    if (rights) fs::permissions(name, *rights, error);  // while it is still empty
    file << text;
    file.close();
    return file.good() && !error;
}

// Writes beside the file and renames: a failure leaves the old one, with its rights. A new one is for its user alone,
// since it may hold passwords. What is no file, such as a device, is written as it is.
bool Replace_File(fs::path name, const std::string &text)
{
    std::error_code error;
    const fs::file_status old = fs::status(name, error);
    const bool is_there = fs::exists(old);
    if (is_there && !fs::is_regular_file(old)) return Write_File(name, text, nullptr);
    if (is_there && (old.permissions() & fs::perms::owner_write) == fs::perms::none) return false;
    if (is_there && fs::is_symlink(fs::symlink_status(name, error))) name = fs::canonical(name, error);
    if (name.empty()) return false;
    fs::path fresh = name;  // a name of its own, since two may export at the same time
    fresh += ".new-" + std::to_string(std::random_device()());
    const fs::perms rights = is_there ? old.permissions() : fs::perms::owner_read | fs::perms::owner_write;
    const bool is_whole = Write_File(fresh, text, &rights);
    if (is_whole) fs::rename(fresh, name, error);
    if (is_whole && !error) return true;
    fs::remove(fresh, error);
    return false;
}

// One run of the program.
//
// Threads:   one.
// Ownership: borrows options and streams.
// Errors:    as lines on the error stream; the operations return false.
class Config_Run {
public:
    Config_Run(const Config_Options &options, std::istream &in, std::ostream &out, std::ostream &err)
        : options_(options), in_(in), out_(out), err_(err), handler_(err)
    {
    }

    bool Run()
    {
        switch (options_.command) {
        case Config_Command::list: return List();
        case Config_Command::read: return Read();
        case Config_Command::write: return Write();
        case Config_Command::remove: return Remove();
        case Config_Command::export_text: return Export();
        case Config_Command::import_text: return Import();
        }
        return false;
    }

private:
    using Key = std::unique_ptr<Registry>;

    bool Fail(const std::string &text)
    {
        err_ << "gnss_config: " << text << '\n';
        return false;
    }
    Key Opened(const Key_Name &name, ARegistry::Modus mode)
    {
        return Key(Registry::Create(name.root, name.path.c_str(), mode, &handler_));
    }
    // The other modes would create the key.
    Key Opened_Existing(ARegistry::Modus mode)
    {
        Key key = Opened(options_.key, ARegistry::Read_only);
        return key && mode != ARegistry::Read_only ? Opened(options_.key, mode) : std::move(key);
    }

    // 0, the system's error, or not_found.
    static int Get(Registry &key, Registry_Value &value)
    {
        for (unsigned long size = 0;;) {
            value.bytes.resize(size);
            int error = key.ReadValue(value.name.c_str(), &value.type, size > 0 ? value.bytes.data() : nullptr, &size);
            if (error != 0 && error != more_data) return error;
            if (size <= value.bytes.size()) return value.bytes.resize(size), 0;
        }
    }
    bool Put(Registry &key, const Registry_Value &value)
    {
        const int error = key.WriteValue(value.name.c_str(), value.type, value.bytes.data(),
                                         static_cast<unsigned long>(value.bytes.size()));
        if (error != 0)
            handler_.OS_Error(static_cast<unsigned long>(error), kernel::Error_Handler::ES_Error,
                              "Write of value \"%s\" in key \"%s\"", value.name.c_str(), key.GetDisplayName());
        return error == 0;
    }

    bool Values(Registry &key, std::vector<Registry_Value> &values);
    bool Sub_Keys(Registry &key, std::vector<std::string> &names);
    bool Show_Tree(const Key_Name &name, bool with_below, std::ostream &out);
    bool List();
    bool Read();
    bool Read_Element(Registry &key, unsigned int index);
    bool Write();
    bool Write_Value(Registry &key);
    bool Write_Number(Registry &key, const std::string &text);
    bool Write_Words(Registry &key);
    bool Remove();
    bool Export();
    bool Import();
    bool Missing()
    {
        return Fail("There is no value \"" + options_.name + "\" in key \"" + Shown(options_.key) + "\"");
    }
    bool Unfit(const std::string &text) { return Fail("\"" + text + "\" is no " + options_.type); }

    const Config_Options &options_;
    std::istream &in_;
    std::ostream &out_;
    std::ostream &err_;
    Line_Handler handler_;
};

// By name, so that two exports can be compared. A value that another process deletes meanwhile is left out.
bool Config_Run::Values(Registry &key, std::vector<Registry_Value> &values)
{
    std::string name(longest_name, '\0');
    for (unsigned long index = 0;; ++index) {
        auto size = static_cast<unsigned long>(name.size());
        int error = key.EnumValue(index, name.data(), &size, nullptr, nullptr, nullptr);
        if (error == no_more_items) break;
        Registry_Value value{name.substr(0, size), type_none, ""};
        if (error == 0) error = Get(key, value);
        if (error == not_found) continue;
        if (error != 0) {
            handler_.OS_Error(static_cast<unsigned long>(error), kernel::Error_Handler::ES_Error,
                              "Reading the values of key \"%s\"", key.GetDisplayName());
            return false;
        }
        values.push_back(std::move(value));
    }
    std::sort(values.begin(), values.end(), [](const auto &a, const auto &b) { return a.name < b.name; });
    return true;
}

bool Config_Run::Sub_Keys(Registry &key, std::vector<std::string> &names)
{
    char name[1024];
    for (int index = 0;; ++index) {
        const int error = key.EnumSubKey(index, name, sizeof name);
        if (error == no_more_items) return true;
        if (error != 0) {
            handler_.OS_Error(static_cast<unsigned long>(error), kernel::Error_Handler::ES_Error,
                              "Reading the keys below \"%s\"", key.GetDisplayName());
            return false;
        }
        names.emplace_back(name);
    }
}

// A key, its values, and what is below: the keys' names, or their content as well.
bool Config_Run::Show_Tree(const Key_Name &name, bool with_below, std::ostream &out)
{
    std::vector<Registry_Value> values;
    std::vector<std::string> below;
    {
        const Key key = Opened(name, ARegistry::Read_only);
        if (!key || !Values(*key, values) || !Sub_Keys(*key, below)) return false;
    }
    if (Shown(name).find_first_of("\r\n") != std::string::npos)
        return Fail("The key \"" + Shown(name) + "\" has a line end in its name and cannot be shown");
    out << Shown(name) << '\n';
    for (const Registry_Value &value : values) out << Shown(value) << '\n';
    bool good = true;
    for (const std::string &part : below) {
        const Key_Name next{name.root, name.path.empty() ? part : name.path + "\\" + part};
        if (with_below)
            good = Show_Tree(next, true, out) && good;
        else
            out << Shown(next) << '\n';
    }
    return good;
}

bool Config_Run::List() { return Show_Tree(options_.key, options_.recursive, out_); }

bool Config_Run::Read_Element(Registry &key, unsigned int index)
{
    Registry_Value value{options_.name, type_none, ""};
    if (Get(key, value) == not_found) return Missing();
    if (value.type == type_sz || value.type == type_expand_sz || value.type == type_multi_sz) {
        const char *const text = key.ReadString(options_.name.c_str(), index, nullptr);
        if (text) out_ << text << '\n';
        return text != nullptr;
    }
    const unsigned int count = key.GetArraySize(options_.name.c_str());
    const unsigned long word = key.ReadDWord(options_.name.c_str(), index, 0);  // reports an index that is too large
    if (index < count) out_ << word << '\n';
    return index < count;
}

bool Config_Run::Read()
{
    const Key key = Opened_Existing(ARegistry::Read_only);
    if (!key) return false;
    if (options_.index >= 0) return Read_Element(*key, static_cast<unsigned int>(options_.index));
    Registry_Value value{options_.name, type_none, ""};
    const int error = Get(*key, value);
    if (error == not_found) return Missing();
    if (error != 0) {
        handler_.OS_Error(static_cast<unsigned long>(error), kernel::Error_Handler::ES_Error, "Reading \"%s\"",
                          options_.name.c_str());
        return false;
    }
    if (options_.password) {
        const char *const clear = key->ReadPassword(options_.name.c_str(), nullptr);
        if (clear) out_ << clear << '\n';
        return clear != nullptr;
    }
    bool is_hex = false;
    out_ << Shown_Data(value, is_hex) << '\n';
    return true;
}

bool Config_Run::Write_Number(Registry &key, const std::string &text)
{
    const char *const name = options_.name.c_str();
    const auto index = static_cast<unsigned int>(options_.index);
    const bool is_element = options_.index >= 0;
    double real = 0;
    if (options_.type == "double") {
        if (!Parse_Double(text, real)) return Unfit(text);
        return is_element ? key.WriteDouble(name, index, real) : key.WriteDouble(name, real);
    }
    std::int64_t number = 0;
    if (!Parse_Integer(options_.type, text, number)) return Unfit(text);
    const auto word = static_cast<std::uint32_t>(number);
    if (is_element) return key.WriteDWord(name, index, word);
    if (options_.type != "big-endian") return key.WriteDWord(name, word);
    std::string bytes = Word_Bytes(word);
    return Put(key, {options_.name, type_dword_big_endian, {bytes.rbegin(), bytes.rend()}});
}

bool Config_Run::Write_Words(Registry &key)
{
    std::string bytes;
    for (const std::string &text : options_.values) {
        std::int64_t number = 0;
        if (!Parse_Integer(options_.type, text, number)) return Unfit(text);
        bytes += Word_Bytes(static_cast<std::uint32_t>(number));
    }
    return Put(key, {options_.name, type_binary, bytes});
}

bool Config_Run::Write_Value(Registry &key)
{
    const std::string &type = options_.type;
    const char *const name = options_.name.c_str();
    const bool is_element = options_.index >= 0;
    if (type == "words") return Write_Words(key);
    if (type == "strings") {
        std::string bytes;
        for (const std::string &text : options_.values) bytes += text + '\0';
        return Put(key, {options_.name, type_multi_sz, bytes + '\0'});
    }
    std::string text = options_.values[0];
    if (type == "password") {
        if (text == "-" && !std::getline(in_, text)) return Fail("Standard input has no line");
        if (text.ends_with('\r')) text.pop_back();
        return key.WritePassword(name, text.c_str());
    }
    if (type == "string")
        return is_element ? key.WriteString(name, static_cast<unsigned int>(options_.index), text.c_str())
                          : key.WriteString(name, text.c_str());
    if (type == "expand") return Put(key, {options_.name, type_expand_sz, text + '\0'});
    std::string bytes;
    if (type == "binary") return Parse_Hex(text, bytes) ? Put(key, {options_.name, type_binary, bytes}) : Unfit(text);
    return Write_Number(key, text);
}

bool Config_Run::Write()
{
    const Key key = Opened(options_.key, ARegistry::Read_and_Write);
    return key && Write_Value(*key);
}

bool Config_Run::Remove()
{
    const Key key = Opened_Existing(ARegistry::Read_and_Write);
    if (!key) return false;
    if (options_.whole_key) return key->Delete();
    Registry_Value value{options_.name, type_none, ""};
    if (Get(*key, value) == not_found) return Missing();
    return key->Delete(options_.name.c_str());
}

// The text is written when everything has been read.
bool Config_Run::Export()
{
    std::ostringstream text;
    if (!Show_Tree(options_.key, true, text)) return false;
    if (options_.file == "-") {
        out_ << text.str();
        return true;
    }
    return Replace_File(Path_Of(options_.file), text.str()) || Fail("\"" + options_.file + "\" cannot be written");
}

bool Config_Run::Import()
{
    std::ifstream file;
    if (options_.file != "-") {
        file.open(Path_Of(options_.file), std::ios::binary);
        if (!file) return Fail("\"" + options_.file + "\" cannot be read");
    }
    std::istream &in = options_.file == "-" ? in_ : file;
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    if (in.bad()) return Fail("\"" + options_.file + "\" cannot be read");
    std::vector<Registry_Content> contents;
    std::string error;
    if (!Parse_Registry_Text(text, contents, error)) return Fail("\"" + options_.file + "\", " + error);
    for (const Registry_Content &content : contents) {
        const Key key = Opened(content.key, ARegistry::Read_and_Write);
        if (!key) return false;
        for (const Registry_Value &value : content.values)
            if (!Put(*key, value)) return false;
    }
    return true;
}

}  // namespace

int Run_Config(const Config_Options &options, std::istream &in, std::ostream &out, std::ostream &err)
{
    bool good = Config_Run(options, in, out, err).Run();
    out.flush();
    if (!out) {
        err << "gnss_config: Standard output cannot be written\n";
        good = false;
    }
    return good ? config_fine : config_failed;
}

}  // namespace host
