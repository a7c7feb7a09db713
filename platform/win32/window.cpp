#include "platform/window.h"

#include "platform/wait.h"

#include <windows.h>

namespace platform {

namespace {

constexpr char class_name[] = "gnss-kernel-window";

// Finds this module, the program or the library, by the address of a variable in it.
HINSTANCE own_module()
{
    static const char here = 0;
    HMODULE module = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT, &here,
                       &module);
    return module;
}

bool register_class()
{
    WNDCLASSA description{};
    description.lpfnWndProc = DefWindowProcA;
    description.hInstance = own_module();
    description.lpszClassName = class_name;
    return RegisterClassA(&description) != 0 || GetLastError() == ERROR_CLASS_ALREADY_EXISTS;
}

// Message numbers from WM_USER on are for programs; the ones below belong to the system.
bool is_ours(const MSG &message) { return message.message >= WM_USER; }

}  // namespace

struct Window::State {
    enum class Found { message, nothing, quit };

    HWND window = nullptr;
    ~State() { DestroyWindow(window); }

    // Takes messages off the queue, those of the system included, until one is for the host.
    Found take(MSG &message) const
    {
        while (PeekMessageA(&message, window, 0, 0, PM_REMOVE)) {
            if (is_ours(message)) return Found::message;
            if (message.message == WM_QUIT) {  // posted again for the host's own message loop
                PostQuitMessage(static_cast<int>(message.wParam));
                return Found::quit;
            }
            DispatchMessageA(&message);
        }
        return Found::nothing;
    }
};

Window::Window(std::unique_ptr<State> state) : state_(std::move(state)) {}

Window::~Window() = default;

// A top-level window, so that broadcasts reach it. It is never shown.
std::unique_ptr<Window> Window::create()
{
    if (!register_class()) return nullptr;
    HWND window = CreateWindowExA(WS_EX_TOOLWINDOW, class_name, "", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr,
                                  own_module(), nullptr);
    if (!window) return nullptr;
    auto state = std::make_unique<State>();
    state->window = window;
    return std::unique_ptr<Window>(new Window(std::move(state)));
}

void *Window::handle() const { return state_->window; }

bool Window::receive(Window_Message &message, unsigned long ms)
{
    const std::uint64_t begin = GetTickCount64();
    MSG taken{};
    State::Found found = state_->take(taken);
    while (found == State::Found::nothing) {
        const std::uint64_t passed = GetTickCount64() - begin;
        if (ms < wait_forever && passed >= ms) return false;
        const DWORD left = ms < wait_forever ? static_cast<DWORD>(ms - passed) : INFINITE;
        if (MsgWaitForMultipleObjects(0, nullptr, FALSE, left, QS_ALLINPUT) == WAIT_FAILED) return false;
        found = state_->take(taken);
    }
    if (found == State::Found::quit) return false;
    message = {taken.message, taken.wParam, taken.lParam};
    return true;
}

bool is_window(void *window) { return IsWindow(static_cast<HWND>(window)) != 0; }

// Checks is_window first: some numbers, null among them, mean more than one window to Windows.
bool post_message(void *window, const Window_Message &message)
{
    if (!is_window(window)) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return false;
    }
    return PostMessageA(static_cast<HWND>(window), message.message, static_cast<WPARAM>(message.wparam),
                        static_cast<LPARAM>(message.lparam)) != 0;
}

namespace {

struct Broadcast {
    const Window_Message &message;
    int taken = 0;
};

BOOL CALLBACK post_to(HWND window, LPARAM argument)
{
    auto *const broadcast = reinterpret_cast<Broadcast *>(argument);
    if (post_message(window, broadcast->message)) ++broadcast->taken;
    return TRUE;
}

}  // namespace

int broadcast_message(const Window_Message &message)
{
    Broadcast broadcast{message};
    EnumWindows(post_to, reinterpret_cast<LPARAM>(&broadcast));
    return broadcast.taken;
}

}  // namespace platform
