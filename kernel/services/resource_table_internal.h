// The table behind CST, CSTINIT and CSTFREE (resource_strings.h says what they do). Not installed.
#pragma once

#include "kernel/base/kernel_api.h"
#include "kernel/services/resource_reader_internal.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace kernel {

// Each load adds a layer, which does not change once it can be seen. So Text finds its texts without a lock; with one,
// the processor could not look for several at once, and a search would take up to 1.3 of a map's.
//
// Threads:   any; Free must wait until nobody is inside Text or uses a text that it found. Its other texts are valid
//            until the calling thread's next call. Loads at the same time do not see each other's numbers. Neither a
//            file is read nor the callback called under the lock.
// Ownership: owns its texts; copies the file's name.
// Errors:    by the callback, by a line on the standard output, and by what Text returns. Nothing is thrown.
class Resource_Table {
public:
    using Callback = Resource_Reader::Callback;

    Resource_Table() = default;
    ~Resource_Table() { Free(); }
    Resource_Table(const Resource_Table &) = delete;
    Resource_Table &operator=(const Resource_Table &) = delete;

    void Load(const char *file, Callback callback) noexcept;
    const char *Text(std::int32_t number) noexcept;
    void Free() noexcept;

private:
    struct Layer {
        std::map<std::int32_t, std::string> texts;
        const Layer *older = nullptr;
    };
    static constexpr std::size_t text_size =
        1024;  // [bytes] of the texts below, terminator included; longer ones are cut

    bool Parse(const char *file, Callback callback, Layer &layer, int &line);
    bool Add(const Resource_Entry &entry, Layer &layer);
    const std::string *Find(std::int32_t number) const noexcept;
    void Note_Missing_File(const char *file) noexcept;
    void Note_Failure(const char *format, ...) noexcept KERNEL_PRINTF(2, 3);

    std::atomic<const Layer *> newest_{nullptr};  // published complete, with release; changes under the lock
    std::mutex lock_;                             // guards what follows
    bool is_loaded_ = false;
    int errors_ = 0;
    char file_[text_size - 32] = "UnknownFile";  // the last one given to Load; fits into a text of its own
    char fallback_[text_size] = "Call CSTINT before CST";
};

}  // namespace kernel
