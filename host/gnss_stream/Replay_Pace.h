// How a recording with time tags is replayed.
#pragma once

namespace host {

struct Replay_Pace {
    double speed = 1;  // 10: ten times as fast as it came
    double start = 0;  // [s] behind the first time tag: what came before is passed over

    static constexpr double least_speed = 0.1, most_speed = 1000, latest_start = 1e9;
    bool operator==(const Replay_Pace &) const = default;
};

}  // namespace host
