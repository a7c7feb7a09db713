// Statics that are not destroyed at the end of the process.
#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace kernel {

// A static that is constructed like any other and never destroyed: other threads, and statics of a host that were made
// earlier, may use the library until the process ends.
//
// Threads:   as T; constructed once, like every static.
// Ownership: keeps the T and what T owns until the process ends.
// Errors:    passes on what the constructor of T throws.
template <class T>
class Immortal {
public:
    template <class... Arguments>
    explicit Immortal(Arguments &&...arguments)
    {
        ::new (static_cast<void *>(bytes_)) T(std::forward<Arguments>(arguments)...);
    }
    Immortal(const Immortal &) = delete;
    Immortal &operator=(const Immortal &) = delete;

    T &operator*() { return *std::launder(reinterpret_cast<T *>(bytes_)); }

private:
    alignas(T) std::byte bytes_[sizeof(T)];
};

}  // namespace kernel
