#include "platform/thread_slot.h"

#include <pthread.h>

namespace platform {

namespace {

constexpr std::intptr_t no_key = -1;

void end_of_thread(void *end) { delete static_cast<Thread_End *>(end); }

pthread_key_t key_of(std::intptr_t key) { return static_cast<pthread_key_t>(key); }

}  // namespace

Thread_Slot::Thread_Slot()
{
    pthread_key_t key{};
    key_ = pthread_key_create(&key, end_of_thread) == 0 ? static_cast<std::intptr_t>(key) : no_key;
}

Thread_End *Thread_Slot::get() const
{
    return key_ == no_key ? nullptr : static_cast<Thread_End *>(pthread_getspecific(key_of(key_)));
}

bool Thread_Slot::set(std::unique_ptr<Thread_End> &&end)
{
    if (key_ == no_key || pthread_setspecific(key_of(key_), end.get()) != 0) return false;
    end.release();
    return true;
}

}  // namespace platform
