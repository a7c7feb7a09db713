#include "kernel/transports/receive_buffer_internal.h"

#include <algorithm>
#include <cstring>

namespace kernel {

std::size_t Receive_Buffer::Take(unsigned char *to, std::size_t n)
{
    const std::size_t taken = std::min(n, Held());
    std::memcpy(to, bytes_.data() + read_, taken);
    read_ += taken;
    return taken;
}

bool Receive_Buffer::Put_Back(unsigned char byte)
{
    if (read_ == 0) return false;
    bytes_[--read_] = byte;
    return true;
}

// A client that gives back more than it took, again and again, may leave more bytes than fit behind a full margin. The
// margin in front is smaller then.
void Receive_Buffer::Compact()
{
    const std::size_t held = Held();
    const std::size_t start = std::min(margin, bytes_.size() - held);
    if (held > 0 && read_ != start) std::memmove(bytes_.data() + start, bytes_.data() + read_, held);
    read_ = start;
    write_ = start + held;
}

}  // namespace kernel
