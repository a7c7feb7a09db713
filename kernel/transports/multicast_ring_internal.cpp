#include "kernel/transports/multicast_ring_internal.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace kernel {

namespace {

constexpr std::uint32_t largest = std::numeric_limits<std::int32_t>::max();

}  // namespace

Multicast_Ring::Multicast_Ring(std::uint32_t size, Mode mode)
    : size_(size), mode_(mode), bytes_(size > 0 && size <= largest ? new (std::nothrow) unsigned char[size]() : nullptr)
{
}

bool Multicast_Ring::Has_Ended(Position position, Position tail) const
{
    return position == (mode_ == Mode::by_mark ? caught_up : tail);
}

std::uint32_t Multicast_Ring::Unread(Position position) const
{
    if (Has_Ended(position, tail_)) return 0;
    const std::int64_t ahead = std::int64_t{tail_} - position;
    return static_cast<std::uint32_t>(ahead > 0 ? ahead : ahead + size_);
}

Multicast_Ring::Change Multicast_Ring::Insert(const unsigned char *data, long n)
{
    if (!data || n <= 0 || !Is_Valid()) return {false, head_, head_, tail_, tail_};
    const std::int64_t size = size_;
    const std::int64_t kept = std::min<std::int64_t>(n, size);
    const std::int64_t to_end = std::min(kept, size - tail_);
    const unsigned char *const from = data + (n - kept);
    std::memcpy(&bytes_[static_cast<std::size_t>(tail_)], from, static_cast<std::size_t>(to_end));
    std::memcpy(&bytes_[0], from + to_end, static_cast<std::size_t>(kept - to_end));

    Change change{tail_ + kept >= size, head_, 0, tail_, 0};
    change.new_tail = static_cast<Position>(change.wraps ? kept - to_end : tail_ + kept);
    has_wrapped_ = has_wrapped_ || change.wraps;
    if (head_ >= 0) change.new_head = has_wrapped_ ? change.new_tail : head_;
    head_ = change.new_head;
    tail_ = change.new_tail;
    return change;
}

// The comparisons are strict, so a position at the old head stays. That is part of the interface.
Multicast_Ring::Position Multicast_Ring::Adapted(const Change &change, Position position) const
{
    if (position == caught_up) return change.old_tail;
    if (!has_wrapped_) return position;
    const bool overwritten = change.wraps ? position > change.old_head || position < change.new_tail
                                          : position > change.old_head && position < change.new_head;
    return overwritten ? change.new_head : position;
}

Multicast_Ring::Position Multicast_Ring::Read(Position position, unsigned char *dst, long n, long &got) const
{
    got = 0;
    if (!dst || n <= 0 || static_cast<std::uint32_t>(position) >= size_) return position;
    if (Has_Ended(position, tail_)) return position;
    const auto copy = [&](std::int64_t most) {
        const auto piece = static_cast<long>(std::min<std::int64_t>(most, n - got));
        std::memcpy(dst + got, &bytes_[static_cast<std::size_t>(position)], static_cast<std::size_t>(piece));
        position += static_cast<Position>(piece);
        got += piece;
    };
    if (position < tail_) {
        copy(tail_ - position);
    } else {
        copy(std::int64_t{size_} - position);
        if (static_cast<std::uint32_t>(position) == size_) {
            position = 0;
            copy(tail_);
        }
    }
    return mode_ == Mode::by_mark && position == tail_ ? caught_up : position;
}

}  // namespace kernel
