#include "host/gnss_stream/Timer_Tick.h"

namespace host {

// Sleeps are precise already.
Timer_Tick::Timer_Tick() = default;
Timer_Tick::~Timer_Tick() = default;

}  // namespace host
