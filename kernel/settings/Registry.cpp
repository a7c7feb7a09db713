#include "kernel/settings/Registry.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/base/Immortal_internal.h"
#include "kernel/base/text_internal.h"
#include "kernel/settings/registry_array_internal.h"
#include "kernel/settings/registry_password_internal.h"
#include "platform/error.h"
#include "platform/registry.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <mutex>
#include <new>
#include <string_view>
#include <type_traits>
#include <vector>

namespace kernel {

namespace {

using enum Error_Handler::Enum_Status;
using platform::error_none;
using platform::error_not_found;

constexpr char unit[] = "kernel/Registry";
constexpr char company[] = "SOFTWARE\\MORVALEN\\";
constexpr std::size_t most_read = 100000;  // [bytes] of one value
constexpr std::size_t least_buffer = 32;
constexpr std::int64_t most_word = 0xFFFFFFFF, most_long = 0x7FFFFFFF;  // the latter comes back with its sign

constexpr char no_key[] = "Key not open in %s!";
constexpr char no_name[] = "Variable of key \"%s\" not set in %s!";
constexpr char no_text_name[] = "Variable of \"%s\" not set in %s!";
constexpr char null_value[] = "NULL-Pointer to write for variable \"%s\" of key \"%s\" in %s!";
constexpr char variable_failed[] = "Variable \"%s\" of key \"%s\" in %s";
constexpr char sub_key_failed[] = "Sub key \"%s\" of base key \"%s\" in %s";
constexpr char wrong_type[] = "DataType %d<=>0x%02X not handled in variable \"%s\" of key \"%s\" in %s.\n";
constexpr char wrong_array_type[] = "DataType %d<=>0x%02X not handled in sub key \"%s\" of base key \"%s\" in %s.";
constexpr char wrong_size_type[] = "DataType %d<=>0x%02X not handled in sub key \"%s\" of base key \"%s\" in %s.\n";
constexpr char simple_text[] = "Can not access simple string variable \"%s\" \"key \"%s\" with index %u in %s!";
constexpr char simple_word[] = "Can not access simple DWORD variable \"%s\" \"key \"%s\" with index %u in %s!";
constexpr char out_of_range[] = "Index %u out of range [0..%u[ in variable \"%s\" \"key \"%s\" in %s!";

bool Is_Text(std::uint32_t type) { return type == platform::registry_sz || type == platform::registry_expand_sz; }

bool Is_Word(std::uint32_t type)
{
    return type == platform::registry_dword || type == platform::registry_dword_big_endian;
}

struct Known_Root {
    std::uint32_t root;
    const char *name;
};
constexpr Known_Root known_roots[] = {
    {ARegistry::Classes_Root, "HKEY_CLASSES_ROOT"},         {ARegistry::Current_User, "HKEY_CURRENT_USER"},
    {ARegistry::Local_Machine, "HKEY_LOCAL_MACHINE"},       {ARegistry::Users, "HKEY_USERS"},
    {ARegistry::Performance_Data, "HKEY_PERFORMANCE_DATA"}, {ARegistry::Dyn_Data, "HKEY_DYN_DATA"},
};

const Known_Root *Find_Root(std::uint32_t root)
{
    const auto *const found = std::find_if(std::begin(known_roots), std::end(known_roots),
                                           [root](const Known_Root &known) { return known.root == root; });
    return found == std::end(known_roots) ? nullptr : found;
}

// The word in the paths of all keys.
struct Program {
    std::mutex lock;
    std::string word;  // empty: not set yet
};

Program &The_Program()
{
    static Immortal<Program> program;
    return *program;
}

std::string Word_Of(std::string_view path)
{
    std::string_view name = path.substr(path.find_last_of("\\/") + 1);
    if (const std::size_t dot = name.rfind('.'); dot != std::string_view::npos && dot > 0) name = name.substr(0, dot);
    std::string word(name);
    for (char &c : word) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    return word;
}

std::string Path_Of(const char *sub_key)
{
    Program &program = The_Program();
    const std::lock_guard guard(program.lock);
    if (program.word.empty()) program.word = Word_Of("DRUX.exe");
    return company + program.word + (*sub_key == '\\' ? "" : "\\") + sub_key;
}

// As "%.32G" prints it, whatever the locale.
struct Number_Text {
    explicit Number_Text(double number)
    {
        char *const end = std::to_chars(text, text + sizeof text - 1, number, std::chars_format::general, 32).ptr;
        for (char *c = text; c != end; ++c) *c = *c >= 'a' && *c <= 'z' ? static_cast<char>(*c - 'a' + 'A') : *c;
        *end = '\0';
    }
    char text[64];
};

// Of a number that is too large or too small for a double: does its first digit stand behind the point?
bool Is_Tiny(std::string_view number)
{
    const std::size_t mark = std::min(number.find_first_of("eE"), number.size());
    const auto point = static_cast<std::int64_t>(std::min(number.find('.'), mark));
    const auto first = static_cast<std::int64_t>(number.find_first_of("123456789"));
    std::int64_t exponent = 0;
    for (const char c : number.substr(mark))
        if (c >= '0' && c <= '9') exponent = std::min<std::int64_t>(exponent * 10 + (c - '0'), most_read * 10);
    if (number.substr(mark).find('-') != number.npos) exponent = -exponent;
    return point + exponent < first;
}

// As atof, whatever the locale: 0 if there is no number.
double Number_In(const char *text)
{
    text += std::strspn(text, " \t\n\v\f\r");
    if (*text == '+' && text[1] != '-') ++text;
    double number = 0;
    const auto [end, error] = std::from_chars(text, text + std::strlen(text), number);
    if (error != std::errc::result_out_of_range) return number;
    const std::string_view read(text, static_cast<std::size_t>(end - text));
    const double size = Is_Tiny(read) ? 0.0 : std::numeric_limits<double>::infinity();
    return *text == '-' ? -size : size;
}

// Copies a name into a host's buffer.
int Handed_Out(const std::string &name, char *buffer, std::size_t room)
{
    if (name.size() >= room) return platform::registry_more_data;
    std::memcpy(buffer, name.c_str(), name.size() + 1);
    return error_none;
}

}  // namespace

// Threads:   one.
// Ownership: borrows the name.
// Errors:    none.
struct Registry::Asked {
    Asked(const char *operation, const char *variable) : name(variable)
    {
        std::snprintf(place, sizeof place, "%s", operation);
    }
    Asked(const char *operation, const char *variable, unsigned int at) : name(variable), index(at)
    {
        std::snprintf(place, sizeof place, "%s[%u]", operation, at);
    }

    const char *const name;
    const unsigned int index = 0;
    char place[40];  // the operation, with the index if it has one
};

const char Registry::Name[] = "Registry";
const char UserRegistry::Name[] = "UserRegistry";
const char *const Registry::Access_String[6] = {
    "None", "All", "Read and Write", "Read only", "Write only", "Read after Write",
};

// ---- objects

Registry::Registry(const char *class_name, Root own_root, Error_Handler *handler)
    : Object(class_name, handler), own_root_(own_root)
{
}

Registry::Registry(Error_Handler *handler) : Registry(Name, Local_Machine, handler) {}

Registry::Registry(const char *subKey, Modus mode, Error_Handler *handler) : Registry(handler)
{
    InitProgName(subKey, mode);
}

Registry::Registry(Root root, const char *path, Modus mode, Error_Handler *handler) : Registry(handler)
{
    Registry::Init(root, path, mode);
}

Registry::~Registry() = default;

bool Registry::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Object::IsInheritedFrom(name);
}

UserRegistry::UserRegistry(Error_Handler *handler) : Object(Name, handler), Registry(Name, Current_User, handler) {}

UserRegistry::UserRegistry(const char *subKey, Modus mode, Error_Handler *handler) : UserRegistry(handler)
{
    InitProgName(subKey, mode);
}

UserRegistry::UserRegistry(Root root, const char *path, Modus mode, Error_Handler *handler) : UserRegistry(handler)
{
    Registry::Init(root, path, mode);
}

bool UserRegistry::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Registry::IsInheritedFrom(name);
}

namespace {

// A new object with its key open; null if either fails.
template <class T, class Open>
T *Opened(Error_Handler *handler, Open open)
{
    std::unique_ptr<T> object;
    try {
        object = std::make_unique<T>(handler);
    } catch (const std::bad_alloc &) {
        Error_Handler::Or_Silent(handler ? handler : Object::Get_Default_Handler())
            .Set(unit, __LINE__)
            ->Print_Out(ES_Error, "malloc failed!");
        return nullptr;
    }
    return open(*object) ? object.release() : nullptr;
}

template <class T>
T *Opened_Under_Word(const char *sub_key, ARegistry::Modus mode, Error_Handler *handler)
{
    return Opened<T>(handler, [&](T &object) { return object.InitProgName(sub_key, mode); });
}

template <class T>
T *Opened_Under_Word(ARegistry::Root root, const char *sub_key, ARegistry::Modus mode, Error_Handler *handler)
{
    return Opened<T>(handler, [&](T &object) { return object.InitProgName(root, sub_key, mode); });
}

template <class T>
T *Opened_Path(ARegistry::Root root, const char *path, ARegistry::Modus mode, Error_Handler *handler)
{
    return Opened<T>(handler, [&](T &object) { return object.Init(root, path, mode); });
}

}  // namespace

Registry *Registry::Create(const char *subKey, Modus mode, Error_Handler *handler)
{
    return Opened_Under_Word<Registry>(subKey, mode, handler);
}

Registry *Registry::Create(Root root, const char *path, Modus mode, Error_Handler *handler)
{
    return Opened_Path<Registry>(root, path, mode, handler);
}

Registry *Registry::CreateProgName(const char *subKey, Modus mode, Error_Handler *handler)
{
    return Opened_Under_Word<Registry>(subKey, mode, handler);
}

Registry *Registry::CreateProgName(Root root, const char *subKey, Modus mode, Error_Handler *handler)
{
    return Opened_Under_Word<Registry>(root, subKey, mode, handler);
}

UserRegistry *UserRegistry::Create(const char *subKey, Modus mode, Error_Handler *handler)
{
    return Opened_Under_Word<UserRegistry>(subKey, mode, handler);
}

UserRegistry *UserRegistry::Create(Root root, const char *path, Modus mode, Error_Handler *handler)
{
    return Opened_Path<UserRegistry>(root, path, mode, handler);
}

UserRegistry *UserRegistry::CreateProgName(const char *subKey, Modus mode, Error_Handler *handler)
{
    return Opened_Under_Word<UserRegistry>(subKey, mode, handler);
}

UserRegistry *UserRegistry::CreateProgName(Root root, const char *subKey, Modus mode, Error_Handler *handler)
{
    return Opened_Under_Word<UserRegistry>(root, subKey, mode, handler);
}

bool Registry::SetExePath(const char *path)
{
    try {
        std::string word = Word_Of(path ? path : "");
        Program &program = The_Program();
        const std::lock_guard guard(program.lock);
        program.word.swap(word);
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

const char *Registry::Key2Str(std::uint32_t root)
{
    thread_local char buffers[2][17];
    thread_local unsigned int turn = 0;
    if (const Known_Root *const known = Find_Root(root)) return known->name;
    char *const buffer = buffers[turn++ % 2];
    std::snprintf(buffer, sizeof buffers[0], "Key = 0x%08X", root);
    return buffer;
}

// ---- opening

template <class Body>
bool Registry::Guarded(Body body) const
{
    try {
        return body();
    } catch (const std::bad_alloc &) {
        Report(unit, __LINE__).Print_Out(ES_Error, "malloc failed!");
        return false;
    }
}

bool Registry::Init(const char *subKey, Modus mode) { return InitProgName(subKey, mode); }

bool Registry::InitProgName(const char *subKey, Modus mode) { return InitProgName(own_root_, subKey, mode); }

bool Registry::InitProgName(Root root, const char *subKey, Modus mode)
{
    if (!subKey) {
        Report(unit, __LINE__).Print_Out(ES_Error, "Base Name missing!");
        return false;
    }
    return Guarded([&] { return Init(root, Path_Of(subKey).c_str(), mode); });
}

void Registry::Clear()
{
    key_.reset();
    base_name_.reset();
    display_name_.reset();
    for (Buffer &buffer : buffers_) buffer = {};
    mode_ = None;
    may_write_ = may_read_ = 0;
    size_ = 0;
}

bool Registry::Init(Root root, const char *path, Modus mode)
{
    std::unique_ptr<char[]> name = path ? Copy_Text(path) : nullptr;  // it may be this object's own
    Clear();
    if (!path) {
        Report(unit, __LINE__).Print_Out(ES_Error, "Base Key name not set");
        return false;
    }
    if (!Find_Root(root)) {
        Report(unit, __LINE__)
            .Print_Out(ES_Error,
                       "hKeyRoot=0x%08x! must be HKEY_LOCAL_MACHINE, HKEY_USERS, HKEY_CURRENT_USER, HKEY_CLASSES_ROOT\n"
                       "HKEY_PERFORMANCE_DATA or HKEY_DYN_DATA!",
                       static_cast<unsigned int>(root));
        return false;
    }
    return Guarded([&] {
        if (!name) throw std::bad_alloc();
        display_name_ = Copy_Text((std::string(Key2Str(root)) + "\\\\" + name.get()).c_str());
        if (!display_name_) throw std::bad_alloc();
        base_name_ = std::move(name);
        root_ = root;
        mode_ = mode;
        bool created = false;
        const std::uint32_t error = Open_Key(base_name_.get(), mode, created);
        if (!key_ || error != error_none) return Refuse(error, created);
        std::size_t longest = 0;
        if (const std::uint32_t failed = key_->longest_value(longest)) {
            Report(unit, __LINE__).OS_Error(failed, ES_Error, "%s of Key \"%s\"", "Query", display_name_.get());
            Clear();
            platform::set_last_error(failed);
            return false;
        }
        Realloc_buf(std::clamp(longest, least_buffer, most_read));
        return true;
    });
}

// An illegal mode leaves the key closed without an error.
std::uint32_t Registry::Open_Key(const char *path, Modus mode, bool &created)
{
    using namespace platform;
    const auto create = [&](std::uint32_t access) { return Registry_Key::create(root_, path, access, key_, created); };
    std::uint32_t error = error_none;
    switch (mode) {
    case All: error = create(registry_all_access); break;
    case Read_and_Write:
    case Read_after_Write: error = create(registry_read | registry_write); break;
    case Read_only: error = Registry_Key::open(root_, path, registry_read, key_); break;
    case Write_only: error = create(registry_write | registry_query_value); break;
    default: return error_none;
    }
    may_write_ = error == error_none && mode != Read_only;
    may_read_ = error == error_none && mode != Write_only && mode != Read_after_Write;
    if (mode != Read_after_Write || error == error_none) return error;
    error = create(registry_read);
    may_read_ = error == error_none;
    return error;
}

bool Registry::Refuse(std::uint32_t error, bool created)
{
    Error_Handler &report = Report(unit, __LINE__);
    const bool is_legal = mode_ > None && mode_ <= Read_after_Write;
    if (!is_legal)
        report.Print_Out(ES_Error, "Modus=%u is a illegal value for key %s!\n", static_cast<unsigned int>(mode_),
                         display_name_.get());
    else if (error == platform::error_access_denied)
        report.Print_Out(ES_Error, "Not enought rights for %s access of Key \"%s\"", Access_String[mode_],
                         display_name_.get());
    else if (error == platform::registry_more_data)
        report.Print_Out(ES_Error, "Cannot create/open key. Key name \"%s\" is too long.", display_name_.get());
    else
        report.OS_Error(error, ES_Error, "%s of Key \"%s\"", created ? "Creation" : "Creation/Open",
                        display_name_.get());
    Clear();
    platform::set_last_error(is_legal ? error : std::uint32_t{platform::error_invalid_parameter});
    return false;
}

// ---- what all operations share

bool Registry::Is_Ready(const Asked &asked, const char *no_key_format, const char *no_name_format) const
{
    if (!key_)
        Report(unit, __LINE__).Print_Out(ES_Error, no_key_format, asked.place);
    else if (!asked.name)
        Report(unit, __LINE__).Print_Out(ES_Error, no_name_format, display_name_.get(), asked.place);
    else
        return true;
    return false;
}

bool Registry::Fail(const Asked &asked, const char *format, std::uint32_t error) const
{
    Report(unit, __LINE__).OS_Error(error, ES_Error, format, asked.name, display_name_.get(), asked.place);
    platform::set_last_error(error);
    return false;
}

void Registry::Report_Type(const Asked &asked, const char *format) const
{
    Report(unit, __LINE__)
        .Print_Out(ES_Error, format, static_cast<int>(type_), type_, asked.name, display_name_.get(), asked.place);
}

bool Registry::Realloc_buf(std::uint64_t size)
{
    Buffer &buffer = buffers_[current_];
    if (size > most_read) {
        Report(unit, __LINE__)
            .Print_Out(ES_Error, "Reallocation size %d of Key \"%s\" is unacceptable. Ignored!",
                       static_cast<int>(std::min<std::uint64_t>(size, std::numeric_limits<int>::max())),
                       base_name_.get());
        return false;
    }
    if (buffer.bytes && size <= buffer.capacity) return true;
    std::unique_ptr<char[]> bytes(new (std::nothrow) char[static_cast<std::size_t>(size) + 2]());
    if (!bytes) {
        Report(unit, __LINE__).Print_Out(ES_Error, "malloc failed!");
        return false;
    }
    buffer.bytes = std::move(bytes);
    buffer.capacity = static_cast<std::size_t>(size);
    return true;
}

// Reads a value into the other buffer. It may grow between the two calls of the system.
std::uint32_t Registry::Query(const char *name)
{
    current_ = 1 - current_;
    Buffer &buffer = buffers_[current_];
    if (!buffer.bytes && !Realloc_buf(least_buffer)) return platform::error_no_memory;
    for (;;) {
        size_ = buffer.capacity;
        const std::uint32_t error = key_->query(name, type_, buffer.bytes.get(), size_);
        if (error == error_none) buffer.bytes[size_] = buffer.bytes[size_ + 1] = '\0';
        if (error != platform::registry_more_data || !Realloc_buf(size_)) return error;
    }
}

bool Registry::Put_Text(const Asked &asked, const char *value, const char *failed)
{
    const std::uint32_t error = key_->set(asked.name, platform::registry_sz, value, std::strlen(value) + 1);
    return error == error_none || Fail(asked, failed, error);
}

bool Registry::Put_Word(const Asked &asked, unsigned long value)
{
    const auto word = static_cast<std::uint32_t>(value);
    unsigned char bytes[registry_words::Word_Size];
    for (unsigned int i = 0; i < sizeof bytes; ++i) bytes[i] = static_cast<unsigned char>(word >> (8 * i));
    const std::uint32_t error = key_->set(asked.name, platform::registry_dword, bytes, sizeof bytes);
    return error == error_none || Fail(asked, variable_failed, error);
}

// ---- texts

const char *Registry::ReadString(const char *name, const char *otherwise)
{
    const Asked asked("ReadString", name);
    if (!Is_Ready(asked, no_key, no_name)) return otherwise;
    const std::uint32_t error = Query(name);
    if (error == error_none && Is_Text(type_)) return Read_Text();
    if (error == error_none)
        Report_Type(asked, wrong_type);
    else if (error != error_not_found)
        Fail(asked, variable_failed, error);
    return otherwise;
}

bool Registry::WriteString(const char *name, const char *value)
{
    const Asked asked("WriteString", name);
    if (!Is_Ready(asked, no_key, no_text_name)) return false;
    if (value) return Put_Text(asked, value, sub_key_failed);
    Report(unit, __LINE__).Print_Out(ES_Error, null_value, name, display_name_.get(), asked.place);
    return false;
}

const char *Registry::ReadString(const char *name, unsigned int index, const char *otherwise)
{
    const Asked asked("ReadString", name, index);
    if (!Is_Ready(asked, no_key, no_name)) return otherwise;
    const std::uint32_t error = Query(name);
    if (error == error_not_found) return otherwise;
    if (error != error_none) return Fail(asked, sub_key_failed, error), nullptr;
    if (Is_Text(type_)) {
        if (index == 0) return Read_Text();
        Report(unit, __LINE__).Print_Out(ES_Error, simple_text, name, display_name_.get(), index, asked.place);
        return otherwise;
    }
    if (type_ != platform::registry_multi_sz) return Report_Type(asked, wrong_array_type), otherwise;
    const char *found = otherwise;
    Guarded([&] {
        const std::string texts = registry_texts::Completed({Read_Text(), size_});
        const std::size_t count = registry_texts::Count(texts);
        if (index < count) {
            found = Read_Text() + (registry_texts::At(texts, index).data() - texts.data());
            return true;
        }
        Report(unit, __LINE__)
            .Print_Out(ES_Error, out_of_range, index, static_cast<unsigned int>(count), name, display_name_.get(),
                       asked.place);
        return false;
    });
    return found;
}

bool Registry::WriteString(const char *name, unsigned int index, const char *value)
{
    const Asked asked("WriteString", name, index);
    if (!Is_Ready(asked, no_key, no_text_name)) return false;
    if (!value) {
        Report(unit, __LINE__).Print_Out(ES_Error, null_value, name, display_name_.get(), asked.place);
        return false;
    }
    std::uint32_t error = Query(name);
    if (error != error_none && error != error_not_found) return Fail(asked, sub_key_failed, error);
    if (error == error_none && Is_Text(type_)) {
        if (index == 0) return Put_Text(asked, value, sub_key_failed);
        Report(unit, __LINE__).Print_Out(ES_Error, simple_text, name, display_name_.get(), index, asked.place);
        return false;
    }
    if (error == error_none && type_ != platform::registry_multi_sz) return Report_Type(asked, wrong_array_type), true;
    return Guarded([&] {
        std::string texts = registry_texts::Completed({Read_Text(), error == error_none ? size_ : 0});
        if (!Realloc_buf(registry_texts::Size_After_Set(texts, index, value))) return false;
        registry_texts::Set(texts, index, value);
        error = key_->set(name, platform::registry_multi_sz, texts.data(), texts.size());
        return error == error_none || Fail(asked, sub_key_failed, error);
    });
}

const char *Registry::ReadPassword(const char *name, const char *otherwise)
{
    const char *const scrambled = ReadString(name, nullptr);
    if (!scrambled) return otherwise;
    const bool good = Guarded([&] {
        const std::string clear = Clear_Password(scrambled);
        std::memcpy(buffers_[current_].bytes.get(), clear.c_str(), clear.size() + 1);  // never longer
        return true;
    });
    return good ? scrambled : otherwise;
}

bool Registry::WritePassword(const char *name, const char *value)
{
    if (!value) return WriteString(name, nullptr);
    return Guarded([&] { return WriteString(name, Scrambled_Password(value).c_str()); });
}

double Registry::ReadDouble(const char *name, double otherwise)
{
    const char *const text = ReadString(name, nullptr);
    return text ? Number_In(text) : otherwise;
}

double Registry::ReadDouble(const char *name, unsigned int index, double otherwise)
{
    const char *const text = ReadString(name, index, nullptr);
    return text ? Number_In(text) : otherwise;
}

bool Registry::WriteDouble(const char *name, double value) { return WriteString(name, Number_Text(value).text); }

bool Registry::WriteDouble(const char *name, unsigned int index, double value)
{
    return WriteString(name, index, Number_Text(value).text);
}

// ---- words

// Of a value that is too short, the missing bytes are 0.
std::uint32_t Registry::Simple_Word() const
{
    const std::uint32_t word = registry_words::At({Read_Text(), size_}, 0);
    if (type_ != platform::registry_dword_big_endian) return word;
    return word >> 24 | (word >> 8 & 0xFF00) | (word << 8 & 0xFF0000) | word << 24;
}

// Part of the interface: a failure of the system is reported under the name of the text's reader.
bool Registry::Find_Word(const char *name, std::uint32_t &word)
{
    const Asked asked("ReadDWord", name);
    if (!Is_Ready(asked, no_key, no_name)) return false;
    const std::uint32_t error = Query(name);
    if (error == error_not_found) return false;
    if (error != error_none) return Fail(Asked("ReadString", name), sub_key_failed, error);
    if (!Is_Word(type_)) return Report_Type(asked, wrong_type), false;
    word = Simple_Word();
    return true;
}

bool Registry::Find_Word(const char *name, unsigned int index, std::uint32_t &word)
{
    const Asked asked("ReadDWord", name, index);
    if (!Is_Ready(asked, "Key not set in %s!", no_name)) return false;
    const std::uint32_t error = Query(name);
    if (error == error_not_found) return false;
    if (error != error_none) return Fail(asked, sub_key_failed, error);
    if (Is_Word(type_)) {
        word = Simple_Word();
        if (index == 0) return true;
        Report(unit, __LINE__).Print_Out(ES_Error, simple_word, name, display_name_.get(), index, asked.place);
        return false;
    }
    if (type_ != platform::registry_binary) return Report_Type(asked, wrong_array_type), false;
    const std::string_view data(Read_Text(), size_);
    const std::size_t count = registry_words::Count(data);
    if (index < count) {
        word = registry_words::At(data, index);
        return true;
    }
    Report(unit, __LINE__)
        .Print_Out(ES_Error, out_of_range, index, static_cast<unsigned int>(count), name, display_name_.get(),
                   asked.place);
    return false;
}

// A long is wider than a word on some systems. Without key or name, that is what the write itself reports.
bool Registry::Fits(const char *name, std::int64_t number, std::int64_t most) const
{
    if (!key_ || !name || (number >= std::numeric_limits<std::int32_t>::min() && number <= most)) return true;
    Report(unit, __LINE__)
        .Print_Out(ES_Error, "Value %ld for variable \"%s\" of key \"%s\" has more than 32 bits!",
                   static_cast<long>(number), name, display_name_.get());
    return false;
}

bool Registry::WriteDWord(const char *name, unsigned long value)
{
    const Asked asked("WriteDWord", name);
    return Is_Ready(asked, no_key, no_name) && Fits(name, static_cast<std::int64_t>(value), most_word) &&
           Put_Word(asked, value);
}

bool Registry::WriteDWord(const char *name, unsigned int index, unsigned long value)
{
    const Asked asked("WriteDWord", name, index), failed("WriteDWords", name, index);
    if (!Is_Ready(asked, no_key, no_name)) return false;
    if (!Fits(name, static_cast<std::int64_t>(value), most_word)) return false;
    std::uint32_t error = Query(name);
    if (error != error_none && error != error_not_found) return Fail(failed, sub_key_failed, error);
    if (error == error_none && Is_Word(type_)) {
        if (index == 0) return Put_Word(Asked("WriteDWord", name), value);
        Report(unit, __LINE__).Print_Out(ES_Error, simple_word, name, display_name_.get(), index, asked.place);
        return false;
    }
    if (error == error_none && type_ != platform::registry_binary)
        return Report_Type(Asked("WriteString", name, index), wrong_array_type), true;
    return Guarded([&] {
        std::string data(Read_Text(), error == error_none ? size_ : 0);
        if (!Realloc_buf(registry_words::Size_After_Set(data, index))) return false;
        registry_words::Set(data, index, static_cast<std::uint32_t>(value));
        error = key_->set(name, platform::registry_binary, data.data(), data.size());
        return error == error_none || Fail(failed, sub_key_failed, error);
    });
}

template <class T, class... Where>
T Registry::Read_As(T otherwise, const char *name, Where... where)
{
    std::uint32_t word = 0;
    if (!Find_Word(name, where..., word)) return otherwise;
    if constexpr (std::is_same_v<T, bool>)
        return word != 0;
    else if constexpr (std::is_signed_v<T>)
        return static_cast<std::int32_t>(word);
    else
        return static_cast<T>(word);
}

unsigned long Registry::ReadDWord(const char *n, unsigned long o) { return Read_As(o, n); }
unsigned long Registry::ReadDWord(const char *n, unsigned int i, unsigned long o) { return Read_As(o, n, i); }
unsigned short Registry::ReadWord(const char *n, unsigned short o) { return Read_As(o, n); }
unsigned short Registry::ReadWord(const char *n, unsigned int i, unsigned short o) { return Read_As(o, n, i); }
unsigned char Registry::ReadByte(const char *n, unsigned char o) { return Read_As(o, n); }
unsigned char Registry::ReadByte(const char *n, unsigned int i, unsigned char o) { return Read_As(o, n, i); }
bool Registry::ReadBool(const char *n, bool o) { return Read_As(o, n); }
bool Registry::ReadBool(const char *n, unsigned int i, bool o) { return Read_As(o, n, i); }
int Registry::ReadInt(const char *n, int o) { return Read_As(o, n); }
int Registry::ReadInt(const char *n, unsigned int i, int o) { return Read_As(o, n, i); }
long Registry::ReadLong(const char *n, long o) { return Read_As(o, n); }
long Registry::ReadLong(const char *n, unsigned int i, long o) { return Read_As(o, n, i); }

bool Registry::WriteWord(const char *n, unsigned short v) { return WriteDWord(n, v); }
bool Registry::WriteWord(const char *n, unsigned int i, unsigned short v) { return WriteDWord(n, i, v); }
bool Registry::WriteByte(const char *n, unsigned char v) { return WriteDWord(n, v); }
bool Registry::WriteByte(const char *n, unsigned int i, unsigned char v) { return WriteDWord(n, i, v); }
bool Registry::WriteBool(const char *n, bool v) { return WriteDWord(n, v); }
bool Registry::WriteBool(const char *n, unsigned int i, bool v) { return WriteDWord(n, i, v); }
bool Registry::WriteInt(const char *n, int v) { return WriteDWord(n, static_cast<unsigned int>(v)); }
bool Registry::WriteInt(const char *n, unsigned int i, int v) { return WriteDWord(n, i, static_cast<unsigned int>(v)); }
bool Registry::WriteLong(const char *n, long v)
{
    return Fits(n, v, most_long) && WriteDWord(n, static_cast<unsigned long>(v));
}
bool Registry::WriteLong(const char *n, unsigned int i, long v)
{
    return Fits(n, v, most_long) && WriteDWord(n, i, static_cast<unsigned long>(v));
}

// ---- arrays and deletion

unsigned int Registry::GetArraySize(const char *name)
{
    const Asked asked("GetArraySize", name);
    if (!Is_Ready(asked, no_key, no_name)) return 0;
    const std::uint32_t error = Query(name);
    if (error == error_not_found) return 0;
    if (error != error_none) return Fail(asked, sub_key_failed, error), 0;
    if (Is_Text(type_) || Is_Word(type_)) return 1;
    if (type_ == platform::registry_binary)
        return static_cast<unsigned int>(registry_words::Count({Read_Text(), size_}));
    if (type_ != platform::registry_multi_sz) return Report_Type(asked, wrong_size_type), 0;
    std::size_t count = 0;
    Guarded([&] {
        count = registry_texts::Count(registry_texts::Completed({Read_Text(), size_}));
        return true;
    });
    return static_cast<unsigned int>(count);
}

bool Registry::DeleteArrayIndex(const char *name, unsigned int index)
{
    const Asked asked("DeleteArrayIndex", name);
    if (!Is_Ready(asked, no_key, no_name)) return false;
    std::uint32_t error = Query(name);
    if (error == error_not_found) return true;
    const bool is_texts = type_ == platform::registry_multi_sz;
    const Asked failed(error == error_none && !is_texts ? "DeleteArrayIndex" : "DeleteArrayIndexString", name, index);
    if (error != error_none) return Fail(failed, sub_key_failed, error);
    if (!is_texts && type_ != platform::registry_binary) {
        Report(unit, __LINE__)
            .Print_Out(ES_Error, "Variable of key \"%s\" not supported in %s!", display_name_.get(), asked.place);
        return false;
    }
    return Guarded([&] {
        std::string data(Read_Text(), size_);
        if (is_texts) data = registry_texts::Completed(data);
        const std::size_t count = is_texts ? registry_texts::Count(data) : registry_words::Count(data);
        if (index >= count) {
            Report(unit, __LINE__)
                .Print_Out(ES_Error, "Index %u greater than array_size %u of key \"%s\"in %s!", index,
                           static_cast<unsigned int>(count), display_name_.get(), asked.place);
            return false;
        }
        is_texts ? registry_texts::Remove(data, index) : registry_words::Remove(data, index);
        error = key_->set(name, type_, data.data(), data.size());
        return error == error_none || Fail(failed, sub_key_failed, error);
    });
}

bool Registry::Delete(const char *name)
{
    const Asked asked("Delete", name);
    if (!Is_Ready(asked, no_key, no_name)) return false;
    const std::uint32_t error = key_->remove_value(name);
    return error == error_none || error == error_not_found || Fail(asked, variable_failed, error);
}

// The system has no path for a root itself. Its keys stay as well: nobody means them all.
bool Registry::Delete()
{
    if (!Is_Ready(Asked("Delete", ""), no_key, no_name)) return false;
    return Guarded([&] {
        const std::string path = base_name_.get(), shown = display_name_.get();
        std::size_t count = 0, longest = 0;
        std::uint32_t error = platform::error_access_denied;
        const bool is_root = path.find_first_not_of('\\') == path.npos;
        if (!is_root && key_->sub_keys(count, longest) != error_none) {
            Report(unit, __LINE__).Print_Out(ES_Error, "RegQueryInfoKey fails in %s!", "Delete");
            return false;
        }
        std::vector<std::string> names;
        for (std::string name; count-- > 0 && !is_root;)
            if (key_->sub_key_name(count, name) == error_none) names.push_back(name);
        const Modus mode = mode_;
        Clear();  // before it goes deeper: each open key has files of its own
        for (const std::string &name : names) {
            Registry below(Get_Error_Handler());
            if (below.Init(root_, (path + "\\" + name).c_str(), mode)) below.Delete();
        }
        if (!is_root) error = platform::Registry_Key::remove(root_, path.c_str());
        if (error == error_none || error == error_not_found) return true;
        Report(unit, __LINE__).OS_Error(error, ES_Error, "%s of Key \"%s\"", "Delete", shown.c_str());
        return false;
    });
}

// ---- enumeration and raw values

const char *Registry::GetBaseName() const { return base_name_.get(); }

const char *Registry::GetDisplayName() const { return display_name_.get(); }

namespace {

template <class Count>
int Counted(Count count, unsigned long *number, unsigned long *length)
{
    std::size_t found = 0, longest = 0;
    const std::uint32_t error = count(found, longest);
    if (error != error_none) return static_cast<int>(error);
    if (number) *number = static_cast<unsigned long>(found);
    if (length) *length = static_cast<unsigned long>(longest);
    return error_none;
}

}  // namespace

int Registry::GetNumSubKeys(unsigned long *count, unsigned long *maxLength)
{
    if (!Is_Ready(Asked("GetNumSubKeys", ""), no_key, no_name)) return platform::error_invalid_handle;
    return Counted([&](auto &found, auto &longest) { return key_->sub_keys(found, longest); }, count, maxLength);
}

int Registry::GetNumValues(unsigned long *count, unsigned long *maxNameLength)
{
    if (!Is_Ready(Asked("GetNumValues", ""), no_key, no_name)) return platform::error_invalid_handle;
    return Counted([&](auto &found, auto &longest) { return key_->values(found, longest); }, count, maxNameLength);
}

int Registry::EnumSubKey(int index, char *buffer, unsigned long size)
{
    if (!Is_Ready(Asked("EnumSubKey", ""), no_key, no_name)) return platform::error_invalid_handle;
    if (!buffer) return platform::error_invalid_parameter;
    if (index < 0) return platform::registry_no_more_items;
    std::string name;
    const std::uint32_t error = key_->sub_key_name(static_cast<std::size_t>(index), name);
    return error != error_none ? static_cast<int>(error) : Handed_Out(name, buffer, size);
}

int Registry::EnumValue(unsigned long index, char *name, unsigned long *nameSize, unsigned long *type, void *data,
                        unsigned long *dataSize)
{
    if (!Is_Ready(Asked("EnumValue", ""), no_key, no_name)) return platform::error_invalid_handle;
    if (!name || !nameSize || (data && !dataSize)) return platform::error_invalid_parameter;
    std::string found;
    if (const std::uint32_t error = key_->value_name(index, found)) return static_cast<int>(error);
    if (const int error = Handed_Out(found, name, *nameSize)) return error;
    *nameSize = static_cast<unsigned long>(found.size());
    return type || dataSize ? ReadValue(name, type, data, dataSize) : int{error_none};
}

int Registry::ReadValue(const char *name, unsigned long *type, void *data, unsigned long *dataSize)
{
    if (!Is_Ready(Asked("ReadValue", name), no_key, no_name))
        return key_ ? platform::error_invalid_parameter : platform::error_invalid_handle;
    if (data && !dataSize) return platform::error_invalid_parameter;
    std::uint32_t found = 0;
    std::size_t size = data ? *dataSize : 0;
    char nothing[1];
    const std::uint32_t error = key_->query(name, found, data ? data : nothing, size);
    if (error != error_none && error != platform::registry_more_data) return static_cast<int>(error);
    if (type) *type = found;
    if (dataSize) *dataSize = static_cast<unsigned long>(size);
    return data ? static_cast<int>(error) : int{error_none};  // without a buffer, the size was asked for
}

int Registry::WriteValue(const char *name, unsigned long type, const void *data, unsigned long dataSize)
{
    if (!Is_Ready(Asked("WriteValue", name), no_key, no_name))
        return key_ ? platform::error_invalid_parameter : platform::error_invalid_handle;
    return static_cast<int>(key_->set(name, static_cast<std::uint32_t>(type), data, dataSize));
}

}  // namespace kernel
