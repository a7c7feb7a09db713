#include "platform/named_lock.h"

#include <windows.h>

#include <algorithm>
#include <string>

namespace platform {

namespace {

// A backslash would name a namespace of the kernel, and a name has at most MAX_PATH characters: of a longer path the end
// tells files apart.
std::string mutex_name(std::string_view name)
{
    std::string result(name.substr(name.size() > 250 ? name.size() - 250 : 0));
    std::replace(result.begin(), result.end(), '\\', '/');
    return result;
}

}  // namespace

struct Named_Lock::State {
    HANDLE handle;

    explicit State(HANDLE mutex) : handle(mutex) {}
    ~State() { CloseHandle(handle); }
};

Named_Lock::Named_Lock(std::string_view name)
{
    HANDLE handle = CreateMutexA(nullptr, FALSE, name.empty() ? nullptr : mutex_name(name).c_str());
    if (handle) state_ = std::make_shared<State>(handle);
}

Named_Lock::~Named_Lock() = default;

void Named_Lock::lock()
{
    if (state_) WaitForSingleObject(state_->handle, INFINITE);  // abandoned by a dead thread is ours as well
}

void Named_Lock::unlock()
{
    if (state_) ReleaseMutex(state_->handle);
}

}  // namespace platform
