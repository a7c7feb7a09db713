// A segment is a file of the system's shared memory. Each holder has a shared flock on it, which ends with the process
// in every case. If nobody has one, the file is a leftover.
#include "platform/shared_memory.h"

#include "platform/error.h"
#include "platform/posix/errno_table.h"
#include "platform/posix/lock_file.h"
#include "platform/posix/runtime_folder.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace {

// The hash tells names apart, and runtime folders; the letters behind it are for people who look into /dev/shm.
std::string file_of(std::string_view name)
{
    constexpr std::size_t most_letters = 64;
    const std::string folder = posix::runtime_folder();
    if (folder.empty()) return {};
    for (const std::string_view space : {"Local\\", "Global\\"})
        if (name.starts_with(space)) name.remove_prefix(space.size());
    char file[64];
    std::snprintf(file, sizeof file, "/gnss-kernel-%lu-%016" PRIx64 "-", static_cast<unsigned long>(geteuid()),
                  posix::hash(folder + '\0' + std::string(name)));
    std::string letters(name.substr(0, most_letters));
    std::replace_if(
        letters.begin(), letters.end(), [](unsigned char c) { return c >= 0x80 || (!std::isalnum(c) && c != '_'); },
        '.');
    return file + letters;
}

}  // namespace

struct Shared_Memory::State {
    Named_Lock lock;
    const std::string file;
    int descriptor = -1;
    void *view = MAP_FAILED;
    std::size_t size = 0;

    explicit State(std::string_view name) : lock(Shared_Memory::transition(name)), file(file_of(name)) {}
    ~State()
    {
        const std::lock_guard guard(lock);
        if (view != MAP_FAILED) munmap(view, size);
        if (descriptor < 0) return;
        if (!is_held_by_others()) shm_unlink(file.c_str());
        close(descriptor);
    }

    // Another user may have made a file of this name.
    bool open(int how)
    {
        descriptor = shm_open(file.c_str(), O_RDWR | how, 0600);
        struct stat status {};
        if (descriptor < 0 || fstat(descriptor, &status) != 0) return posix::fail();
        if (status.st_uid == geteuid() && (status.st_mode & 0077) == 0) return true;
        close(descriptor);
        descriptor = -1;
        set_last_error(error_access_denied);
        return false;
    }
    // Takes the exclusive lock when it can. Call with the transition's lock held.
    bool is_held_by_others() const { return !posix::take_flock(descriptor, LOCK_EX | LOCK_NB); }

    // Without the reservation a full file system would be a bus error at the first touch of a page.
    bool reserve(std::uint64_t bytes)
    {
        if (bytes == 0 || bytes > INT64_MAX) {
            set_last_error(bytes == 0 ? error_invalid_parameter : error_no_memory);
            return false;
        }
        if (ftruncate(descriptor, 0) != 0) return posix::fail();
        int error = EINTR;
        while (error == EINTR) error = posix_fallocate(descriptor, 0, static_cast<off_t>(bytes));
        errno = error;
        return error == 0 || posix::fail();
    }
    bool map()
    {
        struct stat status {};
        if (!posix::take_flock(descriptor, LOCK_SH) || fstat(descriptor, &status) != 0) return posix::fail();
        size = static_cast<std::size_t>(status.st_size);
        view = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
        return view != MAP_FAILED || posix::fail();
    }
};

Shared_Memory::Shared_Memory(std::unique_ptr<State> state)
    : state_(std::move(state)), data_(static_cast<std::byte *>(state_->view)), size_(state_->size)
{
}

Shared_Memory::~Shared_Memory() = default;

std::unique_ptr<Shared_Memory> Shared_Memory::mapped(std::unique_ptr<State> state)
{
    return state->map() ? std::unique_ptr<Shared_Memory>(new Shared_Memory(std::move(state))) : nullptr;
}

std::unique_ptr<Shared_Memory> Shared_Memory::create_locked(std::string_view name, std::uint64_t size, Found &found)
{
    auto state = std::make_unique<State>(name);
    if (state->file.empty() || !state->open(O_CREAT)) return nullptr;
    found = state->is_held_by_others() ? Found::existing : Found::fresh;
    if (found == Found::fresh && !state->reserve(size)) return nullptr;
    return mapped(std::move(state));
}

std::unique_ptr<Shared_Memory> Shared_Memory::open_locked(std::string_view name)
{
    auto state = std::make_unique<State>(name);
    if (state->file.empty() || !state->open(0)) return nullptr;
    if (!state->is_held_by_others()) {  // its last holder died; the destructor removes it
        state.reset();
        set_last_error(error_not_found);
        return nullptr;
    }
    return mapped(std::move(state));
}

}  // namespace platform
