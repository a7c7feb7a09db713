// When an e-mail about one cause goes.
#pragma once

#include <chrono>
#include <optional>

namespace host {

// A cause, such as an input that is silent, is told when it has lasted for the time `after`, and its end is told once.
// Two e-mails are at least `pause` apart. One that comes due earlier waits, and does not go if the state that was told
// is back by then: the newest e-mail is true, or the next one is on its way.
//
// Threads:   one.
// Ownership: nothing.
// Errors:    none.
class Mail_Rule {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::minutes pause{15};
    enum class Mail { none, bad, well };

    explicit Mail_Rule(Clock::duration after) : after_(after) {}

    // last_well: `now` as long as all is well; else the last moment at which it was. Returns which e-mail is to go now.
    Mail Pass(Clock::time_point last_well, Clock::time_point now);
    // What the last e-mail has to tell: how long the cause has lasted.
    Clock::duration Lasted() const { return lasted_; }

private:
    const Clock::duration after_;
    bool is_told_ = false;
    Clock::time_point bad_since_{};                // of what was told
    std::optional<Clock::time_point> well_since_;  // while that is over
    std::optional<Clock::time_point> mailed_;      // the last time
    Clock::duration lasted_{};
};

}  // namespace host
