#include "host/gnss_stream/Timer_Tick.h"

extern "C" {
__declspec(dllimport) unsigned int __stdcall timeBeginPeriod(unsigned int ms);
__declspec(dllimport) unsigned int __stdcall timeEndPeriod(unsigned int ms);
}

namespace host {

// The system counts the calls, so that several of these do not disturb one another.
Timer_Tick::Timer_Tick() { timeBeginPeriod(1); }
Timer_Tick::~Timer_Tick() { timeEndPeriod(1); }

}  // namespace host
