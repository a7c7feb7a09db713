#include "platform/named_lock.h"

#include "platform/win32/wide_text.h"

#include <windows.h>

#include <algorithm>
#include <string>

namespace platform {

namespace {

// The prefix separates the name from events and other objects of other programs, which share one namespace. A backslash
// would select a namespace of the system. A name has at most MAX_PATH characters: of a longer path the end is used, in
// which paths differ more.
std::wstring mutex_name(std::string_view name)
{
    constexpr std::size_t longest = 200;
    std::wstring end = win32::wide(name);
    if (end.size() > longest) end.erase(0, end.size() - longest);
    std::replace(end.begin(), end.end(), L'\\', L'/');
    return L"gnss-kernel lock " + end;
}

}  // namespace

struct Named_Lock::State {
    HANDLE handle;

    explicit State(HANDLE mutex) : handle(mutex) {}
    ~State() { CloseHandle(handle); }
};

Named_Lock::Named_Lock(std::string_view name)
{
    HANDLE handle = CreateMutexW(nullptr, FALSE, name.empty() ? nullptr : mutex_name(name).c_str());
    if (handle) state_ = std::make_shared<State>(handle);
}

Named_Lock::~Named_Lock() = default;

void Named_Lock::lock()
{
    if (state_) WaitForSingleObject(state_->handle, INFINITE);  // also takes a lock that a dead thread has abandoned
}

bool Named_Lock::try_lock() { return !state_ || WaitForSingleObject(state_->handle, 0) != WAIT_TIMEOUT; }

// The system refuses it for a thread that does not hold the lock.
void Named_Lock::unlock()
{
    if (state_) ReleaseMutex(state_->handle);
}

}  // namespace platform
