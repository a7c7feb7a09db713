// What one thread adds to and another one looks at.
#pragma once

#include <mutex>

template <class All>
class Shared {
public:
    void Add(const All &more)
    {
        const std::lock_guard lock(guard_);
        all_.insert(all_.end(), more.begin(), more.end());
    }
    All Now() const
    {
        const std::lock_guard lock(guard_);
        return all_;
    }

private:
    mutable std::mutex guard_;
    All all_;
};
