// Statics that the end of the process does not destroy.
#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace kernel {

// A static that is made like any other and never destroyed: other threads, and statics of a host that were made earlier,
// use the library until the process is gone.
//
// Threads:   as T; made once, as every static.
// Ownership: holds the T, and what that holds, for good.
// Errors:    what the constructor of T throws.
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
