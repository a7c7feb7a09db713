#include "platform/shared_memory.h"

#include "platform/win32/wide_text.h"

#include <windows.h>

#include <mutex>
#include <string>

namespace platform {

struct Shared_Memory::State {
    Named_Lock lock;
    HANDLE mapping = nullptr;
    void *view = nullptr;

    explicit State(std::string_view name) : lock(Shared_Memory::transition(name)) {}
    ~State()
    {
        const DWORD error = GetLastError();
        {
            const std::lock_guard guard(lock);
            if (view) UnmapViewOfFile(view);
            if (mapping) CloseHandle(mapping);
        }
        SetLastError(error);
    }
    bool map()
    {
        view = mapping ? MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0) : nullptr;
        return view != nullptr;
    }
};

Shared_Memory::Shared_Memory(std::unique_ptr<State> state) : state_(std::move(state))
{
    MEMORY_BASIC_INFORMATION region{};
    VirtualQuery(state_->view, &region, sizeof region);
    data_ = static_cast<std::byte *>(state_->view);
    size_ = region.RegionSize;
}

Shared_Memory::~Shared_Memory() = default;

std::unique_ptr<Shared_Memory> Shared_Memory::mapped(std::unique_ptr<State> state)
{
    return state->map() ? std::unique_ptr<Shared_Memory>(new Shared_Memory(std::move(state))) : nullptr;
}

std::unique_ptr<Shared_Memory> Shared_Memory::create_locked(std::string_view name, std::uint64_t size, Found &found)
{
    auto state = std::make_unique<State>(name);
    SetLastError(ERROR_SUCCESS);
    state->mapping =
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE | SEC_COMMIT, static_cast<DWORD>(size >> 32),
                           static_cast<DWORD>(size), win32::wide(name).c_str());
    found = GetLastError() == ERROR_ALREADY_EXISTS ? Found::existing : Found::fresh;
    return mapped(std::move(state));
}

std::unique_ptr<Shared_Memory> Shared_Memory::open_locked(std::string_view name)
{
    auto state = std::make_unique<State>(name);
    state->mapping = OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, win32::wide(name).c_str());
    return mapped(std::move(state));
}

}  // namespace platform
