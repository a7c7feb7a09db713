#include "platform/named_lock.h"

#include "platform/win32/wide_text.h"

#include <windows.h>

#include <algorithm>
#include <string>

namespace platform {

namespace {

// The prefix keeps the name apart from events and the like of other programs, which share one space of names. A backslash
// would name a namespace of the kernel. A name has at most MAX_PATH characters: of a longer path the end tells files apart.
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
    if (state_) WaitForSingleObject(state_->handle, INFINITE);  // abandoned by a dead thread is ours as well
}

bool Named_Lock::try_lock() { return !state_ || WaitForSingleObject(state_->handle, 0) != WAIT_TIMEOUT; }

// Refused by the system for a thread that does not hold it.
void Named_Lock::unlock()
{
    if (state_) ReleaseMutex(state_->handle);
}

}  // namespace platform
