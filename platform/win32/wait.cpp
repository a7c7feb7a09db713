#include "platform/wait.h"

#include <windows.h>

namespace platform {

Event::Event()
{
    if (HANDLE handle = CreateEventA(nullptr, FALSE, FALSE, nullptr)) native_ = reinterpret_cast<std::intptr_t>(handle);
}

Event::~Event()
{
    if (valid()) CloseHandle(reinterpret_cast<HANDLE>(native_));
}

void Event::set()
{
    if (valid()) SetEvent(reinterpret_cast<HANDLE>(native_));
}

void Event::reset()
{
    if (valid()) ResetEvent(reinterpret_cast<HANDLE>(native_));
}

bool Event::take() { return true; }

int wait_any(std::span<Waitable *const> waitables, unsigned long ms)
{
    HANDLE handles[MAXIMUM_WAIT_OBJECTS];
    if (waitables.empty() || waitables.size() > MAXIMUM_WAIT_OBJECTS) return wait_failed;
    for (std::size_t i = 0; i < waitables.size(); ++i) {
        if (!waitables[i]->valid()) return wait_failed;
        handles[i] = reinterpret_cast<HANDLE>(waitables[i]->native_);
    }
    const DWORD count = static_cast<DWORD>(waitables.size());
    const DWORD result = WaitForMultipleObjects(count, handles, FALSE, ms);
    if (result == WAIT_TIMEOUT) return wait_timeout;
    if (result >= WAIT_OBJECT_0 + count) return wait_failed;
    return waitables[result - WAIT_OBJECT_0]->take() ? static_cast<int>(result - WAIT_OBJECT_0) : wait_failed;
}

}  // namespace platform
