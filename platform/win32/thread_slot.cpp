#include "platform/thread_slot.h"

#include <windows.h>

namespace platform {

namespace {

void WINAPI end_of_thread(void *end) { delete static_cast<Thread_End *>(end); }

DWORD key_of(std::intptr_t key) { return static_cast<DWORD>(key); }

}  // namespace

Thread_Slot::Thread_Slot() : key_(static_cast<std::intptr_t>(FlsAlloc(end_of_thread))) {}

Thread_End *Thread_Slot::get() const
{
    return key_of(key_) == FLS_OUT_OF_INDEXES ? nullptr : static_cast<Thread_End *>(FlsGetValue(key_of(key_)));
}

bool Thread_Slot::set(std::unique_ptr<Thread_End> &&end)
{
    if (key_of(key_) == FLS_OUT_OF_INDEXES || !FlsSetValue(key_of(key_), end.get())) return false;
    end.release();
    return true;
}

}  // namespace platform
