#include "kernel/services/resource_table_internal.h"

#include "platform/file.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <new>
#include <utility>

namespace kernel {

namespace {

// False if the file cannot be opened, or not be read to its end.
bool Read_Whole(const char *name, std::string &bytes)
{
    const auto file = platform::File::open(name, platform::File::Mode::read_shared);
    std::array<char, 16384> block;
    for (std::size_t got = block.size(); file && got == block.size(); bytes.append(block.data(), got)) {
        if (!file->read(block.data(), block.size(), got)) return false;
    }
    return file != nullptr;
}

void Complain(Resource_Table::Callback callback, int line)
{
    char text[64];
    std::snprintf(text, sizeof text, "LOCALE ERROR, Line(%d)", line);
    if (callback) callback(text);
}

}  // namespace

void Resource_Table::Load(const char *file, Callback callback) noexcept
{
    const char *const name = file ? file : "RESOURCE.DAT";
    {
        const std::lock_guard guard(lock_);
        std::snprintf(file_, sizeof file_, "%s", name);
    }
    int line = 1;
    bool is_good = false;
    auto layer = std::unique_ptr<Layer>(new (std::nothrow) Layer);
    try {
        is_good = layer && Parse(name, callback, *layer, line);
    } catch (...) {  // no memory, or a callback that throws
    }
    if (layer && !layer->texts.empty()) {
        const std::lock_guard guard(lock_);
        layer->older = newest_.load(std::memory_order_relaxed);
        newest_.store(layer.release(), std::memory_order_release);
    }
    if (!is_good) std::printf("Error in line %d of File %s\n", line, name);
}

// False: reading stopped in `line`.
bool Resource_Table::Parse(const char *file, Callback callback, Layer &layer, int &line)
{
    std::string bytes;
    if (!Read_Whole(file, bytes)) {
        Note_Missing_File(file);
        return true;
    }
    {
        const std::lock_guard guard(lock_);
        is_loaded_ = true;
    }
    Resource_Reader reader(bytes, callback);
    if (!reader.Read_Header()) {
        Complain(callback, reader.Line());
        Note_Failure("(%d) Syntax Error in %s ", reader.Line(), file);
        return true;
    }
    for (Resource_Entry entry; !reader.At_End();) {
        const bool is_entry = reader.Read_Entry(entry);
        line = is_entry ? entry.line : reader.Line();
        if (is_entry && Add(entry, layer)) continue;
        Complain(callback, line);
        if (is_entry) Note_Failure(" (%d) Nr %d allready in %s", line, entry.number, file);
        return false;
    }
    return true;
}

bool Resource_Table::Add(const Resource_Entry &entry, Layer &layer)
{
    {
        const std::lock_guard guard(lock_);  // against Free
        if (Find(entry.number)) return false;
    }
    const std::size_t former = layer.texts.size();
    layer.texts.try_emplace(layer.texts.end(), entry.number, entry.text);  // the hint: most files are in order
    return layer.texts.size() > former;
}

const std::string *Resource_Table::Find(std::int32_t number) const noexcept
{
    for (const Layer *layer = newest_.load(std::memory_order_acquire); layer; layer = layer->older) {
        const auto found = layer->texts.find(number);
        if (found != layer->texts.end()) return &found->second;
    }
    return nullptr;
}

void Resource_Table::Note_Missing_File(const char *file) noexcept
{
    const std::lock_guard guard(lock_);
    if (errors_++ == 0) std::snprintf(fallback_, sizeof fallback_, "Couldn't open file %s", file);
}

// Part of the interface: the first failure in a file leaves the text of CST alone.
void Resource_Table::Note_Failure(const char *format, ...) noexcept
{
    const std::lock_guard guard(lock_);
    if (errors_++ == 0) return;
    va_list values;
    va_start(values, format);
    std::vsnprintf(fallback_, sizeof fallback_, format, values);
    va_end(values);
}

const char *Resource_Table::Text(std::int32_t number) noexcept
{
    if (const std::string *const found = Find(number)) return found->c_str();
    thread_local char own_text[text_size];
    const std::lock_guard guard(lock_);
    if (is_loaded_ && errors_ == 0)
        std::snprintf(own_text, sizeof own_text, "Entry %d not in File %s", static_cast<int>(number), file_);
    else
        std::snprintf(own_text, sizeof own_text, "%s", fallback_);
    return own_text;
}

void Resource_Table::Free() noexcept
{
    const Layer *layer = nullptr;
    {
        const std::lock_guard guard(lock_);
        layer = newest_.exchange(nullptr, std::memory_order_acq_rel);
        is_loaded_ = false;
    }
    while (layer) delete std::exchange(layer, layer->older);
}

}  // namespace kernel
