// The resolution of sleeps.
#pragma once

namespace host {

// While one of these lives, a sleep ends at most about a millisecond late. Windows otherwise wakes sleepers 64 times a
// second only.
//
// Threads:   any.
// Ownership: nothing.
// Errors:    none; without success sleeps are as coarse as before.
class Timer_Tick {
public:
    Timer_Tick();
    ~Timer_Tick();
    Timer_Tick(const Timer_Tick &) = delete;
    Timer_Tick &operator=(const Timer_Tick &) = delete;
};

}  // namespace host
