// Shared memory with a name: a segment lives as long as some process holds it.
#pragma once

#include "platform/named_lock.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace platform {

// One segment, mapped. Its bytes are 0 at first. Every process of the same user that knows the name can open it; POSIX
// keeps others out (mode 0600). When its last holder closes it or dies, the segment is gone, and its name is free.
//
// Creation, opening and closing exclude each other by the lock that transition() returns, in all processes. A caller
// that has more to do in the same step (write a header, save the contents) holds that lock itself meanwhile: it is
// re-entrant.
//
// Threads:   create, open and destroy from any thread; the bytes are the callers' to share.
// Ownership: owns one mapping of the segment. Its address is valid until destruction.
// Errors:    null, with last_error(): error_not_found when there is none to open, error_invalid_parameter for a size of
//            0, error_disk_full or error_no_memory when the system has no room for all bytes, error_invalid_name for an
//            empty name, error_name_too_long from 260 bytes on, error_path_not_found for a name with a backslash, which
//            Windows takes for a folder of names ("Local\" and "Global\" in front are accepted).
class Shared_Memory {
public:
    enum class Found { fresh, existing };

    // Creates it with this size in bytes, or attaches to the existing one, whose size stays as it is.
    static std::unique_ptr<Shared_Memory> create(std::string_view name, std::uint64_t size, Found &found);
    static std::unique_ptr<Shared_Memory> open(std::string_view name);
    ~Shared_Memory();
    Shared_Memory(const Shared_Memory &) = delete;
    Shared_Memory &operator=(const Shared_Memory &) = delete;

    std::byte *data() const { return data_; }
    std::size_t size() const { return size_; }  // [bytes] that may be touched; Windows rounds it up to whole pages

    static Named_Lock transition(std::string_view name);

private:
    struct State;
    explicit Shared_Memory(std::unique_ptr<State> state);
    // For both halves: create and open, with the transition's lock held and a name that may be.
    static std::unique_ptr<Shared_Memory> create_locked(std::string_view name, std::uint64_t size, Found &found);
    static std::unique_ptr<Shared_Memory> open_locked(std::string_view name);
    static std::unique_ptr<Shared_Memory> mapped(std::unique_ptr<State> state);  // null when it cannot be mapped

    const std::unique_ptr<State> state_;
    std::byte *data_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace platform
