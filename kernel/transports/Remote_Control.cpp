#include "kernel/transports/Remote_Control.h"

#include "kernel/base/Error_Handler.h"

#include "platform/clock.h"
#include "platform/window.h"

#include <cstring>

namespace kernel {

namespace {

const char unit[] = "kernel/Remote_Control";
constexpr unsigned long post_retry_ms = 10;
constexpr int tries_per_report = 10;

}  // namespace

const char Remote_Control::Name[] = "Remote_Control";

Remote_Control::Remote_Control(const char *name) : Object(name) {}

Remote_Control::~Remote_Control() = default;

bool Remote_Control::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Object::IsInheritedFrom(name);
}

bool Remote_Control::Gives_Up_Posting() const { return false; }

bool Remote_Control::Hang_Up() { return false; }

bool Remote_Control::Dial(const char *, const char *, const char *) { return false; }

bool Remote_Control::IsBusy() { return false; }

const char *Remote_Control::GetRemoteName() { return nullptr; }

// Takes the lock even when only the status is wanted, because the transport's thread may be setting it.
Remote_Control::Status Remote_Control::GetStatus(unsigned long *const changes)
{
    const Semaphore_Guard guard(lock_);
    if (changes) *changes = changes_;
    return status_;
}

void Remote_Control::SetMessage(void *const window, long message, long wparam)
{
    const Semaphore_Guard guard(lock_);
    window_ = window;
    message_ = message;
    wparam_ = wparam;
}

// For an initial status that is no news to the host: nothing is counted or posted.
void Remote_Control::Set_Status_Quietly(Status status)
{
    const Semaphore_Guard guard(lock_);
    status_ = status;
}

// Each call is counted, even when the status stays the same, so that a polling host sees that something happened. Only
// a change is posted.
void Remote_Control::SetStatus(Status status)
{
    void *window = nullptr;
    long message = 0, wparam = 0;
    {
        const Semaphore_Guard guard(lock_);
        if (status != status_) window = window_;
        status_ = status;
        ++changes_;
        message = message_;
        wparam = wparam_;
    }
    if (window) Post(window, message, wparam, status);
}

// The number of tries has no limit: no change is lost while the window exists, even if the host does not read its
// messages for a long time. Runs without the lock, so that the host can call GetStatus meanwhile.
void Remote_Control::Post(void *window, long message, long wparam, Status status)
{
    const platform::Window_Message post{static_cast<std::uint32_t>(message), static_cast<std::uint64_t>(wparam),
                                        status};
    for (int tries = 1; platform::is_window(window) && !platform::post_message(window, post); ++tries) {
        const bool gives_up = Gives_Up_Posting();
        if (gives_up || tries % tries_per_report == 0)
            Report(unit, __LINE__)
                .Print_Out(Error_Handler::ES_Warning,
                           "Driver tried %d times without success to post a message (status %d).\n", tries,
                           static_cast<int>(status));
        if (gives_up) return;
        platform::sleep_ms(post_retry_ms);
    }
}

}  // namespace kernel
